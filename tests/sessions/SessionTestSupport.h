#pragma once
// What the session tests share: a delegate that records every callback, a driver that runs
// a session's operations to their outcomes, and the documents they send.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/TempFolder.h"
#include "support/Waiting.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/PlatformError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::testing {

using namespace std::chrono_literals;

struct SessionEvent {
    enum class Kind { didLoadFolders, loadFoldersFailed, didUpload, uploadFailed, didRename, renameFailed, didMove };
    Kind kind = Kind::didUpload;
    std::shared_ptr<VXCloudSession> session;
    std::shared_ptr<VXCloudFile> file;     // upload and rename outcomes
    VXCloudFileList files;                 // folders listed, or files moved
    VXCloudFileList notMoved;
    std::shared_ptr<VXCloudFile> parent;   // the listed folder
    std::shared_ptr<VXCloudError> error;   // failure outcomes

    ErrorCode code() const { return error ? error->errorCode : ErrorCode::fileUpload; }
};

std::string describe(const SessionEvent& event);

// Whether the outcome is a failure of that kind with that error code; told with the
// outcome that came instead.
::testing::AssertionResult failedWith(const SessionEvent& event, SessionEvent::Kind kind, ErrorCode code);
// Whether there is an error and it carries that code.
::testing::AssertionResult hasErrorCode(const std::shared_ptr<VXCloudError>& error, ErrorCode code);

// Records outcome callbacks and progress reports, from whatever thread they arrive on.
class RecordingDelegate : public VXCloudSessionDelegate, public VXCloudProgressDelegate {
public:
    void cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>& session, const VXCloudFileList& folders,
                                    const std::shared_ptr<VXCloudFile>& inParentFolder) override;
    void cloudSessionLoadFoldersFailedWithError(const std::shared_ptr<VXCloudSession>& session,
                                                const std::shared_ptr<VXCloudError>& error) override;
    void cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>& session,
                                   const std::shared_ptr<VXCloudFile>& file) override;
    void cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                         const std::shared_ptr<VXCloudFile>& file,
                                         const std::shared_ptr<VXCloudError>& withError) override;
    void cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>& session,
                                   const std::shared_ptr<VXCloudFile>& file) override;
    void cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                         const std::shared_ptr<VXCloudFile>& file,
                                         const std::shared_ptr<VXCloudError>& withError) override;
    void cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>& session, const VXCloudFileList& files,
                                  const VXCloudFileList& errorMovingFiles) override;
    void cloudSessionCurrentUploadedBytes(const std::shared_ptr<VXCloudSession>& session,
                                          std::int64_t currentUploadedBytes, std::int64_t expectedTotalBytes) override;

    std::vector<SessionEvent> events() const;
    std::vector<std::pair<std::int64_t, std::int64_t>> progress() const;
    std::int64_t progressSum() const;
    // Waits until at least `count` outcomes have arrived.
    bool waitForEvents(std::size_t count, std::chrono::milliseconds timeout = 20s) const;
    // The single outcome of one operation: waits for it, then a little longer to catch a
    // second one. Fails the test when there is none or more than one.
    SessionEvent expectOneOutcome(std::chrono::milliseconds timeout = 20s) const;
    void clear();

private:
    void record(SessionEvent event);

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<SessionEvent> events_;
    std::vector<std::pair<std::int64_t, std::int64_t>> progress_;
};

// Collects the one answer of a completion-handler operation.
template <typename... Args>
class CompletionProbe {
public:
    std::function<void(Args...)> handler() {
        return [this](Args... args) {
            std::lock_guard lock(mutex_);
            calls_.emplace_back(std::move(args)...);
            changed_.notify_all();
        };
    }
    bool wait(std::chrono::milliseconds timeout = 20s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return !calls_.empty(); });
    }
    std::size_t count() {
        std::lock_guard lock(mutex_);
        return calls_.size();
    }
    std::tuple<Args...> first() {
        std::lock_guard lock(mutex_);
        return calls_.front();
    }
    // The first answer; empty values, and a test failure naming `what`, when none comes.
    std::tuple<Args...> answer(const std::string& what, std::chrono::milliseconds timeout = 20s) {
        if (wait(timeout)) return first();
        ADD_FAILURE() << "no answer to " << what;
        return {};
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::tuple<Args...>> calls_;
};

