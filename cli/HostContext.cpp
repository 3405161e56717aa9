#include "HostContext.h"

#include <sys/stat.h>

#include <tuple>

#include <cstdlib>
#include <iostream>
#include <mutex>

#include "CliError.h"
#include "Output.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/platform/PreferencesStore.h"
#include "vxcloud/platform/Reachability.h"
#include "vxcloud/platform/SecureStore.h"

namespace vxcloud::cli {

struct HostContext::ProgressSlot {
    std::mutex mutex;
    std::weak_ptr<VXCloudProgressDelegate> receiver;
};

namespace {

const char* transportWord(TransportError error) {
    switch (error) {
        case TransportError::none: return "";
        case TransportError::couldNotResolve: return "could not resolve the host";
        case TransportError::couldNotConnect: return "could not connect";
        case TransportError::timedOut: return "timed out";
        case TransportError::connectionLost: return "connection lost";
        case TransportError::tls: return "TLS failure";
        case TransportError::tooManyRedirects: return "too many redirects";
        case TransportError::aborted: return "aborted";
        case TransportError::other: return "failed";
    }
    return "failed";
}

void logRequests() {
    static std::mutex printing;
    HttpClient::shared()->setRequestLogger(
        [](const std::string& method, const std::string& redactedUrl, int status, TransportError error) {
            std::lock_guard lock(printing);
            std::cerr << method << ' ' << redactedUrl << " -> ";
            if (error != TransportError::none) {
                std::cerr << transportWord(error);
            } else {
                std::cerr << status;
            }
            std::cerr << '\n' << std::flush;
        });
}

}  // namespace

HostContext::HostContext(HostOptions options)
    : options_(std::move(options)), paths_(Paths::standard()), progress_(std::make_shared<ProgressSlot>()) {
    // Quiet unless asked: what goes wrong reaches the person as the host's own messages.
    if (options_.verbosity >= 1) logRequests();
    log::setLevel(options_.verbosity >= 2 ? log::Level::debug : log::Level::off);

    PreferencesStore::setStandardPath(paths_.preferences());
    // A damaged preferences file is set aside on the first read; the person hears of it.
    const auto preferences = PreferencesStore::standard();
    (void)preferences->snapshot();
    if (const auto report = preferences->takeCorruptionReport()) warn(*report);

    // Tokens live in the keyring when one answers; VXCLOUD_SECURE_STORE=file keeps them in
    // the owner-only file under the data directory instead.
    if (const char* choice = std::getenv("VXCLOUD_SECURE_STORE"); choice && std::string(choice) == "file")
        SecureStore::setShared(SecureStore::openFile(paths_.secureStore()));

    credentials_ = HostCredentials::load(paths_.credentials());
    for (const auto& problem : credentials_.problems()) warn(problem);
    credentials_.apply();

    if (options_.sandbox) {
        sandbox_ = options_.sandbox;
    } else if (!options_.offline) {
        std::string url = options_.sandboxUrl, caFile;
        if (url.empty())
            if (const char* env = std::getenv("VXCLOUD_SANDBOX"); env && *env) url = env;
        if (url.empty()) {
            const SavedSandbox saved = savedSandbox(paths_.sandboxFile());
            url = saved.url;
            caFile = saved.caFile;
        }
        // A sandbox serving HTTPS (vxcloud-sandbox --tls) names the CA file it made.
        if (const char* env = std::getenv("VXCLOUD_SANDBOX_CA"); env && *env) caFile = env;
        if (!url.empty()) sandbox_ = connectSandbox(url, caFile);
    }
    if (sandbox_) {
        applySandbox(*sandbox_, credentials_);
        // The sandbox is on loopback, which needs no network: Wi-Fi-only accounts take part.
        Reachability::setOverride(NetworkPath::wifi);
    }

    // Sessions the engine makes for automatic uploads get no progress receiver of their
    // own; the host hands them the one showing the bars.
    std::weak_ptr<ProgressSlot> slot = progress_;
    setCloudSessionFactoryOverride([slot](const std::shared_ptr<VXCloudAccount>& account) {
        auto session = builtInCloudSession(account);
        if (const auto progress = slot.lock(); session && progress) {
            std::lock_guard lock(progress->mutex);
            if (auto receiver = progress->receiver.lock()) session->setCloudSessionProgressDelegate(receiver);
        }
        return session;
    });

    keeper_ = std::make_unique<RecordKeeper>([this]() -> RecordStore& { return records(); });
}

HostContext::~HostContext() {
    keeper_.reset();
    setCloudSessionFactoryOverride({});
    if (options_.verbosity >= 1) HttpClient::shared()->setRequestLogger({});
}

RecordStore& HostContext::records() {
    if (!records_) records_ = std::make_unique<RecordStore>(paths_.records());
    return *records_;
}

RecordStore* HostContext::existingRecords() {
    struct stat info {};
    if (!records_ && ::stat(paths_.records().c_str(), &info) != 0) return nullptr;
    return &records();
}

void HostContext::setProgressReceiver(const std::shared_ptr<VXCloudProgressDelegate>& receiver) {
    std::lock_guard lock(progress_->mutex);
    progress_->receiver = receiver;
}

}  // namespace vxcloud::cli
