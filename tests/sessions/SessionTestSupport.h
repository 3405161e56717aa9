#pragma once
// What the session tests share: a delegate that records every callback, and stores kept in
// a temporary folder for the length of one test.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/IsolatedStores.h"
#include "support/Waiting.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudError.h"
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

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::tuple<Args...>> calls_;
};

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
