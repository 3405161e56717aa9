#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

VXCloudSession::VXCloudSession(std::shared_ptr<VXCloudAccount> account, DelegateOwnership ownership)
    : cloudAccount_(std::move(account)), ownership_(ownership) {}

VXCloudSession::~VXCloudSession() = default;

std::shared_ptr<VXCloudSessionDelegate> VXCloudSession::cloudSessionDelegate() const {
    std::lock_guard lock(delegateMutex_);
    return ownership_ == DelegateOwnership::strong ? strongDelegate_ : weakDelegate_.lock();
}

void VXCloudSession::setCloudSessionDelegate(const std::shared_ptr<VXCloudSessionDelegate>& d) {
    std::lock_guard lock(delegateMutex_);
    if (ownership_ == DelegateOwnership::strong) strongDelegate_ = d;
    else weakDelegate_ = d;
}

std::shared_ptr<VXCloudProgressDelegate> VXCloudSession::cloudSessionProgressDelegate() const {
    std::lock_guard lock(delegateMutex_);
    return ownership_ == DelegateOwnership::strong ? strongProgress_ : weakProgress_.lock();
}

void VXCloudSession::setCloudSessionProgressDelegate(
    const std::shared_ptr<VXCloudProgressDelegate>& d) {
    std::lock_guard lock(delegateMutex_);
    if (ownership_ == DelegateOwnership::strong) strongProgress_ = d;
    else weakProgress_ = d;
}

}  // namespace vxcloud
