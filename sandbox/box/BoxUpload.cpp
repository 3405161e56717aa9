// Direct uploads on the upload host: a new file or a new version of one, as
// multipart/form-data with the attributes before the file, an optional Content-MD5 that is
// in fact a hex SHA-1, and the preflight check (OPTIONS) on the API host.
#include "box/BoxItems.h"
#include "box/BoxModule.h"
#include "framework/Hashes.h"
#include "framework/Multipart.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::box {
namespace {

struct UploadForm {
    json attributes;
    ByteBuffer content;
};

// The attributes and the file of an upload body, in that order.
UploadForm readForm(const Request& request) {
    const std::string boundary = multipartBoundary(request.headerOr("Content-Type"));
    if (request.mediaType() != "multipart/form-data" || boundary.empty()) {
        fail(400, "bad_request", "An upload is a multipart/form-data body");
    }
    const auto parts = parseMultipart(request.body, boundary);
    if (!parts) fail(400, "bad_request", "The multipart body is malformed");
    std::size_t attributesAt = parts->size(), fileAt = parts->size();
    for (std::size_t i = 0; i < parts->size(); ++i) {
        const std::string disposition = (*parts)[i].header("Content-Disposition").value_or("");
        const std::string name = headerParameter(disposition, "name").value_or("");
        const bool isFile = headerParameter(disposition, "filename").has_value() || name == "file";
        if (isFile && fileAt == parts->size()) fileAt = i;
        if (!isFile && name == "attributes" && attributesAt == parts->size()) attributesAt = i;
    }
    if (attributesAt == parts->size()) failParameter("attributes", true);
    if (fileAt == parts->size()) failParameter("file", true);
    // Box reads the attributes to place the bytes as they stream in; late ones are refused.
    if (fileAt < attributesAt) fail(400, "metadata_after_file_contents", "Metadata must be sent before file contents");
    UploadForm form;
    form.attributes = json::parse((*parts)[attributesAt].content.view(), nullptr, false);
    if (!form.attributes.is_object()) failParameter("attributes", false);
    form.content = (*parts)[fileAt].content;
    return form;
}

// The size limit of a direct upload, and Content-MD5: the SHA-1 of the file, in hex.
void checkContent(const Request& request, const ByteBuffer& content, const std::string& sha1, const Settings& settings) {
    if (static_cast<std::int64_t>(content.size()) > settings.directUploadMaxBytes) {
        fail(413, "request_entity_too_large", "Request Entity Too Large: use a chunked upload for files this large");
    }
    if (const auto digest = request.header("Content-MD5"); digest && asciiLower(*digest) != sha1) {
        fail(400, "bad_digest", "The specified content-md5 did not match what was received");
    }
}

std::int64_t timeField(const json& body, const char* key) {
    if (!body.contains(key)) return 0;
    const std::int64_t seconds = body[key].is_string() ? parseRfc3339(body[key].get<std::string>()) : -1;
    if (seconds < 0) failParameter(key, false);
    return seconds;
}

}  // namespace

json bodyObject(const Request& request) {
    json body = json::parse(request.body.view(), nullptr, false);
    if (!body.is_object()) fail(400, "bad_request", "The body is not a JSON object");
    return body;
}

Attributes readAttributes(const json& body) {
    Attributes out;
    if (body.contains("name")) {
        if (!body["name"].is_string()) failParameter("name", false);
        out.name = body["name"].get<std::string>();
    }
    if (body.contains("parent")) {
        const json& parent = body["parent"];
        if (!parent.is_object() || !parent.contains("id") || !parent["id"].is_string()) failParameter("parent", false);
        out.parentId = parent["id"].get<std::string>();
    }
    out.contentCreated = timeField(body, "content_created_at");
    out.contentModified = timeField(body, "content_modified_at");
    return out;
}

json BoxModule::uploadAnswer(Tree& tree, const Node& file) {
    return {{"total_count", 1}, {"entries", json::array({fullJson(tree, file)})}};
}

