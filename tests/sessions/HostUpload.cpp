#include "sessions/HostUpload.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Reachability.h"

namespace vxcloud::testing {

HostUpload::HostUpload() {
    Reachability::setOverride(NetworkPath::wifi);
    observer_ = NotificationCenter::defaultCenter().addObserver(
        VXCloudUploadStatusNotification, nullptr, [this](const Notification& notification) {
            std::lock_guard lock(mutex_);
            received_.push_back(notification.userInfo.value_or_null());
        });
}

HostUpload::~HostUpload() {
    NotificationCenter::defaultCenter().removeObserver(observer_);
    Reachability::setOverride(std::nullopt);
}

Json HostUpload::start(const std::string& name, const std::string& bytes, const Json& fileIdentifier,
                       const VXCloudAccountList& accounts) {
    const std::string path = temp_.file(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return VXCloudTaskManager::sharedInstance()->uploadWithFilename(name, path, JsonBox(), false, fileIdentifier,
                                                                    accounts, true);
}

Json HostUpload::expectOneNotification(std::chrono::milliseconds timeout) {
    auto main = DispatchQueue::main();
    if (!main->runUntil([&] { return receivedCount() >= 1; }, timeout)) {
        ADD_FAILURE() << "no status notification";
        return Json();
    }
    main->runUntil([] { return false; }, std::chrono::milliseconds(300));  // a second one would be right behind
    std::lock_guard lock(mutex_);
    EXPECT_EQ(received_.size(), 1u) << "more than one status notification";
    return received_.front();
}

std::size_t HostUpload::receivedCount() {
    std::lock_guard lock(mutex_);
    return received_.size();
}

}  // namespace vxcloud::testing
