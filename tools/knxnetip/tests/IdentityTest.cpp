// The device identity from configuration keys, and endpoint texts.
#include "DeviceIdentity.h"
#include "Frame.h"

#include <gtest/gtest.h>

namespace KnxNetIp {
namespace {

TEST(DeviceIdentity, DefaultsAndEveryKey) {
    const Result<DeviceIdentity> defaults =
        ParseDeviceIdentity({{"ipconfig.interfaceName", "eth0"}});
    ASSERT_TRUE(defaults);
    EXPECT_EQ(IndividualAddressText(defaults->individualAddress), "15.15.255");
    EXPECT_EQ(defaults->friendlyName, "knx-addon-host");
    const Result<DeviceIdentity> set = ParseDeviceIdentity({{"knx.individualAddress", "1.1.10"},
                                                            {"knx.serialNumber", "00fA01020304"},
                                                            {"knx.friendlyName", "Office gateway"},
                                                            {"knx.manufacturerId", "0x00C5"},
                                                            {"knx.projectInstallationId", "513"}});
    ASSERT_TRUE(set) << set.error();
    EXPECT_EQ(set->individualAddress, 0x110A);
    EXPECT_EQ(set->serialNumber, (std::array<std::uint8_t, 6>{0x00, 0xFA, 0x01, 0x02, 0x03, 0x04}));
    EXPECT_EQ(set->friendlyName, "Office gateway");
    EXPECT_EQ(set->manufacturerId, 0xC5);
    EXPECT_EQ(set->projectInstallationId, 513);
}

TEST(DeviceIdentity, MalformedValuesAreRefusedWithTheKey) {
    const std::pair<const char*, const char*> cases[] = {
        {"knx.individualAddress", "16.1.1"},
        {"knx.individualAddress", "1.1.256"},
        {"knx.individualAddress", "1.1"},
        {"knx.individualAddress", "0x1.1.1"},
        {"knx.serialNumber", "00fa0102030"},
        {"knx.serialNumber", "00fa0102030g"},
        {"knx.friendlyName", "a name longer than thirty chars"},
        {"knx.manufacturerId", "65536"},
        {"knx.projectInstallationId", "-1"},
        {"knx.unknown", "1"},
    };
    for (const auto& [key, value] : cases) {
        const Result<DeviceIdentity> identity = ParseDeviceIdentity({{key, value}});
        ASSERT_FALSE(identity) << key << "=" << value;
        EXPECT_EQ(
            identity.error().rfind(key, 0) == 0 || identity.error().find(key) != std::string::npos,
            true)
            << identity.error();
    }
}

TEST(Endpoint, AddressWithAndWithoutPort) {
    EXPECT_EQ(ToString(*ParseEndpoint("192.168.1.10")), "192.168.1.10:3671");
    EXPECT_EQ(ToString(*ParseEndpoint("127.0.0.1:0")), "127.0.0.1:0");
    for (const char* bad : {"", "host", "1.2.3.4:", "1.2.3.4:65536", "1.2.3.4:x", "1.2.3:5"}) {
        EXPECT_FALSE(ParseEndpoint(bad)) << bad;
    }
}

} // namespace
} // namespace KnxNetIp
