#include "DeviceFixture.h"

#include <stdexcept>

using testing::_;
using testing::InSequence;
using testing::IsEmpty;
using testing::Return;

namespace {

const char* const kDhcpRequest =
    "{ \"command\" : \"SetDeviceConfig\", \"ipc\" : \"true\", \"deviceConfig\" : { \"Dhcp\" : "
    "\"true\" } }";
const char* const kStaticRequest =
    "{ \"command\" : \"SetDeviceConfig\", \"ipc\" : \"true\", \"deviceConfig\" : { "
    "\"DefaultGateway\" : \"192.168.1.1\", \"Dhcp\" : \"false\", \"IpAddress\" : "
    "\"192.168.1.10\", \"NameServer\" : \"192.168.1.1\", \"NameServer2\" : \"0.0.0.0\", "
    "\"SubnetMask\" : \"255.255.255.0\" } }";

const Lines kUnchanged = {Debug("UpdateIPSettings(): settings unchanged.")};
const Lines kDhcpSent = {
    Debug("UpdateIPSettings(): calling SetDeviceConfig with only DHCP flag..."),
    Info("UpdateIPSettings(): Calling idsc->SetDeviceConfigAsync(mapValues)..."),
    Info("UpdateIPSettings(): Calling idsc->SetDeviceConfigAsync(mapValues) returned."),
    Debug("UpdateIPSettings(): end SetDeviceConfig with only DHCP flag.")};
const Lines kStaticSent = {
    Debug("UpdateIPSettings(): IpAddress = 192.168.1.10"),
    Debug("UpdateIPSettings(): SubnetMask = 255.255.255.0"),
    Debug("UpdateIPSettings(): DefaultGateway = 192.168.1.1"),
    Debug("UpdateIPSettings(): DnsAddress1 = 192.168.1.1"),
    Debug("UpdateIPSettings(): DnsAddress2 = 0.0.0.0"),
    Debug("UpdateIPSettings(): calling SetDeviceConfig..."),
    Info("UpdateIPSettings(): Calling idsc->SetDeviceConfigAsync(mapValues)..."),
    Debug("UpdateIPSettings(): end SetDeviceConfig."),
    Info("UpdateIPSettings(): Calling idsc->SetDeviceConfigAsync(mapValues) returned.")};
const Lines kCommitStart = {Debug("CommitConfiguration(): starting..."),
                            Debug("UpdateIPSettings(): starting...")};
const Lines kCommitEnd = {Debug("UpdateIPSettings(): end."), Debug("CommitConfiguration(): end.")};

// Device replies around the configured static settings of the fixture.
DeviceValues With(DeviceValues values, std::size_t index, const char* value) {
    values[index] = value;
    return values;
}
const DeviceValues kSame = {"false",       "192.168.1.10", "255.255.255.0",
                            "192.168.1.1", "192.168.1.1",  "0.0.0.0"};
const DeviceValues kOnDhcp = With(kSame, 0, "true");
const DeviceValues kOtherMask = With(kSame, 2, "255.255.0.0");
const DeviceValues kNoDns2 = With(kSame, 5, nullptr);
const DeviceValues kEmptyDns2 = With(kSame, 5, "");

// Configures 192.168.1.10/255.255.255.0, gateway and first DNS 192.168.1.1, no
// second DNS, then consumes the network refresh that construction leaves.
class CommitTest : public DeviceTest {
protected:
    void Configure(int methods) {
        config.SetIpAssignmentMethods(methods);
        config.SetConfiguredIpAddress(3232235786UL);
        config.SetConfiguredNetmask(4294967040UL);
        config.SetConfiguredGateway(3232235777UL);
        config.SetDNSAddress(1, 3232235777UL);
        config.GetCurrentIpAddress();
        log.Clear();
    }
};

struct CommitCase {
    const char* name;
    int methods;
    bool readable;
    DeviceValues device;
    int deviceMethod;
    const char* request;
    const Lines* sent;
};
void PrintTo(const CommitCase& c, std::ostream* os) {
    *os << c.name;
}

const CommitCase kCommitCases[] = {
    {"DhcpOnDhcpDevice", 15, true, kOnDhcp, 4, nullptr, &kUnchanged},
    {"DhcpOnStaticDevice", 15, true, kSame, 1, kDhcpRequest, &kDhcpSent},
    {"DhcpAutoIpOnStaticDevice", 12, true, kSame, 1, kDhcpRequest, &kDhcpSent},
    {"DhcpOnUnreadableDevice", 4, false, {}, 4, nullptr, &kUnchanged},
    {"ManualOnDhcpDevice", 1, true, kOnDhcp, 4, kStaticRequest, &kStaticSent},
    {"ManualOnUnreadableDevice", 1, false, {}, 4, kStaticRequest, &kStaticSent},
    {"ManualSameAsDevice", 1, true, kSame, 1, nullptr, &kUnchanged},
    {"ManualOtherMask", 1, true, kOtherMask, 1, kStaticRequest, &kStaticSent},
    {"ManualDns2NotReported", 1, true, kNoDns2, 1, kStaticRequest, &kStaticSent},
    {"ManualDns2Empty", 1, true, kEmptyDns2, 1, kStaticRequest, &kStaticSent},
    {"BootPSameAsDevice", 2, true, kSame, 1, nullptr, &kUnchanged},
    {"AutoIpOnDhcpDevice", 8, true, kOnDhcp, 4, kStaticRequest, &kStaticSent},
    {"NoMethodOnDhcpDevice", 0, true, kOnDhcp, 4, kStaticRequest, &kStaticSent},
};

// The second parameter is the client's answer to the request, which changes nothing.
class CommitDecision : public CommitTest,
                       public testing::WithParamInterface<std::tuple<CommitCase, bool>> {};

} // namespace

