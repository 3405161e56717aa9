#include "OneNoteClient.h"

#include "providers/oauth/ClientForAccount.h"

namespace vxcloud::onenote {

namespace {

providers::ProviderHooks oneNoteHooks() {
    providers::ProviderHooks hooks;
    hooks.serviceName = "OneNote";
    hooks.logTag = "onenote";
    hooks.readError = [](const HttpResponse& response) {
        return ProviderError::fromOneDriveResponse(response.status, response.body);
    };
    return hooks;
}


// The older host's base path, fixed by that service.
constexpr std::string_view kLegacyBasePath = "/api/v1.0/me/notes";

}  // namespace

OneNoteClient::OneNoteClient(std::shared_ptr<oauth::TokenProvider> tokens, VXCloudServiceEndpoints endpoints)
    : endpoints_(std::move(endpoints)),
      caller_(std::move(tokens), nullptr, RetryPolicy::standard(4), oneNoteHooks()) {}

std::shared_ptr<OneNoteClient> OneNoteClient::forStorageName(const std::string& storageName) {
    if (storageName.empty() || !VXCloudTokenStore::load(VXCloudService::oneNote, storageName)) return nullptr;
    return std::make_shared<OneNoteClient>(std::make_shared<oauth::TokenProvider>(VXCloudService::oneNote, storageName),
                                           VXCloudServiceConfig::endpoints(VXCloudService::oneNote));
}

bool OneNoteClient::legacyBase() const {
    std::string_view base = endpoints_.apiBase;
    while (base.ends_with('/')) base.remove_suffix(1);
    return base.ends_with(kLegacyBasePath);
}

Result<std::string> OneNoteClient::send(providers::ApiRequest request) {
    auto sent = caller_.send(request);
    if (!sent.ok()) return Result<std::string>::failureOf(sent);
    return Result<std::string>::success(std::move(sent.value().body));
}

Result<std::string> OneNoteClient::get(const std::string& path) {
    providers::ApiRequest r;
    r.what = "list";
    r.url = endpoints_.apiBase + "/" + path;
    return send(std::move(r));
}

Result<std::string> OneNoteClient::postJson(const std::string& path, std::string json) {
    providers::ApiRequest r;
    r.what = "create";
    r.method = "POST";
    r.url = endpoints_.apiBase + "/" + path;
    r.headers.set("Content-Type", "application/json");
    r.body = ByteBuffer::adopt(std::move(json));
    r.idempotent = false;  // a repeat would make a second notebook or section
    return send(std::move(r));
}

Result<std::string> OneNoteClient::postMultipart(const std::string& path, const MultipartBody& body) {
    providers::ApiRequest r;
    r.what = "create page";
    r.method = "POST";
    r.url = endpoints_.apiBase + "/" + path;
    r.headers.set("Content-Type", body.contentType());
    r.body = body.encode();
    r.idempotent = false;  // a repeat would make a second page
    return send(std::move(r));
}

}  // namespace vxcloud::onenote
