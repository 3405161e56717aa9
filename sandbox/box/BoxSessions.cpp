// Chunked uploads: a session for a new file or a new version, parts of exactly part_size
// bytes (the last may be shorter) at multiples of part_size, each with its SHA-1 in a Digest
// header and immutable once stored, a listing of the stored parts, and a commit naming the
// parts with the whole file's SHA-1. Sessions expire on the sandbox clock.
#include <algorithm>
#include <cctype>

#include "box/BoxItems.h"
#include "box/BoxModule.h"
#include "framework/Hashes.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::box {
namespace {

const std::string kSessions = std::string(kUploadPattern) + "/files/upload_sessions";
const std::string kSession = kSessions + "/([^/]+)";

// Box's session ids are 32 upper-case hex digits, its part ids 8.
std::string upperHex(std::size_t length) {
    std::string out = randomHex(length);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::toupper(c); });
    return out;
}

std::int64_t number(std::string_view text) {
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string_view::npos) return -1;
    return std::stoll(std::string(text));
}

struct ContentRange {
    std::int64_t first = -1, last = -1, total = -1;
};

// "bytes 0-8388607/104857600"; 400 when missing or not of that form.
ContentRange contentRange(const Request& request) {
    const std::string header = request.headerOr("Content-Range");
    const auto dash = header.find('-'), slash = header.find('/');
    if (header.rfind("bytes ", 0) != 0 || dash == std::string::npos || slash == std::string::npos || dash > slash) {
        failParameter("content-range", header.empty());
    }
    const ContentRange range{number(std::string_view(header).substr(6, dash - 6)),
                             number(std::string_view(header).substr(dash + 1, slash - dash - 1)),
                             number(std::string_view(header).substr(slash + 1))};
    if (range.first < 0 || range.last < range.first || range.total < 0) failParameter("content-range", false);
    return range;
}

// The SHA-1 of a Digest header ("sha=<base64>", maybe among other digests), in hex.
std::optional<std::string> shaDigest(const Request& request) {
    const std::string header = request.headerOr("Digest");
    std::size_t pos = 0;
    while (pos < header.size()) {
        std::size_t end = header.find(',', pos);
        if (end == std::string::npos) end = header.size();
        std::string item = header.substr(pos, end - pos);
        item.erase(0, item.find_first_not_of(' '));
        const auto equals = item.find('=');
        if (equals != std::string::npos && asciiLower(item.substr(0, equals)) == "sha") {
            bool ok = false;
            const std::string raw = base64Decode(item.substr(equals + 1), &ok);
            if (ok && raw.size() == 20) return hexEncode(raw);
            return std::string();  // there, but not a SHA-1: matches nothing
        }
        pos = end + 1;
    }
    return std::nullopt;
}

json partJson(const std::string& id, std::int64_t offset, std::int64_t size, const std::string& sha1) {
    return {{"part_id", id}, {"offset", offset}, {"size", size}, {"sha1", sha1}};
}

}  // namespace

BoxModule::UploadSession& BoxModule::sessionOf(const BoxCall& call, const std::string& id) {
    UploadSession* session = sessions_.find(id);
    if (!session && sessions_.expired(id)) fail(410, "session_expired", "The upload session has expired");
    if (!session) fail(404, "not_found", "The upload session was not found");
    if (session->accountId != call.account.id) fail(403, "forbidden", "The upload session belongs to another user");
    return *session;
}

json BoxModule::sessionJson(const std::string& id, const UploadSession& session) {
    const std::string url = context().baseUrl() + kUploadPath + "/files/upload_sessions/" + id;
    return {{"type", "upload_session"},
            {"id", id},
            {"session_expires_at", boxTime(sessions_.expiresAt(id))},
            {"part_size", session.partSize},
            {"total_parts", (session.fileSize + session.partSize - 1) / session.partSize},
            {"num_parts_processed", session.parts.size()},
            {"session_endpoints",
             {{"upload_part", url},
              {"commit", url + "/commit"},
              {"abort", url},
              {"list_parts", url + "/parts"},
              {"status", url},
              {"log_event", url + "/log"}}}};
}

