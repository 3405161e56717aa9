// Uploads: one PUT up to the simple-upload limit, an upload session above it. Fragments
// are slices of the document, never copies. A fragment that failed may still have been
// stored (the service then answers 416 to a repeat), and part of one may have been kept,
// so after a failure the session is asked where it wants the next byte.
#include <algorithm>
#include <thread>

#include "GraphClient.h"
#include "GraphWire.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud::onedrive {

using nlohmann::json;

namespace {

// The first byte of nextExpectedRanges ("12345-" or "12345-99999"); the document's end when
// the list is empty (everything is there).
std::optional<std::int64_t> firstExpected(const json& body, std::int64_t total) {
    if (!body.is_object()) return std::nullopt;
    const auto ranges = body.find("nextExpectedRanges");
    if (ranges == body.end() || ranges->is_null()) return std::nullopt;
    if (!ranges->is_array()) return std::nullopt;
    if (ranges->empty()) return total;
    const auto& first = ranges->front();
    if (!first.is_string()) return std::nullopt;
    const std::string text = first.get<std::string>();
    const std::string start = text.substr(0, text.find('-'));
    if (start.empty() || start.size() > 18 || start.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    const std::int64_t value = std::stoll(start);
    if (value > total) return std::nullopt;
    return value;
}

std::string contentRange(std::int64_t offset, std::int64_t length, std::int64_t total) {
    return "bytes " + std::to_string(offset) + "-" + std::to_string(offset + length - 1) + "/" + std::to_string(total);
}

}  // namespace

std::int64_t GraphClient::simpleUploadLimit() const {
    return providers::singleRequestLimit(options_.limits.maxSingleRequestBytes, kSimpleUploadLimit);
}

std::int64_t GraphClient::fragmentBytes() const {
    return providers::chunkInUnits(options_.limits.chunkBytes, kDefaultFragmentBytes, kFragmentUnit);
}

Result<Item> GraphClient::upload(const std::string& parentId, const std::string& name, const ByteBuffer& data,
                                 ConflictBehavior behavior, const UploadProgress& progress) {
    if (static_cast<std::int64_t>(data.size()) <= simpleUploadLimit()) {
        return uploadSimple(parentId, name, data, behavior, progress);
    }
    return uploadInSession(parentId, name, data, behavior, progress);
}

Result<Item> GraphClient::uploadSimple(const std::string& parentId, const std::string& name, const ByteBuffer& data,
                                       ConflictBehavior behavior, const UploadProgress& progress) {
    const auto size = static_cast<std::int64_t>(data.size());
    providers::UploadProgressTracker tracker(progress, size);
    auto r = request("upload", "PUT",
                     itemPath(parentId) + ":/" + HttpClient::urlEncode(name) +
                         ":/content?@microsoft.graph.conflictBehavior=" + conflictBehaviorName(behavior));
    r.headers.set("Content-Type", "application/octet-stream");
    r.body = data;
    // Only a replace may be repeated blindly; a repeated "fail" would refuse its own copy.
    r.idempotent = behavior == ConflictBehavior::replace;
    r.onSent = tracker.forRequestAt(0);
    auto item = itemAnswer(r);
    // A create whose answer was lost is not repeated; it may have been stored all the same.
    if (!item.ok() && item.error().transient) {
        if (auto stored = storedAlready(parentId, name, data)) item = Result<Item>::success(std::move(*stored));
    }
    if (item.ok()) tracker.advance(size);
    return item;
}

std::optional<Item> GraphClient::storedAlready(const std::string& parentId, const std::string& name,
                                               const ByteBuffer& data) {
    auto r = request("look for a stored upload", "GET", itemPath(parentId) + ":/" + HttpClient::urlEncode(name) + ":");
    auto found = itemAnswer(r);
    if (!found.ok() || !found.value().isFile) return std::nullopt;
    const Item& item = found.value();
    // Only these very bytes count: same size and the digest every drive reports.
    if (item.size != static_cast<std::int64_t>(data.size()) || !item.quickXorHash ||
        *item.quickXorHash != VXCloudFileHasher::quickXorHash(data)) {
        return std::nullopt;
    }
    return item;
}

Result<std::string> GraphClient::createUploadSession(const std::string& parentId, const std::string& name,
                                                     ConflictBehavior behavior, std::int64_t size) {
    auto r = request("create upload session", "POST",
                     itemPath(parentId) + ":/" + HttpClient::urlEncode(name) + ":/createUploadSession");
    r.headers.set("Content-Type", "application/json");
    // The conflict behaviour of a session sits inside "item".
    const json body{{"item", {{"@microsoft.graph.conflictBehavior", conflictBehaviorName(behavior)},
                              {"name", name}, {"fileSize", size}}}};
    r.body = ByteBuffer::adopt(body.dump());
    // Only a session is made: a repeat leaves an unused one, which expires.
    auto sent = caller_.send(r);
    if (!sent.ok()) return Result<std::string>::failureOf(sent);
    const json answer = json::parse(sent.value().body, nullptr, false);
    if (!answer.is_object() || !answer.contains("uploadUrl") || !answer["uploadUrl"].is_string() ||
        answer["uploadUrl"].get<std::string>().empty()) {
        return Result<std::string>::failure(caller_.malformed(r.what, "no uploadUrl"));
    }
    return Result<std::string>::success(answer["uploadUrl"].get<std::string>());
}

Result<std::int64_t> GraphClient::nextExpectedByte(const std::string& uploadUrl, std::int64_t total) {
    providers::ApiRequest r;
    r.what = "upload session status";
    r.url = uploadUrl;
    r.authorized = false;
    auto sent = caller_.send(r);
    if (!sent.ok()) return Result<std::int64_t>::failureOf(sent);
    const auto next = firstExpected(json::parse(sent.value().body, nullptr, false), total);
    if (!next) return Result<std::int64_t>::failure(caller_.malformed(r.what, "unreadable nextExpectedRanges"));
    return Result<std::int64_t>::success(*next);
}

Result<Item> GraphClient::uploadInSession(const std::string& parentId, const std::string& name, const ByteBuffer& data,
                                          ConflictBehavior behavior, const UploadProgress& progress) {
    const auto total = static_cast<std::int64_t>(data.size());
    const std::int64_t fragment = fragmentBytes();
    providers::UploadProgressTracker tracker(progress, total);

    auto session = createUploadSession(parentId, name, behavior, total);
    if (!session.ok()) return Result<Item>::failureOf(session);
    std::string uploadUrl = session.value();
    std::int64_t offset = 0;
    bool restarted = false;
    int resumes = 0;
    for (;;) {
        if (offset >= total) {
            // Every byte is there but the answer with the item was lost.
            if (auto stored = storedAlready(parentId, name, data)) return Result<Item>::success(std::move(*stored));
            return Result<Item>::failure(caller_.malformed("upload session", "complete without the stored item"));
        }
        const std::int64_t length = std::min(fragment, total - offset);
        providers::ApiRequest put;
        put.what = "upload fragment";
        put.method = "PUT";
        put.url = uploadUrl;
        put.authorized = false;  // pre-authenticated; a bearer token there is refused
        put.maxAttempts = 1;     // failures are handled here, by asking the session
        put.headers.set("Content-Type", "application/octet-stream");
        put.headers.set("Content-Range", contentRange(offset, length, total));
        put.body = data.slice(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
        put.onSent = tracker.forRequestAt(offset);
        auto sent = caller_.send(put);
        if (sent.ok()) {
            const json body = json::parse(sent.value().body, nullptr, false);
            if (sent.value().status == 202) {
                const auto next = firstExpected(body, total);
                offset = next ? *next : offset + length;
                tracker.advance(offset);
                continue;
            }
            auto item = body.is_discarded() ? std::nullopt : parseItem(body);
            if (!item) return Result<Item>::failure(caller_.malformed(put.what, "the answer is not a drive item"));
            tracker.advance(total);
            return Result<Item>::success(std::move(*item));
        }

        const ProviderError& error = sent.error();
        if (error.httpStatus == 404 && !restarted) {
            // The session expired or was lost: begin again from the first byte.
            restarted = true;
            session = createUploadSession(parentId, name, behavior, total);
            if (!session.ok()) return Result<Item>::failureOf(session);
            uploadUrl = session.value();
            offset = 0;
            continue;
        }
        const bool overlap = error.httpStatus == 416;
        if ((!overlap && !error.transient) || ++resumes > options_.maxResumes) return Result<Item>::failureOf(sent);
        if (!overlap) std::this_thread::sleep_for(caller_.policy().delayBefore(resumes + 1, HttpResponse{}));
        auto next = nextExpectedByte(uploadUrl, total);
        if (!next.ok()) {
            // A session ends when its last fragment commits the file: gone now, it may have.
            if (next.error().httpStatus == 404) {
                if (auto stored = storedAlready(parentId, name, data)) {
                    tracker.advance(total);
                    return Result<Item>::success(std::move(*stored));
                }
            }
            return Result<Item>::failureOf(next);
        }
        offset = next.value();
    }
}

}  // namespace vxcloud::onedrive
