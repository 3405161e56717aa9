#pragma once
// The Microsoft Graph (OneDrive) emulator with the identity platform's OAuth 2, under
// /onedrive:
//   /onedrive/v1.0/me, /me/drive                      the user and the drive
//   /onedrive/v1.0/me/drive/{root|items/{id}}[:/path:] an item by id or by path, with
//        /children (GET: pages with @odata.nextLink, POST: a folder), /content (GET: a 302
//        to a download URL; PUT: simple upload), /createUploadSession; PATCH; DELETE
//   /onedrive/up/{session}                            upload URLs: PUT fragments, GET, DELETE
//   /onedrive/download/{grant}                        pre-authenticated download URLs
//   /onedrive/common/oauth2/v2.0/authorize|token      sign-in (microsoft/Identity.h)
// Names are unique per folder, compared case-insensitively. Upload and download URLs carry
// their own authority, as at the service: no bearer token is needed there.
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "framework/ExpiringSessions.h"
#include "framework/OAuthEndpoints.h"
#include "framework/ProviderModule.h"
#include "microsoft/GraphErrors.h"

namespace vxcloud::sandbox::onedrive {

using nlohmann::json;

// Every upload fragment but the last is a multiple of this.
inline constexpr std::int64_t kFragmentUnit = 320 * 1024;
inline constexpr std::int64_t kMaxFragmentBytes = 60LL * 1024 * 1024;
inline constexpr const char* kConflictAnnotation = "@microsoft.graph.conflictBehavior";

struct Settings {
    std::string driveType = "personal";              // or "business", for every account
    bool sha1Personal = false;                        // sha1Hash on personal drives (retired in 2023)
    bool sha1Business = false;                        // ...and on business drives (never there)
    int childrenPageSize = 200;                       // the most children a page holds
    std::int64_t simpleUploadMaxBytes = 4LL * 1024 * 1024;
    std::int64_t uploadSessionLifetime = 24 * 3600;   // renewed by every fragment
    std::int64_t fragmentKeepMaxBytes = 0;            // > 0: a fragment keeps at most this
    bool downloadRedirect = true;                     // /content answers 302 (false: the bytes)
    bool preauthenticatedRejectAuthorization = true;  // 401 for a bearer token on upload/download URLs
    bool businessAltersUploads = false;               // business drives keep other bytes than sent
    std::int64_t defaultQuota = 5LL * 1024 * 1024 * 1024;
};

using microsoft::fail;
using microsoft::GraphError;
using microsoft::graphTime;
// Graph's envelope, with the service's own words when the error brings none.
void answerError(const Request& request, Response& response, const GraphError& error);

// Where a request's URL points: "root" or an item id, then an optional path below it.
struct ItemAddress {
    std::string base;
    std::string path;  // "" or "/a/b.pdf", decoded
};
ItemAddress addressOf(const Request& request);

enum class Conflict { fail, replace, rename };
// "@microsoft.graph.conflictBehavior" from `value` when it is a string, else `fallback`.
Conflict conflictOf(const json& value, Conflict fallback);

enum class Access { read, write };

// One authenticated Graph request as the handlers see it.
struct GraphCall {
    Request& request;
    Response& response;
    AccountInfo account;
};

class OneDriveModule : public ProviderModule {
public:
    explicit OneDriveModule(ProviderContext& context);

    void registerRoutes(Router& router) override;
    std::map<std::string, std::string> endpoints(const std::string& baseUrl) const override;
    void faultResponse(const FaultSpec& fault, const Request& request, Response& response) const override;
    void decorateResponse(const Request& request, Response& response) const override;
    json renderNode(Tree& tree, const Node& node) const override;

    // The driveItem of a node, with the hashes the drive type reports. Store lock held.
    json itemJson(Tree& tree, const Node& node, const Settings& settings, const std::string& accountId) const;
    Settings currentSettings() const;
    // The drive's id: the account id on personal drives, "b!..." on business ones.
    static std::string driveIdOf(const std::string& accountId, const Settings& settings);
    // A pre-authenticated URL for a file's bytes, valid for an hour. Store lock held.
    std::string downloadUrl(const std::string& accountId, const std::string& itemId);

private:
    // A Graph route: bearer token, scope, errors in Graph's shape.
    void graphRoute(Router& router, const std::string& method, const std::string& pattern, const std::string& key,
                    Access access, std::function<void(GraphCall&)> handler);
    // A pre-authenticated route (upload and download URLs): no bearer token wanted.
    void preauthenticatedRoute(Router& router, const std::string& method, const std::string& pattern,
                               const std::string& key, std::function<void(Request&, Response&)> handler);

    void registerDriveRoutes(Router& router);   // OneDriveModule.cpp
    void registerItemRoutes(Router& router);    // OneDriveItems.cpp
    void registerUploadRoutes(Router& router);  // OneDriveUpload.cpp

    // Item helpers (OneDriveItems.cpp); store lock held, throw GraphError.
    Node& resolve(Tree& tree, const ItemAddress& address);
    // The folder an addressed name goes in, and the name: "items/{parent}:/a.pdf:" or
    // "root:/Scans/a.pdf:". The folder must exist.
    std::pair<Node*, std::string> placement(Tree& tree, const ItemAddress& address);
    // The name to store `wanted` under in `folder`, by the conflict rule: null `existing`
    // means the name is free (a "replace" leaves the existing item to the caller).
    std::string settleName(Tree& tree, Node& folder, const std::string& wanted, Conflict conflict,
                           const Node* moving, Node** existing);
    // A new file, or new content for `existing`; quota checked. 201 for new, 200 for replaced.
    Node& storeFile(Tree& tree, Node& folder, const std::string& name, Node* existing, const ByteBuffer& content,
                    bool quotaFull, int& status);
    void answerItem(Tree& tree, const Node& node, GraphCall& call, int status = 200);
    void checkIfMatch(Tree& tree, const Node& node, const Request& request) const;

    struct UploadSession {
        std::string accountId;
        std::string folderId;
        std::string name;
        std::string fileId;  // createUploadSession on an existing item: its new version
        Conflict conflict = Conflict::fail;
        std::int64_t total = -1;  // from fileSize or the first fragment
        std::string data;
    };
    struct DownloadGrant {
        std::string accountId;
        std::string itemId;
    };
    void uploadFragment(UploadSession& session, const std::string& sessionId, Request& request, Response& response);
    void answerSessionStatus(const std::string& sessionId, Response& response, int status);

    OAuthEndpoints oauth_;
    // Guarded by store().mutex(), like the trees.
    Settings settings_;
    ExpiringSessions<UploadSession> uploads_{context_.clock};
    ExpiringSessions<DownloadGrant> downloads_{context_.clock};
};

// An item's eTag (changes with any change) and cTag (changes with its content).
std::string eTagOf(const Node& node);
std::string cTagOf(const Node& node);

}  // namespace vxcloud::sandbox::onedrive
