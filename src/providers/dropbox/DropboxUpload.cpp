// files/upload for documents up to the single-request limit, an upload session above it.
//
// Repeating an upload is harmless, so upload requests count as idempotent: the session
// always sends strict_conflict off, and Dropbox answers a repeated "add" or "overwrite" of
// the same bytes to the same path with the stored file instead of a conflict. An append
// that was received although its answer was lost is recognised by the incorrect_offset
// answer's correct_offset. Only upload_session/finish is not repeated after a lost answer:
// its session is gone once it has committed.
#include <algorithm>

#include "DropboxWire.h"
#include "providers/ProviderSupport.h"

namespace vxcloud::dropbox {
namespace {

json cursorArg(const std::string& sessionId, std::int64_t offset) {
    return json{{"session_id", sessionId}, {"offset", offset}};
}

}  // namespace

std::int64_t DropboxClient::maxSingleRequestBytes() const {
    return providers::singleRequestLimit(options_.limits.maxSingleRequestBytes, kMaxUploadRequestBytes);
}

std::int64_t DropboxClient::chunkBytes() const {
    const std::int64_t limit = maxSingleRequestBytes();
    if (options_.limits.chunkBytes > 0) return std::min(options_.limits.chunkBytes, limit);
    // Whole 4 MiB units as the service recommends, at most 64 MiB per request so that a
    // failed request costs little to repeat; below 4 MiB (a lowered limit) the limit itself.
    if (limit < kUploadChunkUnit) return limit;
    return std::min(limit / kUploadChunkUnit * kUploadChunkUnit, 16 * kUploadChunkUnit);
}

Result<Metadata> DropboxClient::upload(const ByteBuffer& data, const CommitInfo& commit,
                                       const UploadProgress& progress) {
    if (static_cast<std::int64_t>(data.size()) <= maxSingleRequestBytes()) {
        return uploadSingle(data, commit, progress);
    }
    return uploadInSession(data, commit, progress);
}

Result<Metadata> DropboxClient::uploadSingle(const ByteBuffer& data, const CommitInfo& commit,
                                             const UploadProgress& progress) {
    providers::UploadProgressTracker tracker(progress, static_cast<std::int64_t>(data.size()));
    Request request;
    request.style = Style::upload;
    request.route = "files/upload";
    request.arg = commitArg(commit);
    request.body = data;
    request.errors = ErrorUnion::upload;
    request.onSent = tracker.forRequestAt(0);
    auto sent = send(request);
    if (!sent.ok()) return Result<Metadata>::failureOf(sent);
    const json body = json::parse(sent.value().body, nullptr, false);
    Metadata metadata;
    if (parseMetadata(body, Metadata::Tag::file, metadata) != ParseStatus::ok) {
        return Result<Metadata>::failure(malformedAnswer(request.route, "the answer holds no file metadata"));
    }
    tracker.advance(static_cast<std::int64_t>(data.size()));
    return Result<Metadata>::success(std::move(metadata));
}

Result<Metadata> DropboxClient::uploadInSession(const ByteBuffer& data, const CommitInfo& commit,
                                                const UploadProgress& progress) {
    const auto size = static_cast<std::int64_t>(data.size());
    const std::int64_t chunk = std::max<std::int64_t>(1, chunkBytes());
    providers::UploadProgressTracker tracker(progress, size);
    auto piece = [&](std::int64_t offset, std::int64_t length) {
        return data.slice(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
    };

    // start carries the first chunk.
    Request start;
    start.style = Style::upload;
    start.route = "files/upload_session/start";
    start.arg = json{{"close", false}};
    std::int64_t offset = std::min(chunk, size);
    start.body = piece(0, offset);
    start.onSent = tracker.forRequestAt(0);
    // A repeated start only leaves an unused session behind, which expires on its own.
    auto started = send(start);
    if (!started.ok()) return Result<Metadata>::failureOf(started);
    const json startAnswer = json::parse(started.value().body, nullptr, false);
    if (!startAnswer.is_object() || !startAnswer.contains("session_id") || !startAnswer["session_id"].is_string()) {
        return Result<Metadata>::failure(malformedAnswer(start.route, "no session_id"));
    }
    const std::string sessionId = startAnswer["session_id"].get<std::string>();

    // The pieces between the first and the last, each with the offset the server has.
    int resumes = 0;
    while (size - offset > chunk) {
        Request append;
        append.style = Style::upload;
        append.route = "files/upload_session/append_v2";
        append.arg = json{{"cursor", cursorArg(sessionId, offset)}, {"close", false}};
        append.body = piece(offset, chunk);
        append.errors = ErrorUnion::upload;
        append.onSent = tracker.forRequestAt(offset);
        auto appended = send(append);
        if (!appended.ok()) {
            // The server may have the bytes already (the answer was lost), or want them
            // from elsewhere: it says where to go on.
            const std::optional<std::int64_t> correct = appended.error().dropboxCorrectOffset;
            if (!correct || *correct < 0 || *correct > size || ++resumes > 3) {
                return Result<Metadata>::failureOf(appended);
            }
            offset = *correct;
            continue;
        }
        offset += chunk;
    }

    Request finish;
    finish.style = Style::upload;
    finish.route = "files/upload_session/finish";
    finish.arg = json{{"cursor", cursorArg(sessionId, offset)}, {"commit", commitArg(commit)}};
    finish.body = piece(offset, size - offset);
    finish.idempotent = false;
    finish.errors = ErrorUnion::upload;
    finish.writeErrorMember = "path";
    finish.onSent = tracker.forRequestAt(offset);
    auto finished = send(finish);
    if (!finished.ok()) return Result<Metadata>::failureOf(finished);
    const json body = json::parse(finished.value().body, nullptr, false);
    Metadata metadata;
    if (parseMetadata(body, Metadata::Tag::file, metadata) != ParseStatus::ok) {
        return Result<Metadata>::failure(malformedAnswer(finish.route, "the answer holds no file metadata"));
    }
    tracker.advance(size);
    return Result<Metadata>::success(std::move(metadata));
}

}  // namespace vxcloud::dropbox
