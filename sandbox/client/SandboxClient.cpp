#include "vxcloud_sandbox/SandboxClient.h"

#include <map>
#include <nlohmann/json.hpp>

namespace vxcloud::sandbox {

namespace {

using namespace std::chrono_literals;

std::string stringField(const Json& object, const char* key) {
    if (!object.is_object()) return {};
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

}  // namespace

std::optional<VXCloudService> serviceForSandboxProvider(const std::string& name) {
    if (auto service = cloudServiceFromType(name)) return service;
    static const std::map<std::string, VXCloudService> aliases = {
        {"google", VXCloudService::googleDrive}, {"googledrive", VXCloudService::googleDrive},
        {"onedrive", VXCloudService::oneDrive},  {"onenote", VXCloudService::oneNote},
        {"webdav", VXCloudService::webDAV},
    };
    const auto it = aliases.find(name);
    if (it == aliases.end()) return std::nullopt;
    return it->second;
}

std::string SandboxDescription::caFile() const { return stringField(description, "ca_file"); }

std::vector<VXCloudService> SandboxDescription::services() const {
    std::vector<VXCloudService> out;
    for (VXCloudService service : allCloudServices)
        if (providerName(service)) out.push_back(service);
    return out;
}

std::optional<std::string> SandboxDescription::providerName(VXCloudService service) const {
    const auto providers = description.find("providers");
    if (providers == description.end() || !providers->is_object()) return std::nullopt;
    for (const auto& [name, endpoints] : providers->items()) {
        if (serviceForSandboxProvider(name) == service) return name;
    }
    return std::nullopt;
}

std::optional<VXCloudServiceEndpoints> SandboxDescription::endpoints(VXCloudService service) const {
    const auto provider = providerName(service);
    if (!provider) return std::nullopt;
    VXCloudServiceEndpoints endpoints;
    for (const auto& [role, value] : description["providers"][*provider].items()) {
        if (!value.is_string()) continue;
        const std::string url = value.get<std::string>();
        if (role == "api") {
            endpoints.apiBase = url;
        } else if (role == "content") {
            endpoints.contentBase = url;
        } else if (role == "authorize") {
            endpoints.authorizeUrl = url;
        } else if (role == "token") {
            endpoints.tokenUrl = url;
        } else {
            endpoints.extra[role] = url;
        }
    }
    endpoints.caFile = caFile();
    return endpoints;
}

std::optional<Json> SandboxDescription::seededAccount(VXCloudService service, const std::string& wanted) const {
    const auto provider = providerName(service);
    const auto accounts = description.find("accounts");
    if (!provider || accounts == description.end() || !accounts->is_array()) return std::nullopt;
    for (const auto& account : *accounts) {
        if (!account.is_object() || account.value("provider", "") != *provider) continue;
        if (wanted.empty() || account.value("email", "") == wanted || account.value("user_id", "") == wanted)
            return account;
    }
    return std::nullopt;
}

std::string normaliseSandboxUrl(const std::string& url) {
    std::string out = url;
    if (out.find("://") == std::string::npos) out = "http://" + out;
    while (!out.empty() && out.back() == '/') out.pop_back();
    const std::string admin = "/admin";
    if (out.size() > admin.size() && out.compare(out.size() - admin.size(), admin.size(), admin) == 0)
        out.erase(out.size() - admin.size());
    return out;
}

std::optional<SandboxDescription> fetchSandboxDescription(const std::string& url, const std::string& caFile,
                                                          std::string& error) {
    SandboxDescription sandbox;
    sandbox.baseUrl = normaliseSandboxUrl(url);
    HttpRequest request;
    request.url = sandbox.baseUrl + "/admin";
    request.caFile = caFile;
    request.connectTimeout = 5s;
    request.idleTimeout = 10s;
    const HttpResponse response = HttpClient::shared()->perform(request);
    if (!response.ok()) {
        error = response.transportFailed() ? response.errorMessage
                                            : "it answered HTTP " + std::to_string(response.status);
        return std::nullopt;
    }
    sandbox.description = Json::parse(response.body, nullptr, false);
    if (sandbox.description.is_discarded() || !sandbox.description.is_object() ||
        !sandbox.description.contains("providers")) {
        error = "its /admin answer is not a sandbox description";
        return std::nullopt;
    }
    // Its CA file is named in the description; one given here stands when it names none.
    if (sandbox.caFile().empty() && !caFile.empty()) sandbox.description["ca_file"] = caFile;
    return sandbox;
}

bool pointAtSandbox(const SandboxDescription& sandbox, VXCloudService service) {
    const auto endpoints = sandbox.endpoints(service);
    if (endpoints) VXCloudServiceConfig::setEndpoints(service, *endpoints);
    return endpoints.has_value();
}

std::vector<VXCloudService> pointAtSandbox(const SandboxDescription& sandbox) {
    const auto services = sandbox.services();
    for (VXCloudService service : services) pointAtSandbox(sandbox, service);
    return services;
}

HttpResponse answerSignInPage(const std::string& authorizeUrl, const SignInDecision& decision) {
    HttpRequest request;
    request.url = authorizeUrl + (authorizeUrl.find('?') == std::string::npos ? "?" : "&") +
                  "sandbox_decision=" + (decision.approve ? "approve" : "deny");
    if (!decision.account.empty()) request.url += "&sandbox_account=" + HttpClient::urlEncode(decision.account);
    request.followRedirects = decision.follow;
    request.connectTimeout = 10s;
    request.idleTimeout = decision.idleTimeout;
    return HttpClient::shared()->perform(request);
}

}  // namespace vxcloud::sandbox
