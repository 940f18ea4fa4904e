#include "DscKnxIpConfig.h"
#include "FakePlatform.h"
#include "LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

using Manager = KnxStack::IIpConfigurationManager;

namespace {

// IP address, netmask, gateway, assignment methods, DNS 1, DNS 2.
using Fields = std::array<long long, 6>;
const Fields kDefaults = {0, 0, 0, 15, 0, 0};

Fields ReadAll(Manager& manager) {
    return {static_cast<long long>(manager.GetConfiguredIpAddress()),
            static_cast<long long>(manager.GetConfiguredNetmask()),
            static_cast<long long>(manager.GetConfiguredGateway()),
            manager.GetIpAssignmentMethods(),
            static_cast<long long>(manager.GetDNSAddress(1)),
            static_cast<long long>(manager.GetDNSAddress(2))};
}

// Calls all ten accessors with valid DNS indexes, then the two with `badIndex`.
void CallEveryAccessor(Manager& manager, unsigned int badIndex) {
    manager.SetConfiguredIpAddress(1);
    manager.SetConfiguredNetmask(2);
    manager.SetConfiguredGateway(3);
    manager.SetIpAssignmentMethods(4);
    manager.SetDNSAddress(1, 5);
    manager.SetDNSAddress(2, 6);
    ReadAll(manager);
    manager.SetDNSAddress(badIndex, 7);
    manager.GetDNSAddress(badIndex);
}

struct PlainCase {
    const char* name;  // the operation name without its Get/Set prefix
    std::size_t field; // index into Fields
    void (*set)(Manager&, long long);
    long long (*get)(Manager&);
    long long value;
    const char* text;
};

const auto SetIp = [](Manager& m, long long v) { m.SetConfiguredIpAddress(v); };
const auto SetMask = [](Manager& m, long long v) { m.SetConfiguredNetmask(v); };
const auto SetGateway = [](Manager& m, long long v) { m.SetConfiguredGateway(v); };
const auto SetMethods = [](Manager& m, long long v) { m.SetIpAssignmentMethods(v); };
const auto GetIp = [](Manager& m) -> long long { return m.GetConfiguredIpAddress(); };
const auto GetMask = [](Manager& m) -> long long { return m.GetConfiguredNetmask(); };
const auto GetGateway = [](Manager& m) -> long long { return m.GetConfiguredGateway(); };
const auto GetMethods = [](Manager& m) -> long long { return m.GetIpAssignmentMethods(); };

class PlainAccessor : public testing::TestWithParam<PlainCase> {};

struct DnsCase {
    unsigned int index;
    bool valid;
    unsigned long result; // of GetDNSAddress(index) after SetDNSAddress(index, 167772161)
    Fields fields;
};

class DnsAccessor : public testing::TestWithParam<DnsCase> {};

struct LevelCase {
    log4cplus::LogLevel level;
    std::vector<LogLine> lines;
};

class AccessorsAtLevel : public testing::TestWithParam<LevelCase> {};

} // namespace

TEST_P(PlainAccessor, StoresUncheckedAndLogsTheStoredValue) {
    const PlainCase& c = GetParam();
    DscKnxIpConfig config;
    LogCapture log;
    c.set(config, c.value);
    EXPECT_EQ(c.get(config), c.value);
    const std::string name = c.name;
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{Debug("Set" + name + "(): starting..."),
                                                 Debug("Set" + name + "(): end. Value = " + c.text),
                                                 Debug("Get" + name + "(): Value = " + c.text)}));
    Fields expected = kDefaults;
    expected[c.field] = c.value;
    EXPECT_EQ(ReadAll(config), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Accessors, PlainAccessor,
    testing::Values(PlainCase{"ConfiguredIpAddress", 0, SetIp, GetIp, 3232235786LL, "3232235786"},
                    PlainCase{"ConfiguredIpAddress", 0, SetIp, GetIp, 0, "0"},
                    PlainCase{"ConfiguredNetmask", 1, SetMask, GetMask, 4294967295LL, "4294967295"},
                    PlainCase{"ConfiguredNetmask", 1, SetMask, GetMask, 4278255360LL, "4278255360"},
                    PlainCase{"ConfiguredGateway", 2, SetGateway, GetGateway, 3232235777LL,
                              "3232235777"},
                    PlainCase{"IpAssignmentMethods", 3, SetMethods, GetMethods, -1, "-1"},
                    PlainCase{"IpAssignmentMethods", 3, SetMethods, GetMethods, 112, "112"}));

