// Move: one batch job for all files, polled until it is done.
#include <thread>

#include "sessions/DropboxSession.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace dropbox_session;

namespace {

// A moved file is recognised by its stored name (or id) and its content hash, both as the
// upload status recorded them; two absent hashes are equal.
bool movedAs(const VXCloudFile& file, const dropbox::Metadata& entry) {
    if (entry.tag != dropbox::Metadata::Tag::file) return false;
    const std::string documentId = file.getNameFromUploadStatus();
    const bool sameDocument = entry.name == documentId || (entry.id && *entry.id == documentId);
    return sameDocument && entry.contentHash == file.getVersionFromUploadStatus();
}

}  // namespace

void DropboxSession::moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> fromFolder,
                                        std::shared_ptr<VXCloudFile> toFolder) {
    auto ifItThrows = sessions::report::moveFails(self(), files);
    runInBackground(std::move(ifItThrows),
        [this, files = std::move(files), from = std::move(fromFolder), to = std::move(toFolder)] {
            std::vector<dropbox::RelocationPath> pairs;
            for (const auto& file : files) {
                if (!file) continue;
                const std::string name = file->getNameFromUploadStatus();
                pairs.push_back({folderPrefix(from) + name, folderPrefix(to) + name});
            }
            if (pairs.empty()) return reportMoved({}, files);
            auto launch = client_->moveBatchV2(pairs);
            if (launch.ok() && launch.value().asyncJobId) return pollMoveStatus(*launch.value().asyncJobId, files);
            // A failed launch, and equally a batch the service finished at once, counts as
            // not moved.
            reportMoved({}, files);
        },
        /*backgroundPriority=*/true);
}

void DropboxSession::pollMoveStatus(const std::string& jobId, const VXCloudFileList& forCloudFiles) {
    // Runs on a background thread and sleeps there between looks, without a limit: a job
    // the service keeps running is waited for.
    for (;;) {
        auto status = client_->moveBatchCheckV2(jobId);
        if (!status.ok()) return reportMoved({}, forCloudFiles);
        switch (status.value().state) {
            case dropbox::MoveBatchJobStatus::State::inProgress:
                std::this_thread::sleep_for(movePollInterval_);
                continue;
            case dropbox::MoveBatchJobStatus::State::failed: return reportMoved({}, forCloudFiles);
            case dropbox::MoveBatchJobStatus::State::complete: break;
        }
        VXCloudFileList moved;
        VXCloudFileList notMoved;
        for (const auto& file : forCloudFiles) {
            bool found = false;
            if (file) {
                for (const auto& entry : status.value().entries) {
                    if (entry.success && movedAs(*file, *entry.success)) {
                        found = true;
                        break;
                    }
                }
            }
            (found ? moved : notMoved).push_back(file);
        }
        return reportMoved(moved, notMoved);
    }
}

}  // namespace vxcloud
