#include "vxcloud/engine/UploadOperation.h"

#include <cstdlib>
#include <exception>
#include <utility>

#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {
namespace {

constexpr const char* kCategory = "upload-queue";

}  // namespace

const std::shared_ptr<OperationQueue>& UploadOperations::uploadQueue() {
    // The queue gets the literal limit; keep it equal to MAX_CONCURRENT_UPLOADS.
    std::call_once(once_, [this] { uploadQueue_ = std::make_shared<OperationQueue>("Upload Task Queue", 4); });
    return uploadQueue_;
}

static_assert(UploadOperations::MAX_CONCURRENT_UPLOADS == 4);

UploadOperation::UploadOperation(std::shared_ptr<VXCloudSession> session,
                                 std::shared_ptr<VXCloudSessionDelegate> sessionDelegate,
                                 std::shared_ptr<VXCloudFile> cloudFile,
                                 std::shared_ptr<VXCloudFile> parentFolder, bool overwriteExistingFile)
    : sessionDelegate_(std::move(sessionDelegate)), cloudFile_(std::move(cloudFile)),
      parentFolder_(std::move(parentFolder)), overwriteExistingFile_(overwriteExistingFile),
      session_(std::move(session)) {
    if (!session_ || !sessionDelegate_ || !cloudFile_ || !parentFolder_) {
        log::error(kCategory, "an upload operation needs a session, a delegate, a file and a folder");
        std::abort();
    }
}

UploadOperation::~UploadOperation() = default;

std::shared_ptr<VXCloudSession> UploadOperation::session() const {
    std::lock_guard lock(sessionMutex_);
    return session_;
}

void UploadOperation::start() {
    setExecuting(true);
    // Held here for the call: the outcome may arrive, and let go of session_, before
    // uploadWithCloudFile returns.
    const auto session = this->session();
    if (!session) return;
    try {
        session->setCloudSessionDelegate(
            std::static_pointer_cast<UploadOperation>(shared_from_this()));
        session->uploadWithCloudFile(cloudFile_, parentFolder_, overwriteExistingFile_);
    } catch (const std::exception& e) {
        // A session that throws will never report; report for it so the slot and the
        // task's count are given back.
        log::error(kCategory, std::string("the session's upload threw: ") + e.what());
        cloudSessionUploadFailedForFile(session, cloudFile_,
                                        std::make_shared<VXCloudError>(ErrorCode::fileUpload));
    } catch (...) {
        log::error(kCategory, "the session's upload threw");
        cloudSessionUploadFailedForFile(session, cloudFile_,
                                        std::make_shared<VXCloudError>(ErrorCode::fileUpload));
    }
}

void UploadOperation::cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>& session,
                                                const std::shared_ptr<VXCloudFile>& file) {
    finishAfter([&](VXCloudSessionDelegate& d) { d.cloudSessionDidUploadFile(session, file); });
}

void UploadOperation::cloudSessionUploadFailedForFile(
    const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file,
    const std::shared_ptr<VXCloudError>& withError) {
    finishAfter([&](VXCloudSessionDelegate& d) {
        d.cloudSessionUploadFailedForFile(session, file, withError);
    });
}

void UploadOperation::finishAfter(const std::function<void(VXCloudSessionDelegate&)>& forward) {
    // The queue may drop its reference when the flags change; stay alive until done.
    const auto self = shared_from_this();
    try {
        forward(*sessionDelegate_);
    } catch (const std::exception& e) {
        log::error(kCategory, std::string("the upload outcome's receiver threw: ") + e.what());
    } catch (...) {
        log::error(kCategory, "the upload outcome's receiver threw");
    }
    std::shared_ptr<VXCloudSession> released;
    {
        std::lock_guard lock(sessionMutex_);
        released.swap(session_);
    }
    setExecuting(false);
    setFinished(true);
}

}  // namespace vxcloud