TEST_P(DnsAccessor, UsesOneBasedIndexesAndReportsOthers) {
    const DnsCase& c = GetParam();
    DscKnxIpConfig config;
    config.SetDNSAddress(1, 11);
    config.SetDNSAddress(2, 22);
    LogCapture log;
    config.SetDNSAddress(c.index, 167772161);
    EXPECT_EQ(config.GetDNSAddress(c.index), c.result);

    const std::string index = std::to_string(c.index);
    std::vector<LogLine> expected{Debug("SetDNSAddress(): starting... index= " + index)};
    if (!c.valid) {
        expected.push_back(Error("SetDNSAddress(): invalid index = " + index));
    }
    expected.push_back(Debug("SetDNSAddress(): end. Value = 167772161"));
    expected.push_back(Debug("GetDNSAddress(): starting..."));
    if (!c.valid) {
        expected.push_back(Error("GetDNSAddress(): invalid index = " + index));
    }
    expected.push_back(Debug("GetDNSAddress: Value = " + std::to_string(c.result)));
    expected.push_back(Debug("GetDNSAddress(): end."));
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(ReadAll(config), c.fields);
}

INSTANTIATE_TEST_SUITE_P(Indexes, DnsAccessor,
                         testing::Values(DnsCase{1, true, 167772161, {0, 0, 0, 15, 167772161, 22}},
                                         DnsCase{2, true, 167772161, {0, 0, 0, 15, 11, 167772161}},
                                         DnsCase{0, false, 0, {0, 0, 0, 15, 11, 22}},
                                         DnsCase{3, false, 0, {0, 0, 0, 15, 11, 22}},
                                         DnsCase{4294967295U, false, 0, {0, 0, 0, 15, 11, 22}}));

TEST_P(AccessorsAtLevel, WriteOnlyTheInvalidIndexErrorsWithoutDebug) {
    DscKnxIpConfig config;
    LogCapture log(GetParam().level);
    CallEveryAccessor(config, 0);
    EXPECT_EQ(log.Lines(), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(Levels, AccessorsAtLevel,
                         testing::Values(LevelCase{log4cplus::INFO_LOG_LEVEL,
                                                   {Error("SetDNSAddress(): invalid index = 0"),
                                                    Error("GetDNSAddress(): invalid index = 0")}},
                                         LevelCase{log4cplus::ERROR_LOG_LEVEL,
                                                   {Error("SetDNSAddress(): invalid index = 0"),
                                                    Error("GetDNSAddress(): invalid index = 0")}},
                                         LevelCase{log4cplus::FATAL_LOG_LEVEL, {}}));

TEST(AccessorLog, RecordsCarryTheManagersLoggerFileAndFunction) {
    testing::NiceMock<MockIpConnection> connection;
    DscKnxIpConfig config;
    LogCapture log;
    CallEveryAccessor(config, 3);
    unsigned char mac[6];
    config.GetMacAddress(mac);

    ASSERT_EQ(log.Records().size(), 30U);
    for (const LogRecord& record : log.Records()) {
        SCOPED_TRACE(record.message);
        EXPECT_EQ(record.logger, "KnxStack.IpConfig");
        EXPECT_EQ(record.file, "DeviceStackClient/DscKnxIpConfig/DscKnxIpConfig");
        EXPECT_GT(record.line, 0);
        const std::string operation = record.message.substr(0, record.message.find_first_of("(:"));
        EXPECT_THAT(record.function, testing::HasSubstr(" DscKnxIpConfig::" + operation + "("));
    }
    EXPECT_EQ(log.Records().back().function,
              "virtual void DscKnxIpConfig::GetMacAddress(unsigned char*)");
}
