#include "Accounts.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "AccountNumbers.h"
#include "CliError.h"
#include "SessionCalls.h"
#include "vxcloud/auth/VXCloudAuthManager.h"
#include "vxcloud/engine/VXCloudAccountActions.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/model/VXCloudWebDAVAccount.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/PreferencesStore.h"

namespace vxcloud::cli {

namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
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

std::optional<VXCloudService> parseService(const std::string& text) { return serviceFromName(text); }

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

std::string joinedWords(const std::vector<std::string>& words) {
    std::string out;
    for (std::size_t i = 0; i < words.size(); ++i) out += (i == 0 ? "" : (i + 1 == words.size() ? " and " : ", ")) + words[i];
    return out;
}

std::string singleAccountServiceNames() {
    std::vector<std::string> names;
    for (VXCloudService service : allCloudServices)
        if (serviceDescriptor(service).singleAccount) names.push_back(displayName(service));
    return joinedWords(names);
}

VXCloudService requireService(const std::string& text) {
    if (auto service = parseService(text)) return *service;
    throw CliError("unknown service \"" + text + "\"; the services are: " + serviceWords(), kExitUsage);
}

std::shared_ptr<VXCloudAccount> resolveAccount(const std::string& reference) {
    const AccountList accounts = linkedAccounts();
    if (accounts.empty()) throw CliError("no account is linked yet; link one with: vxcloud link SERVICE", kExitUsage);

    // Its number in `vxcloud accounts`.
    if (!reference.empty() && allDigits(reference) && reference.size() < 6) {
        const std::size_t number = std::stoul(reference);
        for (const auto& numbered : numberedAccounts())
            if (numbered.number == number) return numbered.account;
        throw CliError("there is no account number " + reference + "; vxcloud accounts lists the linked ones",
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
    for (const auto& numbered : numberedAccounts())
        names += "\n  " + std::to_string(numbered.number) + "  " + accountLabel(*numbered.account);
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
    auto reason = noAutoUploadReason(account.cloudService);
    if (reason && account.cloudService == VXCloudService::oneNote) {
        *reason += " To send a document to a section: vxcloud upload FILE --to '" + accountLabel(account) +
                   "' --section NOTEBOOK/SECTION";
    }
    return reason;
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

std::shared_ptr<VXCloudAccount> updateAccount(const std::string& key, const std::function<void(VXCloudAccount&)>& change) {
    if (auto updated = VXCloudUserDefaults::updateCloudAccount(key, change)) return updated;
    if (!reloadAccount(key)) throw CliError("the account was unlinked meanwhile; nothing was changed");
    throw CliError("cannot save the account to " + PreferencesStore::standard()->path());
}

bool changeAutoUpload(VXCloudAccount& account, bool on) {
    switch (VXCloudAccountActions::setAutoUpload(account, on)) {
        case VXCloudAutoUploadChange::refused: throw CliError(*autoUploadRefusal(account), kExitFailed);
        case VXCloudAutoUploadChange::notSaved:
            if (!reloadAccount(account.key())) throw CliError("the account was unlinked meanwhile; nothing was changed");
            throw CliError("cannot save the account to " + PreferencesStore::standard()->path());
        case VXCloudAutoUploadChange::unchanged: return false;
        case VXCloudAutoUploadChange::changed: break;
    }
    DispatchQueue::main()->drain();
    return true;
}

bool unlinkAccount(const std::shared_ptr<VXCloudAccount>& account) {
    const auto outcome = awaitCompletion<VXCloudUnlinkOutcome>(
        [&](std::function<void(VXCloudUnlinkOutcome)> done) { VXCloudAccountActions::unlinkAccount(account, done); });
    const std::string label = accountLabel(*account);
    if (!outcome || outcome->result == VXCloudUnlinkOutcome::Result::noAnswer)
        throw CliError(VXCloudString::UNLINK_ACCOUNT_ERROR() + " (" + label + "): the service did not answer in time");
    if (outcome->result == VXCloudUnlinkOutcome::Result::signOutFailed) {
        const PlatformError error = outcome->error.value_or(PlatformError{});
        throw CliError(VXCloudString::UNLINK_ACCOUNT_ERROR() + " (" + label + "): " + error.domain + " error " +
                       std::to_string(error.code));
    }
    if (outcome->result == VXCloudUnlinkOutcome::Result::notRemoved)
        throw CliError("cannot remove the account from " + PreferencesStore::standard()->path());
    // The host's own observers (its records) have run by now.
    DispatchQueue::main()->drain();
    return outcome->result == VXCloudUnlinkOutcome::Result::unlinked;
}

bool webDAVAccount(const VXCloudAccount& account) {
    return serviceDescriptor(account.cloudService).linking == VXCloudLinking::accountForm;
}

}  // namespace vxcloud::cli
