#include "DeviceFixture.h"

#include <cstdint>

namespace {

using Addresses = std::array<std::uint32_t, 5>;

Addresses AddressesOf(const DscKnxIpConfig::IpConfiguration& settings) {
    return {settings.ipAddress, settings.subnetMask, settings.defaultGateway, settings.dnsAddress1,
            settings.dnsAddress2};
}

// A client handed straight to the read operations, without the factory.
class DeviceReadTest : public testing::Test {
protected:
    DeviceReadTest() : idsc(new testing::StrictMock<MockDeviceStackClient>) {
        EXPECT_CALL(client(), Destroyed());
    }
    MockDeviceStackClient& client() { return static_cast<MockDeviceStackClient&>(*idsc); }

    DscKnxIpConfig config;
    LogCapture log;
    ClientPtr idsc;
};

struct FetchCase {
    const char* name;
    const char* reply;
    bool readable;
    DeviceValues scanned;
    int result;
    std::int32_t storedMethod;
    std::uint32_t validFields;
    Addresses addresses;
};
void PrintTo(const FetchCase& c, std::ostream* os) {
    *os << c.name;
}

const char* const kEmptyAddressReply = "{\"IpAddress\":\"\",\"SubnetMask\":\"255.0.0.0\"}";
const DeviceValues kEmptyAddressScan = {nullptr, "", "255.0.0.0"};
const char* const kNotAnAddressReply = "{\"Dhcp\":\"no\",\"NameServer\":\"dns.local\"}";
const DeviceValues kNotAnAddressScan = {"no", nullptr, nullptr, nullptr, "dns.local"};
const Addresses kExampleAddresses = {3232235796, 4294967040, 3232235777, 3232235777, 134744072};

const FetchCase kFetchCases[] = {
    {"Example", kExampleReply, true, kExampleValues, 1, 1, 31, kExampleAddresses},
    {"DhcpOnly", "{\"Dhcp\":\"true\"}", true, {"true"}, 4, 4, 0, {}},
    {"Unreadable", kExampleReply, false, {}, 4, 0, 0, {}},
    {"CapitalTrue", "{\"Dhcp\":\"True\"}", true, {"True"}, 1, 1, 0, {}},
    {"EmptyAddress", kEmptyAddressReply, true, kEmptyAddressScan, 4, 4, 2, {0, 4278190080}},
    {"NotAnAddress", kNotAnAddressReply, true, kNotAnAddressScan, 1, 1, 8, {0, 0, 0, 4294967295}},
};

class FetchRead : public DeviceReadTest, public testing::WithParamInterface<FetchCase> {};

} // namespace

TEST_P(FetchRead, ReportsMethodFieldsAndScanMessages) {
    const FetchCase& c = GetParam();
    ExpectRead(client(), c.reply, c.readable);
    DscKnxIpConfig::IpConfiguration settings;

    EXPECT_EQ(config.FetchQuarnIpSettings(settings, idsc), c.result);
    EXPECT_EQ(settings.assignmentMethods, c.storedMethod);
    EXPECT_EQ(settings.validFields, c.validFields);
    EXPECT_EQ(AddressesOf(settings), c.addresses);
    EXPECT_EQ(settings.supportedMethods, 13U);
    EXPECT_EQ(log.Lines(), FetchLines(c.result, c.readable ? &c.scanned : nullptr));
}

INSTANTIATE_TEST_SUITE_P(Replies, FetchRead, testing::ValuesIn(kFetchCases), CaseName());

TEST_F(DeviceReadTest, FetchKeepsBitsAndFieldsTheReplyLacks) {
    ExpectRead(client(), "{\"Dhcp\":\"false\",\"IpAddress\":\"10.0.0.1\"}");
    DscKnxIpConfig::IpConfiguration settings;
    settings.validFields = 16;
    settings.dnsAddress2 = 77;

    EXPECT_EQ(config.FetchQuarnIpSettings(settings, idsc), 1);
    EXPECT_EQ(settings.validFields, 17U);
    EXPECT_EQ(AddressesOf(settings), (Addresses{167772161, 0, 0, 0, 77}));
}

TEST_F(DeviceReadTest, NullClientGivesZeroAndTouchesNothing) {
    DscKnxIpConfig::IpConfiguration settings;
    settings.validFields = 5;
    settings.assignmentMethods = 8;
    settings.ipAddress = 9;
    const ClientPtr none;
    const Lines lines = {Debug("FetchQuarnIpSettings(): starting..."),
                         Error("FetchQuarnIpSettings(): No device stack client exists.")};

    EXPECT_EQ(config.FetchQuarnIpSettings(settings, none), 0);
    EXPECT_EQ(settings.validFields, 5U);
    EXPECT_EQ(settings.assignmentMethods, 8);
    EXPECT_EQ(AddressesOf(settings), (Addresses{9}));
    EXPECT_EQ(config.GetQuarnIpSettings(none), 0);
    EXPECT_EQ(log.Lines(), Join({lines, lines}));
}

namespace {

struct ApplyCase {
    const char* name;
    const char* reply;
    bool readable;
    DeviceValues scanned;
    int result;
    Lines setters;
};
void PrintTo(const ApplyCase& c, std::ostream* os) {
    *os << c.name;
}

const DeviceValues kSecondDnsScan = {nullptr, nullptr, nullptr, nullptr, nullptr, "10.0.0.2"};

const ApplyCase kApplyCases[] = {
    {"Example", kExampleReply, true, kExampleValues, 1, kExampleSetterLines},
    {"OnlySecondDns", "{\"NameServer2\":\"10.0.0.2\"}", true, kSecondDnsScan, 4,
     DnsLines(2, 167772162)},
    {"EmptyAddress", kEmptyAddressReply, true, kEmptyAddressScan, 4,
     SetterLines("SetConfiguredNetmask", 4278190080)},
    {"Unreadable", kExampleReply, false, {}, 4, {}},
};

class ApplyRead : public DeviceReadTest, public testing::WithParamInterface<ApplyCase> {};

} // namespace

TEST_P(ApplyRead, CallsOneSetterPerReportedField) {
    const ApplyCase& c = GetParam();
    ExpectRead(client(), c.reply, c.readable);

    EXPECT_EQ(config.GetQuarnIpSettings(idsc), c.result);
    EXPECT_EQ(log.Lines(),
              Join({FetchLines(c.result, c.readable ? &c.scanned : nullptr), c.setters}));
    EXPECT_EQ(config.GetIpAssignmentMethods(), 15);
}

INSTANTIATE_TEST_SUITE_P(Replies, ApplyRead, testing::ValuesIn(kApplyCases), CaseName());

TEST_F(DeviceReadTest, ApplyKeepsConfiguredValuesTheDeviceLacks) {
    config.SetConfiguredIpAddress(42);
    config.SetDNSAddress(1, 43);
    ExpectRead(client(), kEmptyAddressReply);

    config.GetQuarnIpSettings(idsc);
    EXPECT_EQ(config.GetConfiguredIpAddress(), 42U);
    EXPECT_EQ(config.GetConfiguredNetmask(), 4278190080U);
    EXPECT_EQ(config.GetDNSAddress(1), 43U);
}
