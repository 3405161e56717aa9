// Uploads: one multipart request (attributes first, then the file) below Box's chunked
// minimum; an upload session above it, whose parts are slices of the document. Box may
// answer a part with 500 after storing it, and parts are immutable, so after a failed part
// the session's parts are listed and a stored one is taken instead of being sent again.
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <map>
#include <thread>

#include "BoxClient.h"
#include "BoxWire.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud::box {

using nlohmann::json;

namespace {

// Box's Digest header: "sha=" and the base64 of the raw SHA-1.
std::string shaDigest(const std::string& sha1Hex) {
    std::array<unsigned char, 20> raw{};
    for (std::size_t i = 0; i < raw.size() && 2 * i + 1 < sha1Hex.size(); ++i) {
        raw[i] = static_cast<unsigned char>(std::stoi(sha1Hex.substr(2 * i, 2), nullptr, 16));
    }
    std::array<unsigned char, 29> text{};
    const int length = EVP_EncodeBlock(text.data(), raw.data(), static_cast<int>(raw.size()));
    return "sha=" + std::string(reinterpret_cast<const char*>(text.data()), static_cast<std::size_t>(length));
}

std::string contentRange(std::int64_t offset, std::int64_t length, std::int64_t total) {
    return "bytes " + std::to_string(offset) + "-" + std::to_string(offset + length - 1) + "/" + std::to_string(total);
}

}  // namespace

std::int64_t BoxClient::singleRequestLimit() const {
    // Box takes sessions from its minimum on, and a session sends slices of the document
    // where one request would copy it into a multipart body: so every document that may go
    // through a session does.
    return kChunkedUploadMinimum - 1;
}

Result<Item> BoxClient::uploadNew(const std::string& parentId, const std::string& name, const ByteBuffer& data,
                                  const UploadProgress& progress) {
    if (static_cast<std::int64_t>(data.size()) <= singleRequestLimit()) {
        return uploadDirect(std::nullopt, parentId, name, data, progress);
    }
    return uploadChunked(std::nullopt, parentId, name, data, progress);
}

Result<Item> BoxClient::uploadVersion(const std::string& fileId, const ByteBuffer& data, const UploadProgress& progress) {
    if (static_cast<std::int64_t>(data.size()) <= singleRequestLimit()) {
        return uploadDirect(fileId, {}, {}, data, progress);
    }
    return uploadChunked(fileId, {}, {}, data, progress);
}

Result<Item> BoxClient::uploadDirect(const std::optional<std::string>& fileId, const std::string& parentId,
                                     const std::string& name, const ByteBuffer& data, const UploadProgress& progress) {
    const auto size = static_cast<std::int64_t>(data.size());
    const std::string sha1 = VXCloudFileHasher::sha1Hash(data);
    json attributes = json::object();
    if (!fileId) attributes = {{"name", name}, {"parent", {{"id", parentId}}}};
    MultipartBody body("form-data");
    body.addFormField("attributes", attributes.dump());
    body.addFile("file", fileId ? "file" : name, "application/octet-stream", data);

    const std::string base = options_.endpoints.contentBase;
    auto r = request(fileId ? "files/content (new version)" : "files/content", "POST",
                     fileId ? base + "/files/" + HttpClient::urlEncode(*fileId) + "/content" : base + "/files/content");
    r.headers.set("Content-Type", body.contentType());
    // Box checks the bytes against it (the header's name says MD5; Box wants hex SHA-1).
    r.headers.set("Content-MD5", sha1);
    r.body = body.encode();
    // A new file repeated after a lost answer would meet itself; a new version of the same
    // bytes does no harm.
    r.idempotent = fileId.has_value();
    providers::UploadProgressTracker tracker(progress, size);
    const auto encoded = static_cast<std::int64_t>(r.body.size());
    if (progress) {
        // The request carries the attributes and part headers besides the document.
        r.onSent = [&tracker, size, encoded](std::int64_t sent, std::int64_t) {
            tracker.advance(std::max<std::int64_t>(0, sent - (encoded - size)));
        };
    }
    auto stored = fileAnswer(r);
    if (!stored.ok() && stored.error().transient && !fileId) {
        if (auto found = storedAlready(parentId, name, sha1)) stored = Result<Item>::success(std::move(*found));
    }
    if (stored.ok()) tracker.advance(size);
    return stored;
}

Result<Item> BoxClient::fileAnswer(const providers::ApiRequest& r) {
    auto sent = caller_.send(r);
    if (!sent.ok()) return Result<Item>::failureOf(sent);
    const json body = json::parse(sent.value().body, nullptr, false);
    auto item = body.is_discarded() ? std::nullopt : parseUploadedFile(body);
    if (!item) return Result<Item>::failure(caller_.malformed(r.what, "the answer holds no file"));
    return Result<Item>::success(std::move(*item));
}

std::optional<Item> BoxClient::storedAlready(const std::string& parentId, const std::string& name,
                                            const std::string& sha1) {
    auto listed = listFolder(parentId);
    if (!listed.ok()) return std::nullopt;
    for (auto& item : listed.value()) {
        // Box compares names ignoring case; only these very bytes count.
        if (item.isFile() && item.sha1 == sha1 && item.name.size() == name.size() &&
            std::equal(name.begin(), name.end(), item.name.begin(),
                       [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) ==
                                                   std::tolower(static_cast<unsigned char>(b)); })) {
            return std::move(item);
        }
    }
    return std::nullopt;
}

