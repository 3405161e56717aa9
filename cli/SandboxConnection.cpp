#include "SandboxConnection.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "CliError.h"
#include "Credentials.h"
#include "Paths.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::cli {

namespace {

// The client id the host presents to the sandbox when it has none of its own.
constexpr const char* kSandboxClientId = "vxcloud-cli";
// The secret the sandbox expects of every app (its consumer_secret setting); a real service
// never sees it.
constexpr const char* kSandboxSecret = "vxcloud-sandbox-secret";

}  // namespace

SandboxConnection connectSandbox(const std::string& url, const std::string& caFile) {
    std::string why;
    auto connection = sandbox::fetchSandboxDescription(url, caFile, why);
    if (!connection) {
        throw CliError("cannot reach the sandbox at " + normaliseSandboxUrl(url) + ": " + why +
                       ". Start one with: vxcloud-sandbox --port 53682");
    }
    return *connection;
}

VXCloudAppCredentials sandboxCredentials(VXCloudService service) {
    VXCloudAppCredentials credentials{kSandboxClientId, std::nullopt};
    for (const auto& field : serviceDescriptor(service).credentials) {
        if (field.role == VXCloudCredentialField::Role::clientSecret && field.required) credentials.clientSecret = kSandboxSecret;
    }
    return credentials;
}

void applySandbox(const SandboxConnection& sandbox, const HostCredentials& credentials) {
    for (VXCloudService service : sandbox::pointAtSandbox(sandbox)) {
        if (!credentials.complete(service)) VXCloudServiceConfig::setCredentials(service, sandboxCredentials(service));
    }
}

SavedSandbox savedSandbox(const std::string& sandboxFile) {
    std::ifstream in(sandboxFile, std::ios::binary);
    if (!in) return {};
    std::stringstream text;
    text << in.rdbuf();
    const Json saved = Json::parse(text.str(), nullptr, false);
    const bool valid = !saved.is_discarded() && saved.is_object() && saved.contains("url") && saved["url"].is_string() &&
                       (!saved.contains("ca_file") || saved["ca_file"].is_string());
    if (!valid) throw CliError(sandboxFile + " is damaged; run vxcloud sandbox-connect again (or --disconnect)", kExitUsage);
    return {saved["url"].get<std::string>(), saved.value("ca_file", "")};
}

void saveSandbox(const std::string& sandboxFile, const SavedSandbox& sandbox) {
    std::string error;
    if (!makeDirectories(parentDirectory(sandboxFile), &error)) throw CliError(error);
    Json saved = {{"url", sandbox.url}};
    if (!sandbox.caFile.empty()) saved["ca_file"] = sandbox.caFile;
    const std::string temporary = sandboxFile + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << saved.dump(2) << '\n';
        if (!out) throw CliError("cannot write " + temporary);
    }
    if (std::rename(temporary.c_str(), sandboxFile.c_str()) != 0) throw CliError("cannot write " + sandboxFile);
}

bool forgetSandboxUrl(const std::string& sandboxFile) { return ::unlink(sandboxFile.c_str()) == 0; }

}  // namespace vxcloud::cli
