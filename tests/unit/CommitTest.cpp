#include "IpConfigTest.h"

#include <map>
#include <tuple>

namespace {

std::string Request(const std::string& pairs) {
    return R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : { )" + pairs +
           " } }";
}
const std::string kDhcpRequest = Request(R"("Dhcp" : "true")");
const std::string kStaticRequest =
    Request(R"("DefaultGateway" : "192.168.1.1", "Dhcp" : "false", "IpAddress" : "192.168.1.10", )"
            R"("NameServer" : "192.168.1.2", "NameServer2" : "0.0.0.0", )"
            R"("SubnetMask" : "255.255.255.0")");

const std::string kUpdate = "UpdateIPSettings(): ";
const LogLine kCalling = Info(kUpdate + "Calling idsc->SetDeviceConfigAsync(mapValues)...");
const LogLine kReturned = Info(kUpdate + "Calling idsc->SetDeviceConfigAsync(mapValues) returned.");
const Lines kUnchanged = {Debug(kUpdate + "settings unchanged.")};
const Lines kDhcpSent = {Debug(kUpdate + "calling SetDeviceConfig with only DHCP flag..."),
                         kCalling, Trace("RequestCommand(" + kDhcpRequest + ", 360)"), kReturned,
                         Debug(kUpdate + "end SetDeviceConfig with only DHCP flag.")};
// clang-format off
const Lines kStaticSent = {
    Debug(kUpdate + "IpAddress = 192.168.1.10"), Debug(kUpdate + "SubnetMask = 255.255.255.0"),
    Debug(kUpdate + "DefaultGateway = 192.168.1.1"), Debug(kUpdate + "DnsAddress1 = 192.168.1.2"),
    Debug(kUpdate + "DnsAddress2 = 0.0.0.0"), Debug(kUpdate + "calling SetDeviceConfig..."),
    kCalling, Trace("RequestCommand(" + kStaticRequest + ", 360)"),
    Debug(kUpdate + "end SetDeviceConfig."), kReturned};
// clang-format on
const Lines kCommitStart = {Debug("CommitConfiguration(): starting..."),
                            Debug(kUpdate + "starting...")};

// A device reply around the configured static settings of the fixture.
DeviceValues Device(const char* dhcp, const char* mask = "255.255.255.0",
                    const char* dns2 = "0.0.0.0") {
    return {dhcp, "192.168.1.10", mask, "192.168.1.1", "192.168.1.2", dns2};
}

// Name, configured methods, readable, the device's reply and the method read
// from it, the request sent (none if empty) and whether the client accepts it.
using CommitCase = std::tuple<const char*, int, bool, DeviceValues, int, std::string, bool>;
const CommitCase kCommitCases[] = {
    {"DhcpOnDhcpDevice", 15, true, Device("true"), 4, "", true},
    {"DhcpOnStaticDevice", 15, true, Device("false"), 1, kDhcpRequest, false},
    {"DhcpOnUnreadableDevice", 4, false, Device("false"), 4, "", true},
    {"ManualOnDhcpDevice", 1, true, Device("true"), 4, kStaticRequest, true},
    {"ManualSameAsDevice", 1, true, Device("false"), 1, "", true},
    {"ManualOtherMask", 1, true, Device("false", "255.255.0.0"), 1, kStaticRequest, false},
    {"ManualDns2NotReported", 1, true, Device("false", "255.255.255.0", nullptr), 1, kStaticRequest,
     true},
};

// Configures 192.168.1.10/255.255.255.0, gateway 192.168.1.1, first DNS
// 192.168.1.2, no second DNS, then consumes the selection a new object owes.
class CommitTest : public IpConfigTest {
protected:
    void Configure(int methods) {
        config.SetIpAssignmentMethods(methods);
        config.SetConfiguredIpAddress(3232235786UL);
        config.SetConfiguredNetmask(4294967040UL);
        config.SetConfiguredGateway(3232235777UL);
        config.SetDNSAddress(1, 3232235778UL);
        config.GetCurrentIpAddress();
        log.Clear();
    }
};
class Commit : public CommitTest, public testing::WithParamInterface<CommitCase> {};

// At most one request, the reply unexamined; the next query selects the interface.
TEST_P(Commit, SendsWhatDiffersFromTheDeviceAndRefreshesTheNetwork) {
    const auto& [name, methods, readable, device, deviceMethod, request, accepted] = GetParam();
    Configure(methods);
    ThePlatform().deviceConfig = ReplyText(device);
    if (!readable) ThePlatform().failing.insert(Call::GetDeviceConfig);
    if (!accepted) ThePlatform().failing.insert(Call::RequestCommand);
    config.CommitConfiguration();
    config.GetCurrentNetmask();

    const Lines& sent = request.empty()           ? kUnchanged
                        : request == kDhcpRequest ? kDhcpSent
                                                  : kStaticSent;
    EXPECT_EQ(log.Lines(),
              Join({kCommitStart,
                    kConnected,
                    {Debug(kUpdate + "calling FetchQuarnIpSettings...")},
                    FetchLines(deviceMethod, readable ? &device : nullptr),
                    {Debug(kUpdate + "end FetchQuarnIpSettings.")},
                    sent,
                    {Debug(kUpdate + "end."), kDestroyed, Debug("CommitConfiguration(): end.")},
                    Selection(Select()),
                    {Trace("GetCurrentNetmask()")}}));
}

INSTANTIATE_TEST_SUITE_P(Table, Commit, testing::ValuesIn(kCommitCases),
                         [](const auto& info) { return std::get<0>(info.param); });

TEST_F(CommitTest, WithoutClientLogsConnectFailedAndKeepsTheNetwork) {
    Configure(1);
    ThePlatform().failing = {Call::Create};
    config.CommitConfiguration();
    config.GetCurrentNetmask();
    EXPECT_EQ(log.Lines(),
              Join({kCommitStart,
                    kNoClient,
                    {Error(kUpdate + "Connect failed."), Debug(kUpdate + "end."),
                     Debug("CommitConfiguration(): end."), Trace("GetCurrentNetmask()")}}));
}

// The pairs in map order without control characters, quotes and backslashes
// (keys that differ only in those stay two entries), and the client's result.
TEST(RequestText, CarriesTheSanitizedPairsAndReturnsTheClientsResult) {
    using Map = std::map<std::string, std::string>;
    ThePlatform() = Platform();
    const auto client = Velbor::CreateDeviceStackClient();
    EXPECT_TRUE(SetDeviceConfigAsync(client, {}));
    EXPECT_TRUE(SetDeviceConfigAsync(client, Map{{"Na\\me", "a\"b\tc\n d\x7f\xc3\xbc"}}));
    ThePlatform().failing = {Call::RequestCommand};
    EXPECT_FALSE(SetDeviceConfigAsync(client, Map{{"IpAddress", "1"}, {"I\tpAddress", "2"}}));
    EXPECT_EQ(ThePlatform().requests,
              (std::vector<std::string>{Request(""), Request("\"Name\" : \"abc d\x7f\xc3\xbc\""),
                                        Request(R"("IpAddress" : "2", "IpAddress" : "1")")}));
}

} // namespace
