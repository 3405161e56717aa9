#pragma once
// Small helpers of the task's flows: nothing the task does may let an exception out of
// a public call or a queue block.
#include <exception>
#include <string>

#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::task {

inline constexpr const char* kCategory = "task";

// Runs `body`; logs and swallows what it throws. True when it ran to the end.
template <typename Body>
bool guarded(const char* what, Body&& body) noexcept {
    try {
        body();
        return true;
    } catch (const std::exception& e) {
        log::error(kCategory, std::string(what) + " failed: " + e.what());
    } catch (...) {
        log::error(kCategory, std::string(what) + " failed");
    }
    return false;
}

// The service a session works for (the account's, should the session carry none).
inline VXCloudService serviceOf(const VXCloudSession& session, const VXCloudAccount& account) {
    const auto& own = session.cloudAccount();
    return own ? own->cloudService : account.cloudService;
}

}  // namespace vxcloud::task
