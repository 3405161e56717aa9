#pragma once
// Our Google Drive API v3 client: the files and about routes the sessions use, over the
// shared HTTP transport. Every call blocks and is safe on any thread. The account's tokens
// come from the secure store through the shared OAuth token provider; a rejected token is
// refreshed once with the refresh grant.
//
// Retries: 429 and 5xx answers and a 403 whose reason is one of the rate limits are
// repeated with backoff (honouring Retry-After) within one attempt budget, as Google asks. Documents up
// to the multipart limit go in one multipart/related request; larger ones through a
// resumable session in chunks, which resumes where the server stopped after a dropped
// connection or a server error.
//
// A failure is a ProviderError as Google's answer gave it (status, the first reason of the
// structured error, or the token endpoint's OAuth error), for errorCodeFromGoogleDriveError.
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "../ProviderCaller.h"
#include "DriveFile.h"
#include "vxcloud/model/ProviderError.h"
#include "vxcloud/platform/ByteBuffer.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::drive {

template <typename T>
using Result = providers::CallResult<T>;

// Bytes of the document the server has acknowledged so far (never decreasing) and its size.
using UploadProgress = std::function<void(std::int64_t uploaded, std::int64_t expected)>;

// What a new or updated file is told besides its content.
struct FileMetadata {
    std::optional<std::string> name;
    std::optional<std::string> mimeType;
    std::optional<std::vector<std::string>> parents;  // creation only
};

struct ClientOptions {
    VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::defaultEndpoints(VXCloudService::googleDrive);
    VXCloudUploadLimits limits;
    std::shared_ptr<HttpClient> http;  // the shared client when empty
    RetryPolicy retry = RetryPolicy::standard(4);
    // Resumptions of one resumable upload.
    int maxResumes = 6;
};

// Google's guidance for one multipart request; larger documents go through a session.
inline constexpr std::int64_t kMultipartLimit = 5LL * 1024 * 1024;
// Every chunk of a resumable upload but the last is a multiple of this.
inline constexpr std::int64_t kResumableChunkUnit = 256LL * 1024;
inline constexpr std::int64_t kDefaultChunkBytes = 8LL * 1024 * 1024;

class GoogleDriveClient {
public:
    GoogleDriveClient(std::shared_ptr<oauth::TokenProvider> tokens, ClientOptions options);

    // A client for the authorisation stored under `storageName`, with the process-wide
    // endpoints and limits; null when nothing is stored there.
    static std::shared_ptr<GoogleDriveClient> forStorageName(const std::string& storageName);

    // about.get with the given fields: the answer's JSON object.
    Result<nlohmann::json> aboutGet(const std::string& fields);
    // files.list for the query, every page (nextPageToken is added to a field selection).
    // An empty `fields` asks for the service's default fields.
    Result<std::vector<File>> listFiles(const std::string& q, const std::string& fields = {});
    Result<File> getFile(const std::string& fileId, const std::string& fields);
    // files.create without content (folders).
    Result<File> createMetadataOnly(const FileMetadata& metadata, const std::string& fields);
    // files.create with content of the given MIME type.
    Result<File> createFile(const FileMetadata& metadata, const ByteBuffer& data, const std::string& contentType,
                            const std::string& fields, const UploadProgress& progress = {});
    // files.update with new content (and the metadata given).
    Result<File> updateContent(const std::string& fileId, const FileMetadata& metadata, const ByteBuffer& data,
                               const std::string& contentType, const std::string& fields,
                               const UploadProgress& progress = {});
    // files.update of metadata; parents change through addParents/removeParents.
    Result<File> updateMetadata(const std::string& fileId, const FileMetadata& metadata, const std::string& addParents,
                                const std::string& removeParents, const std::string& fields);
    // An authorised GET of a path and query below the API base ("/drive/v3/files/ID?alt=media").
    Result<ByteBuffer> fetch(const std::string& pathAndQuery);

    std::int64_t multipartLimit() const;
    std::int64_t chunkBytes() const;

    struct Request;

private:
    Result<HttpResponse> send(const Request& request);
    // One upload: the method ("POST" creates, "PATCH" replaces `fileId`'s content), what is
    // sent, and what comes back.
    struct Upload {
        std::string method;
        std::string fileId;
        const FileMetadata& metadata;
        const ByteBuffer& data;
        const std::string& contentType;
        const std::string& fields;
        const UploadProgress& progress;
    };
    Result<File> upload(const Upload& upload);
    Result<File> uploadMultipart(const Upload& upload);
    Result<File> uploadResumable(const Upload& upload);
    Result<std::string> startSession(const Upload& upload);

    ClientOptions options_;
    providers::ProviderCaller caller_;
};

// The wire forms (GoogleDriveWire.cpp).
// A File resource; nothing when a field has the wrong type.
std::optional<File> parseFile(const nlohmann::json& value);
nlohmann::json metadataJson(const FileMetadata& metadata);
ProviderError malformedAnswer(const std::string& what);

}  // namespace vxcloud::drive
