#include "GraphClient.h"

#include "GraphWire.h"
#include "providers/oauth/ClientForAccount.h"

namespace vxcloud::onedrive {

using nlohmann::json;

namespace {

providers::ProviderHooks graphHooks() {
    providers::ProviderHooks hooks;
    hooks.serviceName = "OneDrive";
    hooks.logTag = "onedrive";
    hooks.readError = [](const HttpResponse& response) {
        return ProviderError::fromOneDriveResponse(response.status, response.body);
    };
    // A token that could not be had reads like the Graph answer it stands for, so the
    // OneDrive classifier sees it rightly: a refused grant (revoked, expired, no refresh
    // token) as a 401, which only a new sign-in mends; a token endpoint that failed, was
    // throttled or could not be reached as a 503, which a later attempt may mend.
    hooks.tokenFailure = [](const oauth::TokenFailure& failure) {
        ProviderError error = failure.error;
        switch (failure.kind) {
            case oauth::TokenFailure::Kind::authentication: error.httpStatus = 401; break;
            case oauth::TokenFailure::Kind::server:
            case oauth::TokenFailure::Kind::connection:
                error.httpStatus = 503;
                error.transient = true;
                break;
            case oauth::TokenFailure::Kind::malformed: break;
        }
        return error;
    };
    return hooks;
}

std::string encodeSegments(const std::string& path) {
    std::string out;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t slash = path.find('/', start);
        const std::size_t end = slash == std::string::npos ? path.size() : slash;
        if (end > start) {
            if (!out.empty()) out += '/';
            out += HttpClient::urlEncode(std::string_view(path).substr(start, end - start));
        }
        if (slash == std::string::npos) break;
        start = slash + 1;
    }
    return out;
}

}  // namespace

std::string itemPath(const std::string& itemId) {
    if (itemId.empty() || itemId == "root") return "/me/drive/root";
    return "/me/drive/items/" + HttpClient::urlEncode(itemId);
}

std::string pathBelowRoot(const std::string& path) {
    const std::string encoded = encodeSegments(path);
    return encoded.empty() ? "/me/drive/root" : "/me/drive/root:/" + encoded + ":";
}

GraphClient::GraphClient(std::shared_ptr<oauth::TokenProvider> tokens, ClientOptions options)
    : options_(std::move(options)), caller_(std::move(tokens), options_.http, options_.retry, graphHooks()) {}

std::shared_ptr<GraphClient> GraphClient::forStorageName(const std::string& storageName) {
    return oauth::clientForAccount<GraphClient, ClientOptions>(VXCloudService::oneDrive, storageName);
}

std::shared_ptr<GraphClient> GraphClient::withGrantedToken(VXCloudService service, std::string apiBase,
                                                           std::string accessToken) {
    ClientOptions options;
    options.endpoints = VXCloudServiceConfig::endpoints(service);
    options.endpoints.apiBase = std::move(apiBase);
    return std::make_shared<GraphClient>(oauth::TokenProvider::forGrantedToken(service, std::move(accessToken)),
                                         std::move(options));
}

providers::ApiRequest GraphClient::request(const std::string& what, const std::string& method,
                                           const std::string& path) const {
    providers::ApiRequest r;
    r.what = what;
    r.method = method;
    r.url = options_.endpoints.apiBase + path;
    return r;
}

template <typename T, typename Reader>
static Result<T> readJson(const Result<HttpResponse>& sent, const providers::ProviderCaller& caller,
                          const std::string& what, Reader reader) {
    if (!sent.ok()) return Result<T>::failureOf(sent);
    const json body = json::parse(sent.value().body, nullptr, false);
    auto parsed = body.is_discarded() ? std::nullopt : reader(body);
    if (!parsed) return Result<T>::failure(caller.malformed(what, "the answer cannot be read"));
    return Result<T>::success(std::move(*parsed));
}

Result<Item> GraphClient::itemAnswer(const providers::ApiRequest& r) {
    return readJson<Item>(caller_.send(r), caller_, r.what, [](const json& body) { return parseItem(body); });
}

