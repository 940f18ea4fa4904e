#include "DscKnxIpConfig.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct ScanCase {
    std::string text;
    std::string key;
    bool result;
    std::string value;
    std::string error; // empty: no ERROR message
};

class ReplyScanner : public testing::TestWithParam<ScanCase> {};

const std::string kMissingKey = "GetValue(): Missing key. key = ";
const std::string kNoBegin = "GetValue(): Missing value begin char.";
const std::string kNoEnd = "GetValue(): Missing value end char.";
const std::string kReply = R"({"Dhcp":"true","IpAddress":"192.168.1.20"})";

} // namespace

TEST_P(ReplyScanner, TakesTheTextBetweenTheDelimitersAfterTheFirstKey) {
    const ScanCase& c = GetParam();
    DscKnxIpConfig config;
    std::string value = "left over";
    LogCapture log;
    EXPECT_EQ(config.GetValue(c.text, c.key, value), c.result);
    EXPECT_EQ(value, c.value);

    std::vector<LogLine> expected{Debug("GetValue(): start. Node = " + c.key)};
    if (!c.error.empty()) {
        expected.push_back(Error(c.error));
    }
    if (!c.text.empty()) {
        expected.push_back(Debug("GetValue(): end. Value = " + c.value));
    }
    EXPECT_EQ(log.Lines(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    WorkedExamples, ReplyScanner,
    testing::Values(
        ScanCase{kReply, "Dhcp", true, "true", ""},
        ScanCase{kReply, "IpAddress", true, "192.168.1.20", ""},
        ScanCase{kReply, "SubnetMask", false, "", kMissingKey + R"("SubnetMask":)"},
        ScanCase{R"({"Dhcp": "false"})", "Dhcp", true, "false", ""},
        ScanCase{R"({"Dhcp" : "true"})", "Dhcp", false, "", kMissingKey + R"("Dhcp":)"},
        ScanCase{R"({"dhcp":"true"})", "Dhcp", false, "", kMissingKey + R"("Dhcp":)"},
        ScanCase{R"({"NameServer2":"10.0.0.2","NameServer":"10.0.0.1"})", "NameServer", true,
                 "10.0.0.1", ""},
        ScanCase{R"({"a":{"Dhcp":"false"},"Dhcp":"true"})", "Dhcp", true, "false", ""},
        ScanCase{R"({"Dhcp":true,"IpAddress":"10.0.0.5"})", "Dhcp", true, "IpAddress", ""},
        ScanCase{R"({"Dhcp":false})", "Dhcp", false, "", kNoBegin},
        ScanCase{R"({"IpAddress":""})", "IpAddress", true, "", ""},
        ScanCase{R"({"IpAddress":"10.0.0.5)", "IpAddress", false, "", kNoEnd},
        ScanCase{R"({"IpAddress":)", "IpAddress", false, "", kMissingKey + R"("IpAddress":)"},
        ScanCase{R"({"Name":"a\"b"})", "Name", true, R"(a\)", ""},
        ScanCase{"<Dhcp>true</Dhcp>", "Dhcp", true, "/Dhcp", ""},
        ScanCase{"<Dhcp><true></Dhcp>", "Dhcp", true, "true", ""},
        ScanCase{" <Dhcp>true</Dhcp>", "Dhcp", false, "", kMissingKey + R"("Dhcp":)"},
        ScanCase{"", "Dhcp", false, "", ""}));

INSTANTIATE_TEST_SUITE_P(
    EdgeCases, ReplyScanner,
    testing::Values(ScanCase{R"({"":"x"})", "", true, "x", ""},
                    ScanCase{R"({"a":"x"})", "", false, "", kMissingKey + R"("":)"},
                    ScanCase{"<><v>", "", true, "v", ""},
                    ScanCase{"<a><v>", "", false, "", kMissingKey + "<>"},
                    ScanCase{"<Dhcp>", "Dhcp", false, "", kMissingKey + "<Dhcp>"},
                    ScanCase{"<Dhcp>true", "Dhcp", false, "", kNoBegin},
                    ScanCase{"<Dhcp><true", "Dhcp", false, "", kNoEnd},
                    ScanCase{R"(<x>{"Dhcp":"true"}</x>)", "Dhcp", false, "",
                             kMissingKey + "<Dhcp>"},
                    ScanCase{R"({"Name":"a:b,c}"})", "Name", true, "a:b,c}", ""},
                    ScanCase{"\n{\"Dhcp\":\n\"x\ty\"}", "Dhcp", true, "x\ty", ""}));

TEST(ReplyScanner, CannotReadBackTheRequestForm) {
    const std::string request =
        R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : { )"
        R"("DefaultGateway" : "192.168.1.1", "Dhcp" : "false", "IpAddress" : "192.168.1.10", )"
        R"("NameServer" : "192.168.1.1", "NameServer2" : "0.0.0.0", )"
        R"("SubnetMask" : "255.255.255.0" } })";
    DscKnxIpConfig config;
    for (const char* key : {"command", "ipc", "deviceConfig", "DefaultGateway", "Dhcp", "IpAddress",
                            "NameServer", "NameServer2", "SubnetMask"}) {
        LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        std::string value;
        EXPECT_FALSE(config.GetValue(request, key, value));
        EXPECT_EQ(log.Lines(), std::vector<LogLine>{Error(kMissingKey + '"' + key + "\":")});
    }
}

TEST(ReplyScanner, RecordsCarryTheScannersLocation) {
    DscKnxIpConfig config;
    std::string value;
    LogCapture log;
    config.GetValue(R"({"Dhcp":false})", "Dhcp", value);
    ASSERT_EQ(log.Records().size(), 3U);
    for (const LogRecord& record : log.Records()) {
        EXPECT_EQ(record.logger, "KnxStack.IpConfig");
        EXPECT_EQ(record.file, "DeviceStackClient/DscKnxIpConfig/DscKnxIpConfig");
        EXPECT_EQ(record.function,
                  "bool DscKnxIpConfig::GetValue(const string&, const string&, std::string&)");
    }
}
