#pragma once
// The Google Drive API v3 emulator with Google's OAuth 2 endpoints, under /google:
//   /google/drive/v3/files[/{id}]            files.list, create, get (alt=media), update, delete
//   /google/upload/drive/v3/files[/{id}]     uploadType media | multipart | resumable, and
//                                            the resumable session URIs (upload_id=...)
//   /google/drive/v3/about                   about.get (fields required)
//   /google/o/oauth2/v2/auth, /google/token, /google/revoke, /google/v1/userinfo and
//   /google/oauth2/v3/userinfo               sign-in, tokens with PKCE, revocation, identity
// Items are addressed by id; one folder may hold one name many times. "root" names the
// account's top folder. Trashed items stay in place and are found unless the query says
// `trashed = false`.
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "framework/ExpiringSessions.h"
#include "framework/OAuthEndpoints.h"
#include "framework/ProviderModule.h"
#include "google/DriveFields.h"

namespace vxcloud::sandbox::google {

using nlohmann::json;

inline constexpr const char* kFolderMimeType = "application/vnd.google-apps.folder";
inline constexpr const char* kDriveScope = "https://www.googleapis.com/auth/drive";
inline constexpr const char* kDriveFileScope = "https://www.googleapis.com/auth/drive.file";
// Every chunk of a resumable upload but the last is a multiple of this.
inline constexpr std::int64_t kResumableChunkUnit = 256 * 1024;

struct Settings {
    int listPageSizeCap = 1000;            // the most files per page, whatever pageSize asks
    bool enforceDriveFileScope = true;     // drive.file tokens see only items made through the API
    std::int64_t resumableKeepMaxBytes = 0;  // > 0: a chunk keeps at most this (256 KiB units)
    std::int64_t resumableSessionLifetime = 7LL * 24 * 3600;
    std::int64_t defaultQuota = 15LL * 1024 * 1024 * 1024;
};

// An answer in Drive's error shape, thrown by the handlers.
struct DriveError {
    int status = 400;
    std::string reason;
    std::string message;
    std::string location;
    std::string locationType;
};
[[noreturn]] void fail(int status, std::string reason, std::string message, std::string location = {},
                       std::string locationType = "parameter");
// {"error": {"code", "message", "errors": [{"domain", "reason", "message", ...}], "status"}}
json errorBody(const DriveError& error);

// A request's JSON metadata (empty text: {}); anything else is the service's 400.
json metadataObject(std::string_view text);

enum class Access { read, write };

class GoogleModule;
// Google's token answers: id_token for openid, normalised scopes, Google's error texts
// (GoogleAuth.cpp).
OAuthHooks googleOAuthHooks(GoogleModule& module);

// One authenticated Drive request as the handlers see it.
struct DriveCall {
    Request& request;
    Response& response;
    AccountInfo account;
    bool seesEverything = true;  // false for drive.file tokens when that scope is enforced
    // Whether the call may see `node`: a drive.file token sees the top folder and what the
    // app made (or the person picked for it), nothing else.
    bool sees(Tree& tree, const Node& node) const;
};

class GoogleModule : public ProviderModule {
public:
    explicit GoogleModule(ProviderContext& context);

    void registerRoutes(Router& router) override;
    std::map<std::string, std::string> endpoints(const std::string& baseUrl) const override;
    void faultResponse(const FaultSpec& fault, const Request& request, Response& response) const override;
    json renderNode(Tree& tree, const Node& node) const override;

    // The File resource of a node with the fields `mask` wants (digests are computed only
    // when asked for); the caller applies the mask.
    json fileJson(Tree& tree, const Node& node, const FieldMask& mask) const;
    Settings currentSettings() const;

    // Drive's view of a node.
    static std::string mimeTypeOf(const Node& node);
    static bool isNativeDocument(const Node& node);
    static bool isTrashed(Tree& tree, const Node& node);  // itself or a folder above it
    std::string md5(const Node& node) const;
    // The Drive user id of an account (about.get's permissionId), distinct from its
    // OpenID subject (the account id).
    static std::string permissionIdFor(const std::string& accountId);

private:
    // A Drive route with authentication, scope checks and the error shape.
    void driveRoute(Router& router, const std::string& method, const std::string& pattern, const std::string& key,
                    Access access, std::function<void(DriveCall&)> handler);

    void registerAuthRoutes(Router& router);    // GoogleAuth.cpp
    void registerFileRoutes(Router& router);    // GoogleFiles.cpp
    void registerUploadRoutes(Router& router);  // GoogleUpload.cpp

    // Shared by the metadata and the upload routes (GoogleFiles.cpp). All run with the
    // store lock held and throw DriveError.
    Node& findItem(Tree& tree, const std::string& id, const DriveCall& call);
    // A new file or folder from request metadata, with its content for files.
    Node& createItem(Tree& tree, const json& metadata, const ByteBuffer* content, const std::string& contentType,
                     const DriveCall& call);
    // Name, description, trashed ... from a request body, and addParents/removeParents.
    void updateItem(Tree& tree, Node& node, const json& metadata, const DriveCall& call);
    // New content for a file: checkNewContent refuses what replaceContent would refuse, so
    // a request that changes metadata too can check before it changes anything.
    void checkNewContent(Tree& tree, const Node& node, const ByteBuffer& content, const DriveCall& call) const;
    void replaceContent(Tree& tree, Node& node, const ByteBuffer& content, const std::string& contentType,
                        const DriveCall& call);
    // The request's `fields` against `schema`, or `fallback` when it has none.
    FieldMask fieldsOf(const Request& request, const FieldSchema& schema, const char* fallback) const;
    // The answer for one item: 200 with the selected fields.
    void answerItem(Tree& tree, const Node& node, const Request& request, Response& response) const;

    struct ListCursor {
        std::string accountId;
        std::vector<std::string> ids;
        std::size_t position = 0;
        int pageSize = 100;
        bool seesEverything = true;
    };
    struct UploadSession {
        std::string accountId;
        bool seesEverything = true;
        std::string fileId;           // empty: the upload creates a file
        json metadata;
        std::multimap<std::string, std::string> query;  // the initiating request's (fields, addParents, ...)
        std::string contentType;
        std::int64_t declaredLength = -1;
        std::string data;
        std::string resultId;         // set once the file is stored
    };
    // Answers an initiating request with the session URI.
    void startSession(UploadSession session, DriveCall& call);
    void resumableChunk(UploadSession& session, const std::string& sessionId, Request& request, Response& response);

    OAuthEndpoints oauth_;
    // Guarded by store().mutex(), like the trees.
    Settings settings_;
    std::map<std::string, ListCursor> cursors_;
    ExpiringSessions<UploadSession> uploads_{context_.clock};
};

}  // namespace vxcloud::sandbox::google
