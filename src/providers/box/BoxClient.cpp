#include "BoxClient.h"

#include "BoxWire.h"
#include "providers/oauth/ClientForAccount.h"

namespace vxcloud::box {

using nlohmann::json;

namespace {

// Box reports a full account as 403 storage_limit_exceeded, which reads as an authorisation
// failure by status alone; it is filed under 507, the status that means "no room".
constexpr int kInsufficientStorage = 507;

ProviderError readBoxError(const HttpResponse& response) {
    ProviderError error = ProviderError::fromBoxResponse(response.status, response.body);
    const Json* body = error.boxErrorBody.get();
    if (response.status == 403 && body && body->is_object() && body->value("code", "") == "storage_limit_exceeded") {
        error.httpStatus = kInsufficientStorage;
    }
    return error;
}

providers::ProviderHooks boxHooks() {
    providers::ProviderHooks hooks;
    hooks.serviceName = "Box";
    hooks.logTag = "box";
    hooks.readError = readBoxError;
    // A token that could not be had: a refused grant is the client's own authorisation
    // failure (a code of the 20001-20005 range, `authentication`); a token endpoint that
    // failed or could not be reached leaves the grant standing and the request may be made
    // again later.
    hooks.tokenFailure = [](const oauth::TokenFailure& failure) {
        ProviderError error = failure.error;
        error.boxErrorBody = Json();
        if (failure.kind == oauth::TokenFailure::Kind::authentication) {
            error.httpStatus = kBoxClientAuthErrorFirst;
        } else if (failure.passing()) {
            error.transient = true;
        }
        return error;
    };
    return hooks;
}

// Only what the session reads, so listings of large folders stay small.
constexpr const char* kItemFields = "type,id,name,sha1,size,etag,parent,file_version";

}  // namespace

std::optional<std::string> conflictingFileId(const ProviderError& error) {
    const Json* body = error.boxErrorBody.get();
    if (error.httpStatus != 409 || !body || !body->is_object() || body->value("code", "") != "item_name_in_use") {
        return std::nullopt;
    }
    const auto info = body->find("context_info");
    if (info == body->end() || !info->is_object()) return std::nullopt;
    const auto conflicts = info->find("conflicts");
    if (conflicts == info->end()) return std::nullopt;
    // An object or a list: Box has answered both.
    const Json& first = conflicts->is_array() && !conflicts->empty() ? conflicts->front() : *conflicts;
    if (!first.is_object() || first.value("type", "") != "file") return std::nullopt;
    const auto id = first.find("id");
    if (id == first.end() || !id->is_string()) return std::nullopt;
    return id->get<std::string>();
}

BoxClient::BoxClient(std::shared_ptr<oauth::TokenProvider> tokens, ClientOptions options)
    : options_(std::move(options)), tokens_(tokens), caller_(std::move(tokens), options_.http, options_.retry, boxHooks()) {}

std::shared_ptr<BoxClient> BoxClient::forStorageName(const std::string& storageName) {
    return oauth::clientForAccount<BoxClient, ClientOptions>(VXCloudService::box, storageName);
}

std::shared_ptr<BoxClient> BoxClient::withGrantedToken(std::string accessToken) {
    ClientOptions options;
    options.endpoints = VXCloudServiceConfig::endpoints(VXCloudService::box);
    return std::make_shared<BoxClient>(oauth::TokenProvider::forGrantedToken(VXCloudService::box, std::move(accessToken)),
                                       std::move(options));
}

providers::ApiRequest BoxClient::request(const std::string& what, const std::string& method,
                                         const std::string& url) const {
    providers::ApiRequest r;
    r.what = what;
    r.method = method;
    r.url = url;
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

static std::string jsonType() { return "application/json"; }

Result<User> BoxClient::currentUser() {
    const auto r = request("users/me", "GET", options_.endpoints.apiBase + "/users/me?fields=id,name,login");
    return readJson<User>(caller_.send(r), caller_, r.what, [](const json& body) { return parseUser(body); });
}

Result<std::vector<Item>> BoxClient::listFolder(const std::string& folderId) {
    // Offset paging as Box documents it: the next page starts at offset + the limit the
    // answer names (a page may hold fewer entries, even none, before the end).
    std::vector<Item> items;
    std::int64_t offset = 0;
    for (int page = 0; page < options_.maxListPages; ++page) {
        const std::string url = options_.endpoints.apiBase + "/folders/" + HttpClient::urlEncode(folderId) +
                                "/items?fields=" + kItemFields + "&limit=" + std::to_string(kListPageLimit) +
                                "&offset=" + std::to_string(offset);
        const auto r = request("folders/items", "GET", url);
        auto listed =
            readJson<ItemsPage>(caller_.send(r), caller_, r.what, [](const json& body) { return parseItemsPage(body); });
        if (!listed.ok()) return Result<std::vector<Item>>::failureOf(listed);
        ItemsPage& answer = listed.value();
        for (auto& item : answer.entries) items.push_back(std::move(item));
        const std::int64_t step = answer.limit > 0 ? answer.limit : static_cast<std::int64_t>(answer.entries.size());
        if (step <= 0) break;
        offset = answer.offset + step;
        if (offset >= answer.totalCount) return Result<std::vector<Item>>::success(std::move(items));
    }
    return Result<std::vector<Item>>::failure(
        caller_.malformed("folders/items", "the folder holds more than " + std::to_string(options_.maxListPages) +
                                               " pages of items"));
}

Result<Item> BoxClient::getFolder(const std::string& folderId) {
    const auto r = request("folders/get", "GET",
                           options_.endpoints.apiBase + "/folders/" + HttpClient::urlEncode(folderId) + "?fields=" +
                               kItemFields);
    return readJson<Item>(caller_.send(r), caller_, r.what, [](const json& body) { return parseItem(body); });
}

Result<Item> BoxClient::getFile(const std::string& fileId) {
    const auto r = request("files/get", "GET",
                           options_.endpoints.apiBase + "/files/" + HttpClient::urlEncode(fileId) + "?fields=" +
                               kItemFields);
    return readJson<Item>(caller_.send(r), caller_, r.what, [](const json& body) { return parseItem(body); });
}

Result<Item> BoxClient::createFolder(const std::string& parentId, const std::string& name) {
    auto r = request("folders/create", "POST", options_.endpoints.apiBase + "/folders?fields=" + kItemFields);
    r.headers.set("Content-Type", jsonType());
    r.body = ByteBuffer::adopt(json{{"name", name}, {"parent", {{"id", parentId}}}}.dump());
    r.idempotent = false;  // a repeat would meet the folder it made
    return readJson<Item>(caller_.send(r), caller_, r.what, [](const json& body) { return parseItem(body); });
}

Result<Item> BoxClient::updateFile(const std::string& fileId, const std::optional<std::string>& name,
                                   const std::optional<std::string>& parentId) {
    json body = json::object();
    if (name) body["name"] = *name;
    if (parentId) body["parent"] = {{"id", *parentId}};
    auto r = request("files/update", "PUT",
                     options_.endpoints.apiBase + "/files/" + HttpClient::urlEncode(fileId) + "?fields=" + kItemFields);
    r.headers.set("Content-Type", jsonType());
    r.body = ByteBuffer::adopt(body.dump());
    return readJson<Item>(caller_.send(r), caller_, r.what, [](const json& answer) { return parseItem(answer); });
}

Result<bool> BoxClient::deleteFile(const std::string& fileId) {
    auto r = request("files/delete", "DELETE", options_.endpoints.apiBase + "/files/" + HttpClient::urlEncode(fileId));
    r.idempotent = false;  // a repeat after a lost answer would say "not found"
    auto sent = caller_.send(r);
    if (!sent.ok()) return Result<bool>::failureOf(sent);
    return Result<bool>::success(true);
}

Result<ByteBuffer> BoxClient::download(const std::string& fileId) {
    auto r = request("files/content", "GET",
                     options_.endpoints.apiBase + "/files/" + HttpClient::urlEncode(fileId) + "/content");
    r.alsoAccepted = {302};
    auto sent = caller_.send(r);
    if (!sent.ok()) return Result<ByteBuffer>::failureOf(sent);
    if (sent.value().status != 302) return Result<ByteBuffer>::success(ByteBuffer::adopt(std::move(sent.value().body)));
    // The download address is pre-signed: the bearer token does not go there.
    const auto location = sent.value().headers.get("Location");
    if (!location || location->empty()) {
        return Result<ByteBuffer>::failure(caller_.malformed(r.what, "a redirect without Location"));
    }
    auto content = request("download", "GET", *location);
    content.authorized = false;
    auto fetched = caller_.send(content);
    if (!fetched.ok()) return Result<ByteBuffer>::failureOf(fetched);
    return Result<ByteBuffer>::success(ByteBuffer::adopt(std::move(fetched.value().body)));
}

Result<bool> BoxClient::refreshAuthorization() {
    const auto refreshed = tokens_->refreshNow();
    if (refreshed.accessToken) return Result<bool>::success(true);
    return Result<bool>::failure(boxHooks().tokenFailure(*refreshed.failure));
}

void BoxClient::revokeAuthorization() {
    const auto revokeUrl = options_.endpoints.extra.find("revoke");
    if (revokeUrl == options_.endpoints.extra.end() || revokeUrl->second.empty()) return;
    const auto token = VXCloudTokenStore::load(VXCloudService::box, tokens_->storageName());
    if (!token) return;
    const VXCloudAppCredentials credentials = VXCloudServiceConfig::credentials(VXCloudService::box);
    // Revoking the refresh token ends the whole grant.
    std::vector<std::pair<std::string, std::string>> form = {
        {"token", token->refreshToken.empty() ? token->accessToken : token->refreshToken}};
    if (!credentials.clientId.empty()) form.emplace_back("client_id", credentials.clientId);
    if (credentials.clientSecret) form.emplace_back("client_secret", *credentials.clientSecret);
    auto r = request("oauth2/revoke", "POST", revokeUrl->second);
    r.authorized = false;
    r.headers.set("Content-Type", "application/x-www-form-urlencoded");
    r.body = ByteBuffer::adopt(HttpClient::formEncode(form));
    (void)caller_.send(r);
}

}  // namespace vxcloud::box
