// The one session factory: the override when one is set, else the maker of the service's
// registry entry. A service without a maker makes no session, and the engine files an
// "authentication" record for its accounts.
#include "vxcloud/engine/VXCloudSessionFactory.h"

#include <exception>
#include <mutex>
#include <utility>

#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {
namespace {

std::shared_ptr<VXCloudSession> builtInSession(const std::shared_ptr<VXCloudAccount>& account) {
    const VXCloudSessionMaker make = serviceDescriptor(account->cloudService).makeSession;
    return make ? make(account) : nullptr;
}

struct Override {
    std::mutex mutex;
    std::shared_ptr<const CloudSessionFactory> factory;
};

Override& overrideSlot() {
    static Override* const instance = new Override();  // used until the very end
    return *instance;
}

std::shared_ptr<const CloudSessionFactory> currentOverride() {
    auto& o = overrideSlot();
    std::lock_guard lock(o.mutex);
    return o.factory;
}

// A session from `make`, or none: a factory that throws makes no session.
template <typename Make>
std::shared_ptr<VXCloudSession> guardedMake(const Make& make,
                                            const std::shared_ptr<VXCloudAccount>& account) noexcept {
    if (!account) return nullptr;
    try {
        return make(account);
    } catch (const std::exception& e) {
        log::error("sessions", std::string("making a session failed: ") + e.what());
    } catch (...) {
        log::error("sessions", "making a session failed");
    }
    return nullptr;
}

}  // namespace

std::shared_ptr<VXCloudSession> initCloudSession(const std::shared_ptr<VXCloudAccount>& account) {
    const auto factory = currentOverride();
    return factory ? guardedMake(*factory, account) : guardedMake(builtInSession, account);
}

std::shared_ptr<VXCloudSession> builtInCloudSession(const std::shared_ptr<VXCloudAccount>& account) {
    return guardedMake(builtInSession, account);
}

void setCloudSessionFactoryOverride(CloudSessionFactory factory) {
    auto next = factory ? std::make_shared<const CloudSessionFactory>(std::move(factory)) : nullptr;
    auto& o = overrideSlot();
    std::lock_guard lock(o.mutex);
    o.factory.swap(next);
    // The old factory is released outside the lock (`next` now holds it).
}

SessionFactory sessionFactory() noexcept { return &initCloudSession; }

}  // namespace vxcloud
