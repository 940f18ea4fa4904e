#include "DeviceFixture.h"

#include <stdexcept>

namespace {

// A text, its value (first octet most significant) and the value written back as text.
using AddressCase = std::tuple<const char*, unsigned long, const char*>;
const AddressCase kAddressCases[] = {
    {nullptr, 0, "0.0.0.0"},
    {"192.168.1.10", 0xC0A8010A, "192.168.1.10"},
    {"255.255.255.0", 0xFFFFFF00, "255.255.255.0"},
    {"10.1", 0x0A000001, "10.0.0.1"},
    {"abc", 0xFFFFFFFF, "255.255.255.255"},
    {"256.0.0.1", 0xFFFFFFFF, "255.255.255.255"},
    {"255.255.255.255", 0xFFFFFFFF, "255.255.255.255"},
};

class AddressText : public testing::TestWithParam<AddressCase> {};

TEST_P(AddressText, ConvertsBothWays) {
    const auto [text, value, back] = GetParam();
    const DscKnxIpConfig config;
    EXPECT_EQ(config.IpAddress2DWORD(text), value);
    EXPECT_STREQ(config.DWORD2IpAddress(value), back);
}

INSTANTIATE_TEST_SUITE_P(Texts, AddressText, testing::ValuesIn(kAddressCases));

// Two hex digits per byte, each pair three characters after the last; the text,
// the byte count, the result and the bytes after the call.
using Mac = std::array<unsigned char, 6>;
const unsigned char kOld = 0xEE; // a byte that was in the buffer before the call
const Mac kUntouched = {kOld, kOld, kOld, kOld, kOld, kOld};
enum Result { Refused, Parsed, Throws };
using MacTextCase = std::tuple<std::string, unsigned int, Result, Mac>;
const MacTextCase kMacTextCases[] = {
    {"00:1A:2B:3C:4D:5E", 6, Parsed, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}},
    {"00-1a.2B 3c\t4D_5e", 6, Parsed, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}},
    {"00F1AF2BF3CF4DF5E", 6, Parsed, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}},
    {"ff:FE:0", 2, Parsed, {0xFF, 0xFE, kOld, kOld, kOld, kOld}},
    {"zz:1z: 7:Fg", 4, Parsed, {0x00, 0x01, 0x07, 0x0F, kOld, kOld}},
    {"00:11:2", 3, Parsed, {0x00, 0x11, 0x02, kOld, kOld, kOld}},
    {"00:11:22:", 4, Parsed, {0x00, 0x11, 0x22, 0x00, kOld, kOld}},
    {"00:11:22", 6, Throws, {0x00, 0x11, 0x22, kOld, kOld, kOld}},
    {"", 6, Refused, kUntouched},
    {"00:1A:2B:3C:4D:5E:", 6, Parsed, kUntouched},
    {"00:1A:2B:3C:4D:5E", 0, Parsed, kUntouched},
};

class MacText : public testing::TestWithParam<MacTextCase> {};

TEST_P(MacText, FillsTheBytesItReads) {
    const auto& [text, count, result, expected] = GetParam();
    const DscKnxIpConfig config;
    Mac bytes = kUntouched;
    if (result == Throws) {
        EXPECT_THROW(config.PrepareMacAddress(text, bytes.data(), count), std::out_of_range);
    } else {
        EXPECT_EQ(config.PrepareMacAddress(text, bytes.data(), count), result == Parsed);
    }
    EXPECT_EQ(bytes, expected);
}

INSTANTIATE_TEST_SUITE_P(Texts, MacText, testing::ValuesIn(kMacTextCases));

// The MAC is read once per interface selection; its debug message shows the
// cached bytes as characters up to the first zero byte.
TEST(MacCache, ReadsTheInterfaceOnceUntilTheNextInterfaceSelection) {
    testing::NiceMock<MockIpConnection> net;
    const Mac first = {'A', 'B', 'C', 'D', 'E', 'F'}, second = {0xC0, 0xA8, 0x7F, ' ', 0, 'z'};
    InSequence order;
    EXPECT_CALL(net, GetMacAddress(_))
        .WillOnce(testing::SetArrayArgument<0>(first.begin(), first.end()));
    EXPECT_CALL(net, DetermineNetworkInterface("", 0, 0UL, false));
    EXPECT_CALL(net, GetMacAddress(_))
        .WillOnce(testing::SetArrayArgument<0>(second.begin(), second.end()));
    DscKnxIpConfig config;
    LogCapture log;
    Mac mac = kUntouched, again = kUntouched, after = kUntouched;
    config.GetMacAddress(mac.data());
    config.GetMacAddress(again.data());
    config.EnsureCorrectAddress();
    config.GetMacAddress(after.data());

    EXPECT_EQ(std::tie(mac, again, after), std::tie(first, first, second));
    const LogLine firstShown = Debug("GetMacAddress(): Value = ABCDEF");
    const LogLine secondShown = Debug("GetMacAddress(): Value = \xC0\xA8\x7F ");
    EXPECT_EQ(log.Lines(),
              (Lines{firstShown, firstShown, Info("InitNetwork(): starting..."),
                     Info("DscKnxIpConfig: Selecting the primary network interface..."),
                     secondShown, Debug("InitNetwork(): end."), secondShown}));
}

