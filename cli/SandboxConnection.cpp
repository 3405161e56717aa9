#include "SandboxConnection.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "CliError.h"
#include "Credentials.h"
#include "Paths.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::cli {

namespace {

// The client id the host presents to the sandbox when it has none of its own.
constexpr const char* kSandboxClientId = "vxcloud-cli";

std::string roleOf(const Json& endpoints, const char* role) {
    const auto it = endpoints.find(role);
    return it != endpoints.end() && it->is_string() ? it->get<std::string>() : std::string();
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

std::vector<VXCloudService> SandboxConnection::services() const {
    std::vector<VXCloudService> out;
    for (VXCloudService service : allCloudServices)
        if (providerName(service)) out.push_back(service);
    return out;
}

std::optional<std::string> SandboxConnection::providerName(VXCloudService service) const {
    const auto providers = description.find("providers");
    if (providers == description.end() || !providers->is_object()) return std::nullopt;
    for (const auto& [name, endpoints] : providers->items()) {
        if (serviceForSandboxProvider(name) == service) return name;
    }
    return std::nullopt;
}

std::optional<Json> SandboxConnection::seededAccount(VXCloudService service, const std::string& wanted) const {
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

SandboxConnection connectSandbox(const std::string& url) {
    SandboxConnection connection;
    connection.baseUrl = normaliseSandboxUrl(url);
    HttpRequest request;
    request.url = connection.baseUrl + "/admin";
    request.connectTimeout = std::chrono::milliseconds(5000);
    request.idleTimeout = std::chrono::milliseconds(10000);
    const HttpResponse response = HttpClient::shared()->perform(request);
    if (!response.ok()) {
        const std::string why = response.transportFailed() ? response.errorMessage
                                                           : "it answered HTTP " + std::to_string(response.status);
        throw CliError("cannot reach the sandbox at " + connection.baseUrl + ": " + why +
                       ". Start one with: vxcloud-sandbox --port 53682");
    }
    connection.description = Json::parse(response.body, nullptr, false);
    if (connection.description.is_discarded() || !connection.description.is_object() ||
        !connection.description.contains("providers")) {
        throw CliError(connection.baseUrl + " does not look like a vxcloud-sandbox (its /admin answer is not a "
                       "sandbox description)");
    }
    return connection;
}

void applySandbox(const SandboxConnection& sandbox, const HostCredentials& credentials) {
    const Json& providers = sandbox.description["providers"];
    for (VXCloudService service : sandbox.services()) {
        const Json& roles = providers[*sandbox.providerName(service)];
        VXCloudServiceEndpoints endpoints;
        endpoints.apiBase = roleOf(roles, "api");
        endpoints.contentBase = roleOf(roles, "content");
        endpoints.authorizeUrl = roleOf(roles, "authorize");
        endpoints.tokenUrl = roleOf(roles, "token");
        for (const auto& [role, value] : roles.items()) {
            if (role != "api" && role != "content" && role != "authorize" && role != "token" && value.is_string())
                endpoints.extra[role] = value.get<std::string>();
        }
        VXCloudServiceConfig::setEndpoints(service, endpoints);
        if (!credentials.complete(service)) VXCloudServiceConfig::setCredentials(service, {kSandboxClientId, std::nullopt});
    }
}

std::string savedSandboxUrl(const std::string& sandboxFile) {
    std::ifstream in(sandboxFile, std::ios::binary);
    if (!in) return {};
    std::stringstream text;
    text << in.rdbuf();
    const Json saved = Json::parse(text.str(), nullptr, false);
    if (saved.is_discarded() || !saved.is_object() || !saved.contains("url") || !saved["url"].is_string()) {
        throw CliError(sandboxFile + " is damaged; run vxcloud sandbox-connect again (or --disconnect)", kExitUsage);
    }
    return saved["url"].get<std::string>();
}

void saveSandboxUrl(const std::string& sandboxFile, const std::string& url) {
    std::string error;
    if (!makeDirectories(parentDirectory(sandboxFile), &error)) throw CliError(error);
    const std::string temporary = sandboxFile + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << Json{{"url", url}}.dump(2) << '\n';
        if (!out) throw CliError("cannot write " + temporary);
    }
    if (std::rename(temporary.c_str(), sandboxFile.c_str()) != 0) throw CliError("cannot write " + sandboxFile);
}

bool forgetSandboxUrl(const std::string& sandboxFile) { return ::unlink(sandboxFile.c_str()) == 0; }

}  // namespace vxcloud::cli
