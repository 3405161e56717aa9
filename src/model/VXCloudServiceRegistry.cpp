// The services' entries. A provider that gets its session fills in `makeSession`, one that
// gets its sign-in `signIn`; everything else about it lives in its own folders.
#include "vxcloud/model/VXCloudServiceRegistry.h"

#include <array>
#include <cctype>

#include "auth/SignIn.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/sessions/VXCloudBoxSession.h"
#include "vxcloud/sessions/VXCloudDropboxSession.h"
#include "vxcloud/sessions/VXCloudEvernoteSession.h"
#include "vxcloud/sessions/VXCloudGoogleDriveSession.h"
#include "vxcloud/sessions/VXCloudOneDriveSession.h"
#include "vxcloud/sessions/VXCloudOneNoteSession.h"
#include "vxcloud/sessions/VXCloudWebDAVSession.h"

namespace vxcloud {
namespace {

using Field = VXCloudCredentialField;
using Role = Field::Role;
using Extra = std::pair<std::string_view, std::string_view>;

template <typename Session>
std::shared_ptr<VXCloudSession> make(const std::shared_ptr<VXCloudAccount>& account) {
    return Session::initWithCloudAccount(account);
}

constexpr std::string_view kGoogleNames[] = {"gdrive", "google"};

constexpr Extra kGoogleExtra[] = {
    {"revoke", "https://oauth2.googleapis.com/revoke"},
    {"userinfo", "https://openidconnect.googleapis.com/v1/userinfo"},
};

// Graph's root, whose drive names the signed-in account: OneNote's base is the notes service below it.
constexpr Extra kOneNoteExtra[] = {
    {"graph", "https://graph.microsoft.com/v1.0"},
};

// Box's token revocation, used when an account is signed out.
constexpr Extra kBoxExtra[] = {
    {"revoke", "https://api.box.com/oauth2/revoke"},
};

constexpr Extra kEvernoteExtra[] = {
    {"userstore", "https://www.evernote.com/edam/user"},
};

constexpr Field kGoogleCredentials[] = {
    {"client_id", "client id", Role::clientId, true,
     "an OAuth client of type \"Desktop app\" in the Google Cloud console"},
    // Not confidential for a desktop app, but Google's token endpoint wants it.
    {"client_secret", "client secret", Role::clientSecret, true, "shown beside the Desktop app's client id"},
    {"redirect_url", "redirect URL", Role::redirectUrl, false, ""},
};

constexpr Field kDropboxCredentials[] = {
    {"app_key", "app key", Role::clientId, true, ""},
    // Dropbox only redirects to a URI registered for the app, port included.
    {"redirect_url", "redirect URL", Role::redirectUrl, true,
     "a loopback address with a fixed port such as http://127.0.0.1:8765/, "
     "registered exactly so under Redirect URIs in the Dropbox App Console"},
};

constexpr Field kOneDriveCredentials[] = {
    // Microsoft ignores the port of a loopback redirect, so any free port is used.
    {"application_id", "application id", Role::clientId, true,
     "the Application (client) ID of an app registration in Microsoft Entra that allows public client "
     "flows, with http://127.0.0.1 as a redirect URI of the \"Mobile and desktop applications\" platform"},
};

constexpr Field kBoxCredentials[] = {
    {"client_id", "client id", Role::clientId, true, ""},
    {"client_secret", "client secret", Role::clientSecret, true, ""},
};

constexpr Field kEvernoteCredentials[] = {
    {"consumer_key", "consumer key", Role::clientId, true, ""},
    {"consumer_secret", "consumer secret", Role::clientSecret, true, ""},
};

// Indexed by raw value.
constinit const std::array<VXCloudServiceDescriptor, 7> kEntries = {{
    {
        .service = VXCloudService::googleDrive,
        .typeWord = "google_drive",
        .keyPrefix = "VX_Google_Drive_",
        .iconName = "google-drive",
        .displayName = "Google Drive",
        .names = kGoogleNames,
        .makeSession = make<VXCloudGoogleDriveSession>,
        .endpoints = {"https://www.googleapis.com", "https://www.googleapis.com/upload",
                      "https://accounts.google.com/o/oauth2/v2/auth", "https://oauth2.googleapis.com/token",
                      kGoogleExtra},
        .signIn = &auth::kGoogleSignIn,
        .credentialsSection = "google_drive",
        .environmentName = "GOOGLE",
        .credentials = kGoogleCredentials,
    },
    {
        .service = VXCloudService::dropbox,
        .typeWord = "dropbox",
        .keyPrefix = "VX_Dropbox_",
        .iconName = "dropbox",
        .displayName = "Dropbox",
        .makeSession = make<VXCloudDropboxSession>,
        .endpoints = {"https://api.dropboxapi.com", "https://content.dropboxapi.com",
                      "https://www.dropbox.com/oauth2/authorize", "https://api.dropboxapi.com/oauth2/token", {}},
        .signIn = &auth::kDropboxSignIn,
        .credentialsSection = "dropbox",
        .environmentName = "DROPBOX",
        .credentials = kDropboxCredentials,
    },
    {
        .service = VXCloudService::oneDrive,
        .typeWord = "one_drive",
        .keyPrefix = "VX_OneDrive_",
        .iconName = "onedrive",
        .displayName = "OneDrive",
        .makeSession = make<VXCloudOneDriveSession>,
        // Microsoft Graph, and the identity platform's endpoints for work and personal accounts.
        .endpoints = {"https://graph.microsoft.com/v1.0", "",
                      "https://login.microsoftonline.com/common/oauth2/v2.0/authorize",
                      "https://login.microsoftonline.com/common/oauth2/v2.0/token", {}},
        .signIn = &auth::kOneDriveSignIn,
        .credentialsSection = "one_drive",
        .environmentName = "ONEDRIVE",
        .credentials = kOneDriveCredentials,
        .singleAccount = true,
        .overwritesChangedCopy = false,
    },
    {
        .service = VXCloudService::oneNote,
        .typeWord = "one_note",
        .keyPrefix = "VX_OneNote_",
        .iconName = "onenote",
        .displayName = "OneNote",
        .makeSession = make<VXCloudOneNoteSession>,
        // The notes service on Microsoft Graph; the older host's base
        // ("https://www.onenote.com/api/v1.0/me/notes") may be configured instead.
        .endpoints = {"https://graph.microsoft.com/v1.0/me/onenote", "",
                      "https://login.microsoftonline.com/common/oauth2/v2.0/authorize",
                      "https://login.microsoftonline.com/common/oauth2/v2.0/token", kOneNoteExtra},
        // Signed in to through OneDrive's registration, as an account of its own.
        .signIn = &auth::kOneNoteSignIn,
        .credentialsSection = "one_drive",
        .environmentName = "ONEDRIVE",
        .credentials = kOneDriveCredentials,
        .keepsSettingsDocument = false,
        .noAutoUploadReason = "OneNote does not support automatic uploads. Please use OneDrive instead.",
    },
    {
        .service = VXCloudService::box,
        .typeWord = "box",
        .keyPrefix = "VX_Box_",
        .iconName = "box",
        .displayName = "Box",
        .makeSession = make<VXCloudBoxSession>,
        // The metadata API, the upload host, the browser sign-in and the token endpoint; the
        // revoke endpoint signs an account out.
        .endpoints = {"https://api.box.com/2.0", "https://upload.box.com/api/2.0",
                      "https://account.box.com/api/oauth2/authorize", "https://api.box.com/oauth2/token", kBoxExtra},
        .signIn = &auth::kBoxSignIn,
        .credentialsSection = "box",
        .environmentName = "BOX",
        .credentials = kBoxCredentials,
    },
    {
        .service = VXCloudService::evernote,
        .typeWord = "evernote",
        .keyPrefix = "VX_Evernote_",
        .iconName = "evernote",
        .displayName = "Evernote",
        .makeSession = make<VXCloudEvernoteSession>,
        // The service host: the OAuth 1.0a endpoints, and the UserStore; each user's NoteStore
        // address comes with the token.
        .endpoints = {"https://www.evernote.com", "", "https://www.evernote.com/OAuth.action",
                      "https://www.evernote.com/oauth", kEvernoteExtra},
        .signIn = &auth::kEvernoteSignIn,
        .credentialsSection = "evernote",
        .environmentName = "EVERNOTE",
        .credentials = kEvernoteCredentials,
        .singleAccount = true,
    },
    {
        .service = VXCloudService::webDAV,
        .typeWord = "web_dav",
        .keyPrefix = "VX_WebDAV_",
        .iconName = "webdav",
        .displayName = "WebDAV",
        .makeSession = make<VXCloudWebDAVSession>,
        .linking = VXCloudLinking::accountForm,
        .keepsSettingsDocument = false,
        // The WebDAV session never answers an upload, so one would never finish.
        .noAutoUploadReason = "WebDAV accounts cannot upload automatically: this version keeps WebDAV accounts but "
                              "does not send documents to WebDAV servers, so an upload would never finish.",
    },
}};

// Lower-case letters and digits only: "Google Drive", "google-drive" and "google_drive"
// are all "googledrive".
std::string squashed(std::string_view text) {
    std::string out;
    for (unsigned char c : text) {
        if (std::isalnum(c)) out += static_cast<char>(std::tolower(c));
    }
    return out;
}

}  // namespace

const VXCloudServiceDescriptor& serviceDescriptor(VXCloudService service) noexcept {
    static constinit const VXCloudServiceDescriptor kNone{};
    const int raw = rawValue(service);
    return raw >= 0 && raw < static_cast<int>(kEntries.size()) ? kEntries[static_cast<std::size_t>(raw)] : kNone;
}

bool offersSignIn(VXCloudService service) noexcept {
    const auto* signIn = serviceDescriptor(service).signIn;
    return signIn && signIn->start;
}

std::optional<VXCloudService> serviceFromName(std::string_view name) {
    const std::string wanted = squashed(name);
    if (wanted.empty()) return std::nullopt;
    for (const VXCloudServiceDescriptor& entry : kEntries) {
        bool matches = squashed(entry.typeWord) == wanted || squashed(entry.displayName) == wanted ||
                       squashed(VXCloudString::localized(entry.displayName)) == wanted;
        for (std::string_view other : entry.names) matches = matches || squashed(other) == wanted;
        if (matches) return entry.service;
    }
    return std::nullopt;
}

std::optional<std::string> noAutoUploadReason(VXCloudService service) {
    const std::string_view reason = serviceDescriptor(service).noAutoUploadReason;
    if (reason.empty()) return std::nullopt;
    return VXCloudString::localized(reason);
}

}  // namespace vxcloud
