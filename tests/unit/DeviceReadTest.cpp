#include "IpConfigTest.h"

#include <tuple>

namespace {

// A named connection goes to the factory function that takes one.
TEST_F(IpConfigTest, ConnectHandsTheConnectionTextToTheFactory) {
    char named[] = "service:0";
    EXPECT_NE(config.Connect(named), nullptr);
    EXPECT_EQ(log.Lines().at(1), Trace("CreateDeviceStackClient(\"service:0\")"));
}

// Text, key, result, value, and the ERROR message (none if empty).
using ScanCase = std::tuple<std::string, std::string, bool, std::string, std::string>;
const std::string kMissingKey = "GetValue(): Missing key. key = ";
const std::string kNoBegin = "GetValue(): Missing value begin char.";
const std::string kNoEnd = "GetValue(): Missing value end char.";
const ScanCase kScanCases[] = {
    {R"({"Dhcp":"true","IpAddress":"192.168.1.20"})", "IpAddress", true, "192.168.1.20", ""},
    {R"({"Dhcp": "false"})", "Dhcp", true, "false", ""},
    {R"({"Dhcp" : "true"})", "Dhcp", false, "", kMissingKey + R"("Dhcp":)"},
    {R"({"NameServer2":"10.0.0.2","NameServer":"10.0.0.1"})", "NameServer", true, "10.0.0.1", ""},
    {R"({"a":{"Dhcp":"false"},"Dhcp":"true"})", "Dhcp", true, "false", ""},
    {R"({"Dhcp":true,"IpAddress":"10.0.0.5"})", "Dhcp", true, "IpAddress", ""},
    {R"({"Dhcp":false})", "Dhcp", false, "", kNoBegin},
    {R"({"IpAddress":""})", "IpAddress", true, "", ""},
    {R"({"IpAddress":"10.0.0.5)", "IpAddress", false, "", kNoEnd},
    {R"({"IpAddress":)", "IpAddress", false, "", kMissingKey + R"("IpAddress":)"},
    {"<Dhcp><true></Dhcp>", "Dhcp", true, "true", ""},
    {" <Dhcp>true</Dhcp>", "Dhcp", false, "", kMissingKey + R"("Dhcp":)"},
    {"<Dhcp>true", "Dhcp", false, "", kNoBegin},
    {"<Dhcp><true", "Dhcp", false, "", kNoEnd},
    {"", "Dhcp", false, "", ""},
};

class ReplyScanner : public IpConfigTest, public testing::WithParamInterface<ScanCase> {};

TEST_P(ReplyScanner, TakesTheTextBetweenTheDelimitersAfterTheFirstKey) {
    const auto& [text, key, result, expected, error] = GetParam();
    std::string value = "left over";
    EXPECT_EQ(config.GetValue(text, key, value), result);
    EXPECT_EQ(value, expected);
    Lines lines{Debug("GetValue(): start. Node = " + key)};
    if (!error.empty()) lines.push_back(Error(error));
    if (!text.empty()) lines.push_back(Debug("GetValue(): end. Value = " + expected));
    EXPECT_EQ(log.Lines(), lines);
}

INSTANTIATE_TEST_SUITE_P(Examples, ReplyScanner, testing::ValuesIn(kScanCases));

} // namespace
