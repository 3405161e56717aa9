// Uploads: the simple PUT of .../content (up to a limit) and upload sessions, whose
// pre-authenticated URLs take fragments with Content-Range (multiples of 320 KiB but the
// last), answer their status, and are cancelled with DELETE.
#include <algorithm>

#include "framework/Text.h"
#include "onedrive/OneDriveModule.h"

namespace vxcloud::sandbox::onedrive {
namespace {

const std::string kContent = "/onedrive/v1\\.0/me/drive/(root|items/[^/:]+)(?::([^:]*):)?/content";
const std::string kCreateSession = "/onedrive/v1\\.0/me/drive/(root|items/[^/:]+)(?::([^:]*):)?/createUploadSession";
const std::string kUploadUrl = "/onedrive/up/([A-Za-z0-9_-]+)";

std::int64_t number(std::string_view text) {
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string_view::npos) return -1;
    return std::stoll(std::string(text));
}

struct ContentRange {
    std::int64_t first = 0, last = 0, total = 0;
};

// "bytes 0-327679/1048576"; the total is required.
ContentRange parseContentRange(const Request& request) {
    const auto header = request.header("Content-Range");
    if (!header) fail(400, "invalidRequest", "A fragment needs a Content-Range header.");
    auto bad = [&] { fail(400, "invalidRequest", "Invalid Content-Range header: " + *header); };
    if (header->rfind("bytes ", 0) != 0) bad();
    const std::string span = header->substr(6);
    const auto dash = span.find('-'), slash = span.find('/');
    if (dash == std::string::npos || slash == std::string::npos || dash > slash) bad();
    ContentRange range{number(span.substr(0, dash)), number(span.substr(dash + 1, slash - dash - 1)),
                       number(span.substr(slash + 1))};
    if (range.first < 0 || range.last < range.first || range.total <= range.last) bad();
    return range;
}

}  // namespace

void OneDriveModule::registerUploadRoutes(Router& router) {
    graphRoute(router, "PUT", kContent, "onedrive/items/upload", Access::write, [this](GraphCall& call) {
        const Request& request = call.request;
        std::lock_guard lock(store().mutex());
        const auto size = static_cast<std::int64_t>(request.body.size());
        if (size > settings_.simpleUploadMaxBytes) {
            fail(413, "requestTooLarge",
                 "The request is larger than " + std::to_string(settings_.simpleUploadMaxBytes) +
                     " bytes; use an upload session.",
                 "maxFileSizeExceeded");
        }
        Tree& tree = store().tree(call.account.id);
        const ItemAddress address = addressOf(request);
        int status = 200;
        if (address.path.empty()) {
            // items/{id}/content: new bytes for that file.
            Node& file = resolve(tree, address);
            if (file.isFolder) fail(400, "invalidRequest", "A folder has no content.");
            checkIfMatch(tree, file, request);
            return answerItem(tree, storeFile(tree, *tree.find(file.parentId), file.name, &file, request.body,
                                              request.quotaFull, status), call, status);
        }
        auto [folder, wanted] = placement(tree, address);
        const Conflict conflict = conflictOf(json(request.queryParam(kConflictAnnotation).value_or("replace")),
                                             Conflict::replace);
        Node* existing = nullptr;
        const std::string name = settleName(tree, *folder, wanted, conflict, nullptr, &existing);
        if (existing) checkIfMatch(tree, *existing, request);
        Node& stored = storeFile(tree, *folder, name, existing, request.body, request.quotaFull, status);
        answerItem(tree, stored, call, status);
    });

    graphRoute(router, "POST", kCreateSession, "onedrive/upload/create", Access::write, [this](GraphCall& call) {
        const Request& request = call.request;
        json body = json::object();
        if (!request.body.empty()) {
            body = json::parse(request.body.view(), nullptr, false);
            if (!body.is_object()) fail(400, "invalidRequest", "The request body is not a JSON object.");
        }
        const json item = body.contains("item") && body["item"].is_object() ? body["item"] : json::object();
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const ItemAddress address = addressOf(request);
        UploadSession session;
        session.accountId = call.account.id;
        // The annotation counts inside "item" only; the documented default is fail.
        session.conflict = conflictOf(item.contains(kConflictAnnotation) ? item[kConflictAnnotation] : json(),
                                      Conflict::fail);
        if (address.path.empty()) {
            Node& file = resolve(tree, address);
            if (file.isFolder) fail(400, "invalidRequest", "An upload session needs a file name.");
            checkIfMatch(tree, file, request);
            session.fileId = file.id;
            session.folderId = file.parentId;
            session.name = file.name;
        } else {
            auto [folder, name] = placement(tree, address);
            if (item.contains("name") && (!item["name"].is_string() || !equalsFolded(item["name"].get<std::string>(), name))) {
                fail(400, "invalidRequest", "The name in the body differs from the one in the URL.");
            }
            Node* existing = nullptr;
            settleName(tree, *folder, name, session.conflict, nullptr, &existing);
            if (existing) checkIfMatch(tree, *existing, request);
            session.folderId = folder->id;
            session.name = name;
        }
        if (item.contains("fileSize")) {
            if (!item["fileSize"].is_number_integer() || item["fileSize"].get<std::int64_t>() < 0) {
                fail(400, "invalidRequest", "fileSize must be a whole number.");
            }
            session.total = item["fileSize"].get<std::int64_t>();
            if (request.quotaFull || !tree.fits(session.total)) {
                fail(507, "quotaLimitReached", "Insufficient Space Available");
            }
        }
        const std::string id = uploads_.add(std::move(session), settings_.uploadSessionLifetime, "", 64);
        call.response.json(200, {{"@odata.context", "https://graph.microsoft.com/v1.0/$metadata#microsoft.graph.uploadSession"},
                                 {"uploadUrl", context().baseUrl() + "/onedrive/up/" + id},
                                 {"expirationDateTime", graphTime(uploads_.expiresAt(id))},
                                 {"nextExpectedRanges", json::array({"0-"})}});
    });

    preauthenticatedRoute(router, "PUT", kUploadUrl, "onedrive/upload/fragment", [this](Request& request, Response& response) {
        std::lock_guard lock(store().mutex());
        const std::string id = request.captures.at(0);
        UploadSession* session = uploads_.find(id);
        if (!session) fail(404, "itemNotFound", "The upload session was not found.", "uploadSessionNotFound");
        uploadFragment(*session, id, request, response);
    });

    preauthenticatedRoute(router, "GET", kUploadUrl, "onedrive/upload/status", [this](Request& request, Response& response) {
        std::lock_guard lock(store().mutex());
        answerSessionStatus(request.captures.at(0), response, 200);
    });

    preauthenticatedRoute(router, "DELETE", kUploadUrl, "onedrive/upload/cancel", [this](Request& request, Response& response) {
        std::lock_guard lock(store().mutex());
        const std::string id = request.captures.at(0);
        if (!uploads_.find(id)) fail(404, "itemNotFound", "The upload session was not found.", "uploadSessionNotFound");
        uploads_.erase(id);
        response.empty(204);
    });
}

