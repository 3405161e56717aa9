#include "AccountLinker.h"

#include <poll.h>
#include <unistd.h>

#include <any>
#include <atomic>
#include <cerrno>
#include <functional>
#include <iostream>
#include <mutex>
#include <set>
#include <nlohmann/json.hpp>

#include "AccountNumbers.h"
#include "Accounts.h"
#include "CliError.h"
#include "HostContext.h"
#include "Output.h"
#include "Prompts.h"
#include "SandboxConnection.h"
#include "vxcloud/auth/VXCloudAuthManager.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/platform/NotificationCenter.h"
#include "vxcloud_sandbox/SandboxClient.h"

namespace vxcloud::cli {

namespace {

using namespace std::chrono_literals;

// Google serves desktop apps on any loopback port.
constexpr const char* kLoopbackRedirect = "http://127.0.0.1/";

void wakeMainQueue();

// Answers the sandbox's sign-in page the way a person would: approves access as the
// chosen account and follows the redirect back to the sign-in's loopback listener. A page
// that refuses (no such account) ends the sign-in: no redirect will ever come.
class SandboxSignInPage : public VXCloudUserAgent {
public:
    explicit SandboxSignInPage(std::string account) : account_(std::move(account)) {}
    bool open(const std::string& url) override {
        sandbox::SignInDecision decision;
        decision.account = account_;
        decision.idleTimeout = 60s;
        const HttpResponse answer = sandbox::answerSignInPage(url, decision);
        {
            std::lock_guard lock(mutex_);
            answered_ = answer.ok();
            refused_ = !answer.transportFailed() && answer.status >= 400;
            problem_ = answer.transportFailed() ? answer.errorMessage : pageError(answer.body);
        }
        wakeMainQueue();
        return !answer.transportFailed();
    }
    std::string problem() const {
        std::lock_guard lock(mutex_);
        return answered_ ? std::string() : problem_;
    }
    // The page said no (as a person's browser would show); the sign-in cannot finish.
    bool refused() const {
        std::lock_guard lock(mutex_);
        return refused_;
    }

private:
    // The error the sandbox's page shows (<p id="error">...</p>), else the start of the page.
    static std::string pageError(const std::string& body) {
        const std::string open = "<p id=\"error\">";
        const auto start = body.find(open);
        if (start == std::string::npos) return body.substr(0, 300);
        const auto end = body.find("</p>", start);
        return body.substr(start + open.size(), end == std::string::npos ? std::string::npos : end - start - open.size());
    }

    std::string account_;
    mutable std::mutex mutex_;
    bool answered_ = false;
    bool refused_ = false;
    std::string problem_;
};

std::string credentialValue(const HostContext& context, VXCloudService service, const char* key) {
    return context.credentials().value(service, key).value_or("");
}

// The app credentials for a service: the host's own, else the sandbox's stand-in when the
// sandbox emulates the service; nothing otherwise.
std::optional<VXCloudAppCredentials> appFor(const HostContext& context, VXCloudService service) {
    if (auto own = context.credentials().appCredentials(service)) return own;
    if (context.sandbox() && context.sandbox()->providerName(service))
        return sandboxCredentials(service);
    return std::nullopt;
}

std::optional<VXCloudAuthResult> resultOf(const Notification& notification) {
    const auto it = notification.objects.find(VXCloudAuthManager::kAuthResultKey);
    if (it == notification.objects.end()) return std::nullopt;
    if (const auto* result = std::any_cast<VXCloudAuthResult>(&it->second)) return *result;
    return std::nullopt;
}

void wakeMainQueue() {
    DispatchQueue::main()->async([] {});
}

// "; its Dropbox accounts are ada@example.com and grace@example.com", from the sandbox's description.
std::string sandboxAccountsPhrase(const SandboxConnection& sandbox, VXCloudService service) {
    const auto provider = sandbox.providerName(service);
    const auto accounts = sandbox.description.find("accounts");
    if (!provider || accounts == sandbox.description.end() || !accounts->is_array()) return {};
    std::vector<std::string> emails;
    for (const auto& account : *accounts)
        if (account.is_object() && account.value("provider", "") == *provider) emails.push_back(account.value("email", "?"));
    if (emails.empty()) return {};
    return "; its " + displayName(service) + " accounts are " + joinedWords(emails);
}

// A line typed or pasted on stdin, trimmed; nothing at the end of input or once `done`
// holds (the sign-in finished in a browser on this machine). The main queue runs meanwhile.
// Reads the descriptor itself, so that lines pasted together are all seen.
std::optional<std::string> pastedLine(const std::function<bool()>& done) {
    static std::string pending;
    while (pending.find('\n') == std::string::npos) {
        if (done()) return std::nullopt;
        pollfd ready{STDIN_FILENO, POLLIN, 0};
        const int n = ::poll(&ready, 1, 200);
        DispatchQueue::main()->drain();
        if (n < 0 && errno != EINTR) return std::nullopt;
        if (n <= 0) continue;
        char buffer[4096];
        const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            if (pending.empty()) return std::nullopt;
            pending += '\n';  // a last line without its newline
            break;
        }
        pending.append(buffer, static_cast<std::size_t>(got));
    }
    const auto newline = pending.find('\n');
    std::string line = pending.substr(0, newline);
    pending.erase(0, newline + 1);
    const auto first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos) return std::string();
    return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

}  // namespace