// IP address, netmask, gateway, assignment methods, DNS 1, DNS 2.
using Fields = std::array<long long, 6>;
Fields ReadAll(KnxStack::IIpConfigurationManager& m) {
    return {static_cast<long long>(m.GetConfiguredIpAddress()),
            static_cast<long long>(m.GetConfiguredNetmask()),
            static_cast<long long>(m.GetConfiguredGateway()),
            m.GetIpAssignmentMethods(),
            static_cast<long long>(m.GetDNSAddress(1)),
            static_cast<long long>(m.GetDNSAddress(2))};
}
Lines GetDnsLines(unsigned long value) {
    return {Debug("GetDNSAddress(): starting..."),
            Debug("GetDNSAddress: Value = " + std::to_string(value)),
            Debug("GetDNSAddress(): end.")};
}

// Distinct values in every field show a setter or getter that uses the wrong one.
TEST(ConfiguredValues, AreStoredUncheckedAndLoggedWithTheManagersLocation) {
    testing::NiceMock<MockIpConnection> net;
    DscKnxIpConfig config;
    LogCapture log;
    EXPECT_EQ(config.GetIpCapabilities(), 6);
    config.SetConfiguredIpAddress(3232235786);
    config.SetConfiguredNetmask(4294967295);
    config.SetConfiguredGateway(3232235777);
    config.SetIpAssignmentMethods(-1);
    config.SetDNSAddress(1, 11);
    config.SetDNSAddress(2, 22);
    EXPECT_EQ(ReadAll(config), (Fields{3232235786, 4294967295, 3232235777, -1, 11, 22}));
    unsigned char mac[6];
    config.GetMacAddress(mac);

    EXPECT_EQ(log.Lines(), Join({SetterLines("SetConfiguredIpAddress", 3232235786),
                                 SetterLines("SetConfiguredNetmask", 4294967295),
                                 SetterLines("SetConfiguredGateway", 3232235777),
                                 SetterLines("SetIpAssignmentMethods", -1),
                                 DnsLines(1, 11),
                                 DnsLines(2, 22),
                                 {Debug("GetConfiguredIpAddress(): Value = 3232235786"),
                                  Debug("GetConfiguredNetmask(): Value = 4294967295"),
                                  Debug("GetConfiguredGateway(): Value = 3232235777"),
                                  Debug("GetIpAssignmentMethods(): Value = -1")},
                                 GetDnsLines(11),
                                 GetDnsLines(22),
                                 {Debug("GetMacAddress(): Value = ")}}));
    for (const LogRecord& record : log.Records()) {
        const std::string operation = record.message.substr(0, record.message.find_first_of("(:"));
        EXPECT_EQ(record.logger, "KnxStack.IpConfig") << record.message;
        EXPECT_EQ(record.file, "DeviceStackClient/DscKnxIpConfig/DscKnxIpConfig") << record.message;
        EXPECT_THAT(record.function, testing::HasSubstr(" DscKnxIpConfig::" + operation + "("));
    }
    EXPECT_EQ(log.Records().back().function,
              "virtual void DscKnxIpConfig::GetMacAddress(unsigned char*)");
}

// SetDNSAddress(index, 167772161) after DNS 1 = 11 and DNS 2 = 22, then
// GetDNSAddress(index); whether the index is valid, and all fields read back.
using DnsCase = std::tuple<unsigned int, bool, Fields>;
const DnsCase kDnsCases[] = {
    {1, true, {0, 0, 0, 15, 167772161, 22}},     {2, true, {0, 0, 0, 15, 11, 167772161}},
    {0, false, {0, 0, 0, 15, 11, 22}},           {3, false, {0, 0, 0, 15, 11, 22}},
    {4294967295U, false, {0, 0, 0, 15, 11, 22}},
};

class DnsAccessor : public testing::TestWithParam<DnsCase> {};

TEST_P(DnsAccessor, UsesOneBasedIndexesAndReportsOthers) {
    const auto& [index, valid, fields] = GetParam();
    DscKnxIpConfig config;
    config.SetDNSAddress(1, 11);
    config.SetDNSAddress(2, 22);
    LogCapture log;
    config.SetDNSAddress(index, 167772161);
    EXPECT_EQ(config.GetDNSAddress(index), valid ? 167772161U : 0U);

    const std::string bad = "(): invalid index = " + std::to_string(index);
    const Lines set = DnsLines(index, 167772161), get = GetDnsLines(valid ? 167772161 : 0);
    EXPECT_EQ(log.Lines(), (valid ? Join({set, get})
                                  : Lines{set[0], Error("SetDNSAddress" + bad), set[1], get[0],
                                          Error("GetDNSAddress" + bad), get[1], get[2]}));
    EXPECT_EQ(ReadAll(config), fields);
}

INSTANTIATE_TEST_SUITE_P(Indexes, DnsAccessor, testing::ValuesIn(kDnsCases));

} // namespace