void BoxModule::uploadPart(BoxCall& call, UploadSession& session, const std::string& sha1) {
    const Request& request = call.request;
    const ContentRange range = contentRange(request);
    const std::int64_t length = range.last - range.first + 1;
    const bool last = range.last + 1 == session.fileSize;
    const bool fits = range.total == session.fileSize && range.last < session.fileSize &&
                      range.first % session.partSize == 0 &&
                      (last ? length <= session.partSize : length == session.partSize);
    if (!fits) {
        fail(416, "requested_range_not_satisfiable",
             "The part does not fit the session: parts are part_size bytes at multiples of part_size, the last "
             "one ends the file");
    }
    if (length != static_cast<std::int64_t>(request.body.size())) {
        fail(400, "bad_request", "The body's length differs from the Content-Range");
    }
    for (const auto& [offset, part] : session.parts) {
        if (offset <= range.last && offset + static_cast<std::int64_t>(part.data.size()) > range.first) {
            fail(409, "range_overlaps_existing_part", "Part range overlaps with an existing part");
        }
    }
    const auto digest = shaDigest(request);
    if (!digest) failParameter("digest", true);
    if (*digest != sha1) fail(400, "bad_digest", "The digest of the part does not match its contents");
    UploadPart part{upperHex(8), range.first, sha1, request.body};
    const json answer = {{"part", partJson(part.id, part.offset, length, sha1)}};
    session.parts.emplace(range.first, std::move(part));
    call.response.json(200, answer);
}

void BoxModule::commit(BoxCall& call, const std::string& id, UploadSession& session) {
    const Request& request = call.request;
    const json body = bodyObject(request);
    if (!body.contains("parts") || !body["parts"].is_array()) failParameter("parts", !body.contains("parts"));
    const auto digest = shaDigest(request);
    if (!digest) failParameter("digest", true);
    // The parts named must be stored ones, as stored, and together the whole file.
    std::map<std::int64_t, const UploadPart*> named;
    for (const json& entry : body["parts"]) {
        const bool shaped = entry.is_object() && entry.value("part_id", json()).is_string() &&
                            entry.value("offset", json()).is_number_integer() &&
                            entry.value("size", json()).is_number_integer() && entry.value("sha1", json()).is_string();
        if (!shaped) failParameter("parts", false);
        const auto stored = session.parts.find(entry["offset"].get<std::int64_t>());
        const bool same = stored != session.parts.end() && stored->second.id == entry["part_id"].get<std::string>() &&
                          static_cast<std::int64_t>(stored->second.data.size()) == entry["size"].get<std::int64_t>() &&
                          stored->second.sha1 == asciiLower(entry["sha1"].get<std::string>());
        if (!same) {
            fail(400, "bad_request", "Part " + entry["part_id"].get<std::string>() + " was not uploaded as described");
        }
        named[stored->first] = &stored->second;
    }
    std::string whole;
    whole.reserve(static_cast<std::size_t>(session.fileSize));
    for (const auto& [offset, part] : named) {
        if (offset != static_cast<std::int64_t>(whole.size())) break;
        whole.append(part->data.view());
    }
    if (static_cast<std::int64_t>(whole.size()) != session.fileSize) {
        fail(400, "bad_request", "The parts do not make up the whole file");
    }
    if (*digest != sha1Hex(whole)) fail(400, "bad_digest", "The digest does not match the file made of the parts");
    const Attributes attributes =
        body.contains("attributes") && body["attributes"].is_object() ? readAttributes(body["attributes"]) : Attributes{};
    if (session.commitsAccepted < settings_.commitAcceptedFirst) {
        ++session.commitsAccepted;
        call.response.empty(202);
        call.response.setHeader("Retry-After", "1");
        return;
    }
    Tree& tree = store().tree(session.accountId);
    Node* existing = session.fileId.empty() ? nullptr : &fileById(tree, session.fileId, "file");
    if (existing) checkIfMatch(*existing, request);
    Node& folder = folderById(tree, session.folderId, "parent");
    const std::string name = session.fileName.empty() ? existing->name : session.fileName;
    if (const Node* clash = nameClash(tree, folder, name, existing)) failNameInUse(*clash, settings_.conflictsAsArray);
    Node& file = storeFile(tree, folder, name, existing, ByteBuffer::adopt(std::move(whole)), attributes,
                           request.quotaFull);
    file.primeHash("sha1", *digest);
    sessions_.erase(id);
    call.response.json(201, uploadAnswer(tree, file));
}

