#pragma once
// The Box Content API 2.0 emulator with Box's OAuth 2, under /box:
//   /box/2.0/users/me, /folders[/{id}[/items]], /files/{id}[/content]   the API host
//   /box/2.0/files[/{id}]/content (OPTIONS)                             the preflight check
//   /box/upload/api/2.0/files[/{id}]/content                            direct uploads, new versions
//   /box/upload/api/2.0/files[/{id}]/upload_sessions[/{session}[/parts|/commit]]  chunked uploads
//   /box/dl/{grant}                                                     pre-authenticated downloads
//   /box/api/oauth2/authorize, /box/oauth2/token, /box/oauth2/revoke    sign-in
// Ids are decimal strings, the root folder is "0". Names are unique in a folder across files
// and folders, ignoring case.
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "box/BoxErrors.h"
#include "framework/ExpiringSessions.h"
#include "framework/OAuthEndpoints.h"
#include "framework/ProviderModule.h"

namespace vxcloud::sandbox::box {

using nlohmann::json;

struct Settings {
    int pageLimitDefault = 100;                          // `limit` when none is given
    int pageLimitMax = 1000;                             // larger limits are clamped to this
    std::int64_t directUploadMaxBytes = 50'000'000;      // a larger file needs an upload session
    std::int64_t chunkedMinBytes = 20'000'000;           // a smaller one may not use a session
    std::int64_t partSize = 8LL * 1024 * 1024;
    std::int64_t uploadSessionLifetime = 7LL * 24 * 3600;
    int commitAcceptedFirst = 0;                         // commits answered 202 before one is done
    bool conflictsAsArray = false;                       // upload clashes: conflicts as an array
    bool refreshGrace = false;                           // a spent refresh token replays its pair
    bool downloadRedirect = true;                        // /content answers 302 (false: the bytes)
    std::int64_t defaultQuota = 10LL * 1024 * 1024 * 1024;
};

// One authenticated API request as the handlers see it.
struct BoxCall {
    Request& request;
    Response& response;
    AccountInfo account;
};

// What an upload's `attributes` (or a commit's, or a session's body) says about the file.
struct Attributes {
    std::optional<std::string> name;
    std::optional<std::string> parentId;
    std::int64_t contentCreated = 0;   // 0: not given
    std::int64_t contentModified = 0;
};

class BoxModule : public ProviderModule {
public:
    explicit BoxModule(ProviderContext& context);

    void registerRoutes(Router& router) override;
    std::map<std::string, std::string> endpoints(const std::string& baseUrl) const override;
    void faultResponse(const FaultSpec& fault, const Request& request, Response& response) const override;
    void decorateResponse(const Request& request, Response& response) const override;
    json renderNode(Tree& tree, const Node& node) const override;
    // The bound settings, and the refresh grace handed on to the token authority.
    bool configure(const json& settings, std::string& error) override;

    Settings currentSettings() const;

private:
    // A route of the API or upload host: box-version, the bearer token, Box's errors.
    void apiRoute(Router& router, const std::string& method, const std::string& pattern, const std::string& key,
                  std::function<void(BoxCall&)> handler);

    void registerAccountRoutes(Router& router);  // BoxModule.cpp
    void registerAuthRoutes(Router& router);     // BoxAuth.cpp
    void registerFolderRoutes(Router& router);   // BoxFolders.cpp
    void registerFileRoutes(Router& router);     // BoxFiles.cpp
    void registerUploadRoutes(Router& router);   // BoxUpload.cpp
    void registerSessionRoutes(Router& router);  // BoxSessions.cpp

    // Sign-in (BoxAuth.cpp).
    OAuthHooks oauthHooks();
    // Box wants the app's secret with every token request. The sandbox registers no apps:
    // the first secret a client id brings is its secret from then on.
    std::optional<OAuthError> checkClient(const std::map<std::string, std::string>& form);

    // Writes a file (BoxUpload.cpp), store lock held: a new one in `folder` named `name`, or
    // new content for `existing` (renamed to `name`). Quota checked; names were checked.
    Node& storeFile(Tree& tree, Node& folder, const std::string& name, Node* existing, ByteBuffer content,
                    const Attributes& attributes, bool quotaFull);
    // Every item's list answer to an upload: {"total_count": 1, "entries": [file]}.
    static json uploadAnswer(Tree& tree, const Node& file);

    struct UploadPart {
        std::string id;
        std::int64_t offset = 0;
        std::string sha1;  // hex
        ByteBuffer data;
    };
    struct UploadSession {
        std::string accountId;
        std::string folderId;
        std::string fileId;    // a session for a new version of this file
        std::string fileName;  // empty: a new version keeps its name
        std::int64_t fileSize = 0;
        std::int64_t partSize = 0;
        std::map<std::int64_t, UploadPart> parts;  // by offset
        int commitsAccepted = 0;
    };
    struct DownloadGrant {
        std::string accountId;
        std::string fileId;
        std::string rev;  // the version the URL serves
    };
    // Sessions (BoxSessions.cpp), store lock held; throw BoxError.
    UploadSession& sessionOf(const BoxCall& call, const std::string& id);
    json sessionJson(const std::string& id, const UploadSession& session);
    // A part whose body hashes to `sha1` (hex).
    void uploadPart(BoxCall& call, UploadSession& session, const std::string& sha1);
    void commit(BoxCall& call, const std::string& id, UploadSession& session);
    // A pre-authenticated URL for one version of a file (BoxFiles.cpp), store lock held.
    std::string downloadUrl(const std::string& accountId, const Node& file, const std::string& rev);

    OAuthEndpoints oauth_;
    // Guarded by store().mutex(), like the trees.
    Settings settings_;
    ExpiringSessions<UploadSession> sessions_{context_.clock};
    ExpiringSessions<DownloadGrant> downloads_{context_.clock};
    std::mutex clientsMutex_;
    std::map<std::string, std::string> clientSecrets_;
};

// The API's version header: this one is accepted and changes nothing; any other is refused.
inline constexpr const char* kApiVersion = "2024.0";
// Route patterns of the two hosts, and their paths as URLs name them.
inline constexpr const char* kApiPattern = "/box/2\\.0";
inline constexpr const char* kUploadPattern = "/box/upload/api/2\\.0";
inline constexpr const char* kApiPath = "/box/2.0";
inline constexpr const char* kUploadPath = "/box/upload/api/2.0";

// Paging parameters (BoxPaging.cpp): `limit` (the default when absent, clamped to the most
// allowed) and `offset`; 400 invalid_limit / invalid_offset for values that are not numbers.
std::int64_t limitOf(const Request& request, const Settings& settings);
std::int64_t offsetOf(const Request& request);
// Opaque markers for marker paging: the position in one folder's listing.
std::string makeMarker(const std::string& folderId, std::size_t position);
std::size_t markerPosition(const std::string& marker, const std::string& folderId);

// An upload's attributes, a commit's or a preflight's body (BoxUpload.cpp); 400 for fields
// of the wrong type or times that are not RFC 3339.
Attributes readAttributes(const json& body);
// The JSON object of a request body; 400 bad_request otherwise.
json bodyObject(const Request& request);

}  // namespace vxcloud::sandbox::box
