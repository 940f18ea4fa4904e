#include "IpConfigTest.h"

#include <gmock/gmock.h>

#include <climits>
#include <set>
#include <tuple>

namespace {

// Init's properties select the interface by name, index and "specified" flag;
// each Init follows one that named another interface.
TEST_F(IpConfigTest, InitPropertiesSelectTheInterface) {
    ThePlatform().failing = {Call::Create};
    for (const auto& [properties, selected] :
         std::initializer_list<std::pair<ConfigPropertyMap, LogLine>>{
             {{}, Select()},
             {{{"interfaceIndex", "3"}}, Select("", 3, true)},
             {{{"interfaceName", "wlan1"}}, Select("wlan1", 0, true)},
             {{{"interfaceIndex", "-2"}}, Select("", -2, false)},
             {{{"interfaceIndex", "12x"}}, Select("", 12, true)},
             {{{"interfaceIndex", "99999999999"}}, Select("", INT_MAX, true)},
             {{{"InterfaceIndex", "5"}, {"name", "eth9"}}, Select()}}) {
        config.Init({{"interfaceIndex", "5"}, {"interfaceName", "eth9"}});
        log.Clear();
        EXPECT_TRUE(config.Init(properties));
        EXPECT_THAT(log.Lines(), testing::Contains(selected));
    }
}

// A query selects the interface on a new object; Init selects it and applies
// the device's settings, the client gone before it returns; the first query
// after Init selects once more without reading the device, later ones and the
// MAC do not.
TEST_F(IpConfigTest, InitSelectsAndReadsTheDeviceAndQueriesSelectOnceAfterIt) {
    ThePlatform().deviceConfig = ReplyText(kExampleValues);
    EXPECT_EQ(config.GetCurrentGateway(), 0xC0A80101UL);
    EXPECT_TRUE(config.Init({{"interfaceIndex", "2"}, {"interfaceName", "eth1"}}));
    EXPECT_EQ(config.GetCurrentIpAddress(), 0xC0A8010AUL);
    EXPECT_EQ(config.GetCurrentNetmask(), 0xFFFFFF00UL);
    EXPECT_EQ(config.GetIpAssignmentMethods(), 1);
    std::array<unsigned char, 6> mac{};
    config.GetMacAddress(mac.data()); // from the cache, shown up to its first zero byte
    EXPECT_EQ(mac, ThePlatform().mac);

    const Lines deviceRead = Join({kConnected,
                                   FetchLines(1, &kExampleValues),
                                   AppliedLines(31, kExampleAddresses),
                                   {kDestroyed}});
    EXPECT_EQ(log.Lines(), Join({Selection(Select()),
                                 {Trace("GetCurrentGateway()"), Info("Init(): starting...")},
                                 Selection(Select("eth1", 2, true), deviceRead),
                                 {Debug("Init(): end.")},
                                 Selection(Select("eth1", 2, true)),
                                 {Trace("GetCurrentIpAddress()"), Trace("GetCurrentNetmask()"),
                                  Debug("GetIpAssignmentMethods(): Value = 1"),
                                  Debug("GetMacAddress(): Value = \x02KNX")}}));
}

// Name, the failing calls, the reply's values, and the method, valid fields
// and addresses read; Init applies the valid fields and a positive method.
using ReadCase =
    std::tuple<const char*, std::set<Call>, DeviceValues, int, std::uint32_t, Addresses>;
const ReadCase kReadCases[] = {
    {"DhcpOnly", {}, {"true"}, 4, 0, {}},
    {"Unreadable", {Call::GetDeviceConfig}, kExampleValues, 4, 0, {}},
    {"NoClient", {Call::Create}, kExampleValues, 0, 0, {}},
    {"RegistrationRefused", {Call::RegisterApplication}, kExampleValues, 0, 0, {}},
    {"CapitalTrue", {}, {"True"}, 1, 0, {}},
    {"EmptyAddress", {}, {nullptr, "", "255.0.0.0"}, 4, 2, {0, 4278190080}},
    {"OnlySecondDns", {}, {"no", 0, 0, 0, 0, "10.0.0.2"}, 1, 16, {0, 0, 0, 0, 167772162}},
};

class DeviceRead : public IpConfigTest, public testing::WithParamInterface<ReadCase> {};

TEST_P(DeviceRead, InitAppliesTheReportedFieldsAndAPositiveMethod) {
    const auto& [name, failing, scanned, method, validFields, addresses] = GetParam();
    ThePlatform().deviceConfig = ReplyText(scanned);
    ThePlatform().failing = failing;
    config.Init({});
    const int methods = method > 0 ? method : 15;
    EXPECT_EQ(config.GetIpAssignmentMethods(), methods);
    const Lines noClient = {Debug("FetchQuarnIpSettings(): starting..."),
                            Error("FetchQuarnIpSettings(): No device stack client exists.")};
    const bool readable = failing.empty();
    const Lines read = failing.count(Call::Create) ? Join({kNoClient, noClient})
                       : failing.count(Call::RegisterApplication)
                           ? Join({kRefused, noClient})
                           : Join({kConnected,
                                   FetchLines(method, readable ? &scanned : nullptr),
                                   AppliedLines(validFields, addresses),
                                   {kDestroyed}});
    EXPECT_EQ(log.Lines(),
              Join({{Info("Init(): starting...")},
                    Selection(Select(), read),
                    {Debug("Init(): end."),
                     Debug("GetIpAssignmentMethods(): Value = " + std::to_string(methods))}}));
}

INSTANTIATE_TEST_SUITE_P(Replies, DeviceRead, testing::ValuesIn(kReadCases),
                         [](const auto& info) { return std::get<0>(info.param); });

TEST_F(IpConfigTest, OnlyNoInterfaceFailsTheSelection) {
    KnxStack::Ip::IpConnectionInfo unused;
    for (const unsigned long selected : {KnxStack::Ip::IpConnectionInfo::NoInterface, 0UL, 2UL}) {
        ThePlatform().interfaceId = selected;
        EXPECT_EQ(config.InitNetwork(unused, false), selected != 0xFFFFFFFFUL) << selected;
    }
}

// The object's own virtual operations, which selection and the device read go through.
class Spy : public DscKnxIpConfig {
public:
    MOCK_METHOD(void, GetMacAddress, (unsigned char*), (override));
    MOCK_METHOD(void, SetConfiguredIpAddress, (unsigned long), (override));
    MOCK_METHOD(void, SetConfiguredNetmask, (unsigned long), (override));
    MOCK_METHOD(void, SetConfiguredGateway, (unsigned long), (override));
    MOCK_METHOD(void, SetDNSAddress, (unsigned int, unsigned long), (override));
};

TEST_F(IpConfigTest, SelectionAndDeviceReadUseTheVirtualOperations) {
    ThePlatform().deviceConfig = ReplyText(kExampleValues);
    testing::StrictMock<Spy> spy;
    const testing::InSequence order;
    EXPECT_CALL(spy, GetMacAddress(testing::_));
    EXPECT_CALL(spy, SetConfiguredIpAddress(kExampleAddresses[0]));
    EXPECT_CALL(spy, SetConfiguredNetmask(kExampleAddresses[1]));
    EXPECT_CALL(spy, SetConfiguredGateway(kExampleAddresses[2]));
    EXPECT_CALL(spy, SetDNSAddress(1, kExampleAddresses[3]));
    EXPECT_CALL(spy, SetDNSAddress(2, kExampleAddresses[4]));
    EXPECT_CALL(spy, GetMacAddress(testing::_));
    spy.Init({});
    spy.GetCurrentIpAddress();
}

} // namespace
