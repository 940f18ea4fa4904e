// Interface selection and current values, run inside the network namespace that
// run-in-netns.sh builds (its interfaces are listed there).
#include "KnxIpConnectionInfo.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

using KnxStack::Ip::IpConnectionInfo;
using Mac = std::array<unsigned char, 6>;
using Values = std::array<unsigned long, 3>; // address, netmask, gateway

namespace {

// The index of interface `name`; NoInterface for none (null).
unsigned long Index(const char* name) {
    return name ? if_nametoindex(name) : IpConnectionInfo::NoInterface;
}

// Runs `ip` in the test namespace; true on success.
bool Ip(const std::string& arguments) {
    return std::system(("ip " + arguments).c_str()) == 0;
}

Values Current(IpConnectionInfo& info) {
    return {info.GetCurrentIpAddress(), info.GetCurrentNetmask(), info.GetCurrentGateway()};
}

class IpConnectionInfoTest : public testing::Test {
protected:
    void SetUp() override {
        if (!std::getenv("KNXIP_TEST_NETNS")) GTEST_SKIP() << "run by run-in-netns.sh";
    }
    IpConnectionInfo info;
};

// Selects an interface as each case says, then reads its values.
TEST_F(IpConnectionInfoTest, SelectsInterfaceAndReportsItsValues) {
    const Values a{0x0A4D0102, 0xFFFFFF00, 0x0A4D0101}, b{0x0A4D0202, 0xFFFFFF00, 0x0A4D0201},
        c0{0x0A4D0302, 0xFFFFFF00, 0}, a1{0x0A4D0402, 0xFFFFFFFF, 0}, lo{0x7F000001, 0xFF000000, 0},
        none{0, 0, 0};
    struct {
        const char *name, *indexOf; // indexOf: interface whose index is passed, else `index`
        int index;
        bool specified;
        const char* expected; // null: none fits
        Values values;
    } const cases[] = {
        {"", "knxb0", 0, true, "knxb0", b},       {"knxa0", "knxb0", 0, true, "knxb0", b},
        {"knxb0", nullptr, 0, true, "knxb0", b},  {"knxc0", nullptr, -1, true, "knxc0", c0},
        {"knxb0", nullptr, 0, false, "knxa0", a}, {"knxa1", nullptr, 0, true, "knxa1", a1},
        {"lo", nullptr, 0, true, "lo", lo},       {"knxc1", nullptr, 0, true, "knxc1", none},
        {"", nullptr, 9999, true, nullptr, none}, {"nosuch0", nullptr, 0, true, nullptr, none},
        {"", nullptr, 0, true, nullptr, none},
    };
    for (const auto& c : cases) {
        const int index = c.indexOf ? static_cast<int>(Index(c.indexOf)) : c.index;
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(index) + " " +
                     std::to_string(c.specified));
        EXPECT_EQ(info.DetermineNetworkInterface(c.name, index, 0, c.specified), Index(c.expected));
        EXPECT_EQ(Current(info), c.values);
    }
    Mac mac;
    mac.fill(0xAA);
    info.GetMacAddress(mac.data()); // none selected
    EXPECT_EQ(mac, Mac{});
}

// Without a default route: the lowest-numbered interface that is up, not
// loopback and has IPv4. knxc0 comes first but is down; its 300 addresses make
// the address dump longer than one read, so knxb0 is found in a later batch.
TEST_F(IpConnectionInfoTest, WithoutDefaultRouteTakesLowestUpNonLoopbackWithIpv4) {
    ASSERT_LT(Index("knxc0"), Index("knxb0"));
    ASSERT_TRUE(Ip("route flush exact 0/0"));
    const bool added = std::system(
                           "for i in $(seq 300); do echo addr add 10.79.$((i / 200)).$((i % "
                           "200 + 1))/32 dev knxc0; done | ip -batch -") == 0;
    const unsigned long selected = info.DetermineNetworkInterface("", 0, 0, false);
    ASSERT_TRUE(
        Ip("addr flush dev knxc0 to 10.79.0.0/16 && ip route add default via 10.77.1.1 && "
           "ip route add default via 10.77.2.1 metric 100"));
    ASSERT_TRUE(added);
    EXPECT_EQ(selected, Index("knxb0"));
}

TEST_F(IpConnectionInfoTest, ReportsMacAndSeesChangedValuesAtNextQuery) {
    info.DetermineNetworkInterface("knxa0", 0, 0, true);
    Mac mac;
    info.GetMacAddress(mac.data());
    EXPECT_EQ(mac, (Mac{0x02, 0x4b, 0x4e, 0x58, 0x00, 0x01}));
    ASSERT_EQ(info.GetCurrentIpAddress(), 0x0A4D0102UL);
    ASSERT_TRUE(
        Ip("addr add 10.77.1.9/25 dev knxa0 && ip addr del 10.77.1.2/24 dev knxa0 && "
           "ip route replace default via 10.77.1.7"));
    const Values values = Current(info);
    ASSERT_TRUE(
        Ip("addr add 10.77.1.2/24 dev knxa0 && ip addr del 10.77.1.9/25 dev knxa0 && "
           "ip route replace default via 10.77.1.1"));
    EXPECT_EQ(values, (Values{0x0A4D0109, 0xFFFFFF80, 0x0A4D0107}));
}

TEST_F(IpConnectionInfoTest, FindsNoneWhereOnlyLoopbackExists) {
    const int original = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(original, 0);
    const bool entered = unshare(CLONE_NEWNET) == 0;
    const bool loopbackUp = entered && Ip("link set lo up");
    const unsigned long selected = IpConnectionInfo().DetermineNetworkInterface("", 0, 0, false);
    const bool returned = !entered || setns(original, CLONE_NEWNET) == 0;
    close(original);
    ASSERT_TRUE(entered && returned && loopbackUp);
    EXPECT_EQ(selected, IpConnectionInfo::NoInterface);
}

} // namespace
