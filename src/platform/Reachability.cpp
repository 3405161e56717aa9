#include "vxcloud/platform/Reachability.h"

#include <sys/stat.h>

#include <charconv>
#include <fstream>
#include <iterator>
#include <limits>
#include <mutex>
#include <sstream>
#include <vector>

namespace vxcloud {
namespace {

// Route flags from <linux/route.h> / <linux/ipv6_route.h>.
constexpr unsigned long kRouteUp = 0x0001;
constexpr unsigned long kRouteReject = 0x0200;

std::mutex& overrideMutex() {
    static std::mutex m;
    return m;
}
std::optional<NetworkPath>& overrideValue() {
    static std::optional<NetworkPath> value;
    return value;
}

std::vector<std::string_view> fields(std::string_view line) {
    std::vector<std::string_view> out;
    std::size_t pos = 0;
    while (pos < line.size()) {
        std::size_t start = line.find_first_not_of(" \t\r", pos);
        if (start == std::string_view::npos) break;
        std::size_t end = line.find_first_of(" \t\r", start);
        if (end == std::string_view::npos) end = line.size();
        out.push_back(line.substr(start, end - start));
        pos = end;
    }
    return out;
}

std::optional<unsigned long> hex(std::string_view text) {
    unsigned long value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<unsigned long> decimal(std::string_view text) {
    unsigned long value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, 10);
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

bool allZero(std::string_view hexText) {
    return !hexText.empty() && hexText.find_first_not_of('0') == std::string_view::npos;
}

// Calls `row(fields)` for every line of a table.
template <typename Row>
void eachLine(std::string_view text, Row row) {
    std::size_t pos = 0;
    while (pos <= text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        row(fields(text.substr(pos, end - pos)));
        pos = end + 1;
    }
}

struct Best {
    std::optional<std::string> interface;
    unsigned long metric = std::numeric_limits<unsigned long>::max();
    void offer(std::string_view name, unsigned long routeMetric) {
        if (name == "lo" || name.empty()) return;
        if (!interface || routeMetric < metric) {
            interface = std::string(name);
            metric = routeMetric;
        }
    }
};

// Iface Destination Gateway Flags RefCnt Use Metric Mask MTU Window IRTT (hex, host order)
std::optional<std::string> ipv4Default(std::string_view table) {
    Best best;
    eachLine(table, [&](const std::vector<std::string_view>& f) {
        if (f.size() < 8) return;  // the header line fails the number checks below
        auto flags = hex(f[3]);
        auto metric = decimal(f[6]);
        if (!flags || !metric || !allZero(f[1]) || !allZero(f[7])) return;
        if (!(*flags & kRouteUp) || (*flags & kRouteReject)) return;
        best.offer(f[0], *metric);
    });
    return best.interface;
}

// dest plen src plen nexthop metric refcnt use flags iface (all hex)
std::optional<std::string> ipv6Default(std::string_view table) {
    Best best;
    eachLine(table, [&](const std::vector<std::string_view>& f) {
        if (f.size() < 10) return;
        auto prefix = hex(f[1]);
        auto metric = hex(f[5]);
        auto flags = hex(f[8]);
        if (!prefix || !metric || !flags || *prefix != 0 || !allZero(f[0])) return;
        if (!(*flags & kRouteUp) || (*flags & kRouteReject)) return;
        best.offer(f[9], *metric);
    });
    return best.interface;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool exists(const std::string& path) {
    struct stat st{};
    return ::stat(path.c_str(), &st) == 0;
}

bool declaresWwan(const std::string& ueventPath) {
    std::istringstream lines(readFile(ueventPath));
    for (std::string line; std::getline(lines, line);) {
        if (line == "DEVTYPE=wwan") return true;
    }
    return false;
}

}  // namespace

NetworkPath Reachability::current() {
    if (auto fixed = override()) return *fixed;
    auto interface =
        defaultRouteInterface(readFile("/proc/net/route"), readFile("/proc/net/ipv6_route"));
    if (!interface) return NetworkPath::notReachable;
    return pathForInterface(*interface);
}

void Reachability::setOverride(std::optional<NetworkPath> path) {
    std::lock_guard lock(overrideMutex());
    overrideValue() = path;
}

std::optional<NetworkPath> Reachability::override() {
    std::lock_guard lock(overrideMutex());
    return overrideValue();
}

std::optional<std::string> Reachability::defaultRouteInterface(std::string_view ipv4Routes,
                                                               std::string_view ipv6Routes) {
    if (auto interface = ipv4Default(ipv4Routes)) return interface;
    return ipv6Default(ipv6Routes);
}

NetworkPath Reachability::pathForInterface(const std::string& interfaceName,
                                           const std::string& sysClassNet) {
    if (interfaceName.empty() || interfaceName.find('/') != std::string::npos ||
        interfaceName == "." || interfaceName == "..") {
        return NetworkPath::wifi;
    }
    const std::string dir = sysClassNet + "/" + interfaceName;
    if (exists(dir + "/wireless") || exists(dir + "/phy80211")) return NetworkPath::wifi;
    // USB modems (qmi_wwan, cdc_mbim) mark the interface itself, the kernel's WWAN
    // framework marks the device behind it.
    if (declaresWwan(dir + "/uevent") || declaresWwan(dir + "/device/uevent")) {
        return NetworkPath::cellular;
    }
    // Wired and virtual links are unmetered: they count as Wi-Fi.
    return NetworkPath::wifi;
}

}  // namespace vxcloud
