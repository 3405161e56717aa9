#pragma once
// One linked account: the service, the user's identity there, the upload settings and
// the last error. Stored as its dictionary form (toDict) under key().
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudService.h"
#include "vxcloud/platform/Json.h"

namespace vxcloud {

class VXCloudSession;

class VXCloudAccount : public std::enable_shared_from_this<VXCloudAccount> {
public:
    // Dictionary keys of the stored form. "shouldAutoUpload" keeps its camel case:
    // stored data already uses it.
    static constexpr const char* kUserIdKey = "userid";
    static constexpr const char* kAccountNameKey = "accountname";
    static constexpr const char* kDisplayNameKey = "displayname";
    static constexpr const char* kCloudServiceKey = "cloudservicerawvalue";
    static constexpr const char* kUploadFolderInfoKey = "defaultuploadfolderinfo";
    static constexpr const char* kOnlyWifiKey = "onlyuploadonwifi";
    static constexpr const char* kShouldAutoUploadKey = "shouldAutoUpload";
    static constexpr const char* kErrorKey = "error";

    // Auto-upload off, Wi-Fi only on, no folder, no error; displayName = email.
    VXCloudAccount(std::string userId, std::string email, VXCloudService cloudService);
    VXCloudAccount() = delete;
    virtual ~VXCloudAccount();

    // From the dictionary form: nothing when "userid" or "accountname" is not a string or
    // "cloudservicerawvalue" is not an integer in 0-6. Optional keys of the wrong type
    // keep their defaults; an unknown "error" word leaves no error.
    static std::shared_ptr<VXCloudAccount> initWithDictionary(const Json& dictionary);
    // The first stored account of the service named by `serviceType` (a type word such as
    // "google_drive") whose email is `email` exactly. onlyWifiUpload is not copied from
    // it and stays true.
    static std::shared_ptr<VXCloudAccount> initWithEmail(const std::string& email,
                                                         const std::string& serviceType);

    virtual Json toDict() const;

    // Service key prefix + userId, e.g. "VX_Dropbox_" + userId.
    std::string key() const;
    // The service's type word ("google_drive", ...).
    std::string accountType() const;
    // Path of the service's icon in the resource bundle.
    std::optional<std::string> accountIcon() const;
    // A new session for this account on every call; none for WebDAV, and none for an
    // account that is not held by a std::shared_ptr (a session keeps its account).
    std::shared_ptr<VXCloudSession> sessionForAccount();

    std::string userId;
    std::string email;
    std::string displayName;
    VXCloudService cloudService;
    bool shouldAutoUpload = false;
    bool onlyWifiUpload = true;
    JsonBox uploadFolderInfo;
    std::shared_ptr<VXCloudError> error;

protected:
    // For subclasses that fill the account from a dictionary: all fields at their defaults.
    struct Unfilled {};
    explicit VXCloudAccount(Unfilled);
    // The base part of initWithDictionary, applied to this object; false when a required
    // key is missing or of the wrong type.
    bool readDictionary(const Json& dictionary);
};

}  // namespace vxcloud