void setUpAuthorization(HostContext& context) {
    std::shared_ptr<VXCloudDropboxInfo> dropbox;
    if (auto app = appFor(context, VXCloudService::dropbox))
        dropbox = std::make_shared<VXCloudDropboxInfo>(app->clientId,
                                                       credentialValue(context, VXCloudService::dropbox, "redirect_url"));
    std::shared_ptr<VXCloudGoogleDriveInfo> google;
    if (auto app = appFor(context, VXCloudService::googleDrive)) {
        std::string redirect = credentialValue(context, VXCloudService::googleDrive, "redirect_url");
        google = std::make_shared<VXCloudGoogleDriveInfo>(app->clientId, redirect.empty() ? kLoopbackRedirect : redirect,
                                                          std::vector<std::string>{}, app->clientSecret);
    }
    std::shared_ptr<VXCloudOneDriveInfo> oneDrive;
    if (auto app = appFor(context, VXCloudService::oneDrive)) oneDrive = std::make_shared<VXCloudOneDriveInfo>(app->clientId);
    std::shared_ptr<VXCloudBoxInfo> box;
    if (auto app = appFor(context, VXCloudService::box))
        box = std::make_shared<VXCloudBoxInfo>(app->clientId, app->clientSecret.value_or(""));
    std::shared_ptr<VXCloudEvernoteInfo> evernote;
    if (auto app = appFor(context, VXCloudService::evernote))
        evernote = std::make_shared<VXCloudEvernoteInfo>(app->clientId, app->clientSecret.value_or(""));

    const auto manager = VXCloudAuthManager::sharedInstance();
    manager->setup(dropbox, google, oneDrive, box, evernote);
    // setup() starts the check of the stored accounts; a second check queued behind it
    // ends after the first has walked them, and then the sessions it asked are waited for.
    auto done = std::make_shared<std::atomic<bool>>(false);
    manager->postSetup([done] {
        done->store(true);
        wakeMainQueue();
    });
    DispatchQueue::main()->runUntil([&] { return done->load() && manager->pendingSessionCount() == 0; }, 60s);
}

