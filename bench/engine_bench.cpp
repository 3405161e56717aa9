// What the upload engine itself costs: 1,000 documents sent to 6 accounts through the task
// manager, with sessions that answer at once (no network). Prints the wall time of the
// whole run and the engine's wall and CPU cost per account-upload, without and with the
// local content hash.
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/engine/VXCloudTaskManager.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/NotificationCenter.h"
#include "vxcloud/platform/PreferencesStore.h"
#include "vxcloud/platform/Reachability.h"

using namespace vxcloud;

namespace {

constexpr int kDocuments = 1000;
constexpr std::size_t kDocumentSize = 64 * 1024;

// Stores nothing and answers success before returning, as if every service were instant.
class InstantSession : public VXCloudSession {
public:
    explicit InstantSession(std::shared_ptr<VXCloudAccount> account) : VXCloudSession(std::move(account)) {}
    std::shared_ptr<VXCloudFile> rootFolder() const override {
        return std::make_shared<VXCloudFile>("Root", true, true);
    }
    void isAuthorizedWithCompletion(std::function<void(bool)> completion) override { completion(true); }
    void removeAuthorizationWithCompletion(
        std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)>) override {}
    void loadFoldersInFolder(std::shared_ptr<VXCloudFile>) override {}
    void uploadWithCloudFile(std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudFile>,
                             bool) override {
        file->version = "rev-1";
        if (auto delegate = cloudSessionDelegate())
            delegate->cloudSessionDidUploadFile(shared_from_this(), file);
    }
    void renameWithCloudFile(std::shared_ptr<VXCloudFile>, std::string, std::shared_ptr<VXCloudFile>,
                             bool, CreatePDFBlock) override {}
    void moveWithCloudFiles(VXCloudFileList, std::shared_ptr<VXCloudFile>,
                            std::shared_ptr<VXCloudFile>) override {}
    void downloadSettingsFileWithCompletionHandler(
        std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)>) override {}
};

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

class Counter {
public:
    void add() {
        std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    bool waitFor(int n, std::chrono::seconds timeout) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return count_ >= n; });
    }
    void reset() {
        std::lock_guard lock(mutex_);
        count_ = 0;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

bool run(const char* label, const std::vector<std::string>& documents,
         const VXCloudAccountList& accounts, bool compareLocalHash, Counter& notifications) {
    notifications.reset();
    const auto manager = VXCloudTaskManager::sharedInstance();
    const double cpuStart = cpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kDocuments; ++i) {
        manager->uploadWithFilename("doc.pdf", documents[i], {}, true, nlohmann::json(i), accounts,
                                    compareLocalHash);
    }
    if (!notifications.waitFor(kDocuments, std::chrono::seconds(300))) {
        std::fprintf(stderr, "%s: not every document reported\n", label);
        return false;
    }
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    const double cpu = cpuSeconds() - cpuStart;
    const int accountUploads = kDocuments * static_cast<int>(accounts.size());
    std::printf("%-22s %d documents x %zu accounts: wall %.3f s, %.1f us/account-upload wall, "
                "%.1f us/account-upload CPU\n",
                label, kDocuments, accounts.size(), wall.count(), wall.count() * 1e6 / accountUploads,
                cpu * 1e6 / accountUploads);
    return true;
}

}  // namespace

int main() {
    const auto folder = std::filesystem::temp_directory_path() /
                        ("vxcloud-engine-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    PreferencesStore::setStandardPath((folder / "preferences.json").string());
    Reachability::setOverride(NetworkPath::wifi);
    setCloudSessionFactoryOverride([](const std::shared_ptr<VXCloudAccount>& account) {
        return std::make_shared<InstantSession>(account);
    });

    std::vector<std::string> documents;
    std::string content(kDocumentSize, 'x');
    content.replace(0, 8, "%PDF-1.4");
    for (int i = 0; i < kDocuments; ++i) {
        documents.push_back((folder / ("doc-" + std::to_string(i) + ".pdf")).string());
        content[9] = static_cast<char>('a' + i % 26);
        std::ofstream(documents.back(), std::ios::binary) << content;
    }

    VXCloudAccountList accounts;
    const VXCloudService services[] = {VXCloudService::googleDrive, VXCloudService::dropbox,
                                       VXCloudService::oneDrive,    VXCloudService::oneNote,
                                       VXCloudService::box,         VXCloudService::evernote};
    for (const auto service : services) {
        auto account = std::make_shared<VXCloudAccount>("id", "bench@example.com", service);
        account->shouldAutoUpload = true;
        account->onlyWifiUpload = false;
        account->uploadFolderInfo = nlohmann::json{
            {"uploadFolderId", "f"}, {"uploadFolderName", "Scans"}, {"uploadFolderPath", "/Scans"}};
        accounts.push_back(std::move(account));
    }

    Counter notifications;
    auto token = NotificationCenter::defaultCenter().addObserver(
        VXCloudUploadStatusNotification, nullptr, [&](const Notification&) { notifications.add(); });
    DispatchQueue::main()->startOwnThread();

    bool ok = run("engine only", documents, accounts, false, notifications);
    ok = run("with local hash", documents, accounts, true, notifications) && ok;
    std::printf("tasks still pending: %zu\n", VXCloudTaskManager::sharedInstance()->pendingTasks().size());

    NotificationCenter::defaultCenter().removeObserver(token);
    DispatchQueue::main()->stopOwnThread();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return ok ? EXIT_SUCCESS : EXIT_FAILURE;
}
