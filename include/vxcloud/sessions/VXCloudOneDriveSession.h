#pragma once
// The session for OneDrive accounts, over Microsoft Graph. Items are addressed by id; a
// stored document is found again in its folder by the digest the drive reports (SHA-1
// where there is one, QuickXorHash on every drive), then by name. Names clash in a folder,
// so every store says what a same-named file meets: replaced, or refused by the service.
// Moves change each file's parent, at most four at a time. The session itself is made by
// initWithCloudAccount; its steps are private to the library.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

// Completions and delegate callbacks arrive on global-queue threads.
class VXCloudOneDriveSession : public VXCloudSession {
public:
    static constexpr const char* kSettingsFileName = ".quillosettings";
    static constexpr const char* kRootId = "root";

    // Nothing when no authorisation is stored under the account's storage name.
    static std::shared_ptr<VXCloudOneDriveSession> initWithCloudAccount(std::shared_ptr<VXCloudAccount> account);

    // "VX_OneDrive_" + the account's user id: where its authorisation is kept.
    static std::string storageName(const VXCloudAccount& account);

    // Bytes sent at the previous progress report; empty until the first one, never reset.
    virtual std::optional<std::int64_t> previousUploadAmount() const = 0;

    ~VXCloudOneDriveSession() override;

protected:
    explicit VXCloudOneDriveSession(std::shared_ptr<VXCloudAccount> account);
};

}  // namespace vxcloud