void OneDriveModule::answerSessionStatus(const std::string& sessionId, Response& response, int status) {
    const UploadSession* session = uploads_.find(sessionId);
    if (!session) fail(404, "itemNotFound", "The upload session was not found.", "uploadSessionNotFound");
    const auto received = static_cast<std::int64_t>(session->data.size());
    json ranges = json::array();
    if (session->total < 0 || received < session->total) ranges.push_back(std::to_string(received) + "-");
    response.json(status, {{"expirationDateTime", graphTime(uploads_.expiresAt(sessionId))}, {"nextExpectedRanges", ranges}});
}

void OneDriveModule::uploadFragment(UploadSession& session, const std::string& sessionId, Request& request,
                                    Response& response) {
    const ContentRange range = parseContentRange(request);
    if (session.total >= 0 && range.total != session.total) {
        fail(400, "invalidRequest",
             "The current upload session is for " + std::to_string(session.total) +
                 " total bytes, but the current fragment declares a total of " + std::to_string(range.total));
    }
    const std::int64_t length = range.last - range.first + 1;
    if (length != static_cast<std::int64_t>(request.body.size())) {
        fail(400, "invalidRequest", "The Content-Range does not match the body's length.", "fragmentLengthMismatch");
    }
    if (length > kMaxFragmentBytes) fail(413, "requestTooLarge", "A fragment holds less than 60 MiB.");
    const auto received = static_cast<std::int64_t>(session.data.size());
    if (range.first < received) {
        fail(416, "invalidRange", "The uploaded fragment overlaps with data that has already been received.",
             "fragmentOverlap");
    }
    if (range.first > received) {
        fail(416, "invalidRange", "The fragment does not start at the next expected byte.", "fragmentOutOfOrder");
    }
    const bool last = range.last + 1 == range.total;
    if (!last && length % kFragmentUnit != 0) {
        fail(400, "invalidRequest", "Fragments other than the last must be a multiple of 320 KiB (327680 bytes).");
    }
    session.total = range.total;
    std::int64_t keep = length;
    if (settings_.fragmentKeepMaxBytes > 0) keep = std::min(keep, settings_.fragmentKeepMaxBytes);
    session.data.append(request.body.view().substr(0, static_cast<std::size_t>(keep)));
    uploads_.renew(sessionId, settings_.uploadSessionLifetime);
    if (static_cast<std::int64_t>(session.data.size()) < session.total) return answerSessionStatus(sessionId, response, 202);

    // Every byte is here: the file is stored now. A refusal leaves the session as it is.
    Tree& tree = store().tree(session.accountId);
    Node* folder = tree.find(session.folderId);
    if (!folder) fail(404, "itemNotFound", "The folder of the upload is gone.");
    Node* existing = session.fileId.empty() ? nullptr : tree.find(session.fileId);
    std::string name = session.name;
    if (session.fileId.empty()) {
        name = settleName(tree, *folder, session.name, session.conflict, nullptr, &existing);
    } else if (!existing) {
        fail(404, "itemNotFound", "The file of the upload is gone.");
    }
    int status = 200;
    const ByteBuffer content = ByteBuffer::adopt(std::string(session.data));
    Node& stored = storeFile(tree, *folder, name, existing, content, request.quotaFull, status);
    const std::string accountId = session.accountId;
    uploads_.erase(sessionId);
    response.json(status, itemJson(tree, stored, settings_, accountId));
}

}  // namespace vxcloud::sandbox::onedrive
