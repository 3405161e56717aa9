// Content uploads under /google/upload/drive/v3/files: uploadType=media (bytes only),
// multipart (multipart/related: JSON metadata, then the bytes) and resumable (an initiating
// request that answers a session URI, then PUTs of the bytes, whole or in chunks that are
// multiples of 256 KiB, with 308 Resume Incomplete and status queries).
#include <algorithm>

#include "framework/Multipart.h"
#include "framework/Text.h"
#include "google/GoogleModule.h"

namespace vxcloud::sandbox::google {
namespace {

std::string uploadType(const Request& request) {
    const auto type = request.queryParam("uploadType");
    if (!type) fail(400, "required", "Required parameter: uploadType", "uploadType");
    if (*type != "media" && *type != "multipart" && *type != "resumable") {
        fail(400, "invalid", "Invalid Value", "uploadType");
    }
    return *type;
}

// "bytes a-b/total", "bytes a-b/*", "bytes */total", "bytes */*".
struct ContentRange {
    bool statusQuery = false;
    std::int64_t first = 0, last = -1;
    std::int64_t total = -1;  // -1: not given
};

std::int64_t number(std::string_view text) {
    if (text.empty() || text.size() > 18 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return -1;
    }
    return std::stoll(std::string(text));
}

ContentRange parseContentRange(const std::string& header) {
    auto bad = [&] { fail(400, "badRequest", "Failed to parse Content-Range header.", "Content-Range", "header"); };
    ContentRange range;
    if (header.rfind("bytes ", 0) != 0) bad();
    const std::string desc = header.substr(6);
    const auto slash = desc.find('/');
    if (slash == std::string::npos) bad();
    const std::string span = desc.substr(0, slash), total = desc.substr(slash + 1);
    if (total != "*") {
        range.total = number(total);
        if (range.total < 0) bad();
    }
    if (span == "*") {
        range.statusQuery = true;
        return range;
    }
    const auto dash = span.find('-');
    if (dash == std::string::npos) bad();
    range.first = number(span.substr(0, dash));
    range.last = number(span.substr(dash + 1));
    if (range.first < 0 || range.last < range.first) bad();
    return range;
}

// What a media or multipart upload sends: the metadata (none for media) and the content.
struct UploadBody {
    json metadata = json::object();
    ByteBuffer content;
    std::string mediaType;
};

UploadBody uploadBody(const Request& request, const std::string& type) {
    UploadBody body;
    body.content = request.body;
    std::string contentType = request.headerOr("Content-Type");
    if (type == "multipart") {
        if (request.mediaType() != "multipart/related") {
            fail(400, "badRequest", "Multipart uploads are multipart/related.");
        }
        const auto parts = parseMultipart(request.body, multipartBoundary(contentType));
        if (!parts) fail(400, "badRequest", "Malformed multipart body.");
        if (parts->size() != 2 || mediaTypeOf((*parts)[0].header("Content-Type").value_or("")) != "application/json") {
            fail(400, "badRequest", "A multipart upload holds the JSON metadata, then the content.");
        }
        body.metadata = metadataObject((*parts)[0].content.view());
        body.content = (*parts)[1].content;
        contentType = (*parts)[1].header("Content-Type").value_or("");
    }
    body.mediaType = mediaTypeOf(contentType);
    return body;
}

}  // namespace

void GoogleModule::registerUploadRoutes(Router& router) {
    // Create with content.
    driveRoute(router, "POST", Router::escape("/google/upload/drive/v3/files"), "google/upload/create", Access::write,
               [this](DriveCall& call) {
                   Request& request = call.request;
                   const std::string type = uploadType(request);
                   if (type == "resumable") {
                       const json metadata = metadataObject(request.body.view());
                       UploadSession session;
                       session.metadata = metadata;
                       std::lock_guard lock(store().mutex());
                       store().tree(call.account.id);
                       return startSession(std::move(session), call);
                   }
                   const UploadBody body = uploadBody(request, type);
                   std::lock_guard lock(store().mutex());
                   Tree& tree = store().tree(call.account.id);
                   Node& node = createItem(tree, body.metadata, &body.content, body.mediaType, call);
                   answerItem(tree, node, request, call.response);
               });

    // New content (and metadata) for a file.
    driveRoute(router, "PATCH", "/google/upload/drive/v3/files/([^/]+)", "google/upload/update", Access::write,
               [this](DriveCall& call) {
                   Request& request = call.request;
                   const std::string type = uploadType(request);
                   const std::string fileId = request.captures.at(0);
                   if (type == "resumable") {
                       UploadSession session;
                       session.metadata = metadataObject(request.body.view());
                       std::lock_guard lock(store().mutex());
                       session.fileId = findItem(store().tree(call.account.id), fileId, call).id;
                       return startSession(std::move(session), call);
                   }
                   const UploadBody body = uploadBody(request, type);
                   std::lock_guard lock(store().mutex());
                   Tree& tree = store().tree(call.account.id);
                   Node& node = findItem(tree, fileId, call);
                   checkNewContent(tree, node, body.content, call);
                   updateItem(tree, node, body.metadata, call);
                   replaceContent(tree, node, body.content, body.mediaType, call);
                   answerItem(tree, node, request, call.response);
               });

    // The session URIs: the upload id authorises them, as at the service.
    router.add("PUT", "/google/upload/drive/v3/files(?:/([^/]+))?", "google/upload/session",
               [this](Request& request, Response& response) {
                   try {
                       const std::string id = request.queryParam("upload_id").value_or("");
                       std::lock_guard lock(store().mutex());
                       UploadSession* session = uploads_.find(id);
                       if (!session) fail(404, "notFound", "The upload session does not exist or has expired.", "upload_id");
                       response.setHeader("X-GUploader-UploadID", id);
                       resumableChunk(*session, id, request, response);
                   } catch (const DriveError& error) {
                       response.json(error.status, errorBody(error));
                   }
               });
}

void GoogleModule::startSession(UploadSession session, DriveCall& call) {
    const Request& request = call.request;
    if (session.fileId.empty()) {
        // What can be checked before any byte arrives is checked now.
        Tree& tree = store().tree(call.account.id);
        if (session.metadata.contains("parents") && session.metadata["parents"].is_array()) {
            for (const auto& parent : session.metadata["parents"]) {
                if (parent.is_string()) findItem(tree, parent.get<std::string>(), call);
            }
        }
    }
    session.accountId = call.account.id;
    session.seesEverything = call.seesEverything;
    session.query = request.query;
    session.contentType = request.headerOr("X-Upload-Content-Type");
    if (session.contentType.empty() && session.metadata.contains("mimeType") && session.metadata["mimeType"].is_string()) {
        session.contentType = session.metadata["mimeType"].get<std::string>();
    }
    if (const auto length = request.header("X-Upload-Content-Length")) {
        session.declaredLength = number(*length);
        if (session.declaredLength < 0) fail(400, "badRequest", "Invalid X-Upload-Content-Length.", "X-Upload-Content-Length", "header");
    }
    const std::string id = uploads_.add(std::move(session), settings_.resumableSessionLifetime, "ABd", 60);
    std::map<std::string, std::string> params = {{"uploadType", "resumable"}, {"upload_id", id}};
    if (const auto fields = request.queryParam("fields")) params["fields"] = *fields;
    call.response.empty(200);
    call.response.setHeader("Location", appendQuery(context().baseUrl() + request.path, params));
    call.response.setHeader("X-GUploader-UploadID", id);
}

void GoogleModule::resumableChunk(UploadSession& session, const std::string& sessionId, Request& request,
                                  Response& response) {
    // The initiating request stands in for this one where the item rules read the request.
    Request initial;
    initial.query = session.query;
    initial.quotaFull = request.quotaFull;
    const auto account = findAccount(session.accountId);
    if (!account) fail(404, "notFound", "The upload session does not exist or has expired.", "upload_id");
    DriveCall call{initial, response, *account, session.seesEverything};
    Tree& tree = store().tree(session.accountId);

    if (!session.resultId.empty()) {
        Node* stored = tree.find(session.resultId);
        if (!stored) fail(404, "notFound", "File not found: " + session.resultId + ".", "fileId");
        return answerItem(tree, *stored, initial, response);
    }

    const auto header = request.header("Content-Range");
    ContentRange range;
    if (!header) {
        // The whole content in one request.
        range.first = 0;
        range.last = static_cast<std::int64_t>(request.body.size()) - 1;
        range.total = static_cast<std::int64_t>(request.body.size());
    } else {
        range = parseContentRange(*header);
    }
    if (range.total >= 0 && session.declaredLength >= 0 && range.total != session.declaredLength) {
        fail(400, "badRequest", "The total size does not match X-Upload-Content-Length.", "Content-Range", "header");
    }
    const std::int64_t total = range.total >= 0 ? range.total : session.declaredLength;
    auto received = static_cast<std::int64_t>(session.data.size());

    if (range.statusQuery) {
        if (!request.body.empty()) fail(400, "badRequest", "A status query has no body.");
    } else if (header) {
        const std::int64_t length = range.last - range.first + 1;
        if (length != static_cast<std::int64_t>(request.body.size())) {
            fail(400, "badRequest", "The Content-Range does not match the body's length.", "Content-Range", "header");
        }
        if (range.first > received) {
            fail(400, "badRequest",
                 "The chunk starts at byte " + std::to_string(range.first) + " but the session has " +
                     std::to_string(received) + " bytes.",
                 "Content-Range", "header");
        }
        if (total >= 0 && range.last >= total) {
            fail(400, "badRequest", "The chunk ends beyond the total size.", "Content-Range", "header");
        }
        const bool final = total >= 0 && range.last + 1 == total;
        if (!final && length % kResumableChunkUnit != 0) {
            fail(400, "badRequest",
                 "Invalid request. The number of bytes uploaded is required to be equal or greater than 262144, "
                 "except for the final request (it's recommended to be the exact multiple of 262144). The "
                 "received request contained " + std::to_string(length) + " bytes, which does not meet this requirement.");
        }
        // Bytes the session has already are not stored twice.
        const std::int64_t skip = received - range.first;
        std::int64_t keep = length - skip;
        if (!final && settings_.resumableKeepMaxBytes > 0) {
            const std::int64_t most = std::max(kResumableChunkUnit, settings_.resumableKeepMaxBytes / kResumableChunkUnit *
                                                                        kResumableChunkUnit);
            keep = std::min(keep, most);
        }
        if (keep > 0) session.data.append(request.body.view().substr(static_cast<std::size_t>(skip), static_cast<std::size_t>(keep)));
        received = static_cast<std::int64_t>(session.data.size());
    } else {
        session.data.assign(request.body.view());
        received = static_cast<std::int64_t>(session.data.size());
    }

    if (total < 0 || received < total) {
        response.empty(308);
        if (received > 0) response.setHeader("Range", "bytes=0-" + std::to_string(received - 1));
        return;
    }

    // Every byte is here: store the file. A refusal ends the session.
    try {
        const ByteBuffer content = ByteBuffer::adopt(std::move(session.data));
        session.data.clear();
        Node* node = nullptr;
        if (session.fileId.empty()) {
            node = &createItem(tree, session.metadata, &content, mediaTypeOf(session.contentType), call);
        } else {
            node = &findItem(tree, session.fileId, call);
            checkNewContent(tree, *node, content, call);
            updateItem(tree, *node, session.metadata, call);
            replaceContent(tree, *node, content, mediaTypeOf(session.contentType), call);
        }
        session.resultId = node->id;
        answerItem(tree, *node, initial, response);
    } catch (const DriveError&) {
        uploads_.erase(sessionId);
        throw;
    }
}

}  // namespace vxcloud::sandbox::google
