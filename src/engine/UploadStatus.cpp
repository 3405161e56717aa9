#include "vxcloud/engine/UploadStatus.h"

#include <utility>

#include "engine/UploadStatusRecords.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/NotificationCenter.h"

namespace vxcloud {

using namespace uploadstatus;

Json configureUploadStatusDict(const VXCloudAccount& cloudAccount) {
    return Json{
        {kAccountId, cloudAccount.email},
        {kAccountType, cloudAccount.accountType()},
        {kNeedsRenameUpdate, false},
    };
}

Json getErrorStatus(const VXCloudAccount& account, const VXCloudError& cloudError) {
    const std::string word = cloudError.getErrorCode();
    return Json{
        {kAccountId, account.email},
        {kAccountType, account.accountType()},
        {kNeedsRenameUpdate, cloudError.errorCode == ErrorCode::renameFailed},
        {kError, word},
        {kStatus, kStatusError},
        {kNeedsUpdate, true},
    };
}

void postUploadStatusNotification(std::shared_ptr<void> sender, const Json& uploadStatus) {
    NotificationCenter::defaultCenter().post(VXCloudUploadStatusNotification, std::move(sender),
                                             Json{{kUploadStatus, uploadStatus}});
}

namespace records {

Json pendingUpload(const VXCloudAccount& account) {
    return Json{
        {kAccountId, account.email},
        {kAccountType, account.accountType()},
        {kNeedsUpdate, true},
        {kStatus, kPending},
    };
}

Json pendingRename(const VXCloudAccount& account) {
    return Json{
        {kAccountType, account.accountType()},
        {kAccountId, account.email},
        {kNeedsRenameUpdate, true},
        {kStatus, kPending},
    };
}

Json noSession(const VXCloudAccount& account) {
    Json record = configureUploadStatusDict(account);
    record[kError] = VXCloudError::rawValue(ErrorCode::authentication);
    record[kStatus] = kStatusError;
    record[kNeedsUpdate] = true;
    return record;
}

Json outcome(const VXCloudAccount& account, const VXCloudFile* file, const VXCloudError* error) {
    Json record = configureUploadStatusDict(account);
    if (file) {
        record[kDocumentId] = file->name;
        if (file->contentSent) record[kContentSent] = *file->contentSent;
        if (file->version) record[kVersion] = *file->version;
        else record.erase(kVersion);
        record[kNeedsUpdate] = false;
        record[kStatus] = kSuccessful;
        record[kError] = "";
    }
    // A failure overrides the success fields but keeps the name and version the session
    // returned.
    if (error) {
        record[kError] = error->getErrorCode();
        record[kStatus] = kStatusError;
        record[kNeedsUpdate] = true;
        if (error->retryAfterSeconds) record[kRetryAfter] = *error->retryAfterSeconds;
        record.erase(kContentSent);
    }
    return record;
}

Json moveOutcome(const VXCloudFile& file, bool moved) {
    Json record{
        {kDocumentId, file.name},
        {kNeedsUpdate, !moved},
        {kStatus, moved ? kSuccessful : kStatusError},
        {kError, moved ? "" : VXCloudError::rawValue(ErrorCode::fileUpload)},
    };
    if (file.fileUploadStatus) return merge(*file.fileUploadStatus, record);
    return record;
}

const Json* find(const JsonBox& list, const VXCloudAccount& account, bool withDocumentId) {
    if (!list || !list->is_array()) return nullptr;
    const std::string type = account.accountType();
    for (const Json& record : *list) {
        if (!record.is_object()) continue;
        const auto id = record.find(kAccountId);
        const auto accountType = record.find(kAccountType);
        if (id == record.end() || accountType == record.end()) continue;
        if (!id->is_string() || *id != account.email) continue;
        if (!accountType->is_string() || *accountType != type) continue;
        if (withDocumentId) {
            const auto documentId = record.find(kDocumentId);
            if (documentId == record.end() || !documentId->is_string()) continue;
        }
        return &record;
    }
    return nullptr;
}

Json merge(const Json& older, const Json& newer) {
    if (!older.is_object() || !newer.is_object()) return newer;
    Json merged = older;
    for (const auto& [key, value] : newer.items()) {
        if (value.is_null()) merged.erase(key);
        else merged[key] = value;
    }
    return merged;
}

}  // namespace records
}  // namespace vxcloud
