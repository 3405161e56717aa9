#include "vxcloud/platform/Reachability.h"

#include <gtest/gtest.h>

#include "StoreTestSupport.h"

namespace vxcloud {
namespace {

using testutil::TempFolder;

constexpr const char* kRouteHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

// The kernel's default unreachable IPv6 route on lo, present on every machine.
constexpr const char* kIpv6Unreachable =
    "00000000000000000000000000000000 00 00000000000000000000000000000000 00 "
    "00000000000000000000000000000000 ffffffff 00000001 00000000 00200200       lo\n";

TEST(Reachability, DefaultRouteFromRouteTables) {
    const std::string wiredAndWireless = std::string(kRouteHeader) +
        "enp3s0\t0000A8C0\t00000000\t0001\t0\t0\t100\t00FFFFFF\t0\t0\t0\n"
        "wlp2s0\t00000000\t0101A8C0\t0003\t0\t0\t600\t00000000\t0\t0\t0\n"
        "enp3s0\t00000000\t0100A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n";
    EXPECT_EQ(Reachability::defaultRouteInterface(wiredAndWireless, kIpv6Unreachable), "enp3s0");

    // A point-to-point modem link has a default route without a gateway.
    const std::string modem = std::string(kRouteHeader) +
        "wwan0\t00000000\t00000000\t0001\t0\t0\t0\t00000000\t0\t0\t0\n";
    EXPECT_EQ(Reachability::defaultRouteInterface(modem, ""), "wwan0");

    // Only subnet routes, a route that is down, a reject route: no default route.
    const std::string none = std::string(kRouteHeader) +
        "eth0\t0000A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
        "eth1\t00000000\t0101A8C0\t0002\t0\t0\t0\t00000000\t0\t0\t0\n"
        "eth2\t00000000\t00000000\t0201\t0\t0\t0\t00000000\t0\t0\t0\n";
    EXPECT_EQ(Reachability::defaultRouteInterface(none, kIpv6Unreachable), std::nullopt);
    EXPECT_EQ(Reachability::defaultRouteInterface("", ""), std::nullopt);
    EXPECT_EQ(Reachability::defaultRouteInterface("garbage\n\t\n12 zz", "x y z\n"), std::nullopt);

    // IPv6-only network: the IPv6 default route with the lowest metric.
    const std::string ipv6 = std::string(kIpv6Unreachable) +
        "fe800000000000000000000000000000 40 00000000000000000000000000000000 00 "
        "00000000000000000000000000000000 00000100 00000001 00000000 00000001     eth0\n"
        "00000000000000000000000000000000 00 00000000000000000000000000000000 00 "
        "fe800000000000000000000000000001 00000600 00000001 00000000 00000003   wlan0\n"
        "00000000000000000000000000000000 00 00000000000000000000000000000000 00 "
        "fe800000000000000000000000000001 00000400 00000001 00000000 00000003     eth0\n";
    EXPECT_EQ(Reachability::defaultRouteInterface(kRouteHeader, ipv6), "eth0");
}

TEST(Reachability, InterfaceKindFromSysfs) {
    TempFolder sys;
    testutil::writeWholeFile(sys / "eth0/uevent", "INTERFACE=eth0\nIFINDEX=2\n");
    testutil::writeWholeFile(sys / "wlan0/uevent", "DEVTYPE=wlan\nINTERFACE=wlan0\n");
    std::filesystem::create_directories(sys / "wlan0/wireless");
    testutil::writeWholeFile(sys / "wlp2s0/uevent", "DEVTYPE=wlan\nINTERFACE=wlp2s0\n");
    std::filesystem::create_directories(sys / "phy0");
    std::filesystem::create_directory_symlink(sys / "phy0", sys / "wlp2s0/phy80211");
    testutil::writeWholeFile(sys / "wwan0/uevent", "DEVTYPE=wwan\nINTERFACE=wwan0\nIFINDEX=5\n");
    testutil::writeWholeFile(sys / "mhi0/uevent", "INTERFACE=mhi0\n");
    testutil::writeWholeFile(sys / "mhi0/device/uevent", "DEVTYPE=wwan\n");
    testutil::writeWholeFile(sys / "docker0/uevent", "DEVTYPE=bridge\nINTERFACE=docker0\n");

    EXPECT_EQ(Reachability::pathForInterface("eth0", sys.path()), NetworkPath::wifi);
    EXPECT_EQ(Reachability::pathForInterface("wlan0", sys.path()), NetworkPath::wifi);
    EXPECT_EQ(Reachability::pathForInterface("wlp2s0", sys.path()), NetworkPath::wifi);
    EXPECT_EQ(Reachability::pathForInterface("wwan0", sys.path()), NetworkPath::cellular);
    EXPECT_EQ(Reachability::pathForInterface("mhi0", sys.path()), NetworkPath::cellular);
    EXPECT_EQ(Reachability::pathForInterface("docker0", sys.path()), NetworkPath::wifi);
    EXPECT_EQ(Reachability::pathForInterface("gone0", sys.path()), NetworkPath::wifi);
    EXPECT_EQ(Reachability::pathForInterface("../wwan0", sys.path() + "/x"), NetworkPath::wifi);
}

TEST(Reachability, OverrideWinsUntilCleared) {
    Reachability::setOverride(NetworkPath::cellular);
    EXPECT_EQ(Reachability::current(), NetworkPath::cellular);
    Reachability::setOverride(NetworkPath::notReachable);
    EXPECT_EQ(Reachability::override(), NetworkPath::notReachable);
    EXPECT_EQ(Reachability::current(), NetworkPath::notReachable);
    Reachability::setOverride(std::nullopt);
    EXPECT_EQ(Reachability::override(), std::nullopt);
    NetworkPath live = Reachability::current();  // the kernel's view; any answer, no crash
    EXPECT_TRUE(live == NetworkPath::notReachable || live == NetworkPath::cellular ||
                live == NetworkPath::wifi);
}

}  // namespace
}  // namespace vxcloud
