#include "Credentials.h"

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/platform/Json.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::cli {

std::optional<ServiceCredentialLayout> credentialLayout(VXCloudService service) {
    switch (service) {
        case VXCloudService::dropbox:
            return ServiceCredentialLayout{"dropbox",
                                         {{"app_key", "VXCLOUD_DROPBOX_APP_KEY", "app key", true, ""},
                                          // Dropbox only redirects to a URI registered for the app, port included.
                                          {"redirect_url", "VXCLOUD_DROPBOX_REDIRECT_URL", "redirect URL", true,
                                           "a loopback address with a fixed port such as http://127.0.0.1:8765/, "
                                           "registered exactly so under Redirect URIs in the Dropbox App Console"}},
                                         "app_key",
                                         ""};
        case VXCloudService::googleDrive:
            return ServiceCredentialLayout{"google_drive",
                                         {{"client_id", "VXCLOUD_GOOGLE_CLIENT_ID", "client id", true,
                                           "an OAuth client of type \"Desktop app\" in the Google Cloud console"},
                                          // Not confidential for a desktop app, but Google's token endpoint wants it.
                                          {"client_secret", "VXCLOUD_GOOGLE_CLIENT_SECRET", "client secret", true,
                                           "shown beside the Desktop app's client id"},
                                          {"redirect_url", "VXCLOUD_GOOGLE_REDIRECT_URL", "redirect URL", false, ""}},
                                         "client_id",
                                         "client_secret"};
        case VXCloudService::oneDrive:
        case VXCloudService::oneNote:
            return ServiceCredentialLayout{"one_drive",
                                         {{"application_id", "VXCLOUD_ONEDRIVE_APPLICATION_ID", "application id", true, ""}},
                                         "application_id",
                                         ""};
        case VXCloudService::box:
            return ServiceCredentialLayout{"box",
                                         {{"client_id", "VXCLOUD_BOX_CLIENT_ID", "client id", true, ""},
                                          {"client_secret", "VXCLOUD_BOX_CLIENT_SECRET", "client secret", true, ""}},
                                         "client_id",
                                         "client_secret"};
        case VXCloudService::evernote:
            return ServiceCredentialLayout{"evernote",
                                         {{"consumer_key", "VXCLOUD_EVERNOTE_CONSUMER_KEY", "consumer key", true, ""},
                                          {"consumer_secret", "VXCLOUD_EVERNOTE_CONSUMER_SECRET", "consumer secret", true, ""}},
                                         "consumer_key",
                                         "consumer_secret"};
        case VXCloudService::webDAV: return std::nullopt;
    }
    return std::nullopt;
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
    std::string labels, example, variables;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto& f = fields[i];
        labels += (i == 0 ? "" : (i + 1 == fields.size() ? " and " : ", ")) + f.label;
        std::string placeholder = "YOUR_" + f.key;
        for (auto& c : placeholder) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        example += (i == 0 ? "" : ", ") + ("\"" + f.key + "\": \"" + placeholder + "\"");
        variables += "  " + f.environment + "\n";
    }
    std::string message = "linking a " + displayName(service) + " account needs this app's " + labels +
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
