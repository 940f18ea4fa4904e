#include "DeviceFixture.h"

namespace {

// A refused client is destroyed before the failure is logged; an empty
// connection text still goes to the library.
TEST_F(DeviceTest, ConnectReturnsOnlyARegisteredClient) {
    char empty[] = "", named[] = "service:0";
    auto* refused = new testing::StrictMock<MockDeviceStackClient>;
    std::size_t loggedBefore = 0;
    InSequence order;
    EXPECT_CALL(factory, CreateWith(""));
    EXPECT_CALL(factory, CreateWith("service:0"))
        .WillOnce(Return(testing::ByMove(ClientPtr(refused))));
    EXPECT_CALL(*refused, RegisterApplication("DscKnxIpConfig", "field", "KNX"))
        .WillOnce(Return(false));
    EXPECT_CALL(*refused, Destroyed()).WillOnce([&] { loggedBefore = log.Records().size(); });
    MockDeviceStackClient& client = ExpectClient();
    EXPECT_CALL(client, Destroyed());

    EXPECT_EQ(config.Connect(empty), nullptr);
    EXPECT_EQ(config.Connect(named), nullptr);
    EXPECT_EQ(loggedBefore, 5U);
    EXPECT_EQ(config.Connect(nullptr).get(), &client);
    const Lines refusal = {kConnectLines[0], kConnectLines[1],
                           Error("Connect(): RegisterApplication failed."), kConnectLines[2],
                           kConnectLines[3]};
    EXPECT_EQ(log.Lines(), Join({kNoClientLines, refusal, kConnectLines}));
}

// Text, key, result, value, and the ERROR message (none if empty).
using ScanCase = std::tuple<std::string, std::string, bool, std::string, std::string>;
const std::string kMissingKey = "GetValue(): Missing key. key = ";
const std::string kNoBegin = "GetValue(): Missing value begin char.";
const std::string kNoEnd = "GetValue(): Missing value end char.";
const std::string kReply = R"({"Dhcp":"true","IpAddress":"192.168.1.20"})";
const ScanCase kScanCases[] = {
    {kReply, "Dhcp", true, "true", ""},
    {kReply, "IpAddress", true, "192.168.1.20", ""},
    {kReply, "SubnetMask", false, "", kMissingKey + R"("SubnetMask":)"},
    {R"({"Dhcp": "false"})", "Dhcp", true, "false", ""},
    {R"({"Dhcp" : "true"})", "Dhcp", false, "", kMissingKey + R"("Dhcp":)"},
    {R"({"dhcp":"true"})", "Dhcp", false, "", kMissingKey + R"("Dhcp":)"},
    {R"({"NameServer2":"10.0.0.2","NameServer":"10.0.0.1"})", "NameServer", true, "10.0.0.1", ""},
    {R"({"a":{"Dhcp":"false"},"Dhcp":"true"})", "Dhcp", true, "false", ""},
    {R"({"Dhcp":true,"IpAddress":"10.0.0.5"})", "Dhcp", true, "IpAddress", ""},
    {R"({"Dhcp":false})", "Dhcp", false, "", kNoBegin},
    {R"({"IpAddress":""})", "IpAddress", true, "", ""},
    {R"({"IpAddress":"10.0.0.5)", "IpAddress", false, "", kNoEnd},
    {R"({"IpAddress":)", "IpAddress", false, "", kMissingKey + R"("IpAddress":)"},
    {R"({"Name":"a\"b"})", "Name", true, R"(a\)", ""},
    {"<Dhcp>true</Dhcp>", "Dhcp", true, "/Dhcp", ""},
    {"<Dhcp><true></Dhcp>", "Dhcp", true, "true", ""},
    {" <Dhcp>true</Dhcp>", "Dhcp", false, "", kMissingKey + R"("Dhcp":)"},
    {"", "Dhcp", false, "", ""},
    {R"({"":"x"})", "", true, "x", ""},
    {R"({"a":"x"})", "", false, "", kMissingKey + R"("":)"},
    {"<><v>", "", true, "v", ""},
    {"<a><v>", "", false, "", kMissingKey + "<>"},
    {"<Dhcp>", "Dhcp", false, "", kMissingKey + "<Dhcp>"},
    {"<Dhcp>true", "Dhcp", false, "", kNoBegin},
    {"<Dhcp><true", "Dhcp", false, "", kNoEnd},
    {R"(<x>{"Dhcp":"true"}</x>)", "Dhcp", false, "", kMissingKey + "<Dhcp>"},
    {R"({"Name":"a:b,c}"})", "Name", true, "a:b,c}", ""},
    {"\n{\"Dhcp\":\n\"x\ty\"}", "Dhcp", true, "x\ty", ""},
};

