#include "IpConfigTest.h"

#include <climits>
#include <stdexcept>
#include <tuple>

namespace {

// A text, its value (first octet most significant) and the value written back as text.
TEST(AddressText, ConvertsBothWays) {
    const DscKnxIpConfig config;
    for (const auto& [text, value, back] :
         {std::tuple<const char*, unsigned long, const char*>{nullptr, 0, "0.0.0.0"},
          {"192.168.1.10", 0xC0A8010A, "192.168.1.10"},
          {"10.1", 0x0A000001, "10.0.0.1"},
          {"abc", 0xFFFFFFFF, "255.255.255.255"}}) {
        EXPECT_EQ(config.IpAddress2DWORD(text), value);
        EXPECT_STREQ(config.DWORD2IpAddress(value), back);
    }
}

// Two hex digits per byte, each pair three characters after the last; the text,
// the byte count, the result (-1: throws) and the bytes after the call.
TEST(MacText, FillsTheBytesItReads) {
    using Mac = std::array<unsigned char, 6>;
    const unsigned char kOld = 0xEE; // a byte that was in the buffer before the call
    const std::tuple<std::string, unsigned int, int, Mac> cases[] = {
        {"00:1A:2B:3C:4D:5E", 6, true, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}},
        {"00F1AF2BF3CF4DF5E", 6, true, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}},
        {"zz:1z: 7:Fg", 4, true, {0x00, 0x01, 0x07, 0x0F, kOld, kOld}},
        {"00:11:22", 6, -1, {0x00, 0x11, 0x22, kOld, kOld, kOld}},
        {"", 6, false, {kOld, kOld, kOld, kOld, kOld, kOld}},
        {"00:1A:2B:3C:4D:5E:", 6, true, {kOld, kOld, kOld, kOld, kOld, kOld}},
    };
    const DscKnxIpConfig config;
    for (const auto& [text, count, result, expected] : cases) {
        Mac bytes = {kOld, kOld, kOld, kOld, kOld, kOld};
        if (result < 0) {
            EXPECT_THROW(config.PrepareMacAddress(text, bytes.data(), count), std::out_of_range);
        } else {
            EXPECT_EQ(config.PrepareMacAddress(text, bytes.data(), count), result == 1) << text;
        }
        EXPECT_EQ(bytes, expected) << text;
    }
}

Lines GetDnsLines(unsigned long value) {
    return {Debug("GetDNSAddress(): starting..."),
            Debug("GetDNSAddress: Value = " + std::to_string(value)),
            Debug("GetDNSAddress(): end.")};
}

// Distinct values in every field show a setter or getter that uses the wrong
// one. The plain setters keep and show the low 32 bits; SetDNSAddress shows
// its argument.
TEST_F(IpConfigTest, ConfiguredValuesAreStoredAsThirtyTwoBitsUnchecked) {
    const unsigned long k2To32 = 4294967296UL;
    config.SetConfiguredIpAddress(k2To32 + 3232235786);
    config.SetConfiguredNetmask(k2To32 + 4294967295);
    config.SetConfiguredGateway(k2To32 * 5 + 3232235777);
    config.SetIpAssignmentMethods(-1);
    config.SetDNSAddress(1, k2To32 + 11);
    config.SetDNSAddress(2, 22);
    const std::vector<unsigned long> got = {
        config.GetConfiguredIpAddress(),
        config.GetConfiguredNetmask(),
        config.GetConfiguredGateway(),
        static_cast<unsigned long>(config.GetIpAssignmentMethods()),
        config.GetDNSAddress(1),
        config.GetDNSAddress(2)};
    EXPECT_EQ(got,
              (std::vector<unsigned long>{3232235786, 4294967295, 3232235777, ULONG_MAX, 11, 22}));

    EXPECT_EQ(log.Lines(), Join({SetterLines("SetConfiguredIpAddress", 3232235786),
                                 SetterLines("SetConfiguredNetmask", 4294967295),
                                 SetterLines("SetConfiguredGateway", 3232235777),
                                 SetterLines("SetIpAssignmentMethods", -1),
                                 DnsLines(1, k2To32 + 11),
                                 DnsLines(2, 22),
                                 {Debug("GetConfiguredIpAddress(): Value = 3232235786"),
                                  Debug("GetConfiguredNetmask(): Value = 4294967295"),
                                  Debug("GetConfiguredGateway(): Value = 3232235777"),
                                  Debug("GetIpAssignmentMethods(): Value = -1")},
                                 GetDnsLines(11),
                                 GetDnsLines(22)}));
}

TEST_F(IpConfigTest, DnsIndexesOtherThanOneAndTwoAreReportedAndChangeNothing) {
    for (const unsigned int index : {0U, 3U}) {
        log.Clear();
        config.SetDNSAddress(index, 7);
        EXPECT_EQ(config.GetDNSAddress(index), 0UL);
        const std::string invalid = "(): invalid index = " + std::to_string(index);
        const Lines set = DnsLines(index, 7), get = GetDnsLines(0);
        EXPECT_EQ(log.Lines(), (Lines{set[0], Error("SetDNSAddress" + invalid), set[1], get[0],
                                      Error("GetDNSAddress" + invalid), get[1], get[2]}));
    }
    EXPECT_EQ(config.GetDNSAddress(1) + config.GetDNSAddress(2), 0UL);
}

} // namespace
