#pragma once
// The secure store and the preferences file live in a temporary folder for the length of
// one test, so tests never read or change the person's own.
#include <string>

#include "support/TempFolder.h"

namespace vxcloud::testing {

class IsolatedStores {
public:
    IsolatedStores();
    ~IsolatedStores();
    IsolatedStores(const IsolatedStores&) = delete;
    IsolatedStores& operator=(const IsolatedStores&) = delete;

    const std::string& folder() const { return temp_.path(); }
    std::string file(const std::string& name) const { return temp_.file(name); }

private:
    TempFolder temp_;
};

}  // namespace vxcloud::testing
