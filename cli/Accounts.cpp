#include "Accounts.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "CliError.h"
#include "vxcloud/auth/VXCloudAuthManager.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudWebDAVAccount.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/NotificationCenter.h"
#include "vxcloud/platform/PreferencesStore.h"

namespace vxcloud::cli {

namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string withoutPunctuation(const std::string& text) {
    std::string out;
    for (unsigned char c : text)
        if (std::isalnum(c)) out += static_cast<char>(std::tolower(c));
    return out;
}

}  // namespace

bool allDigits(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

AccountList linkedAccounts() { return VXCloudUserDefaults::loadAllAccounts(false); }

std::string accountLabel(const VXCloudAccount& account) {
    std::string label = displayName(account.cloudService) + ":" + account.email;
    if (const auto* webdav = dynamic_cast<const VXCloudWebDAVAccount*>(&account)) {
        label += "@" + webdav->label.value_or(webdav->url);
    }
    return label;
}

std::optional<VXCloudService> parseService(const std::string& text) {
    if (auto exact = cloudServiceFromType(text)) return exact;
    const std::string wanted = withoutPunctuation(text);
    if (wanted == "gdrive" || wanted == "google") return VXCloudService::googleDrive;
    for (VXCloudService service : allCloudServices) {
        if (withoutPunctuation(std::string(accountType(service))) == wanted ||
            withoutPunctuation(displayName(service)) == wanted)
            return service;
    }
    return std::nullopt;
}

std::string serviceWords() {
    std::string words;
    for (VXCloudService service : allCloudServices) {
        if (!words.empty()) words += ", ";
        words += accountType(service);
    }
    return words;
}

std::string signInServiceWords() {
    std::string words;
    for (VXCloudService service : allCloudServices) {
        if (!VXCloudAuthManager::offersSignIn(service)) continue;
        if (!words.empty()) words += ", ";
        words += accountType(service);
    }
    return words;
}

VXCloudService requireService(const std::string& text) {
    if (auto service = parseService(text)) return *service;
    throw CliError("unknown service \"" + text + "\"; the services are: " + serviceWords(), kExitUsage);
}

std::shared_ptr<VXCloudAccount> resolveAccount(const std::string& reference) {
    const AccountList accounts = linkedAccounts();
    if (accounts.empty()) throw CliError("no account is linked yet; link one with: vxcloud link SERVICE", kExitUsage);

    // Its number in the list.
    if (!reference.empty() && allDigits(reference) && reference.size() < 6) {
        const std::size_t index = std::stoul(reference);
        if (index >= 1 && index <= accounts.size()) return accounts[index - 1];
        throw CliError("there is no account number " + reference + "; vxcloud accounts lists " +
                           std::to_string(accounts.size()),
                       kExitUsage);
    }
    // Strongest form first: a unique match at one level wins over looser matches.
    using Test = std::function<bool(const VXCloudAccount&)>;
    const std::vector<Test> tests = {
        [&](const VXCloudAccount& a) { return a.key() == reference; },
        [&](const VXCloudAccount& a) { return accountLabel(a) == reference; },
        [&](const VXCloudAccount& a) {
            const auto colon = reference.find(':');
            if (colon == std::string::npos) return false;
            return parseService(reference.substr(0, colon)) == a.cloudService && a.email == reference.substr(colon + 1);
        },
        [&](const VXCloudAccount& a) { return a.email == reference; },
        [&](const VXCloudAccount& a) { return a.displayName == reference; },
        [&](const VXCloudAccount& a) { return lower(a.email) == lower(reference) || lower(a.displayName) == lower(reference); },
    };
    for (const auto& test : tests) {
        AccountList found;
        for (const auto& account : accounts)
            if (test(*account)) found.push_back(account);
        if (found.size() == 1) return found.front();
        if (found.size() > 1) {
            std::string names;
            for (const auto& account : found) names += "\n  " + accountLabel(*account);
            throw CliError("\"" + reference + "\" names more than one account; say which one:" + names, kExitUsage);
        }
    }
    std::string names;
    for (std::size_t i = 0; i < accounts.size(); ++i)
        names += "\n  " + std::to_string(i + 1) + "  " + accountLabel(*accounts[i]);
    throw CliError("no linked account is called \"" + reference + "\". Linked accounts:" + names, kExitUsage);
}

AccountList resolveAccounts(const std::vector<std::string>& references) {
    AccountList out;
    for (const auto& reference : references) {
        auto account = resolveAccount(reference);
        const bool seen = std::any_of(out.begin(), out.end(), [&](const auto& a) { return a->key() == account->key(); });
        if (!seen) out.push_back(std::move(account));
    }
    return out;
}

std::optional<std::string> autoUploadRefusal(const VXCloudAccount& account) {
    switch (account.cloudService) {
        case VXCloudService::webDAV:
            return std::string("WebDAV accounts cannot upload automatically: this version keeps WebDAV accounts but "
                               "does not send documents to WebDAV servers, so an upload would never finish.");
        case VXCloudService::oneNote: return VXCloudString::ONENOTE_AUTOUPLOAD_INFO();
        default: return std::nullopt;
    }
}

std::optional<std::string> uploadFolderPath(const VXCloudAccount& account) {
    return folderPathOfInfo(account.uploadFolderInfo);
}

std::optional<std::string> folderPathOfInfo(const JsonBox& uploadFolderInfo) {
    const auto folder = initUploadFolderFromDictionary(uploadFolderInfo);
    if (!folder) return std::nullopt;
    if (folder->path && !folder->path->empty()) return folder->path;
    return "/";
}

std::shared_ptr<VXCloudAccount> reloadAccount(const std::string& key) {
    for (auto& account : linkedAccounts())
        if (account->key() == key) return account;
    return nullptr;
}

void saveAccount(const VXCloudAccount& account) {
    if (!VXCloudUserDefaults::saveCloudAccount(account)) {
        throw CliError("cannot save the account to " + PreferencesStore::standard()->path());
    }
}

bool changeAutoUpload(VXCloudAccount& account, bool on) {
    if (on) {
        if (auto refusal = autoUploadRefusal(account)) throw CliError(*refusal, kExitFailed);
    }
    if (account.shouldAutoUpload == on) return false;
    account.shouldAutoUpload = on;
    saveAccount(account);
    NotificationCenter::defaultCenter().post(VXCloudAutoUploadFlagChangedNotification, nullptr,
                                             Json{{"account", account.toDict()}, {"shouldAutoUpload", on}});
    DispatchQueue::main()->drain();
    return true;
}

}  // namespace vxcloud::cli