class ReplyScanner : public testing::TestWithParam<ScanCase> {};

TEST_P(ReplyScanner, TakesTheTextBetweenTheDelimitersAfterTheFirstKey) {
    const auto& [text, key, result, expected, error] = GetParam();
    DscKnxIpConfig config;
    std::string value = "left over";
    LogCapture log;
    EXPECT_EQ(config.GetValue(text, key, value), result);
    EXPECT_EQ(value, expected);
    Lines lines{Debug("GetValue(): start. Node = " + key)};
    if (!error.empty()) lines.push_back(Error(error));
    if (!text.empty()) lines.push_back(Debug("GetValue(): end. Value = " + expected));
    EXPECT_EQ(log.Lines(), lines);
    for (const LogRecord& record : log.Records()) {
        EXPECT_EQ(record.logger, "KnxStack.IpConfig");
        EXPECT_EQ(record.file, "DeviceStackClient/DscKnxIpConfig/DscKnxIpConfig");
        EXPECT_EQ(record.function,
                  "bool DscKnxIpConfig::GetValue(const string&, const string&, std::string&)");
    }
}

INSTANTIATE_TEST_SUITE_P(Examples, ReplyScanner, testing::ValuesIn(kScanCases));

TEST_F(DeviceTest, ReadingWithoutAClientGivesZeroAndChangesNothing) {
    DscKnxIpConfig::IpConfiguration settings;
    settings.assignmentMethods = 8;
    const Lines lines = {Debug("FetchQuarnIpSettings(): starting..."),
                         Error("FetchQuarnIpSettings(): No device stack client exists.")};
    EXPECT_EQ(config.FetchQuarnIpSettings(settings, nullptr), 0);
    EXPECT_EQ(settings.assignmentMethods, 8);
    EXPECT_EQ(config.GetQuarnIpSettings(nullptr), 0);
    EXPECT_EQ(log.Lines(), Join({lines, lines}));
}

// Name, readable, the reply's values, and the method, valid bits and addresses read.
using ReadCase = std::tuple<const char*, bool, DeviceValues, int, std::uint32_t, Addresses>;
const ReadCase kReadCases[] = {
    {"Example", true, kExampleValues, 1, 31, kExampleAddresses},
    {"DhcpOnly", true, {"true"}, 4, 0, {}},
    {"Unreadable", false, kExampleValues, 4, 0, {}},
    {"CapitalTrue", true, {"True"}, 1, 0, {}},
    {"EmptyAddress", true, {nullptr, "", "255.0.0.0"}, 4, 2, {0, 4278190080}},
    {"NotAnAddress", true, With({"no"}, 4, "dns.local"), 1, 8, {0, 0, 0, 4294967295}},
    {"OnlySecondDns", true, With({}, 5, "10.0.0.2"), 4, 16, {0, 0, 0, 0, 167772162}},
};

class DeviceRead : public DeviceTest, public testing::WithParamInterface<ReadCase> {
protected:
    DeviceRead() { EXPECT_CALL(client, Destroyed()); }
    // Handed straight to the read operations, without the factory.
    MockDeviceStackClient& client = *new testing::StrictMock<MockDeviceStackClient>;
    ClientPtr idsc{&client};
};

TEST_P(DeviceRead, FetchReportsMethodAndFieldsAndApplyingCallsOneSetterPerField) {
    const auto& [name, readable, scanned, method, validFields, addresses] = GetParam();
    ExpectRead(client, ReplyText(scanned), readable, 2);
    DscKnxIpConfig::IpConfiguration s;

    EXPECT_EQ(config.FetchQuarnIpSettings(s, idsc), method);
    EXPECT_EQ(s.assignmentMethods, readable ? method : 0);
    EXPECT_EQ(s.validFields, validFields);
    EXPECT_EQ(
        (Addresses{s.ipAddress, s.subnetMask, s.defaultGateway, s.dnsAddress1, s.dnsAddress2}),
        addresses);
    EXPECT_EQ(s.supportedMethods, 13U);
    EXPECT_EQ(config.GetQuarnIpSettings(idsc), method);
    const Lines fetch = FetchLines(method, readable ? &scanned : nullptr);
    EXPECT_EQ(log.Lines(), Join({fetch, fetch, AppliedLines(validFields, addresses)}));
    EXPECT_EQ(config.GetIpAssignmentMethods(), 15);
}

INSTANTIATE_TEST_SUITE_P(Replies, DeviceRead, testing::ValuesIn(kReadCases));

} // namespace
