#pragma once
// The host's side of an upload through the engine, end to end: the network seen as Wi-Fi,
// the document written to a file and handed to the task manager, and the upload status
// notifications the engine posts.
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "support/TempFolder.h"
#include "vxcloud/engine/VXCloudTaskManager.h"
#include "vxcloud/platform/Json.h"
#include "vxcloud/platform/NotificationCenter.h"

namespace vxcloud::testing {

class HostUpload {
public:
    HostUpload();
    ~HostUpload();
    HostUpload(const HostUpload&) = delete;
    HostUpload& operator=(const HostUpload&) = delete;

    // Writes `bytes` to a file called `name` and asks the task manager to upload it to the
    // accounts; returns the task manager's answer (the pending status records).
    Json start(const std::string& name, const std::string& bytes, const Json& fileIdentifier,
               const VXCloudAccountList& accounts);
    // The user info of the one status notification. Waits for it, driving the main queue,
    // then a little longer to catch a second; fails the test when there is none or more.
    Json expectOneNotification(std::chrono::milliseconds timeout = std::chrono::seconds(30));

private:
    std::size_t receivedCount();

    TempFolder temp_;
    NotificationCenter::ObserverToken observer_;
    std::mutex mutex_;
    std::vector<Json> received_;
};

}  // namespace vxcloud::testing
