#pragma once
// The host's side of the component's notifications: every "VXCloudUploadStatusNotification"
// updates the records of the documents it names, and "VXCloudAccountUnlinkedNotification"
// forgets an unlinked account's copies. Requests under way wait here for their outcomes.
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/platform/Json.h"
#include "vxcloud/platform/NotificationCenter.h"

namespace vxcloud::cli {

class RecordStore;

class RecordKeeper {
public:
    explicit RecordKeeper(std::function<RecordStore&()> store);
    ~RecordKeeper();
    RecordKeeper(const RecordKeeper&) = delete;
    RecordKeeper& operator=(const RecordKeeper&) = delete;

    // Where a successful outcome for (document, account) leaves the document: the account's
    // upload folder for uploads and renames, the target folder for moves.
    void expectFolder(const std::string& fileIdentifier, const std::string& accountType, const std::string& accountId,
                      const std::string& folderPath);

    // The records that arrived for a document since the last take, in arrival order.
    bool hasOutcome(const std::string& fileIdentifier) const;
    std::vector<Json> takeOutcome(const std::string& fileIdentifier);

    // Records of notifications that could not be written (the database refused).
    const std::vector<std::string>& problems() const { return problems_; }

private:
    void onUploadStatus(const Notification& notification);
    void onAccountUnlinked(const Notification& notification);
    void file(const std::string& fileIdentifier, const Json& records);

    std::function<RecordStore&()> store_;
    std::vector<NotificationCenter::ObserverToken> tokens_;
    std::map<std::string, std::vector<Json>> arrived_;
    std::map<std::string, std::string> expectedFolders_;  // identifier|type|id -> folder
    std::vector<std::string> problems_;
};

}  // namespace vxcloud::cli
