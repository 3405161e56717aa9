#pragma once
// How the host names linked accounts on the command line, and the few rules it keeps
// about them (which may upload automatically, and why not).
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudUserDefaults.h"

namespace vxcloud::cli {

using AccountList = VXCloudUserDefaults::AccountList;

// Every linked account, in the store's order (service, then e-mail).
AccountList linkedAccounts();

// "Dropbox:ada@example.com"; WebDAV accounts add their label or server.
std::string accountLabel(const VXCloudAccount& account);

// Finds one account from what a person typed: its number in `vxcloud accounts`, its key,
// SERVICE:EMAIL, its e-mail or its display name. Throws CliError (listing the candidates)
// when nothing or more than one account matches.
std::shared_ptr<VXCloudAccount> resolveAccount(const std::string& reference);
AccountList resolveAccounts(const std::vector<std::string>& references);

// Whether the text is a number (of ASCII digits).
bool allDigits(const std::string& text);

// A service from its type word ("google_drive") or a friendlier spelling ("google-drive",
// "gdrive", "Dropbox", "webdav").
std::optional<VXCloudService> parseService(const std::string& text);
std::string serviceWords();  // "google_drive, dropbox, ..." for help texts
std::string signInServiceWords();  // the services `vxcloud link` can sign in to
// The display names of the services that allow one linked account: "OneDrive and Evernote".
std::string singleAccountServiceNames();
// "a", "a and b", "a, b and c".
std::string joinedWords(const std::vector<std::string>& words);
// parseService, or a CliError listing the services.
VXCloudService requireService(const std::string& text);

// Why the account can never upload automatically in this host, or nothing when it can.
std::optional<std::string> autoUploadRefusal(const VXCloudAccount& account);

// The account's upload folder path ("/Scans"), or nothing when none is set.
std::optional<std::string> uploadFolderPath(const VXCloudAccount& account);
// The same for an upload-folder info dictionary; the top folder is "/".
std::optional<std::string> folderPathOfInfo(const JsonBox& uploadFolderInfo);

// The stored account with the given key, re-read from the store.
std::shared_ptr<VXCloudAccount> reloadAccount(const std::string& key);

// Saves the account; throws CliError when the preferences file cannot be written.
void saveAccount(const VXCloudAccount& account);
// Changes the stored account in place (VXCloudUserDefaults::updateCloudAccount) and returns
// it as stored now; throws CliError when it is no longer linked or cannot be saved.
std::shared_ptr<VXCloudAccount> updateAccount(const std::string& key, const std::function<void(VXCloudAccount&)>& change);

// The auto-upload switch (the component's): saves the account and posts
// "VXCloudAutoUploadFlagChangedNotification" when the value changes, and lets the main
// queue deliver it. Throws CliError when the account can never upload automatically or
// cannot be saved.
bool changeAutoUpload(VXCloudAccount& account, bool on);

// Unlinks the account through the component (sign-out at the service, removal, the
// unlinked notification delivered on the main queue). Throws CliError, with the account
// left as it was, when the sign-out fails or the account cannot be removed. False when
// there was nothing to sign out of (no session could be made for the account).
bool unlinkAccount(const std::shared_ptr<VXCloudAccount>& account);

// Whether the account is a WebDAV account (added by a form, never signed in to).
bool webDAVAccount(const VXCloudAccount& account);

}  // namespace vxcloud::cli
