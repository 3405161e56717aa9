#include "sessions/DropboxFixture.h"
#include "sessions/ProviderFixture.h"

namespace vxcloud::testing {

std::vector<ProviderCase> contractProviders() {
    return {
        {"Dropbox", [] { return std::make_unique<DropboxFixture>(); }},
    };
}

}  // namespace vxcloud::testing
