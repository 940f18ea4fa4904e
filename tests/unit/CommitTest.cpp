#include "DeviceFixture.h"

#include <nlohmann/json.hpp>

#include <map>
#include <random>
#include <stdexcept>

namespace {

using namespace std::string_literals;

std::string Request(const std::string& pairs) {
    return R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : { )" + pairs +
           " } }";
}
const std::string kDhcpRequest = Request(R"("Dhcp" : "true")");
const std::string kStaticRequest =
    Request(R"("DefaultGateway" : "192.168.1.1", "Dhcp" : "false", "IpAddress" : "192.168.1.10", )"
            R"("NameServer" : "192.168.1.1", "NameServer2" : "0.0.0.0", )"
            R"("SubnetMask" : "255.255.255.0")");

const std::string kUpdate = "UpdateIPSettings(): ";
const LogLine kCalling = Info(kUpdate + "Calling idsc->SetDeviceConfigAsync(mapValues)...");
const LogLine kReturned = Info(kUpdate + "Calling idsc->SetDeviceConfigAsync(mapValues) returned.");
const Lines kUnchanged = {Debug(kUpdate + "settings unchanged.")};
const Lines kDhcpSent = {Debug(kUpdate + "calling SetDeviceConfig with only DHCP flag..."),
                         kCalling, kReturned,
                         Debug(kUpdate + "end SetDeviceConfig with only DHCP flag.")};
// clang-format off
const Lines kStaticSent = {
    Debug(kUpdate + "IpAddress = 192.168.1.10"), Debug(kUpdate + "SubnetMask = 255.255.255.0"),
    Debug(kUpdate + "DefaultGateway = 192.168.1.1"), Debug(kUpdate + "DnsAddress1 = 192.168.1.1"),
    Debug(kUpdate + "DnsAddress2 = 0.0.0.0"), Debug(kUpdate + "calling SetDeviceConfig..."),
    kCalling, Debug(kUpdate + "end SetDeviceConfig."), kReturned};
// clang-format on
const Lines kCommitStart = {Debug("CommitConfiguration(): starting..."),
                            Debug(kUpdate + "starting...")};
const Lines kCommitEnd = {Debug(kUpdate + "end."), Debug("CommitConfiguration(): end.")};

// Device replies around the configured static settings of the fixture.
const DeviceValues kSame = {"false",       "192.168.1.10", "255.255.255.0",
                            "192.168.1.1", "192.168.1.1",  "0.0.0.0"};
const DeviceValues kOnDhcp = With(kSame, 0, "true");

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

// Name, configured methods, readable, the device's reply and the method read from
// it, and the request sent (none if empty).
using CommitCase = std::tuple<const char*, int, bool, DeviceValues, int, std::string>;
const CommitCase kCommitCases[] = {
    {"DhcpOnDhcpDevice", 15, true, kOnDhcp, 4, ""},
    {"DhcpOnStaticDevice", 15, true, kSame, 1, kDhcpRequest},
    {"DhcpAutoIpOnStaticDevice", 12, true, kSame, 1, kDhcpRequest},
    {"DhcpOnUnreadableDevice", 4, false, kSame, 4, ""},
    {"ManualOnDhcpDevice", 1, true, kOnDhcp, 4, kStaticRequest},
    {"ManualOnUnreadableDevice", 1, false, kSame, 4, kStaticRequest},
    {"ManualSameAsDevice", 1, true, kSame, 1, ""},
    {"ManualOtherMask", 1, true, With(kSame, 2, "255.255.0.0"), 1, kStaticRequest},
    {"ManualDns2NotReported", 1, true, With(kSame, 5, nullptr), 1, kStaticRequest},
    {"ManualDns2Empty", 1, true, With(kSame, 5, ""), 1, kStaticRequest},
    {"BootPSameAsDevice", 2, true, kSame, 1, ""},
    {"AutoIpOnDhcpDevice", 8, true, kOnDhcp, 4, kStaticRequest},
    {"NoMethodOnDhcpDevice", 0, true, kOnDhcp, 4, kStaticRequest},
};

// The second parameter is the client's answer to the request, which changes nothing.
class CommitDecision : public CommitTest,
                       public testing::WithParamInterface<std::tuple<CommitCase, bool>> {};

TEST_P(CommitDecision, SendsAtMostOneRequestAndRefreshesTheNetwork) {
    const auto& [name, methods, readable, device, deviceMethod, request] = std::get<0>(GetParam());
    Configure(methods);
    InSequence order;
    MockDeviceStackClient& client = ExpectClient();
    ExpectRead(client, ReplyText(device), readable);
    if (!request.empty()) {
        EXPECT_CALL(client, RequestCommand(request, testing::IsEmpty(), 360))
            .WillOnce(Return(std::get<1>(GetParam())));
    }
    EXPECT_CALL(client, Destroyed());
    EXPECT_CALL(net, DetermineNetworkInterface(_, _, _, _));

    config.CommitConfiguration();
    const Lines& sent = request.empty()           ? kUnchanged
                        : request == kDhcpRequest ? kDhcpSent
                                                  : kStaticSent;
    EXPECT_EQ(log.Lines(), Join({kCommitStart,
                                 kConnectLines,
                                 {Debug(kUpdate + "calling FetchQuarnIpSettings...")},
                                 FetchLines(deviceMethod, readable ? &device : nullptr),
                                 {Debug(kUpdate + "end FetchQuarnIpSettings.")},
                                 sent,
                                 kCommitEnd}));
    config.GetCurrentIpAddress();
    config.GetCurrentIpAddress();
}

INSTANTIATE_TEST_SUITE_P(Table, CommitDecision,
                         testing::Combine(testing::ValuesIn(kCommitCases), testing::Bool()));

TEST_F(CommitTest, WithoutClientLogsConnectFailedAndKeepsTheNetwork) {
    Configure(1);
    ExpectNoClient();
    EXPECT_CALL(net, DetermineNetworkInterface(_, _, _, _)).Times(0);
    config.CommitConfiguration();
    EXPECT_EQ(
        log.Lines(),
        Join({kCommitStart, kNoClientLines, {Error(kUpdate + "Connect failed.")}, kCommitEnd}));
    config.GetCurrentIpAddress();
}

TEST_F(CommitTest, ClientExceptionsReachTheHostAfterTheClientIsDestroyed) {
    Configure(1);
    const auto gone = testing::Throw(std::runtime_error("service gone"));
    for (int step = 0; step < 3; ++step) {
        InSequence order;
        MockDeviceStackClient& client = step == 0 ? ExpectClient(gone) : ExpectClient();
        if (step == 1) EXPECT_CALL(client, GetDeviceConfig(_, 1)).WillOnce(gone);
        if (step == 2) {
            ExpectRead(client, ReplyText(kOnDhcp));
            EXPECT_CALL(client, RequestCommand(kStaticRequest, _, 360)).WillOnce(gone);
        }
        EXPECT_CALL(client, Destroyed());
        EXPECT_THROW(config.CommitConfiguration(), std::runtime_error) << step;
    }
}

TEST(Sanitize, KeepsEveryByteButControlsQuoteAndBackslash) {
    std::string all, kept;
    for (int byte = 0; byte < 256; ++byte) all.push_back(static_cast<char>(byte));
    for (char c : all.substr(0x20)) {
        if (c != '"' && c != '\\') kept.push_back(c);
    }
    EXPECT_EQ(SanitizeConfigText(all), kept);
}

// Sends `values` through a client that answers `accepted`; the client must see
// exactly one request with an empty reply and 360, and nothing may be logged.
using Map = std::map<std::string, std::string>;
std::pair<bool, std::string> Send(const Map& values, bool accepted = true) {
    auto* client = new testing::StrictMock<MockDeviceStackClient>;
    const ClientPtr idsc(client);
    std::string request;
    InSequence order;
    EXPECT_CALL(*client, RequestCommand(_, testing::IsEmpty(), 360))
        .WillOnce(testing::DoAll(testing::SaveArg<0>(&request), Return(accepted)));
    EXPECT_CALL(*client, Destroyed());
    LogCapture log;
    const bool result = SetDeviceConfigAsync(idsc, values);
    EXPECT_TRUE(log.Lines().empty());
    return {result, request};
}

class RequestText : public testing::TestWithParam<std::pair<Map, std::string>> {};

TEST_P(RequestText, IsOneLineOfSanitizedPairsInMapOrder) {
    EXPECT_EQ(Send(GetParam().first).second, GetParam().second);
}

// clang-format off
const std::pair<Map, std::string> kRequestCases[] = {
    {{{"DefaultGateway", "192.168.1.1"}, {"Dhcp", "false"}, {"IpAddress", "192.168.1.10"},
      {"NameServer", "192.168.1.1"}, {"NameServer2", "0.0.0.0"}, {"SubnetMask", "255.255.255.0"}},
     kStaticRequest},
    {{{"Dhcp", "true"}}, kDhcpRequest},
    {{}, Request("")},
    {{{"Name", "a\"b"}}, Request(R"("Name" : "ab")")},
    {{{"Na\\me", "a\tb\n"}}, Request(R"("Name" : "ab")")},
    {{{"Name", "\t\n\r\0\x1f"s}}, Request(R"("Name" : "")")},
    {{{"Name", "\x7f\xc3\xbc"}}, Request("\"Name\" : \"\x7f\xc3\xbc\"")},
    {{{"IpAddress", "1"}, {"I\tpAddress", "2"}},
     Request(R"("IpAddress" : "2", "IpAddress" : "1")")},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Examples, RequestText, testing::ValuesIn(kRequestCases));

TEST(RequestText, ReturnsTheClientsResult) {
    EXPECT_TRUE(Send({{"Dhcp", "true"}}, true).first);
    EXPECT_FALSE(Send({{"Dhcp", "true"}}, false).first);
}

// Random texts of dropped characters, ASCII bytes and UTF-8 letters: the request
// parses as JSON and its object carries the sanitized pairs in map order.
TEST(RequestText, ParsesAsJsonCarryingTheSanitizedPairsInMapOrder) {
    // clang-format off
    const std::string pieces[] = {"\0"s, "\"", "\\", "\t", "\x7f", ":", ",", "{", "}", " ",
                                  "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"};
    // clang-format on
    std::mt19937 random(20240611);
    const auto text = [&] {
        std::string t;
        for (auto n = random() % 9; n > 0; --n) {
            t += random() % 3 ? pieces[random() % std::size(pieces)]
                              : std::string(1, char(random() % 128));
        }
        return t;
    };
    using Json = nlohmann::json;
    for (int round = 0; round < 1500; ++round) {
        Map values;
        for (auto n = random() % 7; n > 0; --n) values[text()] = text();
        std::vector<std::pair<std::string, std::string>> expected, nested;
        for (const auto& [key, value] : values) {
            expected.emplace_back(SanitizeConfigText(key), SanitizeConfigText(value));
        }
        const auto collect = [&nested](int depth, Json::parse_event_t event, Json& parsed) {
            if (depth != 2) return true;
            if (event == Json::parse_event_t::key)
                nested.emplace_back(parsed.get<std::string>(), "");
            if (event == Json::parse_event_t::value)
                nested.back().second = parsed.get<std::string>();
            return true;
        };
        const std::string request = Send(values).second;
        ASSERT_NO_THROW(Json::parse(request, collect)) << request;
        ASSERT_EQ(nested, expected) << request;
    }
}

} // namespace
