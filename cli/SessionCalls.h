#pragma once
// The session operations the screens use (list folders, create a folder, write the settings
// document, read it back), each waited for while the main queue keeps running.
// Every call gives up after its time-out instead of waiting for an answer forever.
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::cli {

inline constexpr std::chrono::seconds kSessionTimeout{120};

struct SessionOutcome {
    bool answered = false;  // false: no answer within the time-out
    std::shared_ptr<VXCloudFile> file;
    VXCloudFileList folders;
    std::shared_ptr<VXCloudError> error;

    bool ok() const { return answered && !error; }
};

// The first answer of a completion callback, waited for while the main queue runs.
template <typename T>
class Answer {
public:
    void deliver(T value) {
        {
            std::lock_guard lock(mutex_);
            if (value_) return;  // only the first answer counts
            value_ = std::move(value);
        }
        DispatchQueue::main()->async([] {});  // wakes the waiting caller at once
    }
    bool arrived() const {
        std::lock_guard lock(mutex_);
        return value_.has_value();
    }
    std::optional<T> wait(std::chrono::milliseconds timeout) {
        DispatchQueue::main()->runUntil([this] { return arrived(); }, timeout);
        std::lock_guard lock(mutex_);
        return value_;
    }

private:
    mutable std::mutex mutex_;
    std::optional<T> value_;
};

// Takes the first outcome of one operation. Sessions answer on their own threads; the
// outcome is handed to the main queue, which the waiting caller is driving.
class OutcomeCatcher : public VXCloudSessionDelegate {
public:
    void cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList& folders,
                                    const std::shared_ptr<VXCloudFile>& parent) override;
    void cloudSessionLoadFoldersFailedWithError(const std::shared_ptr<VXCloudSession>&,
                                                const std::shared_ptr<VXCloudError>& error) override;
    void cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>& file) override;
    void cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>& file,
                                         const std::shared_ptr<VXCloudError>& error) override;
    void cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>& file) override;
    void cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>& file,
                                         const std::shared_ptr<VXCloudError>& error) override;
    void cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList& moved,
                                  const VXCloudFileList&) override;

    void deliver(SessionOutcome outcome);
    bool arrived() const { return answer_.arrived(); }
    SessionOutcome wait(std::chrono::milliseconds timeout) { return answer_.wait(timeout).value_or(SessionOutcome{}); }

private:
    static SessionOutcome failure(const std::shared_ptr<VXCloudFile>& file, const std::shared_ptr<VXCloudError>& error);

    Answer<SessionOutcome> answer_;
};

SessionOutcome loadFolders(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& folder,
                           std::chrono::milliseconds timeout = kSessionTimeout);
SessionOutcome createFolder(const std::shared_ptr<VXCloudSession>& session, const std::string& name,
                            const std::shared_ptr<VXCloudFile>& parent,
                            std::chrono::milliseconds timeout = kSessionTimeout);
SessionOutcome uploadFile(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file,
                          const std::shared_ptr<VXCloudFile>& parent, bool overwrite,
                          std::chrono::milliseconds timeout = kSessionTimeout);
SessionOutcome downloadSettings(const std::shared_ptr<VXCloudSession>& session,
                                std::chrono::milliseconds timeout = kSessionTimeout);

// Starts a call of the component that answers through a completion on the main queue and
// runs the main queue until it has answered; nothing when it did not within the time-out.
template <typename T>
std::optional<T> awaitCompletion(const std::function<void(std::function<void(T)>)>& start,
                                 std::chrono::milliseconds timeout = kSessionTimeout + std::chrono::seconds(10));

// The text a person reads for an error code (the component's own texts where it has one).
std::string errorText(ErrorCode code);

}  // namespace vxcloud::cli
