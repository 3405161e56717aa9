#pragma once
// Our Dropbox API v2 client: typed routes over the shared HTTP transport. Every call is
// blocking and safe to run on any thread. Tokens come from the secure store through the
// shared OAuth token provider and are refreshed when expired or rejected.
//
// Failures come back as ProviderErrors (the route's error union decoded on a 409, its
// route tags, WriteError and correct_offset in the Dropbox fields); callErrorKind says
// what went wrong on the wire, the way the sessions classify it: a 409 route error, 400
// bad input, 401 auth, 403 access, 429 rate limit, 5xx server trouble, another status, or
// a client-side failure (no connection, an answer that cannot be read).
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "../ProviderCaller.h"
#include "DropboxItem.h"
#include "vxcloud/model/ProviderError.h"
#include "vxcloud/platform/ByteBuffer.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::dropbox {

enum class CallErrorKind {
    internalServer,  // 5xx
    badInput,        // 400 (plain-text answer)
    auth,            // 401, or no usable token
    access,          // 403
    http,            // any other unexpected status
    route,           // 409: the route's own error union
    rateLimit,       // 429 after the retries
    client,          // no answer (connection, timeout), or an answer that cannot be read
};

template <typename T>
using Result = providers::CallResult<T>;

// What kind of failure a provider error is, in the terms above.
CallErrorKind callErrorKind(const ProviderError& error);

struct ListFolderResult {
    std::vector<Metadata> entries;
    std::string cursor;
    bool hasMore = false;
};

struct RelocationPath {
    std::string fromPath;
    std::string toPath;
};

// One entry of a finished move batch, in request order.
struct RelocationBatchEntry {
    std::optional<Metadata> success;
    std::optional<DropboxRelocationError> failure;  // relocation_error; other failures leave it empty
    std::string failureTag;                          // "relocation_error", "internal_error", ...
};

struct MoveBatchLaunch {
    std::optional<std::string> asyncJobId;
    bool complete = false;
    std::vector<RelocationBatchEntry> entries;  // when complete
};

struct MoveBatchJobStatus {
    enum class State { inProgress, complete, failed } state = State::inProgress;
    std::vector<RelocationBatchEntry> entries;  // when complete
};

// Who signed in, from users/get_current_account.
struct FullAccount {
    std::string accountId;
    std::string email;
    std::string displayName;  // name.display_name; may be empty
};

struct DownloadResult {
    Metadata metadata;
    ByteBuffer data;
};

struct CommitInfo {
    std::string path;
    WriteMode mode = WriteMode::add;
    bool autorename = false;
    bool mute = false;
    bool strictConflict = false;
};

// Bytes of the document acknowledged so far (never decreasing, also across retries and
// chunks) and the document's size.
using UploadProgress = std::function<void(std::int64_t completed, std::int64_t total)>;

struct ClientOptions {
    VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::defaultEndpoints(VXCloudService::dropbox);
    VXCloudUploadLimits limits;
    std::shared_ptr<HttpClient> http;  // the shared client when empty
    // 429, 5xx and a 409 too_many_write_operations / internal_error answer are repeated,
    // honouring Retry-After, within this budget.
    RetryPolicy retry = RetryPolicy::standard(4);
};

// The service's own limit of one upload request body.
inline constexpr std::int64_t kMaxUploadRequestBytes = 150LL * 1024 * 1024;
// Upload session chunks are multiples of this.
inline constexpr std::int64_t kUploadChunkUnit = 4LL * 1024 * 1024;

class DropboxClient {
public:
    DropboxClient(std::shared_ptr<oauth::TokenProvider> tokens, ClientOptions options);

    // A client for the account whose token is stored under `userId`, with the process-wide
    // endpoints and limits; null when no token is stored.
    static std::shared_ptr<DropboxClient> forUser(const std::string& userId);

    const std::string& userId() const { return caller_.storageName(); }

    // users/get_current_account: the account id.
    Result<std::string> getCurrentAccount();
    // users/get_current_account: the account id, e-mail and display name.
    Result<FullAccount> getFullAccount();
    // files/list_folder (not recursive, mounted folders and non-downloadable files included).
    Result<ListFolderResult> listFolder(const std::string& path);
    Result<ListFolderResult> listFolderContinue(const std::string& cursor);
    Result<Metadata> getMetadata(const std::string& path);
    Result<Metadata> createFolderV2(const std::string& path, bool autorename = false);
    // files/upload, or an upload session (start, append, finish) for a document above the
    // single-request limit; chunks are slices of `data`, never copies.
    Result<Metadata> upload(const ByteBuffer& data, const CommitInfo& commit,
                            const UploadProgress& progress = {});
    Result<Metadata> moveV2(const std::string& fromPath, const std::string& toPath);
    Result<Metadata> deleteV2(const std::string& path);
    Result<MoveBatchLaunch> moveBatchV2(const std::vector<RelocationPath>& entries);
    Result<MoveBatchJobStatus> moveBatchCheckV2(const std::string& asyncJobId);
    Result<DownloadResult> download(const std::string& path);

    // The largest single upload request and the chunk size used above it.
    std::int64_t maxSingleRequestBytes() const;
    std::int64_t chunkBytes() const;

    struct Request;

private:
    Result<HttpResponse> send(const Request& request);
    Result<Metadata> uploadSingle(const ByteBuffer& data, const CommitInfo& commit,
                                  const UploadProgress& progress);
    Result<Metadata> uploadInSession(const ByteBuffer& data, const CommitInfo& commit,
                                     const UploadProgress& progress);

    ClientOptions options_;
    providers::ProviderCaller caller_;
};

}  // namespace vxcloud::dropbox
