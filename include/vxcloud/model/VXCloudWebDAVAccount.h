#pragma once
// A WebDAV account: a server (url, port) and a user name. Its userId is a generated
// UUID, so the same user on two servers makes two accounts.
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/model/VXCloudAccount.h"

namespace vxcloud {

class VXCloudWebDAVAccount : public VXCloudAccount {
public:
    static constexpr const char* kUrlKey = "url";
    static constexpr const char* kPortKey = "port";
    static constexpr const char* kLabelKey = "label";

    // userId = a fresh random UUID, email = displayName = username, service webDAV.
    VXCloudWebDAVAccount(std::string username, std::string url, std::string port);
    // The base class's initialisers do not make WebDAV accounts.
    VXCloudWebDAVAccount(std::string userId, std::string email, VXCloudService) = delete;
    static std::shared_ptr<VXCloudAccount> initWithEmail(const std::string&,
                                                         const std::string&) = delete;

    // Needs "accountname", "url" and "port" as strings, then everything the base needs.
    static std::shared_ptr<VXCloudWebDAVAccount> initWithDictionary(const Json& dictionary);

    // The base form with "accountname" = username, plus "url", "port" and, when set, "label".
    Json toDict() const override;

    std::string username;
    std::string url;
    std::string port;  // kept as text
    std::optional<std::string> label;

private:
    explicit VXCloudWebDAVAccount(Unfilled);
};

}  // namespace vxcloud
