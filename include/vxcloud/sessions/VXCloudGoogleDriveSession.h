#pragma once
// The session for Google Drive accounts. Drive addresses files by id and lets one name occur
// many times in a folder, so stored documents are found with search queries (parent, name,
// trash state) and compared by MD5 checksum; content is replaced by updating the found file,
// and files move by changing their parents, at most four at a time. The session itself is
// made by initWithCloudAccount; its steps are private to the library.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

// Completions and delegate callbacks arrive on global-queue threads.
class VXCloudGoogleDriveSession : public VXCloudSession {
public:
    static constexpr const char* kSettingsFileName = ".quillosettings";

    // Nothing when no authorisation is stored under the account's storage name.
    static std::shared_ptr<VXCloudGoogleDriveSession> initWithCloudAccount(std::shared_ptr<VXCloudAccount> account);

    // "VX_Google_Drive_" + the account's user id: where its authorisation is kept.
    static std::string storageName(const VXCloudAccount& account);

    // Bytes sent at the previous progress report; empty until the first one.
    virtual std::optional<std::uint64_t> previousUploadAmount() const = 0;

    // Search texts the session sends; names are quoted with their quotes and backslashes
    // escaped, so no name can change a query's meaning.
    static std::string subfoldersQuery(const std::string& folderId);
    static std::string documentQuery(const std::string& folderId, const std::string& name);
    static std::string settingsQuery();

    ~VXCloudGoogleDriveSession() override;

protected:
    explicit VXCloudGoogleDriveSession(std::shared_ptr<VXCloudAccount> account);
};

}  // namespace vxcloud