void BoxModule::registerSessionRoutes(Router& router) {
    auto create = [this](BoxCall& call) {
        const Request& request = call.request;
        const json body = bodyObject(request);
        const bool version = !request.captures.empty();
        if (!version && !body.contains("folder_id")) failParameter("folder_id", true, "missing_destination");
        if (body.contains("folder_id") && !body["folder_id"].is_string()) {
            failParameter("folder_id", false, "invalid_folder_id");
        }
        if (!body.contains("file_size")) failParameter("file_size", true, "missing_file_size");
        if (!body["file_size"].is_number_integer() || body["file_size"].get<std::int64_t>() < 0) {
            failParameter("file_size", false, "invalid_file_size");
        }
        if (!version && !body.contains("file_name")) failParameter("file_name", true, "missing_file_name");
        if (body.contains("file_name") && !body["file_name"].is_string()) {
            failParameter("file_name", false, "item_name_invalid");
        }
        std::lock_guard lock(store().mutex());
        UploadSession session;
        session.accountId = call.account.id;
        session.fileSize = body["file_size"].get<std::int64_t>();
        session.partSize = settings_.partSize;
        if (session.fileSize < settings_.chunkedMinBytes) {
            fail(400, "file_size_too_small",
                 "File size is less than minimum of " + std::to_string(settings_.chunkedMinBytes) + " bytes");
        }
        Tree& tree = store().tree(call.account.id);
        const Node* file = version ? &fileById(tree, request.captures.at(0), "file") : nullptr;
        const Node& folder = body.contains("folder_id")
                                 ? folderById(tree, body["folder_id"].get<std::string>(), "parent")
                                 : *tree.find(file->parentId);
        const std::string name = body.contains("file_name") ? body["file_name"].get<std::string>() : file->name;
        checkName(name);
        if (const Node* clash = nameClash(tree, folder, name, file)) failNameInUse(*clash, settings_.conflictsAsArray);
        checkRoom(tree, session.fileSize - static_cast<std::int64_t>(file ? file->size() : 0), request.quotaFull);
        session.folderId = folder.id;
        session.fileId = file ? file->id : std::string();
        session.fileName = name;
        const std::string id = upperHex(32);
        sessions_.insert(id, std::move(session), settings_.uploadSessionLifetime);
        call.response.json(201, sessionJson(id, *sessions_.find(id)));
    };
    apiRoute(router, "POST", kSessions, "box/sessions/create", create);
    apiRoute(router, "POST", std::string(kUploadPattern) + "/files/([^/]+)/upload_sessions", "box/sessions/create",
             create);

    apiRoute(router, "PUT", kSession, "box/sessions/part", [this](BoxCall& call) {
        // Hashed before the lock, so parts uploaded side by side do not wait for each other.
        const std::string sha1 = sha1Hex(call.request.body.view());
        std::lock_guard lock(store().mutex());
        uploadPart(call, sessionOf(call, call.request.captures.at(0)), sha1);
    });

    apiRoute(router, "GET", kSession + "/parts", "box/sessions/parts", [this](BoxCall& call) {
        std::lock_guard lock(store().mutex());
        const UploadSession& session = sessionOf(call, call.request.captures.at(0));
        const auto limit = static_cast<std::size_t>(limitOf(call.request, settings_));
        const auto offset = static_cast<std::size_t>(offsetOf(call.request));
        json entries = json::array();
        std::size_t index = 0;
        for (const auto& [at, part] : session.parts) {
            if (index >= offset && index < offset + limit) {
                entries.push_back(partJson(part.id, part.offset, static_cast<std::int64_t>(part.data.size()), part.sha1));
            }
            ++index;
        }
        call.response.json(200, {{"entries", entries},
                                 {"offset", offset},
                                 {"limit", limit},
                                 {"total_count", session.parts.size()}});
    });

    apiRoute(router, "POST", kSession + "/commit", "box/sessions/commit", [this](BoxCall& call) {
        std::lock_guard lock(store().mutex());
        const std::string id = call.request.captures.at(0);
        commit(call, id, sessionOf(call, id));
    });

    apiRoute(router, "GET", kSession, "box/sessions/status", [this](BoxCall& call) {
        std::lock_guard lock(store().mutex());
        const std::string id = call.request.captures.at(0);
        call.response.json(200, sessionJson(id, sessionOf(call, id)));
    });

    apiRoute(router, "DELETE", kSession, "box/sessions/abort", [this](BoxCall& call) {
        std::lock_guard lock(store().mutex());
        const std::string id = call.request.captures.at(0);
        sessionOf(call, id);
        sessions_.erase(id);
        call.response.empty(204);
    });
}

}  // namespace vxcloud::sandbox::box
