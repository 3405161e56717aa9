#pragma once
// The Dropbox API v2 emulator: RPC routes under /dropbox/api/2/, content routes under
// /dropbox/content/2/, OAuth under /dropbox/oauth2/authorize and /dropbox/api/oauth2/token.
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "dropbox/DropboxCall.h"
#include "framework/ExpiringSessions.h"
#include "framework/OAuthEndpoints.h"
#include "framework/ProviderModule.h"

namespace vxcloud::sandbox::dropbox {

struct Settings {
    std::int64_t maxUploadRequestBytes = 150LL * 1024 * 1024;  // per request body
    std::int64_t maxFileSize = (1LL << 41) - (1LL << 22);      // through upload sessions
    std::int64_t concurrentChunkMultiple = 4LL * 1024 * 1024;
    std::int64_t uploadSessionLifetime = 7LL * 24 * 3600;
    // The most entries per page, whatever `limit` asks: the service's own cap, so clients
    // meet the pages people meet; tests set it lower.
    int listFolderPageSize = 2000;
    bool moveBatchAsync = true;    // answer async_job_id rather than complete
    int moveBatchInProgressChecks = 1;
    bool rejectNonAsciiArg = true;  // raw UTF-8 in Dropbox-API-Arg is a client bug
    std::int64_t defaultQuota = 2LL * 1024 * 1024 * 1024;
};

// How `commit` in upload and upload_session/finish asks for a file to be written.
struct CommitInfo {
    std::string path;
    enum class Mode { add, overwrite, update } mode = Mode::add;
    std::string updateRev;
    bool autorename = false;
    bool strictConflict = false;
    std::int64_t clientModified = 0;
};

class DropboxModule : public ProviderModule {
public:
    explicit DropboxModule(ProviderContext& context);

    void registerRoutes(Router& router) override;
    std::map<std::string, std::string> endpoints(const std::string& baseUrl) const override;
    void faultResponse(const FaultSpec& fault, const Request& request, Response& response) const override;
    void decorateResponse(const Request& request, Response& response) const override;
    nlohmann::json renderNode(Tree& tree, const Node& node) const override;

    // Metadata as the routes show it; `tagged` adds ".tag" (lists, get_metadata, move, delete).
    nlohmann::json metadata(Tree& tree, const Node& node, bool tagged) const;
    nlohmann::json revisionMetadata(Tree& tree, const Node& node, const Revision& revision, bool tagged) const;
    std::string contentHash(const Node& node) const;
    Settings currentSettings() const;

private:
    // Registration of the three endpoint styles (DropboxCall.cpp).
    void route(Router& router, Style style, const std::string& name, const std::string& scope, bool voidArg,
               std::function<void(Call&)> handler);
    void dispatch(Style style, const std::string& name, const std::string& scope, bool voidArg,
                  const std::function<void(Call&)>& handler, Request& request, Response& response);

    // Routes, by file.
    void registerAccountRoutes(Router& router);  // DropboxModule.cpp
    void registerFileRoutes(Router& router);     // DropboxFiles.cpp
    void registerMoveRoutes(Router& router);     // DropboxMove.cpp
    void registerUploadRoutes(Router& router);   // DropboxUpload.cpp

    // Listing (DropboxFiles.cpp).
    struct Cursor {
        std::string accountId;
        std::string folderId;
        bool recursive = false;
        std::shared_ptr<const std::vector<std::string>> snapshot;  // ids still to page through
        std::size_t position = 0;
        std::uint64_t sinceSeq = 0;  // changes after this show up once the snapshot is done
        int pageSize = 0;
    };
    nlohmann::json listPage(Tree& tree, const Cursor& cursor);
    std::vector<std::string> collect(Tree& tree, const Node& folder, bool recursive, std::uint64_t sinceSeq);

    // Writing (DropboxUpload.cpp). Throws WriteFailure.
    nlohmann::json commitFile(Tree& tree, const CommitInfo& commit, const ByteBuffer& data,
                              const std::string& hash, bool quotaFull);
    std::string newSession(const std::string& accountId, std::string data, bool closed, bool concurrent);

    // Moving (DropboxMove.cpp). Throws RelocationFailure.
    nlohmann::json relocate(Tree& tree, const std::string& fromPath, const std::string& toPath, bool autorename);
    nlohmann::json runBatch(Tree& tree, const std::vector<std::pair<std::string, std::string>>& entries,
                            bool autorename);

    struct UploadSession {
        std::string accountId;
        std::string data;                               // sequential sessions
        std::map<std::int64_t, std::string> chunks;     // concurrent sessions, by offset
        std::int64_t closedSize = -1;                   // concurrent: total size once closed
        bool concurrent = false;
        bool closed = false;
    };
    struct MoveJob {
        std::string accountId;
        std::vector<std::pair<std::string, std::string>> entries;
        bool autorename = false;
        int checksLeft = 0;
        std::optional<nlohmann::json> result;
    };

    OAuthEndpoints oauth_;
    // Guarded by store().mutex(), like the trees.
    Settings settings_;
    std::map<std::string, Cursor> cursors_;
    ExpiringSessions<UploadSession> sessions_{context_.clock};
    std::map<std::string, MoveJob> jobs_;
};

}  // namespace vxcloud::sandbox::dropbox
