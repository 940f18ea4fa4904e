#include "DeviceFixture.h"

#include <algorithm>
#include <climits>

using testing::_;
using testing::InSequence;
using testing::Return;

namespace {

const Lines kSelectionLines = {Info("InitNetwork(): starting..."),
                               Info("DscKnxIpConfig: Selecting the primary network interface..."),
                               Debug("GetMacAddress(): Value = ")};

class InitNetworkTest : public DeviceTest {};

struct PropertiesCase {
    ConfigPropertyMap properties;
    std::string name;
    int index;
    bool specified;
};
void PrintTo(const PropertiesCase& c, std::ostream* os) {
    for (const auto& property : c.properties) {
        *os << property.first << "=" << property.second << " ";
    }
}

class InitProperties : public DeviceTest, public testing::WithParamInterface<PropertiesCase> {};

} // namespace

TEST_P(InitProperties, SelectTheInterfaceOnce) {
    const PropertiesCase& c = GetParam();
    EXPECT_CALL(factory, Create()).WillOnce(NoClient);
    EXPECT_CALL(net, DetermineNetworkInterface(c.name, c.index, 0UL, c.specified));
    EXPECT_TRUE(config.Init(c.properties));
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

TEST_F(InitNetworkTest, SecondInitStartsFromNoInterface) {
    EXPECT_CALL(factory, Create()).Times(2).WillRepeatedly(NoClient);
    InSequence order;
    EXPECT_CALL(net, DetermineNetworkInterface("eth1", 4, 0UL, true));
    EXPECT_CALL(net, DetermineNetworkInterface("", 0, 0UL, false));
    config.Init({{"interfaceIndex", "4"}, {"interfaceName", "eth1"}});
    config.Init({});
}

TEST_F(InitNetworkTest, EachSelectionRereadsTheMac) {
    const unsigned char first[6] = {'A', 'B', 'C', 'D', 'E', 'F'};
    const unsigned char second[6] = {'u', 'v', 'w', 'x', 'y', 'z'};
    EXPECT_CALL(factory, Create()).WillOnce(NoClient);
    InSequence order;
    EXPECT_CALL(net, DetermineNetworkInterface(_, _, _, _));
    EXPECT_CALL(net, GetMacAddress(_)).WillOnce(testing::SetArrayArgument<0>(first, first + 6));
    EXPECT_CALL(net, DetermineNetworkInterface(_, _, _, _));
    EXPECT_CALL(net, GetMacAddress(_)).WillOnce(testing::SetArrayArgument<0>(second, second + 6));

    config.Init({});
    config.GetCurrentGateway();
    unsigned char mac[6] = {};
    config.GetMacAddress(mac);
    EXPECT_TRUE(std::equal(mac, mac + 6, second));
}

TEST_F(InitNetworkTest, QueriesAfterInitSelectOnceMoreWithoutDeviceRead) {
    EXPECT_CALL(factory, Create()).WillOnce(NoClient);
    EXPECT_CALL(net, DetermineNetworkInterface("eth2", 0, 0UL, true)).Times(2);
    EXPECT_CALL(net, GetCurrentIpAddress()).WillOnce(Return(3232235786UL));
    EXPECT_CALL(net, GetCurrentNetmask()).WillOnce(Return(4294967040UL));
    EXPECT_CALL(net, GetCurrentGateway()).WillOnce(Return(3232235777UL));
    config.Init({{"interfaceName", "eth2"}});
    log.Clear();

    EXPECT_EQ(config.GetCurrentIpAddress(), 3232235786UL);
    EXPECT_EQ(log.Lines(), Join({kSelectionLines, {Debug("InitNetwork(): end.")}}));
    log.Clear();
    EXPECT_EQ(config.GetCurrentNetmask(), 4294967040UL);
    EXPECT_EQ(config.GetCurrentGateway(), 3232235777UL);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(InitNetworkTest, QueryBeforeInitSelectsWithNothingSpecified) {
    EXPECT_CALL(net, DetermineNetworkInterface("", 0, 0UL, false));
    config.GetCurrentNetmask();
}

TEST_F(InitNetworkTest, OnlyNoInterfaceMeansFailure) {
    KnxStack::Ip::IpConnectionInfo unused;
    for (const unsigned long selected : {0xFFFFFFFFUL, 0UL, 1UL, 0xFFFFFFFEUL}) {
        EXPECT_CALL(net, DetermineNetworkInterface(_, _, _, _)).WillOnce(Return(selected));
        EXPECT_EQ(config.InitNetwork(unused, false), selected != 0xFFFFFFFFUL) << selected;
    }
}

namespace {

struct MethodCase {
    const char* name;
    bool client;
    bool readable;
    const char* reply;
    int methods;
};
void PrintTo(const MethodCase& c, std::ostream* os) {
    *os << c.name;
}

class InitDeviceMethod : public DeviceTest, public testing::WithParamInterface<MethodCase> {};

} // namespace

TEST_P(InitDeviceMethod, StoresOnlyAPositiveDeviceMethod) {
    const MethodCase& c = GetParam();
    if (c.client) {
        InSequence order;
        MockDeviceStackClient& client = ExpectRegistered(factory);
        ExpectRead(client, c.reply, c.readable);
        EXPECT_CALL(client, Destroyed());
    } else {
        EXPECT_CALL(factory, Create()).WillOnce(NoClient);
    }
    config.Init({});
    EXPECT_EQ(config.GetIpAssignmentMethods(), c.methods);
}

INSTANTIATE_TEST_SUITE_P(Devices, InitDeviceMethod,
                         testing::Values(MethodCase{"Dhcp", true, true, "{\"Dhcp\":\"true\"}", 4},
                                         MethodCase{"Manual", true, true, kExampleReply, 1},
                                         MethodCase{"Unreadable", true, false, kExampleReply, 4},
                                         MethodCase{"NoClient", false, false, "", 15}),
                         CaseName());

TEST_F(InitNetworkTest, InitWithDeviceLogsEveryStepInOrder) {
    InSequence order;
    EXPECT_CALL(net, DetermineNetworkInterface("", 2, 0UL, true));
    EXPECT_CALL(net, GetMacAddress(_));
    MockDeviceStackClient& client = ExpectRegistered(factory);
    ExpectRead(client, kExampleReply);
    std::size_t recordsAtDestruction = 0;
    EXPECT_CALL(client, Destroyed()).WillOnce([&] { recordsAtDestruction = log.Records().size(); });

    EXPECT_TRUE(config.Init({{"interfaceIndex", "2"}}));
    const Lines expected = Join({{Info("Init(): starting...")},
                                 kSelectionLines,
                                 kConnectLines,
                                 FetchLines(1, &kExampleValues),
                                 kExampleSetterLines,
                                 {Debug("InitNetwork(): end."), Debug("Init(): end.")}});
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(recordsAtDestruction, expected.size() - 2);
    EXPECT_EQ(config.GetConfiguredIpAddress(), 3232235796UL);
    EXPECT_EQ(config.GetDNSAddress(2), 134744072UL);
}
