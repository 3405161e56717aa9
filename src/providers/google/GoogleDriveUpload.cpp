// Uploads: one multipart/related request (metadata, then the bytes) up to the multipart
// limit, a resumable session above it. A session's chunks are slices of the document,
// never copies; after a dropped connection or a server error the client asks the session
// how much it holds and goes on from there, and a session the server has forgotten is
// started again once.
#include <algorithm>
#include <thread>

#include "GoogleDriveRequest.h"

namespace vxcloud::drive {

using nlohmann::json;

namespace {

std::string uploadUrl(const VXCloudServiceEndpoints& endpoints, const std::string& fileId) {
    const std::string base = endpoints.contentBase.empty() ? endpoints.apiBase + "/upload" : endpoints.contentBase;
    return base + "/drive/v3/files" + (fileId.empty() ? std::string() : "/" + HttpClient::urlEncode(fileId));
}

// The bytes a 308 answer says the session holds ("Range: bytes=0-N"; none without Range).
std::optional<std::int64_t> storedBytes(const HttpResponse& response) {
    const auto range = response.headers.get("Range");
    if (!range) return 0;
    const std::string prefix = "bytes=0-";
    if (range->rfind(prefix, 0) != 0) return std::nullopt;
    const std::string last = range->substr(prefix.size());
    if (last.empty() || last.size() > 18 || last.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    return std::stoll(last) + 1;
}

Result<File> fileFrom(const HttpResponse& response, const std::string& what) {
    const json body = json::parse(response.body, nullptr, false);
    auto file = body.is_discarded() ? std::nullopt : parseFile(body);
    if (!file) return Result<File>::failure(malformedAnswer(what + ": the answer is not a file resource"));
    return Result<File>::success(std::move(*file));
}

}  // namespace

std::int64_t GoogleDriveClient::multipartLimit() const {
    return providers::singleRequestLimit(options_.limits.maxSingleRequestBytes, kMultipartLimit);
}

std::int64_t GoogleDriveClient::chunkBytes() const {
    return providers::chunkInUnits(options_.limits.chunkBytes, kDefaultChunkBytes, kResumableChunkUnit);
}

Result<File> GoogleDriveClient::createFile(const FileMetadata& metadata, const ByteBuffer& data,
                                           const std::string& contentType, const std::string& fields,
                                           const UploadProgress& progress) {
    return upload(Upload{"POST", {}, metadata, data, contentType, fields, progress});
}

Result<File> GoogleDriveClient::updateContent(const std::string& fileId, const FileMetadata& metadata,
                                              const ByteBuffer& data, const std::string& contentType,
                                              const std::string& fields, const UploadProgress& progress) {
    return upload(Upload{"PATCH", fileId, metadata, data, contentType, fields, progress});
}

Result<File> GoogleDriveClient::upload(const Upload& upload) {
    if (static_cast<std::int64_t>(upload.data.size()) <= multipartLimit()) return uploadMultipart(upload);
    return uploadResumable(upload);
}

Result<File> GoogleDriveClient::uploadMultipart(const Upload& upload) {
    MultipartBody body("related");
    HttpHeaders metadataHeaders;
    metadataHeaders.set("Content-Type", "application/json; charset=UTF-8");
    body.addPart(metadataHeaders, ByteBuffer::adopt(metadataJson(upload.metadata).dump()));
    HttpHeaders contentHeaders;
    contentHeaders.set("Content-Type", upload.contentType);
    body.addPart(contentHeaders, upload.data);

    const auto size = static_cast<std::int64_t>(upload.data.size());
    providers::UploadProgressTracker tracker(upload.progress, size);
    Request request;
    request.what = upload.method == "POST" ? "files.create" : "files.update";
    request.method = upload.method;
    request.url = withQuery(uploadUrl(options_.endpoints, upload.fileId),
                            {{"uploadType", "multipart"}, {"fields", upload.fields}});
    request.contentType = body.contentType();
    request.body = body.encode();
    // A new file repeated after a lost answer would be a second file of that name.
    request.idempotent = upload.method != "POST";
    if (upload.progress) {
        // The document's share of the bytes sent so far, for a body that also holds metadata.
        request.onSent = [&tracker, size](std::int64_t sent, std::int64_t total) {
            if (total > 0) tracker.advance(sent * size / total);
        };
    }
    auto sent = send(request);
    if (!sent.ok()) return Result<File>::failureOf(sent);
    auto file = fileFrom(sent.value(), request.what);
    if (file.ok()) tracker.advance(size);
    return file;
}

Result<std::string> GoogleDriveClient::startSession(const Upload& upload) {
    Request request;
    request.what = "resumable upload start";
    request.method = upload.method;
    request.url = withQuery(uploadUrl(options_.endpoints, upload.fileId),
                            {{"uploadType", "resumable"}, {"fields", upload.fields}});
    request.contentType = "application/json; charset=UTF-8";
    request.headers.set("X-Upload-Content-Type", upload.contentType);
    request.headers.set("X-Upload-Content-Length", std::to_string(upload.data.size()));
    request.body = ByteBuffer::adopt(metadataJson(upload.metadata).dump());
    // Only a session is made: a repeat leaves an unused one behind, which expires.
    request.idempotent = true;
    auto sent = send(request);
    if (!sent.ok()) return Result<std::string>::failureOf(sent);
    const auto location = sent.value().headers.get("Location");
    if (!location || location->empty()) {
        return Result<std::string>::failure(malformedAnswer("resumable upload start: no session URI"));
    }
    return Result<std::string>::success(*location);
}

Result<File> GoogleDriveClient::uploadResumable(const Upload& upload) {
    const ByteBuffer& data = upload.data;
    const auto total = static_cast<std::int64_t>(data.size());
    const std::int64_t chunk = chunkBytes();
    providers::UploadProgressTracker tracker(upload.progress, total);

    auto started = startSession(upload);
    if (!started.ok()) return Result<File>::failureOf(started);
    std::string sessionUri = started.value();
    std::int64_t offset = 0;
    bool restarted = false;
    bool askStatus = false;  // after a failure: how much does the session hold?
    int resumes = 0;
    for (;;) {
        Request put;
        put.what = "resumable upload";
        put.method = "PUT";
        put.url = sessionUri;
        put.alsoAccepted = {308};
        // Failures are handled here, by asking the session where to go on.
        put.maxAttempts = 1;
        if (askStatus) {
            put.headers.set("Content-Range", "bytes */" + std::to_string(total));
        } else {
            const std::int64_t length = std::min(chunk, total - offset);
            put.headers.set("Content-Range", "bytes " + std::to_string(offset) + "-" +
                                                  std::to_string(offset + length - 1) + "/" + std::to_string(total));
            put.contentType = upload.contentType;
            put.body = data.slice(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
            put.onSent = tracker.forRequestAt(offset);
        }
        auto sent = send(put);
        if (sent.ok()) {
            const HttpResponse& response = sent.value();
            if (response.status != 308) {
                auto file = fileFrom(response, put.what);
                if (file.ok()) tracker.advance(total);
                return file;
            }
            if (const auto moved = response.headers.get("Location"); moved && !moved->empty()) sessionUri = *moved;
            const auto stored = storedBytes(response);
            if (!stored || *stored > total) {
                return Result<File>::failure(malformedAnswer("resumable upload: unreadable Range in a 308 answer"));
            }
            // A chunk of which the session kept nothing new: a server that never keeps
            // anything would otherwise be sent the same bytes for ever.
            if (!askStatus && *stored <= offset && ++resumes > options_.maxResumes) {
                return Result<File>::failure(malformedAnswer("resumable upload: the session keeps no bytes"));
            }
            offset = *stored;
            if (offset == total) {
                // Every byte is there but the file was not reported: ask again.
                if (askStatus && ++resumes > options_.maxResumes) {
                    return Result<File>::failure(malformedAnswer("resumable upload: the session never completes"));
                }
                askStatus = true;
                continue;
            }
            tracker.advance(offset);
            askStatus = false;
            continue;
        }

        const ProviderError& error = sent.error();
        if (error.httpStatus == 404 && !restarted) {
            // The session expired or was lost: begin again from the first byte.
            restarted = true;
            started = startSession(upload);
            if (!started.ok()) return Result<File>::failureOf(started);
            sessionUri = started.value();
            offset = 0;
            askStatus = false;
            continue;
        }
        if (!error.transient || ++resumes > options_.maxResumes) return Result<File>::failureOf(sent);
        std::this_thread::sleep_for(caller_.policy().delayBefore(resumes + 1, HttpResponse{}));
        askStatus = true;
    }
}

}  // namespace vxcloud::drive
