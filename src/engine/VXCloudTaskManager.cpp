#include "vxcloud/engine/VXCloudTaskManager.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "engine/TaskSupport.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/ByteBuffer.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {
namespace {

constexpr const char* kCategory = "task-manager";

// The last path component, as a file URL's would be: trailing slashes do not count.
std::string lastPathComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    const auto slash = path.rfind('/');
    return std::string(slash == std::string_view::npos || path.size() == 1 ? path
                                                                           : path.substr(slash + 1));
}

}  // namespace

const std::shared_ptr<VXCloudTaskManager>& VXCloudTaskManager::sharedInstance() {
    // Never destroyed: tasks and queue workers may use it until the process ends.
    static const auto* const instance =
        new std::shared_ptr<VXCloudTaskManager>(new VXCloudTaskManager());
    return *instance;
}

VXCloudTaskManager::VXCloudTaskManager()
    : serialQueue_(SerialQueue::create("com.VXCloudTaskManager.SerialQueue")) {}

VXCloudTaskManager::~VXCloudTaskManager() = default;

std::shared_ptr<VXCloudTask> VXCloudTaskManager::makePendingTask() {
    auto task = VXCloudTask::create();
    task->setCloudTaskDelegate(weak_from_this());
    // Not waited for: the task may start before it is in the list.
    serialQueue_->async([this, task] { pendingTasks_.push_back(task); });
    return task;
}

void VXCloudTaskManager::taskDidFinish(const std::shared_ptr<VXCloudTask>& task) {
    if (!task) return;
    serialQueue_->async([this, raw = task.get()] {
        std::erase_if(pendingTasks_, [raw](const auto& pending) { return pending.get() == raw; });
    });
}

std::vector<std::shared_ptr<VXCloudTask>> VXCloudTaskManager::pendingTasks() const {
    std::vector<std::shared_ptr<VXCloudTask>> snapshot;
    serialQueue_->sync([&] { snapshot = pendingTasks_; });
    return snapshot;
}

Json VXCloudTaskManager::uploadWithPdfPath(const std::string& pdfPath, const JsonBox& uploadStatus,
                                           bool overwriteExistingFile, const JsonBox& fileIdentifier,
                                           const std::optional<VXCloudAccountList>& toCloudAccounts,
                                           bool compareLocalHash) {
    return uploadWithFilename(lastPathComponent(pdfPath), pdfPath, uploadStatus,
                              overwriteExistingFile, fileIdentifier, toCloudAccounts,
                              compareLocalHash);
}

Json VXCloudTaskManager::uploadWithFilename(const std::string& filename, const std::string& pdfPath,
                                            const JsonBox& uploadStatus, bool overwriteExistingFile,
                                            const JsonBox& fileIdentifier,
                                            const std::optional<VXCloudAccountList>& toCloudAccounts,
                                            bool compareLocalHash) {
    Json result = Json::array();
    task::guarded("an upload request", [&] {
        // Mapped once; every account's file record and request share these bytes.
        std::string reason;
        std::optional<ByteBuffer> data = ByteBuffer::mapFile(pdfPath, &reason);
        if (!data) log::warning(kCategory, "cannot read the document to upload: " + reason);
        auto task = makePendingTask();
        result = task->upload(filename, data, uploadStatus, overwriteExistingFile, fileIdentifier,
                              toCloudAccounts, compareLocalHash);
    });
    return result;
}

std::int64_t VXCloudTaskManager::manualUploadWithFiles(
    const VXCloudFileList& files, bool overwriteExistingFile,
    const std::shared_ptr<VXCloudAccount>& account,
    const std::shared_ptr<VXCloudSessionDelegate>& cloudSessionDelegate,
    const std::shared_ptr<VXCloudProgressDelegate>& progressDelegate) {
    std::int64_t total = 0;
    task::guarded("a manual upload request", [&] {
        auto task = makePendingTask();
        if (!account) return;  // nothing could be sent anywhere
        for (const auto& file : files) {
            if (!file || !file->fileData || !file->uploadFolder) continue;
            total += static_cast<std::int64_t>(file->fileData->size());
            DispatchQueue::global()->async([task, file, overwriteExistingFile, account,
                                            cloudSessionDelegate, progressDelegate] {
                task->manualUpload(file, overwriteExistingFile, account, cloudSessionDelegate,
                                   progressDelegate);
            });
        }
    });
    return total;
}

Json VXCloudTaskManager::renameWithNewFilename(const std::string& newFilename,
                                               const JsonBox& uploadStatus,
                                               bool overwriteExistingFile,
                                               const JsonBox& fileIdentifier,
                                               const std::optional<VXCloudAccountList>& toCloudAccounts,
                                               CreatePDFBlock createPDFBlock) {
    Json result = Json::array();
    task::guarded("a rename request", [&] {
        result = makePendingTask()->rename(newFilename, uploadStatus, overwriteExistingFile,
                                           std::move(createPDFBlock), fileIdentifier,
                                           toCloudAccounts);
    });
    return result;
}

Json VXCloudTaskManager::moveWithCloudFiles(const VXCloudFileList& cloudFiles,
                                            const std::shared_ptr<VXCloudFile>& fromFolder,
                                            const std::shared_ptr<VXCloudFile>& toFolder,
                                            const std::shared_ptr<VXCloudAccount>& account) {
    Json result = Json::array();
    task::guarded("a move request", [&] {
        result = makePendingTask()->move(cloudFiles, fromFolder, toFolder, account);
    });
    return result;
}

}  // namespace vxcloud