Json folderInfoFromSettings(const Json& settings) {
    if (!settings.is_object()) return Json();
    auto text = [&](const char* key) {
        const auto it = settings.find(key);
        return it != settings.end() && it->is_string() ? it->get<std::string>() : std::string();
    };
    const std::string path = text(VXCloudFile::kUploadFolderPathKey);
    const std::string id = text(VXCloudFile::kUploadFolderIdKey);
    if (path.empty() && id.empty()) return Json();
    std::string name = text(VXCloudFile::kUploadFolderNameKey);
    if (name.empty()) name = path.substr(path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/') + 1);
    return Json{{VXCloudFile::kUploadFolderIdKey, id},
                {VXCloudFile::kUploadFolderNameKey, name},
                {VXCloudFile::kUploadFolderPathKey, path}};
}

LinkResult linkAccount(HostContext& context, Prompter& prompter, const LinkRequest& request) {
    const std::string name = displayName(request.service);
    if (serviceDescriptor(request.service).linking == VXCloudLinking::accountForm)
        throw CliError(name + " accounts are not signed in to; add one with: vxcloud webdav add", kExitUsage);
    if (!VXCloudAuthManager::offersSignIn(request.service))
        throw CliError("linking " + name + " accounts is not available in this version of vxcloud; it links " +
                       signInServiceWords() + " accounts");
    const bool sandbox = context.sandbox() && context.sandbox()->providerName(request.service);
    if (context.sandbox() && !sandbox)
        throw CliError("the sandbox at " + context.sandbox()->baseUrl + " does not emulate " + name);
    if (!sandbox) {
        const std::string missing = context.credentials().missingMessage(request.service);
        if (!missing.empty()) throw CliError(missing, kExitUsage);
    }

    setUpAuthorization(context);
    const auto manager = VXCloudAuthManager::sharedInstance();

    // Some services allow one account each: a new one replaces the old. The manager's answer
    // also counts WebDAV accounts, so the person is asked only when there is one to replace.
    AccountList replaced;
    if (serviceDescriptor(request.service).singleAccount && manager->hasAccountLinked(request.service)) {
        for (const auto& account : linkedAccounts())
            if (account->cloudService == request.service) replaced.push_back(account);
    }
    if (!replaced.empty()) {
        say(VXCloudString::MAX_ACCOUNTS_FOR_SERVICE_ERROR());
        if (!request.replace && !prompter.confirm("Continue?", false))
            throw CliError("nothing was linked (say --replace to replace the linked account)", kExitFailed);
    }

    std::set<std::string> before;
    for (const auto& account : linkedAccounts()) before.insert(account->key());

    std::mutex mutex;
    std::optional<VXCloudAuthResult> outcome;
    const auto token = NotificationCenter::defaultCenter().addObserver(
        VXCloudAuthNotification, DispatchQueue::main(), [&](const Notification& notification) {
            std::lock_guard lock(mutex);
            if (!outcome) outcome = resultOf(notification);
        });
    struct Unobserve {
        NotificationCenter::ObserverToken token;
        ~Unobserve() { NotificationCenter::defaultCenter().removeObserver(token); }
    } unobserve{token};

    if (!context.json() && !request.quiet) say(VXCloudString::LOADING_ACCOUNT() + "…");
    std::shared_ptr<SandboxSignInPage> page;
    std::shared_ptr<VXCloudUserAgent> agent;
    if (sandbox && !request.noBrowser && !request.paste) {
        page = std::make_shared<SandboxSignInPage>(request.as);
        agent = page;
    } else {
        say("Sign in to " + name + (sandbox ? " (the sandbox's page)" : "") +
            " and allow access; this command waits for the sign-in to finish.");
        // The sandbox's page is for a person only when one asked for it: never start a browser for it.
        agent = request.noBrowser || sandbox ? VXCloudUserAgent::printing(std::cout)
                                             : VXCloudUserAgent::browserOrPrinting(std::cout);
    }
    manager->authorize(agent, request.service);

    const auto answered = [&] {
        std::lock_guard lock(mutex);
        return outcome.has_value();
    };
    if (request.paste && !answered()) {
        // The address the browser ended on, copied by the person from another machine. A
        // browser on this machine may still finish the sign-in meanwhile.
        for (int attempt = 0; attempt < 3 && !answered(); ++attempt) {
            std::cout << "Paste the address your browser ended on: " << std::flush;
            const auto line = pastedLine(answered);
            if (!line) break;
            DispatchQueue::main()->drain();
            if (answered() || line->empty()) continue;
            if (manager->handleRedirectURL(*line)) break;
            say("That address does not finish this sign-in; paste the whole address from the browser's address bar.");
        }
        if (answered()) std::cout << '\n';
    }
    DispatchQueue::main()->runUntil([&] { return answered() || (page && page->refused()); },
                                    VXCloudAuthManager::kDefaultAuthorizationTimeLimit + 30s);

    std::optional<VXCloudAuthResult> result;
    {
        std::lock_guard lock(mutex);
        result = outcome;
    }
    if (!result && page && page->refused()) {
        manager->cancelAuthorization(request.service);
        throw CliError("the sandbox's " + name + " sign-in refused " +
                           (request.as.empty() ? std::string("the sign-in") : "\"" + request.as + "\"") + ": " +
                           page->problem() + sandboxAccountsPhrase(*context.sandbox(), request.service),
                       request.as.empty() ? kExitFailed : kExitUsage);
    }
    if (!result) {
        manager->cancelAuthorization(request.service);
        throw CliError("the " + name + " sign-in did not finish in time");
    }
    if (result->kind() == VXCloudAuthResult::Kind::cancel) throw CliError("the " + name + " sign-in was cancelled");
    if (result->kind() == VXCloudAuthResult::Kind::error || !result->account()) {
        const auto code = result->cloudError() ? result->cloudError()->errorCode : ErrorCode::fileUpload;
        std::string message = VXCloudString::ADD_ACCOUNT_ERROR() + ": " +
                              (code == ErrorCode::connection ? VXCloudString::NEW_ACCOUNT_CONNECTION_ERROR()
                                                             : result->message());
        if (page && !page->problem().empty()) message += " (the sandbox answered: " + page->problem() + ")";
        throw CliError(message);
    }

    LinkResult linked;
    // The component keeps what the person set for an account linked again; only its sign-in is new.
    auto account = result->account();
    linked.relinked = before.count(account->key()) > 0;
    for (const auto& old : replaced) {
        if (old->key() == account->key()) continue;
        try {
            unlinkAccount(old);
        } catch (const CliError& e) {
            warn(std::string("the account linked before is kept: ") + e.what());
        }
    }

    // An account used before names its upload folder in its settings document.
    auto settings = std::make_shared<std::optional<JsonBox>>();
    auto settingsMutex = std::make_shared<std::mutex>();
    manager->downloadSettingsFile(account, [settings, settingsMutex](JsonBox document, std::shared_ptr<VXCloudError>) {
        {
            std::lock_guard lock(*settingsMutex);
            *settings = std::move(document);
        }
        wakeMainQueue();
    });
    DispatchQueue::main()->runUntil(
        [&] {
            std::lock_guard lock(*settingsMutex);
            return settings->has_value();
        },
        60s);
    Json folder;
    {
        std::lock_guard lock(*settingsMutex);
        if (*settings && **settings) folder = folderInfoFromSettings(***settings);
    }
    if (folder.is_object()) {
        account = updateAccount(account->key(), [&](VXCloudAccount& stored) { stored.uploadFolderInfo = folder; });
        linked.folderFromSettings = true;
    } else if (auto stored = reloadAccount(account->key())) {
        account = stored;
    }
    DispatchQueue::main()->drain();
    linked.account = account;
    // Numbered now, so accounts are numbered in the order they were linked.
    linked.number = accountNumber(account->key());
    return linked;
}

}  // namespace vxcloud::cli
