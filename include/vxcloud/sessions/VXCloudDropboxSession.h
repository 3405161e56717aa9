#pragma once
// The session for Dropbox accounts: everything is addressed by path; a stored document is
// found again by content hash, then by name; moves go through one batch job that is polled.
// The session itself is made by initWithCloudAccount; its steps are private to the library.
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

// Completions and delegate callbacks arrive on global-queue threads.
class VXCloudDropboxSession : public VXCloudSession {
public:
    static constexpr std::chrono::milliseconds kMovePollInterval{3000};
    static constexpr const char* kSettingsFileName = ".quillosettings";

    // Nothing when no token is stored for the account's user id. `movePollInterval` is the
    // wait between two looks at a move job (tests shorten it).
    static std::shared_ptr<VXCloudDropboxSession> initWithCloudAccount(
        std::shared_ptr<VXCloudAccount> account,
        std::chrono::milliseconds movePollInterval = kMovePollInterval);

    // The completed byte count at the previous progress report; never reset.
    virtual std::optional<std::int64_t> previousUploadAmount() const = 0;
    virtual std::chrono::milliseconds movePollInterval() const = 0;

    // "/" for no parent, a parent without path, or the paths "" and "/"; else path + "/".
    static std::string folderPrefix(const std::shared_ptr<VXCloudFile>& parent);

    ~VXCloudDropboxSession() override;

protected:
    explicit VXCloudDropboxSession(std::shared_ptr<VXCloudAccount> account);
};

}  // namespace vxcloud
