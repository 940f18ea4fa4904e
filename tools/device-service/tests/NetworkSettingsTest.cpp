// The rules for static settings, the reply under DHCP, lease files and the
// resolver text, as pure functions.
#include "DhcpLease.h"
#include "NetworkSettings.h"
#include "ResolverFile.h"

#include <gtest/gtest.h>

namespace {

using namespace DeviceService;

Settings Static(const std::string& address, const std::string& mask, const std::string& gateway) {
    return {{"Dhcp", "false"},           {"IpAddress", address},        {"SubnetMask", mask},
            {"DefaultGateway", gateway}, {"NameServer", "192.168.1.1"}, {"NameServer2", "0.0.0.0"}};
}

TEST(CheckNetworkSettings, RefusesWhatCannotWorkOnAnInterface) {
    const struct {
        Settings settings;
        std::string error; // empty: accepted
    } cases[] = {
        {Static("192.168.1.20", "255.255.255.0", "192.168.1.1"), ""},
        {Static("10.77.0.50", "255.255.0.0", "0.0.0.0"), ""}, // no default route
        {Static("10.0.0.1", "255.255.255.252", "10.0.0.2"), ""},
        {Static("0.0.0.0", "0.0.0.0", "0.0.0.0"),
         "SubnetMask \"0.0.0.0\" is not a usable subnet mask"},
        {Static("192.168.1.20", "0.0.0.0", "0.0.0.0"),
         "SubnetMask \"0.0.0.0\" is not a usable subnet mask"},
        {Static("192.168.1.20", "255.0.255.0", "0.0.0.0"),
         "SubnetMask \"255.0.255.0\" is not a usable subnet mask"},
        {Static("", "255.255.255.0", "0.0.0.0"), "IpAddress \"\" is not an IPv4 address"},
        {Static("0.0.0.0", "255.255.255.0", "0.0.0.0"), "IpAddress 0.0.0.0 is not a host address"},
        {Static("224.0.0.5", "255.255.255.0", "0.0.0.0"),
         "IpAddress 224.0.0.5 is a multicast address"},
        {Static("255.255.255.255", "255.255.255.0", "0.0.0.0"),
         "IpAddress 255.255.255.255 is the broadcast address"},
        {Static("192.168.1.0", "255.255.255.0", "0.0.0.0"),
         "IpAddress 192.168.1.0 is the network address of the subnet 192.168.1.0/24"},
        {Static("192.168.1.255", "255.255.255.0", "0.0.0.0"),
         "IpAddress 192.168.1.255 is the broadcast address of the subnet 192.168.1.0/24"},
        {Static("192.168.1.20", "255.255.255.255", "0.0.0.0"),
         "IpAddress 192.168.1.20 is the network address of the subnet 192.168.1.20/32"},
        {Static("192.168.1.20", "255.255.255.0", "192.168.2.1"),
         "DefaultGateway 192.168.2.1 is outside the subnet 192.168.1.0/24"},
        {Static("192.168.1.20", "255.255.255.0", "192.168.1.20"),
         "DefaultGateway 192.168.1.20 is the device's own address"},
        {Static("192.168.1.20", "255.255.255.0", "192.168.1.255"),
         "DefaultGateway 192.168.1.255 is the broadcast address of the subnet 192.168.1.0/24"},
    };
    for (const auto& test : cases) {
        const Result<void> checked = CheckNetworkSettings(test.settings);
        EXPECT_EQ(checked ? "" : checked.error(), test.error) << test.settings.at("IpAddress");
    }
    Settings dhcp = Static("0.0.0.0", "0.0.0.0", "1.2.3.4");
    dhcp["Dhcp"] = "true";
    EXPECT_TRUE(CheckNetworkSettings(dhcp));
    EXPECT_TRUE(CheckNetworkSettings(FactoryNetworkSettings()));
}

TEST(ReportedSettings, UnderDhcpShowTheLeaseOrNothing) {
    const Settings configured = Static("192.168.1.20", "255.255.255.0", "192.168.1.1");
    EXPECT_EQ(ReportedSettings(configured, Lease{"10.0.0.9", "255.0.0.0", "", {}}), configured);

    Settings dhcp = configured;
    dhcp["Dhcp"] = "true";
    const Settings none = {{"Dhcp", "true"},       {"IpAddress", ""},  {"SubnetMask", ""},
                           {"DefaultGateway", ""}, {"NameServer", ""}, {"NameServer2", ""}};
    EXPECT_EQ(ReportedSettings(dhcp, std::nullopt), none);
    const Settings leased = {{"Dhcp", "true"},
                             {"IpAddress", "10.99.0.120"},
                             {"SubnetMask", "255.255.255.0"},
                             {"DefaultGateway", "10.99.0.1"},
                             {"NameServer", "10.99.0.1"},
                             {"NameServer2", "10.99.0.2"}};
    EXPECT_EQ(ReportedSettings(dhcp, Lease{"10.99.0.120",
                                           "255.255.255.0",
                                           "10.99.0.1",
                                           {"10.99.0.1", "10.99.0.2", "10.99.0.3"}}),
              leased);
    EXPECT_EQ(NameServers(leased), (std::vector<std::string>{"10.99.0.1", "10.99.0.2"}));
    EXPECT_EQ(NameServers(configured), std::vector<std::string>{"192.168.1.1"});
    EXPECT_TRUE(NameServers(FactoryNetworkSettings()).empty());
    EXPECT_TRUE(NameServers(none).empty());
}

TEST(ParseLease, TakesCheckedAddressesOnly) {
    const Result<Lease> lease = ParseLease(
        "ip=10.99.0.120\nmask=255.255.255.0\nrouters=10.99.0.1 10.99.0.254\ndns=10.99.0.1 "
        "8.8.8.8\n");
    ASSERT_TRUE(lease) << lease.error();
    EXPECT_EQ(*lease,
              (Lease{"10.99.0.120", "255.255.255.0", "10.99.0.1", {"10.99.0.1", "8.8.8.8"}}));
    const Result<Lease> linkLocal =
        ParseLease("ip=169.254.7.9\nmask=255.255.0.0\nrouters=\ndns=\n");
    ASSERT_TRUE(linkLocal) << linkLocal.error();
    EXPECT_EQ(*linkLocal, (Lease{"169.254.7.9", "255.255.0.0", "", {}}));

    for (const char* bad :
         {"", "mask=255.0.0.0\n", "ip=0.0.0.0\nmask=255.0.0.0\n", "ip=10.0.0.9\nmask=255.0.255.0\n",
          "ip=10.0.0.9\nmask=\n", "ip=10.0.0.9\nmask=255.0.0.0\nrouters=10.0.0.1;reboot\n",
          "ip=10.0.0.9\nmask=255.0.0.0\ndns=10.0.0.1 nameserver\n"}) {
        EXPECT_FALSE(ParseLease(bad)) << bad;
    }
}

TEST(ResolverText, NamesEachServerOnALine) {
    EXPECT_EQ(ResolverText({"10.99.0.1", "8.8.8.8"}),
              "# Written by velbor-device-service: the device's DNS servers\n"
              "nameserver 10.99.0.1\nnameserver 8.8.8.8\n");
    EXPECT_EQ(ResolverText({}), "# Written by velbor-device-service: the device's DNS servers\n");
}

} // namespace