// Runs a session's operations one at a time, each to its single outcome, through one
// recording delegate that stays with the test across the sessions it makes.
template <typename Session = VXCloudSession>
class SessionDriver {
public:
    using Settings = std::tuple<std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>>;
    using Unlinked = std::tuple<std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>>;

    // A session that holds its delegates strongly (OneNote's) would otherwise keep itself
    // alive through the recorded events, which hold the session.
    ~SessionDriver() { delegate_->clear(); }

    // Drives `session` from now on; false when there is none.
    bool drive(std::shared_ptr<Session> session) {
        session_ = std::move(session);
        if (!session_) return false;
        session_->setCloudSessionDelegate(delegate_);
        session_->setCloudSessionProgressDelegate(delegate_);
        return true;
    }

    SessionEvent upload(const std::shared_ptr<VXCloudFile>& file, const std::shared_ptr<VXCloudFile>& parent,
                        bool overwrite) {
        return outcome([&] { session_->uploadWithCloudFile(file, parent, overwrite); });
    }
    // Without a block the host has no PDF to give.
    SessionEvent rename(const std::shared_ptr<VXCloudFile>& file, const std::string& newName,
                        const std::shared_ptr<VXCloudFile>& parent, bool overwrite = false,
                        CreatePDFBlock block = {}) {
        if (!block) block = [] { return std::nullopt; };
        return outcome([&] { session_->renameWithCloudFile(file, newName, parent, overwrite, block); });
    }
    SessionEvent move(const VXCloudFileList& files, const std::shared_ptr<VXCloudFile>& from,
                      const std::shared_ptr<VXCloudFile>& to) {
        return outcome([&] { session_->moveWithCloudFiles(files, from, to); });
    }
    SessionEvent loadFolders(const std::shared_ptr<VXCloudFile>& folder) {
        return outcome([&] { session_->loadFoldersInFolder(folder); });
    }
    // The answers of the completion-handler operations; empty values, and a test failure,
    // when none comes.
    Settings settings() {
        CompletionProbe<std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>> probe;
        session_->downloadSettingsFileWithCompletionHandler(probe.handler());
        return probe.answer("the settings download");
    }
    bool isAuthorized() {
        CompletionProbe<bool> probe;
        session_->isAuthorizedWithCompletion(probe.handler());
        return std::get<0>(probe.answer("isAuthorized"));
    }
    Unlinked removeAuthorization() {
        CompletionProbe<std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>> probe;
        session_->removeAuthorizationWithCompletion(probe.handler());
        return probe.answer("removeAuthorization");
    }

protected:
    // Starts one operation with the delegate's record cleared and waits for its outcome.
    SessionEvent outcome(const std::function<void()>& start) {
        delegate_->clear();
        start();
        return delegate_->expectOneOutcome();
    }

    std::shared_ptr<Session> session_;
    std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
};

// The text with ASCII letters in upper case (hashes compare ignoring letter case).
std::string upperCase(std::string text);

// A document of `size` bytes that differs with `seed`.
std::string documentBytes(std::size_t size, unsigned seed);

// Whether the stored bytes are `expected`, told briefly (sizes, first difference) when not:
// documents are too large to print.
::testing::AssertionResult sameBytes(const std::optional<std::string>& stored, const std::string& expected);

// A new document record holding `bytes`, as the engine makes it for a first upload.
std::shared_ptr<VXCloudFile> makeDocument(const std::string& name, const std::string& bytes);
// The record the engine makes for a document stored before under `documentId`: the earlier
// upload status, and the local content's fingerprint when given.
std::shared_ptr<VXCloudFile> makeStoredDocument(const VXCloudAccount& account, const std::string& documentId,
                                                const std::optional<std::string>& version,
                                                const std::string& bytes,
                                                const std::optional<std::string>& localVersion);

}  // namespace vxcloud::testing
