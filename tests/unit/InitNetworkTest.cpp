#include "DeviceFixture.h"

#include <climits>
#include <tuple>

namespace {

const Lines kSelectionLines = {Info("InitNetwork(): starting..."),
                               Info("DscKnxIpConfig: Selecting the primary network interface..."),
                               Debug("GetMacAddress(): Value = ")};

// Init's properties, and the name, index and "specified" flag of the interface selection.
using PropertiesCase = std::tuple<ConfigPropertyMap, std::string, int, bool>;
class InitProperties : public DeviceTest, public testing::WithParamInterface<PropertiesCase> {};

TEST_P(InitProperties, SelectTheInterfaceOnce) {
    const auto& [properties, name, index, specified] = GetParam();
    ExpectNoClient();
    EXPECT_CALL(net, DetermineNetworkInterface(name, index, 0UL, specified));
    EXPECT_TRUE(config.Init(properties));
}

INSTANTIATE_TEST_SUITE_P(
    Properties, InitProperties,
    testing::Values(PropertiesCase{{}, "", 0, false},
                    PropertiesCase{{{"interfaceIndex", "3"}}, "", 3, true},
                    PropertiesCase{
                        {{"interfaceIndex", "0"}, {"interfaceName", "eth0"}}, "eth0", 0, true},
                    PropertiesCase{{{"interfaceName", "wlan1"}}, "wlan1", 0, true},
                    PropertiesCase{{{"interfaceIndex", "-2"}}, "", -2, false},
                    PropertiesCase{{{"interfaceIndex", "abc"}}, "", 0, false},
                    PropertiesCase{{{"interfaceIndex", "12x"}}, "", 12, true},
                    PropertiesCase{{{"interfaceIndex", " 7"}}, "", 7, true},
                    PropertiesCase{{{"interfaceIndex", "99999999999"}}, "", INT_MAX, true},
                    PropertiesCase{{{"interfaceIndex", "-99999999999"}}, "", INT_MIN, false},
                    PropertiesCase{{{"InterfaceIndex", "5"}, {"name", "eth9"}}, "", 0, false}));

TEST_F(DeviceTest, OnlyNoInterfaceMeansFailure) {
    KnxStack::Ip::IpConnectionInfo unused;
    for (const unsigned long selected : {0xFFFFFFFFUL, 0UL, 1UL, 0xFFFFFFFEUL}) {
        EXPECT_CALL(net, DetermineNetworkInterface(_, _, _, _)).WillOnce(Return(selected));
        EXPECT_EQ(config.InitNetwork(unused, false), selected != 0xFFFFFFFFUL) << selected;
    }
}

// Whether a client is made and its reply readable, the reply, and the methods
// stored afterwards: only a positive device result replaces them.
using MethodCase = std::tuple<bool, bool, const char*, int>;
class InitDeviceMethod : public DeviceTest, public testing::WithParamInterface<MethodCase> {};

TEST_P(InitDeviceMethod, StoresOnlyAPositiveDeviceMethod) {
    const auto& [made, readable, reply, methods] = GetParam();
    if (made) {
        MockDeviceStackClient& client = ExpectClient();
        ExpectRead(client, reply, readable);
        EXPECT_CALL(client, Destroyed());
    } else {
        ExpectNoClient();
    }
    config.Init({});
    EXPECT_EQ(config.GetIpAssignmentMethods(), methods);
}

INSTANTIATE_TEST_SUITE_P(Devices, InitDeviceMethod,
                         testing::Values(MethodCase{true, true, R"({"Dhcp":"true"})", 4},
                                         MethodCase{true, true, R"({"Dhcp":"false"})", 1},
                                         MethodCase{true, false, R"({"Dhcp":"false"})", 4},
                                         MethodCase{false, false, "", 15}));

// Init selects the configured interface and applies the device's settings; the
// first query afterwards selects once more without reading the device; a second
// Init starts from no interface.
TEST_F(DeviceTest, InitSelectsAndReadsTheDeviceThenQueriesSelectOnceMore) {
    InSequence order;
    EXPECT_CALL(net, DetermineNetworkInterface("eth1", 2, 0UL, true));
    EXPECT_CALL(net, GetMacAddress(_));
    MockDeviceStackClient& client = ExpectClient();
    ExpectRead(client, ReplyText(kExampleValues));
    std::size_t loggedBefore = 0;
    EXPECT_CALL(client, Destroyed()).WillOnce([&] { loggedBefore = log.Records().size(); });
    EXPECT_CALL(net, DetermineNetworkInterface("eth1", 2, 0UL, true));
    EXPECT_CALL(net, GetMacAddress(_));
    EXPECT_CALL(net, GetCurrentIpAddress()).WillOnce(Return(3232235786UL));
    EXPECT_CALL(net, GetCurrentNetmask()).WillOnce(Return(4294967040UL));
    EXPECT_CALL(net, GetCurrentGateway()).WillOnce(Return(3232235777UL));
    EXPECT_CALL(net, DetermineNetworkInterface("", 0, 0UL, false));
    EXPECT_CALL(net, GetMacAddress(_));
    ExpectNoClient();

    EXPECT_TRUE(config.Init({{"interfaceIndex", "2"}, {"interfaceName", "eth1"}}));
    const Lines expected = Join({{Info("Init(): starting...")},
                                 kSelectionLines,
                                 kConnectLines,
                                 FetchLines(1, &kExampleValues),
                                 AppliedLines(31, kExampleAddresses),
                                 {Debug("InitNetwork(): end."), Debug("Init(): end.")}});
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(loggedBefore, expected.size() - 2);
    log.Clear();
    EXPECT_EQ(config.GetCurrentIpAddress(), 3232235786UL);
    EXPECT_EQ(config.GetCurrentNetmask(), 4294967040UL);
    EXPECT_EQ(config.GetCurrentGateway(), 3232235777UL);
    EXPECT_EQ(log.Lines(), Join({kSelectionLines, {Debug("InitNetwork(): end.")}}));
    config.Init({});
}

} // namespace
