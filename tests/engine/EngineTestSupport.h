#pragma once
// A scripted session and a fixture for driving the engine without any service: the
// factory hands out ScriptedSessions that record every call into a Script; the test (or
// an answerer installed on the Script) answers them, on any thread.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/engine/VXCloudTaskManager.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/NotificationCenter.h"
#include "vxcloud/platform/PreferencesStore.h"
#include "vxcloud/platform/Reachability.h"
#include "vxcloud/sessions/VXCloudSession.h"
#include "support/TempFolder.h"

namespace vxcloud::enginetest {

using namespace std::chrono_literals;
inline constexpr auto kPatience = 20s;

// Waits (polling) for a condition that other threads bring about.
template <typename Pred>
bool eventually(Pred pred, std::chrono::milliseconds timeout = kPatience) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

class ScriptedSession;

// One call a session received.
struct Call {
    enum class Kind { upload, rename, move };
    Kind kind = Kind::upload;
    std::shared_ptr<ScriptedSession> session;
    std::shared_ptr<VXCloudFile> file;
    std::shared_ptr<VXCloudFile> folder;  // parent, or the move's source
    std::shared_ptr<VXCloudFile> toFolder;
    bool overwrite = false;
    std::string newName;
    CreatePDFBlock createPDFBlock;
    VXCloudFileList files;
    std::shared_ptr<VXCloudProgressDelegate> progress;
};

// Everything the sessions of one test were asked, and how to answer them.
class Script {
public:
    // Called on the session's calling thread for every call, if set.
    using Answerer = std::function<void(const Call&)>;

    void setAnswerer(Answerer answerer) {
        std::lock_guard lock(mutex_);
        answerer_ = std::move(answerer);
    }
    // Accounts (by email) for which the factory declines to make a session.
    void declineSessionFor(std::string email) {
        std::lock_guard lock(mutex_);
        declined_.push_back(std::move(email));
    }
    bool declines(const std::string& email) const {
        std::lock_guard lock(mutex_);
        return std::find(declined_.begin(), declined_.end(), email) != declined_.end();
    }

    void record(Call call) {
        Answerer answerer;
        {
            std::lock_guard lock(mutex_);
            calls_.push_back(call);
            answerer = answerer_;
        }
        changed_.notify_all();
        if (answerer) answerer(call);
    }
    std::size_t count() const {
        std::lock_guard lock(mutex_);
        return calls_.size();
    }
    bool waitForCalls(std::size_t n, std::chrono::milliseconds timeout = kPatience) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return calls_.size() >= n; });
    }
    Call call(std::size_t i) const {
        std::lock_guard lock(mutex_);
        return calls_.at(i);
    }
    std::vector<Call> calls() const {
        std::lock_guard lock(mutex_);
        return calls_;
    }
    std::atomic<int> sessionsMade{0};

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Call> calls_;
    std::vector<std::string> declined_;
    Answerer answerer_;
};

// Installs an answerer for the life of the scope, so that nothing can call into a test's
// locals once they are gone.
class ScopedAnswerer {
public:
    ScopedAnswerer(std::shared_ptr<Script> script, Script::Answerer answerer)
        : script_(std::move(script)) {
        script_->setAnswerer(std::move(answerer));
    }
    ~ScopedAnswerer() { script_->setAnswerer(nullptr); }
    ScopedAnswerer(const ScopedAnswerer&) = delete;
    ScopedAnswerer& operator=(const ScopedAnswerer&) = delete;

private:
    std::shared_ptr<Script> script_;
};

class ScriptedSession : public VXCloudSession {
public:
    ScriptedSession(std::shared_ptr<VXCloudAccount> account, const std::shared_ptr<Script>& script)
        : VXCloudSession(std::move(account)), script_(script) {}

