#include "SessionCalls.h"

#include "vxcloud/engine/VXCloudAccountActions.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/platform/Dispatch.h"

namespace vxcloud::cli {

namespace {

template <typename Start>
SessionOutcome run(const std::shared_ptr<VXCloudSession>& session, std::chrono::milliseconds timeout, Start&& start) {
    if (!session) {
        SessionOutcome o;
        o.answered = true;
        o.error = std::make_shared<VXCloudError>(ErrorCode::authentication);
        return o;
    }
    // The session holds its delegate weakly; the catcher lives until the answer (or the
    // time-out), and a late answer after that finds no delegate.
    auto catcher = std::make_shared<OutcomeCatcher>();
    session->setCloudSessionDelegate(catcher);
    start();
    return catcher->wait(timeout);
}

}  // namespace

void OutcomeCatcher::cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList& folders,
                                                const std::shared_ptr<VXCloudFile>& parent) {
    SessionOutcome o;
    o.folders = folders;
    o.file = parent;
    deliver(std::move(o));
}

void OutcomeCatcher::cloudSessionLoadFoldersFailedWithError(const std::shared_ptr<VXCloudSession>&,
                                                            const std::shared_ptr<VXCloudError>& error) {
    deliver(failure(nullptr, error));
}

void OutcomeCatcher::cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>&,
                                               const std::shared_ptr<VXCloudFile>& file) {
    SessionOutcome o;
    o.file = file;
    deliver(std::move(o));
}

void OutcomeCatcher::cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>&,
                                                     const std::shared_ptr<VXCloudFile>& file,
                                                     const std::shared_ptr<VXCloudError>& error) {
    deliver(failure(file, error));
}

void OutcomeCatcher::cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>&,
                                               const std::shared_ptr<VXCloudFile>& file) {
    SessionOutcome o;
    o.file = file;
    deliver(std::move(o));
}

void OutcomeCatcher::cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>&,
                                                     const std::shared_ptr<VXCloudFile>& file,
                                                     const std::shared_ptr<VXCloudError>& error) {
    deliver(failure(file, error));
}

void OutcomeCatcher::cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList& moved,
                                              const VXCloudFileList&) {
    SessionOutcome o;
    o.folders = moved;
    deliver(std::move(o));
}

void OutcomeCatcher::deliver(SessionOutcome outcome) {
    outcome.answered = true;
    answer_.deliver(std::move(outcome));
}

SessionOutcome OutcomeCatcher::failure(const std::shared_ptr<VXCloudFile>& file, const std::shared_ptr<VXCloudError>& error) {
    SessionOutcome o;
    o.file = file;
    o.error = error ? error : std::make_shared<VXCloudError>(ErrorCode::fileUpload);
    return o;
}

SessionOutcome loadFolders(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& folder,
                           std::chrono::milliseconds timeout) {
    return run(session, timeout, [&] { session->loadFoldersInFolder(folder); });
}

SessionOutcome createFolder(const std::shared_ptr<VXCloudSession>& session, const std::string& name,
                            const std::shared_ptr<VXCloudFile>& parent, std::chrono::milliseconds timeout) {
    auto folder = std::make_shared<VXCloudFile>(name, true, false);
    return run(session, timeout, [&] { session->uploadWithCloudFile(folder, parent, false); });
}

SessionOutcome uploadFile(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file,
                          const std::shared_ptr<VXCloudFile>& parent, bool overwrite, std::chrono::milliseconds timeout) {
    return run(session, timeout, [&] { session->uploadWithCloudFile(file, parent, overwrite); });
}

SessionOutcome downloadSettings(const std::shared_ptr<VXCloudSession>& session, std::chrono::milliseconds timeout) {
    if (!session) return run(session, timeout, [] {});
    auto answer = std::make_shared<Answer<SessionOutcome>>();
    session->downloadSettingsFileWithCompletionHandler(
        [answer](std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudError> error) {
            SessionOutcome o;
            o.answered = true;
            o.file = std::move(file);
            o.error = std::move(error);
            answer->deliver(std::move(o));
        });
    return answer->wait(timeout).value_or(SessionOutcome{});
}

template <typename T>
std::optional<T> awaitCompletion(const std::function<void(std::function<void(T)>)>& start,
                                 std::chrono::milliseconds timeout) {
    auto answer = std::make_shared<Answer<T>>();
    start([answer](T value) { answer->deliver(std::move(value)); });
    return answer->wait(timeout);
}

// The component's calls the screens wait for.
template std::optional<VXCloudUploadFolderChange> awaitCompletion(
    const std::function<void(std::function<void(VXCloudUploadFolderChange)>)>&, std::chrono::milliseconds);
template std::optional<VXCloudUnlinkOutcome> awaitCompletion(
    const std::function<void(std::function<void(VXCloudUnlinkOutcome)>)>&, std::chrono::milliseconds);

std::string errorText(ErrorCode code) {
    switch (code) {
        case ErrorCode::authentication: return VXCloudString::AUTHENTICATION_ERROR();
        case ErrorCode::connection: return VXCloudString::DOCUMENT_UPLOAD_FAILED_CONNECTION();
        case ErrorCode::fileConflict: return VXCloudString::DOCUMENT_UPLOAD_CONFLICT_ERROR();
        case ErrorCode::fileUpload: return VXCloudString::DOCUMENT_ERROR_FILE_UPLOAD();
        case ErrorCode::monthlyQuotaReached:
        case ErrorCode::storageQuotaReached: return VXCloudString::STORAGE_QUOTA_REACHED();
        case ErrorCode::missingFolder: return VXCloudString::DOCUMENT_ERROR_FOLDER();
        case ErrorCode::renameFailed: return VXCloudString::DOCUMENT_RENAME_ERROR();
    }
    return VXCloudString::GENERIC_ERROR();
}

}  // namespace vxcloud::cli
