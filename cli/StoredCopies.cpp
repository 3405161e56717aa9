#include "StoredCopies.h"

#include "CliError.h"
#include "FolderPicker.h"
#include "Accounts.h"
#include "vxcloud/engine/UploadStatus.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/model/VXCloudOneDriveVersion.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud::cli {

using namespace uploadstatus;

namespace {

const RecordRow* rowFor(const std::vector<RecordRow>& rows, const VXCloudAccount& account) {
    for (const auto& row : rows) {
        if (row.accountType == account.accountType() && row.accountId == account.email) return &row;
    }
    return nullptr;
}

bool successful(const Json& record) {
    return record.is_object() && record.value(kStatus, "") == kSuccessful;
}

}  // namespace

std::vector<std::shared_ptr<VXCloudAccount>> atStoredFolders(const std::vector<std::shared_ptr<VXCloudAccount>>& accounts,
                                                             const std::vector<RecordRow>& rows) {
    std::vector<std::shared_ptr<VXCloudAccount>> out;
    for (const auto& account : accounts) {
        const RecordRow* row = rowFor(rows, *account);
        const auto current = uploadFolderPath(*account);
        if (!row || !successful(row->record) || !row->folderPath || (current && *current == *row->folderPath)) {
            out.push_back(account);
            continue;
        }
        try {
            const PickedFolder stored = resolveFolderPath(initCloudSession(account), *row->folderPath, false);
            auto there = std::make_shared<VXCloudAccount>(*account);
            there->uploadFolderInfo = stored.uploadFolderInfo();
            out.push_back(std::move(there));
        } catch (const CliError& e) {
            // Gone: the document goes to the upload folder again.
            log::info("cli", accountLabel(*account) + ": the stored copy's folder " + *row->folderPath +
                                 " is not there (" + e.what() + ")");
            out.push_back(account);
        }
    }
    return out;
}

bool changedSinceStored(const VXCloudAccount& account, const Json& record, const ByteBuffer& data) {
    if (!successful(record)) return false;
    const std::string stored = record.value(kVersion, "");
    if (stored.empty()) return false;
    const auto local = VXCloudFileHasher::hash(data, account.cloudService);
    if (!local || local->empty()) return false;
    if (account.cloudService == VXCloudService::oneDrive) return !VXCloudOneDriveVersion::parse(*local).matches(stored);
    if (local->size() != stored.size()) return true;
    for (std::size_t i = 0; i < stored.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>((*local)[i])) != std::tolower(static_cast<unsigned char>(stored[i]))) {
            return true;
        }
    }
    return false;
}

}  // namespace vxcloud::cli