Result<Item> BoxClient::uploadChunked(const std::optional<std::string>& fileId, const std::string& parentId,
                                      const std::string& name, const ByteBuffer& data, const UploadProgress& progress) {
    const auto total = static_cast<std::int64_t>(data.size());
    const std::string sha1 = VXCloudFileHasher::sha1Hash(data);
    providers::UploadProgressTracker tracker(progress, total);
    const std::string base = options_.endpoints.contentBase;

    json create = {{"file_size", total}};
    if (!fileId) {
        create["folder_id"] = parentId;
        create["file_name"] = name;
    }
    auto r = request("upload_sessions", "POST",
                     fileId ? base + "/files/" + HttpClient::urlEncode(*fileId) + "/upload_sessions"
                            : base + "/files/upload_sessions");
    r.headers.set("Content-Type", "application/json");
    r.body = ByteBuffer::adopt(create.dump());
    // Only a session is made: a repeat leaves an unused one, which expires.
    auto made = caller_.send(r);
    if (!made.ok()) return Result<Item>::failureOf(made);
    const auto session = parseUploadSession(json::parse(made.value().body, nullptr, false));
    if (!session) return Result<Item>::failure(caller_.malformed(r.what, "the answer is not an upload session"));

    // Parts the session holds, by offset: filled from answers, and from the session's own
    // list after a failure.
    std::map<std::int64_t, Part> parts;
    auto listParts = [&]() -> Result<bool> {
        auto list = request("upload_sessions/parts", "GET", session->listPartsUrl + "?limit=1000");
        auto listed = caller_.send(list);
        if (!listed.ok()) return Result<bool>::failureOf(listed);
        const auto page = parsePartsPage(json::parse(listed.value().body, nullptr, false));
        if (!page) return Result<bool>::failure(caller_.malformed(list.what, "the answer is not a list of parts"));
        for (const Part& part : page->entries) parts[part.offset] = part;
        return Result<bool>::success(true);
    };

    int resumes = 0;
    for (std::int64_t offset = 0; offset < total;) {
        const std::int64_t length = std::min(session->partSize, total - offset);
        if (auto held = parts.find(offset); held != parts.end() && held->second.size == length) {
            offset += length;
            tracker.advance(offset);
            continue;
        }
        const ByteBuffer piece = data.slice(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
        auto put = request("upload_sessions/part", "PUT", session->uploadPartUrl);
        put.headers.set("Content-Type", "application/octet-stream");
        put.headers.set("Digest", shaDigest(VXCloudFileHasher::sha1Hash(piece)));
        put.headers.set("Content-Range", contentRange(offset, length, total));
        put.body = piece;
        put.maxAttempts = 1;  // failures are handled here, by asking the session what it holds
        put.onSent = tracker.forRequestAt(offset);
        auto sent = caller_.send(put);
        if (sent.ok()) {
            const auto part = parsePart(json::parse(sent.value().body, nullptr, false));
            if (!part) return Result<Item>::failure(caller_.malformed(put.what, "the answer is not a part"));
            parts[part->offset] = *part;
            offset += length;
            continue;
        }
        const ProviderError& error = sent.error();
        const bool overlap = error.httpStatus == 409 || error.httpStatus == 416;
        const bool mayHaveStored = error.transient || (error.httpStatus && *error.httpStatus >= 500);
        if ((!overlap && !mayHaveStored) || ++resumes > options_.maxResumes) return Result<Item>::failureOf(sent);
        if (!overlap) std::this_thread::sleep_for(caller_.policy().delayBefore(resumes + 1, HttpResponse{}));
        auto listed = listParts();
        if (!listed.ok()) return Result<Item>::failureOf(listed);
    }

    json committed = json::array();
    for (const auto& [offset, part] : parts) committed.push_back(partJson(part));
    auto commit = request("upload_sessions/commit", "POST", session->commitUrl);
    commit.headers.set("Content-Type", "application/json");
    commit.headers.set("Digest", shaDigest(sha1));
    commit.body = ByteBuffer::adopt(json{{"parts", committed}}.dump());
    commit.alsoAccepted = {202};
    commit.maxAttempts = 1;
    for (int attempt = 0;; ++attempt) {
        auto sent = caller_.send(commit);
        if (sent.ok() && sent.value().status != 202) {
            auto item = parseUploadedFile(json::parse(sent.value().body, nullptr, false));
            if (!item) return Result<Item>::failure(caller_.malformed(commit.what, "the answer holds no file"));
            tracker.advance(total);
            return Result<Item>::success(std::move(*item));
        }
        if (attempt >= options_.maxResumes) {
            if (sent.ok()) return Result<Item>::failure(caller_.malformed(commit.what, "the parts are never processed"));
            return Result<Item>::failureOf(sent);
        }
        if (sent.ok()) {
            // 202: Box is still processing the parts and says when to ask again.
            std::this_thread::sleep_for(caller_.policy().delayBefore(attempt + 2, sent.value()));
            continue;
        }
        if (!sent.error().transient) {
            // A commit that went through but whose answer was lost leaves no session behind.
            if (fileId) {
                auto file = getFile(*fileId);
                if (file.ok() && file.value().sha1 == sha1) return file;
            } else if (auto found = storedAlready(parentId, name, sha1)) {
                return Result<Item>::success(std::move(*found));
            }
            return Result<Item>::failureOf(sent);
        }
        std::this_thread::sleep_for(caller_.policy().delayBefore(attempt + 2, HttpResponse{}));
    }
}

}  // namespace vxcloud::box
