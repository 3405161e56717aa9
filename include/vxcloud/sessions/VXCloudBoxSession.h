#pragma once
// The session for Box accounts. Items are addressed by id; a stored document is found
// again in its folder by SHA-1, then by name, and changed content becomes a new version of
// the same file. Moves change each file's parent, at most four at a time. The session is
// made by initWithCloudAccount; its steps are private to the library.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

// Completions and delegate callbacks arrive on global-queue threads.
class VXCloudBoxSession : public VXCloudSession {
public:
    static constexpr const char* kSettingsFileName = ".quillosettings";
    // The top folder of every Box user.
    static constexpr const char* kRootId = "0";

    // Nothing when no authorisation of the account's Box user is stored.
    static std::shared_ptr<VXCloudBoxSession> initWithCloudAccount(std::shared_ptr<VXCloudAccount> account);

    // "VX_Box_" + the account's user id: where its authorisation is kept.
    static std::string storageName(const VXCloudAccount& account);

    // Bytes sent at the previous progress report; empty until the first one, never reset.
    virtual std::optional<std::int64_t> previousUploadAmount() const = 0;

    ~VXCloudBoxSession() override;

protected:
    explicit VXCloudBoxSession(std::shared_ptr<VXCloudAccount> account);
};

}  // namespace vxcloud