Node& BoxModule::storeFile(Tree& tree, Node& folder, const std::string& name, Node* existing, ByteBuffer content,
                           const Attributes& attributes, bool quotaFull) {
    const std::int64_t growth =
        static_cast<std::int64_t>(content.size()) - static_cast<std::int64_t>(existing ? existing->size() : 0);
    checkRoom(tree, growth, quotaFull);
    Node* file = existing;
    if (existing) {
        tree.setContent(*existing, std::move(content), attributes.contentModified);
        if (name != existing->name || folder.id != existing->parentId) tree.move(*existing, folder, name);
    } else {
        file = &tree.createFile(folder, name, std::move(content), attributes.contentModified);
    }
    if (attributes.contentCreated) file->attributes["content_created_at"] = attributes.contentCreated;
    return *file;
}

void BoxModule::registerUploadRoutes(Router& router) {
    const std::string files = std::string(kUploadPattern) + "/files";

    apiRoute(router, "POST", files + "/content", "box/upload/new", [this](BoxCall& call) {
        const UploadForm form = readForm(call.request);
        const Attributes attributes = readAttributes(form.attributes);
        if (!attributes.name) failParameter("name", true);
        if (!attributes.parentId) failParameter("parent", true);
        const Settings settings = currentSettings();
        // Hashed before the lock: large bodies would hold every other request up.
        const std::string sha1 = sha1Hex(form.content.view());
        checkContent(call.request, form.content, sha1, settings);
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& folder = folderById(tree, *attributes.parentId, "parent");
        checkName(*attributes.name);
        const std::string& name = *attributes.name;
        if (const Node* clash = nameClash(tree, folder, name)) failNameInUse(*clash, settings.conflictsAsArray);
        Node& file = storeFile(tree, folder, name, nullptr, form.content, attributes, call.request.quotaFull);
        file.primeHash("sha1", sha1);
        call.response.json(201, uploadAnswer(tree, file));
    });

    apiRoute(router, "POST", files + "/([^/]+)/content", "box/upload/version", [this](BoxCall& call) {
        const UploadForm form = readForm(call.request);
        const Attributes attributes = readAttributes(form.attributes);
        const Settings settings = currentSettings();
        const std::string sha1 = sha1Hex(form.content.view());
        checkContent(call.request, form.content, sha1, settings);
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& file = fileById(tree, call.request.captures.at(0), "file");
        checkIfMatch(file, call.request);
        Node& folder = *tree.find(file.parentId);
        const std::string name = attributes.name.value_or(file.name);
        checkName(name);
        if (const Node* clash = nameClash(tree, folder, name, &file)) failNameInUse(*clash, settings.conflictsAsArray);
        storeFile(tree, folder, name, &file, form.content, attributes, call.request.quotaFull);
        file.primeHash("sha1", sha1);
        call.response.json(200, uploadAnswer(tree, file));
    });

    // The checks an upload would meet, without its bytes.
    auto preflight = [this](BoxCall& call) {
        const Request& request = call.request;
        const json body = request.body.empty() ? json::object() : bodyObject(request);
        const Attributes attributes = readAttributes(body);
        std::int64_t size = 0;
        if (body.contains("size")) {
            if (!body["size"].is_number_integer() || body["size"].get<std::int64_t>() < 0) failParameter("size", false);
            size = body["size"].get<std::int64_t>();
        }
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        std::string url = context().baseUrl() + kUploadPath + "/files/";
        if (request.captures.empty()) {
            if (!attributes.name) failParameter("name", true);
            if (!attributes.parentId) failParameter("parent", true);
            const Node& folder = folderById(tree, *attributes.parentId, "parent");
            checkName(*attributes.name);
            if (const Node* clash = nameClash(tree, folder, *attributes.name)) {
                failNameInUse(*clash, settings_.conflictsAsArray);
            }
            checkRoom(tree, size, request.quotaFull);
            url += "content";
        } else {
            const Node& file = fileById(tree, request.captures.at(0), "file");
            const std::string name = attributes.name.value_or(file.name);
            checkName(name);
            if (const Node* clash = nameClash(tree, *tree.find(file.parentId), name, &file)) {
                failNameInUse(*clash, settings_.conflictsAsArray);
            }
            checkRoom(tree, size - static_cast<std::int64_t>(file.size()), request.quotaFull);
            url += file.id + "/content";
        }
        call.response.json(200, {{"upload_url", url}});
    };
    apiRoute(router, "OPTIONS", std::string(kApiPattern) + "/files/content", "box/upload/preflight", preflight);
    apiRoute(router, "OPTIONS", std::string(kApiPattern) + "/files/([^/]+)/content", "box/upload/preflight", preflight);
}

}  // namespace vxcloud::sandbox::box