    std::shared_ptr<VXCloudFile> rootFolder() const override {
        return std::make_shared<VXCloudFile>("Root", true, true);
    }
    void isAuthorizedWithCompletion(std::function<void(bool)> completion) override {
        completion(true);
    }
    void removeAuthorizationWithCompletion(
        std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)>) override {}
    void loadFoldersInFolder(std::shared_ptr<VXCloudFile>) override {}
    void uploadWithCloudFile(std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudFile> parent,
                             bool overwrite) override {
        Call call;
        call.kind = Call::Kind::upload;
        call.session = self();
        call.file = std::move(file);
        call.folder = std::move(parent);
        call.overwrite = overwrite;
        call.progress = cloudSessionProgressDelegate();
        record(std::move(call));
    }
    void renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newName,
                             std::shared_ptr<VXCloudFile> parent, bool overwrite,
                             CreatePDFBlock createPDFBlock) override {
        Call call;
        call.kind = Call::Kind::rename;
        call.session = self();
        call.file = std::move(file);
        call.folder = std::move(parent);
        call.overwrite = overwrite;
        call.newName = std::move(newName);
        call.createPDFBlock = std::move(createPDFBlock);
        record(std::move(call));
    }
    void moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> from,
                            std::shared_ptr<VXCloudFile> to) override {
        Call call;
        call.kind = Call::Kind::move;
        call.session = self();
        call.files = std::move(files);
        call.folder = std::move(from);
        call.toFolder = std::move(to);
        record(std::move(call));
    }
    void downloadSettingsFileWithCompletionHandler(
        std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)>) override {}

private:
    std::shared_ptr<ScriptedSession> self() {
        return std::static_pointer_cast<ScriptedSession>(shared_from_this());
    }
    void record(Call call) {
        if (const auto script = script_.lock()) script->record(std::move(call));
    }
    // Weak: the script's calls hold their sessions, and a strong reference back would keep
    // both (and the documents the calls carry) alive after the test.
    std::weak_ptr<Script> script_;
};

// Answers, as a service would: the returned record is the one that was passed in.
inline void answerUpload(const Call& call, std::optional<std::string> version = std::nullopt) {
    call.file->version = std::move(version);
    if (auto delegate = call.session->cloudSessionDelegate())
        delegate->cloudSessionDidUploadFile(call.session, call.file);
}
inline void failUpload(const Call& call, ErrorCode code) {
    if (auto delegate = call.session->cloudSessionDelegate())
        delegate->cloudSessionUploadFailedForFile(call.session, call.file,
                                                  std::make_shared<VXCloudError>(code));
}
inline void answerRename(const Call& call, std::optional<std::string> version = std::nullopt) {
    call.file->name = call.newName;
    call.file->version = std::move(version);
    if (auto delegate = call.session->cloudSessionDelegate())
        delegate->cloudSessionDidRenameFile(call.session, call.file);
}
inline void failRename(const Call& call, ErrorCode code) {
    if (auto delegate = call.session->cloudSessionDelegate())
        delegate->cloudSessionRenameFailedForFile(call.session, call.file,
                                                  std::make_shared<VXCloudError>(code));
}
inline void answerMove(const Call& call, const VXCloudFileList& moved, const VXCloudFileList& failed) {
    if (auto delegate = call.session->cloudSessionDelegate())
        delegate->cloudSessionDidMoveFiles(call.session, moved, failed);
}

// A host's delegates: counts every callback it receives.
struct CountingDelegate : VXCloudSessionDelegate, VXCloudProgressDelegate {
    std::atomic<int> calls{0};
    std::atomic<int> uploaded{0};
    void cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                    const std::shared_ptr<VXCloudFile>&) override { ++calls; }
    void cloudSessionLoadFoldersFailedWithError(const std::shared_ptr<VXCloudSession>&,
                                                const std::shared_ptr<VXCloudError>&) override {
        ++calls;
    }
    void cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>&,
                                   const std::shared_ptr<VXCloudFile>&) override {
        ++calls;
        ++uploaded;
    }
    void cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>&,
                                         const std::shared_ptr<VXCloudFile>&,
                                         const std::shared_ptr<VXCloudError>&) override { ++calls; }
    void cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>&,
                                   const std::shared_ptr<VXCloudFile>&) override { ++calls; }
    void cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>&,
                                         const std::shared_ptr<VXCloudFile>&,
                                         const std::shared_ptr<VXCloudError>&) override { ++calls; }
    void cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                  const VXCloudFileList&) override { ++calls; }
    void cloudSessionCurrentUploadedBytes(const std::shared_ptr<VXCloudSession>&, std::int64_t,
                                          std::int64_t) override { ++calls; }
};

