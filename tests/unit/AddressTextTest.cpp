#include "DscKnxIpConfig.h"
#include "FakePlatform.h"
#include "LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>

using testing::_;

namespace {

using MacBytes = std::array<unsigned char, 6>;
const unsigned char kOld = 0xEE; // a byte that was in the buffer before the call
const MacBytes kFresh = {kOld, kOld, kOld, kOld, kOld, kOld};

struct ToValueCase {
    const char* text;
    unsigned long expected;
};

class IpAddressToValue : public testing::TestWithParam<ToValueCase> {};

struct ToTextCase {
    unsigned long value;
    const char* expected;
};

class ValueToIpAddress : public testing::TestWithParam<ToTextCase> {};

struct MacTextCase {
    std::string text;
    unsigned int count;
    bool result;
    MacBytes bytes;
};

class MacText : public testing::TestWithParam<MacTextCase> {};

struct MacLogCase {
    MacBytes mac;
    std::string shown;
};

class MacDebugMessage : public testing::TestWithParam<MacLogCase> {};

} // namespace

TEST_P(IpAddressToValue, PutsTheFirstOctetInTheMostSignificantByte) {
    const DscKnxIpConfig config;
    EXPECT_EQ(config.IpAddress2DWORD(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, IpAddressToValue,
    testing::Values(ToValueCase{nullptr, 0}, ToValueCase{"192.168.1.10", 0xC0A8010AUL},
                    ToValueCase{"10.0.0.1", 0x0A000001UL}, ToValueCase{"0.0.0.0", 0},
                    ToValueCase{"10.1", 0x0A000001UL}, ToValueCase{"abc", 0xFFFFFFFFUL},
                    ToValueCase{"256.0.0.1", 0xFFFFFFFFUL},
                    ToValueCase{"255.255.255.255", 0xFFFFFFFFUL}));

TEST_P(ValueToIpAddress, WritesDottedText) {
    const DscKnxIpConfig config;
    EXPECT_STREQ(config.DWORD2IpAddress(GetParam().value), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Values, ValueToIpAddress,
                         testing::Values(ToTextCase{0, "0.0.0.0"},
                                         ToTextCase{0xFFFFFF00UL, "255.255.255.0"},
                                         ToTextCase{0xC0A8010AUL, "192.168.1.10"},
                                         ToTextCase{0xFFFFFFFFUL, "255.255.255.255"}));

TEST(ValueToIpAddress, EveryCallOfEveryObjectRewritesOneBuffer) {
    const DscKnxIpConfig first;
    const DscKnxIpConfig second;
    const char* text = first.DWORD2IpAddress(0xFFFFFFFFUL);
    EXPECT_EQ(second.DWORD2IpAddress(0x01020304UL), text);
    EXPECT_STREQ(text, "1.2.3.4");
}

TEST_P(MacText, ReadsTwoHexDigitsPerByteAndSkipsOneSeparator) {
    const DscKnxIpConfig config;
    MacBytes bytes = kFresh;
    EXPECT_EQ(config.PrepareMacAddress(GetParam().text, bytes.data(), GetParam().count),
              GetParam().result);
    EXPECT_EQ(bytes, GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, MacText,
    testing::Values(MacTextCase{"00:1A:2B:3C:4D:5E", 6, true, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}},
                    MacTextCase{
                        "00-1a.2B 3c\t4D_5e", 6, true, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}},
                    MacTextCase{"00F1AF2BF3CF4DF5E", 6, true, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}},
                    MacTextCase{"ff:FE:0", 2, true, {0xFF, 0xFE, kOld, kOld, kOld, kOld}},
                    MacTextCase{"zz:1z: 7:Fg", 4, true, {0x00, 0x01, 0x07, 0x0F, kOld, kOld}},
                    MacTextCase{"00:11:2", 3, true, {0x00, 0x11, 0x02, kOld, kOld, kOld}},
                    MacTextCase{"00:11:22:", 4, true, {0x00, 0x11, 0x22, 0x00, kOld, kOld}},
                    MacTextCase{"", 6, false, kFresh},
                    MacTextCase{"00:1A:2B:3C:4D:5E:", 6, true, kFresh},
                    MacTextCase{"00:1A:2B:3C:4D:5E", 0, true, kFresh}));

TEST(MacText, ShortTextThrowsOutOfRangeAfterWritingWhatItHolds) {
    const DscKnxIpConfig config;
    MacBytes bytes = kFresh;
    EXPECT_THROW(config.PrepareMacAddress("00:11:22", bytes.data(), 6), std::out_of_range);
    EXPECT_EQ(bytes, (MacBytes{0x00, 0x11, 0x22, kOld, kOld, kOld}));
}

TEST(MacCache, ReadsTheInterfaceOnceUntilTheNextInterfaceSelection) {
    testing::NiceMock<MockIpConnection> connection;
    const MacBytes first = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    const MacBytes second = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
    {
        testing::InSequence order;
        EXPECT_CALL(connection, GetMacAddress(_))
            .WillOnce(testing::SetArrayArgument<0>(first.begin(), first.end()));
        EXPECT_CALL(connection, DetermineNetworkInterface(_, _, _, _));
        EXPECT_CALL(connection, GetMacAddress(_))
            .WillOnce(testing::SetArrayArgument<0>(second.begin(), second.end()));
    }
    DscKnxIpConfig config;
    MacBytes mac = kFresh;
    config.GetMacAddress(mac.data());
    EXPECT_EQ(mac, first);
    mac = kFresh;
    config.GetMacAddress(mac.data());
    EXPECT_EQ(mac, first);
    config.EnsureCorrectAddress();
    config.GetMacAddress(mac.data());
    EXPECT_EQ(mac, second);
}

TEST_P(MacDebugMessage, ShowsTheRawBytesUpToTheFirstZero) {
    MockIpConnection connection;
    EXPECT_CALL(connection, GetMacAddress(_))
        .WillOnce(testing::SetArrayArgument<0>(GetParam().mac.begin(), GetParam().mac.end()));
    DscKnxIpConfig config;
    MacBytes mac = kFresh;
    LogCapture log;
    config.GetMacAddress(mac.data());
    EXPECT_EQ(mac, GetParam().mac);
    EXPECT_EQ(log.Lines(),
              std::vector<LogLine>{Debug("GetMacAddress(): Value = " + GetParam().shown)});
}

INSTANTIATE_TEST_SUITE_P(Macs, MacDebugMessage,
                         testing::Values(MacLogCase{{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, ""},
                                         MacLogCase{{'A', 'B', 'C', 'D', 'E', 'F'}, "ABCDEF"},
                                         MacLogCase{{'a', 'b', 0x00, 'c', 'd', 'e'}, "ab"},
                                         MacLogCase{{0xC0, 0xA8, 0x01, 0x7F, 0x20, 0x00},
                                                    "\xC0\xA8\x01\x7F "}));
