#pragma once
// Whether the machine can reach the network, and how: the kernel's default route and
// the kind of its interface (wireless -> Wi-Fi, WWAN modem -> cellular, wired -> Wi-Fi,
// since it is unmetered). No default route: not reachable.
#include <optional>
#include <string>
#include <string_view>

namespace vxcloud {

enum class NetworkPath { notReachable = 0, cellular = 1, wifi = 2 };

class Reachability {
public:
    static NetworkPath current();
    // Hosts and tests may fix the answer; nothing restores the kernel's view.
    static void setOverride(std::optional<NetworkPath> path);
    static std::optional<NetworkPath> override();

    // The two steps of current(), on given text and folders (tests, diagnostics).
    // The interface of the default route: the IPv4 one with the lowest metric from
    // /proc/net/route text, else the IPv6 one from /proc/net/ipv6_route text.
    static std::optional<std::string> defaultRouteInterface(std::string_view ipv4Routes,
                                                            std::string_view ipv6Routes);
    // What kind of link an interface is, judged from its folder under `sysClassNet`.
    static NetworkPath pathForInterface(const std::string& interfaceName,
                                        const std::string& sysClassNet = "/sys/class/net");
};

}  // namespace vxcloud