// Collects the upload status notifications (delivered on the posting thread).
class NotificationLog {
public:
    NotificationLog() {
        token_ = NotificationCenter::defaultCenter().addObserver(
            VXCloudUploadStatusNotification, nullptr, [this](const Notification& n) {
                std::lock_guard lock(mutex_);
                posted_.push_back(n);
            });
    }
    ~NotificationLog() { NotificationCenter::defaultCenter().removeObserver(token_); }
    NotificationLog(const NotificationLog&) = delete;
    NotificationLog& operator=(const NotificationLog&) = delete;

    std::size_t count() const {
        std::lock_guard lock(mutex_);
        return posted_.size();
    }
    std::vector<Notification> all() const {
        std::lock_guard lock(mutex_);
        return posted_;
    }
    // Drives the main queue (where uploads and renames report) until n have arrived.
    bool waitFor(std::size_t n, std::chrono::milliseconds timeout = kPatience) {
        return DispatchQueue::main()->runUntil([&] { return count() >= n; }, timeout);
    }

private:
    mutable std::mutex mutex_;
    std::vector<Notification> posted_;
    NotificationCenter::ObserverToken token_;
};

using testing::TempFolder;

inline Json folderInfo(const std::string& id = "folder-1") {
    return Json{{"uploadFolderId", id}, {"uploadFolderName", "Scans"}, {"uploadFolderPath", "/Scans"}};
}

// An account that takes part in automatic uploads, with a complete upload folder.
inline std::shared_ptr<VXCloudAccount> account(const std::string& email,
                                                VXCloudService service = VXCloudService::dropbox) {
    auto a = std::make_shared<VXCloudAccount>("id-" + email, email, service);
    a->shouldAutoUpload = true;
    a->onlyWifiUpload = false;
    a->uploadFolderInfo = folderInfo();
    return a;
}

// Every engine test: a private preferences file, Wi-Fi, scripted sessions, a log of the
// notifications, and no upload left holding a slot afterwards.
class EngineTest : public ::testing::Test {
protected:
    void SetUp() override {
        PreferencesStore::setStandardPath(temp.file("preferences.json"));
        Reachability::setOverride(NetworkPath::wifi);
        setCloudSessionFactoryOverride([script = script](const std::shared_ptr<VXCloudAccount>& a)
                                           -> std::shared_ptr<VXCloudSession> {
            if (script->declines(a->email)) return nullptr;
            ++script->sessionsMade;
            return std::make_shared<ScriptedSession>(a, script);
        });
        notifications = std::make_unique<NotificationLog>();
        baselinePending = manager()->pendingTasks().size();
    }
    void TearDown() override {
        // Answer whatever a test left waiting, so the shared queue's slots are free.
        for (const auto& call : script->calls()) {
            const auto operation =
                std::dynamic_pointer_cast<UploadOperation>(call.session->cloudSessionDelegate());
            if (operation && !operation->isFinished()) failUpload(call, ErrorCode::connection);
        }
        EXPECT_TRUE(eventually([] { return uploadQueue()->operationCount() == 0; }));
        DispatchQueue::main()->drain();
        setCloudSessionFactoryOverride(nullptr);
        notifications.reset();
        Reachability::setOverride(std::nullopt);
    }

    static const std::shared_ptr<VXCloudTaskManager>& manager() {
        return VXCloudTaskManager::sharedInstance();
    }
    static const std::shared_ptr<OperationQueue>& uploadQueue() {
        return manager()->uploadOperations().uploadQueue();
    }
    std::string document(const std::string& name = "scan.pdf",
                         const std::string& content = "%PDF-1.4 scanned page") {
        return temp.write(name, content);
    }
    Json upload(const std::string& path, const VXCloudAccountList& accounts,
                const JsonBox& uploadStatus = {}, bool compareLocalHash = false) {
        return manager()->uploadWithFilename("Scan.pdf", path, uploadStatus, true,
                                             Json("doc-1"), accounts, compareLocalHash);
    }
    // The status collection of the i-th notification.
    Json uploadStatusOf(std::size_t i) const {
        return notifications->all().at(i).userInfo->at("uploadStatus");
    }

    TempFolder temp;
    std::shared_ptr<Script> script = std::make_shared<Script>();
    std::unique_ptr<NotificationLog> notifications;
    std::size_t baselinePending = 0;
};

}  // namespace vxcloud::enginetest
