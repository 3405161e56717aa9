#include "RecordKeeper.h"

#include <exception>
#include <nlohmann/json.hpp>

#include "Output.h"
#include "RecordStore.h"
#include "vxcloud/engine/UploadStatus.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/platform/Dispatch.h"

namespace vxcloud::cli {

using namespace uploadstatus;

namespace {

std::string folderKey(const std::string& id, const std::string& type, const std::string& account) {
    return id + '\n' + type + '\n' + account;
}

std::string text(const Json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

}  // namespace

RecordKeeper::RecordKeeper(std::function<RecordStore&()> store) : store_(std::move(store)) {
    // Delivered on the main queue, which the host drives while it waits for outcomes, so
    // the database is only ever touched from the main thread.
    auto& center = NotificationCenter::defaultCenter();
    tokens_.push_back(center.addObserver(VXCloudUploadStatusNotification, DispatchQueue::main(),
                                         [this](const Notification& n) { onUploadStatus(n); }));
    tokens_.push_back(center.addObserver(VXCloudAccountUnlinkedNotification, DispatchQueue::main(),
                                         [this](const Notification& n) { onAccountUnlinked(n); }));
}

RecordKeeper::~RecordKeeper() {
    for (const auto& token : tokens_) NotificationCenter::defaultCenter().removeObserver(token);
}

void RecordKeeper::expectFolder(const std::string& fileIdentifier, const std::string& accountType,
                                const std::string& accountId, const std::string& folderPath) {
    expectedFolders_[folderKey(fileIdentifier, accountType, accountId)] = folderPath;
}

bool RecordKeeper::hasOutcome(const std::string& fileIdentifier) const {
    return arrived_.count(fileIdentifier) > 0;
}

std::vector<Json> RecordKeeper::takeOutcome(const std::string& fileIdentifier) {
    std::vector<Json> out;
    if (auto it = arrived_.find(fileIdentifier); it != arrived_.end()) {
        out = std::move(it->second);
        arrived_.erase(it);
    }
    return out;
}

void RecordKeeper::onUploadStatus(const Notification& notification) {
    if (!notification.userInfo || !notification.userInfo->is_object()) return;
    const Json& info = *notification.userInfo;
    // An upload or rename: one collection for one document.
    if (const auto status = info.find(kUploadStatus); status != info.end() && status->is_object()) {
        const auto id = status->find(kFileIdentifier);
        const auto list = status->find(kUploadStatusResponse);
        if (id != status->end() && id->is_string() && list != status->end() && list->is_array())
            file(id->get<std::string>(), *list);
    }
    // A move: one collection per file.
    if (const auto moves = info.find(kMoveStatus); moves != info.end() && moves->is_array()) {
        for (const auto& entry : *moves) {
            if (!entry.is_object()) continue;
            const auto id = entry.find(kFileIdentifier);
            const auto list = entry.find(kUploadStatusResponse);
            if (id != entry.end() && id->is_string() && list != entry.end() && list->is_array())
                file(id->get<std::string>(), *list);
        }
    }
}

void RecordKeeper::file(const std::string& fileIdentifier, const Json& records) {
    auto& arrived = arrived_[fileIdentifier];
    for (const auto& record : records) arrived.push_back(record);
    try {
        const auto document = store_().documentByIdentifier(fileIdentifier);
        if (!document) return;  // a document this host does not keep (another host's request)
        for (const auto& record : records) {
            std::optional<std::string> folder;
            if (text(record, kStatus) == kSuccessful) {
                const auto it = expectedFolders_.find(
                    folderKey(fileIdentifier, text(record, kAccountType), text(record, kAccountId)));
                if (it != expectedFolders_.end()) folder = it->second;
            }
            store_().mergeRecord(document->id, record, folder);
        }
    } catch (const std::exception& e) {
        problems_.push_back(e.what());
        warn(std::string("the outcome could not be recorded: ") + e.what());
    }
}

void RecordKeeper::onAccountUnlinked(const Notification& notification) {
    if (!notification.userInfo || !notification.userInfo->is_object()) return;
    const auto account = notification.userInfo->find("account");
    if (account == notification.userInfo->end()) return;
    const auto unlinked = VXCloudAccount::initWithDictionary(*account);
    if (!unlinked) return;
    try {
        store_().removeAccountRecords(unlinked->accountType(), unlinked->email);
    } catch (const std::exception& e) {
        problems_.push_back(e.what());
        warn(std::string("the unlinked account's records could not be removed: ") + e.what());
    }
}

}  // namespace vxcloud::cli
