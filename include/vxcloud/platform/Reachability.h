#pragma once
// Whether the machine can reach the network, and how: the kernel's default route and
// the kind of its interface (wireless -> Wi-Fi, WWAN modem -> cellular, wired -> Wi-Fi,
// since it is unmetered). No default route: not reachable.
#include <optional>

namespace vxcloud {

enum class NetworkPath { notReachable = 0, cellular = 1, wifi = 2 };

class Reachability {
public:
    static NetworkPath current();
    // Hosts and tests may fix the answer; nothing restores the kernel's view.
    static void setOverride(std::optional<NetworkPath> path);
    static std::optional<NetworkPath> override();
};

}  // namespace vxcloud