Result<ChildrenPage> GraphClient::pageAnswer(const providers::ApiRequest& r) {
    return readJson<ChildrenPage>(caller_.send(r), caller_, r.what, [](const json& body) { return parsePage(body); });
}

Result<Drive> GraphClient::getDrive() {
    const auto r = request("drive", "GET", "/me/drive");
    return readJson<Drive>(caller_.send(r), caller_, r.what, [](const json& body) { return parseDrive(body); });
}

Result<ChildrenPage> GraphClient::listChildren(const std::string& folderId) {
    return pageAnswer(request("children", "GET", itemPath(folderId) + "/children"));
}

Result<ChildrenPage> GraphClient::listChildrenAtPath(const std::string& path) {
    return pageAnswer(request("children", "GET", pathBelowRoot(path) + "/children"));
}

Result<ChildrenPage> GraphClient::nextPage(const std::string& nextLink) {
    auto r = request("children", "GET", "");
    r.url = nextLink;  // absolute and already encoded: used as it is
    return pageAnswer(r);
}

Result<Item> GraphClient::getItem(const std::string& itemId) {
    return itemAnswer(request("item", "GET", itemPath(itemId)));
}

Result<Item> GraphClient::getItemAtPath(const std::string& path) {
    return itemAnswer(request("item", "GET", pathBelowRoot(path)));
}

Result<Item> GraphClient::createFolder(const std::string& parentId, const std::string& name) {
    auto r = request("create folder", "POST", itemPath(parentId) + "/children");
    r.headers.set("Content-Type", "application/json");
    r.body = ByteBuffer::adopt(json{{"name", name}, {"folder", json::object()}}.dump());
    r.idempotent = false;  // a repeat would meet the folder it made
    return itemAnswer(r);
}

Result<Item> GraphClient::update(const std::string& itemId, const std::optional<std::string>& name,
                                 const std::optional<std::string>& parentId) {
    json patch = json::object();
    if (name) patch["name"] = *name;
    if (parentId) {
        // A parent reference wants the top folder's real id; "root" is only an alias in paths.
        std::string parent = *parentId;
        if (parent.empty() || parent == "root") {
            auto root = getItem("root");
            if (!root.ok()) return root;
            parent = root.value().id;
        }
        patch["parentReference"] = json{{"id", parent}};
    }
    auto r = request("update", "PATCH", itemPath(itemId));
    r.headers.set("Content-Type", "application/json");
    r.body = ByteBuffer::adopt(patch.dump());
    return itemAnswer(r);
}

Result<bool> GraphClient::deleteItem(const std::string& itemId) {
    auto r = request("delete", "DELETE", itemPath(itemId));
    r.idempotent = false;  // a repeat after a lost answer would say "not found"
    auto sent = caller_.send(r);
    if (!sent.ok()) return Result<bool>::failureOf(sent);
    return Result<bool>::success(true);
}

Result<ByteBuffer> GraphClient::downloadAtPath(const std::string& path) {
    auto r = request("download", "GET", pathBelowRoot(path) + "/content");
    r.alsoAccepted = {302};
    auto sent = caller_.send(r);
    if (!sent.ok()) return Result<ByteBuffer>::failureOf(sent);
    if (sent.value().status != 302) return Result<ByteBuffer>::success(ByteBuffer::adopt(std::move(sent.value().body)));
    // A pre-authenticated address: the bearer token must not go there.
    const auto location = sent.value().headers.get("Location");
    if (!location || location->empty()) return Result<ByteBuffer>::failure(caller_.malformed(r.what, "a redirect without Location"));
    providers::ApiRequest content;
    content.what = "download";
    content.url = *location;
    content.authorized = false;
    auto fetched = caller_.send(content);
    if (!fetched.ok()) return Result<ByteBuffer>::failureOf(fetched);
    return Result<ByteBuffer>::success(ByteBuffer::adopt(std::move(fetched.value().body)));
}

}  // namespace vxcloud::onedrive
