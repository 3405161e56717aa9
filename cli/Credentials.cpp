#include "Credentials.h"

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Accounts.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/platform/Json.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::cli {

std::optional<ServiceCredentialLayout> credentialLayout(VXCloudService service) {
    const VXCloudServiceDescriptor& entry = serviceDescriptor(service);
    if (entry.credentials.empty()) return std::nullopt;
    ServiceCredentialLayout layout;
    layout.section = entry.credentialsSection;
    for (const VXCloudCredentialField& field : entry.credentials) {
        std::string environment = "VXCLOUD_" + std::string(entry.environmentName) + "_" + std::string(field.key);
        for (auto& c : environment) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        layout.fields.push_back(CredentialField{std::string(field.key), environment, std::string(field.label),
                                                field.required, std::string(field.hint)});
        if (field.role == VXCloudCredentialField::Role::clientId) layout.idKey = field.key;
        if (field.role == VXCloudCredentialField::Role::clientSecret) layout.secretKey = field.key;
    }
    return layout;
}

HostCredentials HostCredentials::load(const std::string& credentialsPath) {
    HostCredentials credentials;
    credentials.path_ = credentialsPath;

    std::ifstream in(credentialsPath, std::ios::binary);
    if (in) {
        std::stringstream text;
        text << in.rdbuf();
        const Json file = Json::parse(text.str(), nullptr, false);
        if (file.is_discarded() || !file.is_object()) {
            credentials.problems_.push_back(credentialsPath + " is not a JSON object; it is ignored");
        } else {
            for (const auto& [section, fields] : file.items()) {
                if (!fields.is_object()) {
                    credentials.problems_.push_back("\"" + section + "\" in " + credentialsPath +
                                                    " is not an object; it is ignored");
                    continue;
                }
                for (const auto& [key, value] : fields.items()) {
                    if (value.is_string() && !value.get<std::string>().empty())
                        credentials.values_[section][key] = value.get<std::string>();
                }
            }
        }
    }
    // The environment wins over the file.
    for (VXCloudService service : allCloudServices) {
        const auto layout = credentialLayout(service);
        if (!layout) continue;
        for (const auto& field : layout->fields) {
            const char* value = std::getenv(field.environment.c_str());
            if (value && *value) credentials.values_[layout->section][field.key] = value;
        }
    }
    return credentials;
}

std::optional<std::string> HostCredentials::value(VXCloudService service, const std::string& key) const {
    const auto layout = credentialLayout(service);
    if (!layout) return std::nullopt;
    const auto section = values_.find(layout->section);
    if (section == values_.end()) return std::nullopt;
    const auto field = section->second.find(key);
    if (field == section->second.end()) return std::nullopt;
    return field->second;
}

std::vector<CredentialField> HostCredentials::missing(VXCloudService service) const {
    std::vector<CredentialField> out;
    const auto layout = credentialLayout(service);
    if (!layout) return out;
    for (const auto& field : layout->fields)
        if (field.required && !value(service, field.key)) out.push_back(field);
    return out;
}

std::string HostCredentials::missingMessage(VXCloudService service) const {
    const auto fields = missing(service);
    if (fields.empty()) return {};
    const auto layout = credentialLayout(service);
    std::vector<std::string> labelList;
    std::string example, variables;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto& f = fields[i];
        labelList.push_back(f.label);
        std::string placeholder = "YOUR_" + f.key;
        for (auto& c : placeholder) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        example += (i == 0 ? "" : ", ") + ("\"" + f.key + "\": \"" + placeholder + "\"");
        variables += "  " + f.environment + "\n";
    }
    std::string message = "linking a " + displayName(service) + " account needs this app's " + joinedWords(labelList) +
                          " at " + displayName(service) + (fields.size() > 1 ? ", which are not set.\n" : ", which is not set.\n");
    message += std::string(fields.size() > 1 ? "Put them" : "Put it") + " in " + path_ +
               " (readable only by you: chmod 600):\n";
    message += "  {\"" + layout->section + "\": {" + example + "}}\n";
    for (const auto& f : fields)
        if (!f.hint.empty()) message += "  (" + f.key + ": " + f.hint + ")\n";
    message += "or set the environment variable" + std::string(fields.size() > 1 ? "s" : "") + ":\n" + variables;
    message += "To try vxcloud without registering an app, link against the sandbox: vxcloud link " +
               std::string(accountType(service)) + " --sandbox URL (see vxcloud-sandbox --help).";
    return message;
}

std::optional<VXCloudAppCredentials> HostCredentials::appCredentials(VXCloudService service) const {
    const auto layout = credentialLayout(service);
    if (!layout || !complete(service)) return std::nullopt;
    VXCloudAppCredentials app;
    app.clientId = value(service, layout->idKey).value_or("");
    if (!layout->secretKey.empty()) app.clientSecret = value(service, layout->secretKey);
    return app;
}

void HostCredentials::apply() const {
    for (VXCloudService service : allCloudServices)
        if (auto app = appCredentials(service)) VXCloudServiceConfig::setCredentials(service, *app);
}

}  // namespace vxcloud::cli