TEST_P(CommitDecision, SendsAtMostOneRequestAndRefreshesTheNetwork) {
    const CommitCase& c = std::get<0>(GetParam());
    Configure(c.methods);
    InSequence order;
    MockDeviceStackClient& client = ExpectRegistered(factory);
    ExpectRead(client, c.readable ? ReplyText(c.device) : std::string(kExampleReply), c.readable);
    if (c.request != nullptr) {
        EXPECT_CALL(client, RequestCommand(c.request, IsEmpty(), 360))
            .WillOnce(Return(std::get<1>(GetParam())));
    }
    EXPECT_CALL(client, Destroyed());
    EXPECT_CALL(net, DetermineNetworkInterface(_, _, _, _));

    config.CommitConfiguration();
    EXPECT_EQ(log.Lines(), Join({kCommitStart,
                                 kConnectLines,
                                 {Debug("UpdateIPSettings(): calling FetchQuarnIpSettings...")},
                                 FetchLines(c.deviceMethod, c.readable ? &c.device : nullptr),
                                 {Debug("UpdateIPSettings(): end FetchQuarnIpSettings.")},
                                 *c.sent,
                                 kCommitEnd}));
    config.GetCurrentIpAddress();
    config.GetCurrentIpAddress();
}

INSTANTIATE_TEST_SUITE_P(Table, CommitDecision,
                         testing::Combine(testing::ValuesIn(kCommitCases), testing::Bool()),
                         [](const testing::TestParamInfo<std::tuple<CommitCase, bool>>& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    (std::get<1>(info.param) ? "Accepted" : "Refused");
                         });

TEST_F(CommitTest, WithoutClientLogsConnectFailedAndKeepsTheNetwork) {
    Configure(1);
    EXPECT_CALL(factory, Create()).WillOnce(NoClient);
    EXPECT_CALL(net, DetermineNetworkInterface(_, _, _, _)).Times(0);

    config.CommitConfiguration();
    EXPECT_EQ(log.Lines(),
              Join({kCommitStart,
                    {Debug("Connect(): starting..."),
                     Error("Connect(): Create device stack client failed."),
                     Debug("Connect(): end."), Error("UpdateIPSettings(): Connect failed.")},
                    kCommitEnd}));
    config.GetCurrentIpAddress();
}

TEST_F(CommitTest, ClientExceptionsReachTheHostAndDestroyTheClientOnce) {
    Configure(1);
    for (const bool duringRead : {true, false}) {
        InSequence order;
        MockDeviceStackClient& client = ExpectRegistered(factory);
        if (duringRead) {
            EXPECT_CALL(client, GetDeviceConfig(_, 1))
                .WillOnce(testing::Throw(std::runtime_error("service gone")));
        } else {
            ExpectRead(client, ReplyText(kOtherMask));
            EXPECT_CALL(client, RequestCommand(kStaticRequest, _, 360))
                .WillOnce(testing::Throw(std::runtime_error("service gone")));
        }
        EXPECT_CALL(client, Destroyed());
        EXPECT_THROW(config.CommitConfiguration(), std::runtime_error);
    }
}

TEST_F(CommitTest, HostSwitchToStaticAddressSendsOneRequestAndSeesTheNewAddress) {
    const DeviceValues lease = With(kOnDhcp, 1, "192.168.1.110");
    InSequence order;
    EXPECT_CALL(net, DetermineNetworkInterface("eth0", 0, 0UL, true));
    MockDeviceStackClient& reader = ExpectRegistered(factory);
    ExpectRead(reader, ReplyText(lease));
    EXPECT_CALL(reader, Destroyed());
    EXPECT_CALL(net, DetermineNetworkInterface("eth0", 0, 0UL, true));
    EXPECT_CALL(net, GetCurrentIpAddress()).WillOnce(Return(3232235886UL));
    MockDeviceStackClient& writer = ExpectRegistered(factory);
    ExpectRead(writer, ReplyText(lease));
    EXPECT_CALL(writer, RequestCommand(kStaticRequest, IsEmpty(), 360)).WillOnce(Return(true));
    EXPECT_CALL(writer, Destroyed());
    EXPECT_CALL(net, DetermineNetworkInterface("eth0", 0, 0UL, true));
    EXPECT_CALL(net, GetCurrentIpAddress()).Times(2).WillRepeatedly(Return(3232235786UL));

    config.Init({{"interfaceName", "eth0"}});
    EXPECT_EQ(config.GetIpAssignmentMethods(), 4);
    EXPECT_EQ(config.GetConfiguredIpAddress(), 3232235886UL);
    EXPECT_EQ(config.GetCurrentIpAddress(), 3232235886UL);
    config.SetIpAssignmentMethods(1);
    config.SetConfiguredNetmask(4294967040UL);
    config.SetConfiguredIpAddress(3232235786UL);
    config.SetConfiguredGateway(3232235777UL);
    config.SetDNSAddress(1, 3232235777UL);
    config.SetDNSAddress(2, 0);
    config.CommitConfiguration();
    EXPECT_EQ(config.GetCurrentIpAddress(), 3232235786UL);
    EXPECT_EQ(config.GetCurrentIpAddress(), 3232235786UL);
}
