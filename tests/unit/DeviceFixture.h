// Shared pieces of the tests that drive DscKnxIpConfig against the fake
// platform: a fixture with both platform mocks, clients that register as the
// add-on, device replies, and the log lines of connecting and reading.
#ifndef TESTS_UNIT_DEVICE_FIXTURE_H
#define TESTS_UNIT_DEVICE_FIXTURE_H

#include "DscKnxIpConfig.h"
#include "FakePlatform.h"
#include "LogCapture.h"

#include <gmock/gmock.h>

#include <array>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

using Lines = std::vector<LogLine>;
using ClientPtr = std::unique_ptr<Velbor::IDeviceStackClient>;

class DeviceTest : public testing::Test {
protected:
    testing::NiceMock<MockIpConnection> net;
    testing::StrictMock<MockDeviceStackFactory> factory;
    DscKnxIpConfig config;
    LogCapture log;
};

// Factory action that makes no client.
inline ClientPtr NoClient() {
    return nullptr;
}

// Expects the factory to hand out one client, returned for further expectations.
inline MockDeviceStackClient& ExpectCreated(MockDeviceStackFactory& factory) {
    auto* client = new testing::StrictMock<MockDeviceStackClient>;
    EXPECT_CALL(factory, Create()).WillOnce(testing::Return(testing::ByMove(ClientPtr(client))));
    return *client;
}

// Expects a client that registers as the add-on and accepts.
inline MockDeviceStackClient& ExpectRegistered(MockDeviceStackFactory& factory) {
    MockDeviceStackClient& client = ExpectCreated(factory);
    EXPECT_CALL(client, RegisterApplication("DscKnxIpConfig", "field", "KNX"))
        .WillOnce(testing::Return(true));
    return client;
}

// Expects one configuration read into a new empty text, answered with `reply`.
inline void ExpectRead(MockDeviceStackClient& client, const std::string& reply,
                       bool readable = true) {
    EXPECT_CALL(client, GetDeviceConfig(testing::IsEmpty(), 1))
        .WillOnce(testing::DoAll(testing::SetArgReferee<0>(reply), testing::Return(readable)));
}

// Names parameterised tests after their case's `name`.
struct CaseName {
    template <class Case>
    std::string operator()(const testing::TestParamInfo<Case>& info) const {
        return info.param.name;
    }
};

inline Lines Join(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

inline const Lines kConnectLines = {
    Debug("Connect(): starting..."),
    Debug("Connect(): calling RegisterApplication DscKnxIpConfig..."),
    Debug("Connect(): end RegisterApplication DscKnxIpConfig."), Debug("Connect(): end.")};

// The values of "Dhcp", "IpAddress", "SubnetMask", "DefaultGateway", "NameServer"
// and "NameServer2" in a device reply; nullptr where the key is absent.
using DeviceValues = std::array<const char*, 6>;
inline const std::array<const char*, 6> kDeviceKeys = {
    "Dhcp", "IpAddress", "SubnetMask", "DefaultGateway", "NameServer", "NameServer2"};

inline const char* const kExampleReply =
    "{\"Dhcp\":\"false\",\"IpAddress\":\"192.168.1.20\",\"SubnetMask\":\"255.255.255.0\","
    "\"DefaultGateway\":\"192.168.1.1\",\"NameServer\":\"192.168.1.1\","
    "\"NameServer2\":\"8.8.8.8\"}";
inline const DeviceValues kExampleValues = {"false",       "192.168.1.20", "255.255.255.0",
                                            "192.168.1.1", "192.168.1.1",  "8.8.8.8"};

inline std::string ReplyText(const DeviceValues& values) {
    std::string text = "{";
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] != nullptr) {
            text += std::string(text.size() > 1 ? "," : "") + "\"" + kDeviceKeys[i] + "\":\"" +
                    values[i] + "\"";
        }
    }
    return text + "}";
}

// One device read; without `scanned` the configuration was unreadable.
inline Lines FetchLines(int result, const DeviceValues* scanned = nullptr) {
    Lines lines = {Debug("FetchQuarnIpSettings(): starting..."),
                   Debug("FetchQuarnIpSettings(): calling GetDeviceConfig...")};
    for (std::size_t i = 0; scanned != nullptr && i < scanned->size(); ++i) {
        lines.push_back(Debug(std::string("GetValue(): start. Node = ") + kDeviceKeys[i]));
        const char* value = (*scanned)[i];
        if (value == nullptr) {
            lines.push_back(
                Error(std::string("GetValue(): Missing key. key = \"") + kDeviceKeys[i] + "\":"));
        }
        lines.push_back(Debug(std::string("GetValue(): end. Value = ") + (value ? value : "")));
    }
    lines.push_back(Debug("FetchQuarnIpSettings(): end GetDeviceConfig. IP assignment methods = " +
                          std::to_string(result)));
    return lines;
}

// The messages of one plain configured-value setter, and of SetDNSAddress.
inline Lines SetterLines(const std::string& name, unsigned long value) {
    return {Debug(name + "(): starting..."),
            Debug(name + "(): end. Value = " + std::to_string(value))};
}
inline Lines DnsLines(unsigned int index, unsigned long value) {
    return {Debug("SetDNSAddress(): starting... index= " + std::to_string(index)),
            Debug("SetDNSAddress(): end. Value = " + std::to_string(value))};
}

inline const Lines kExampleSetterLines = Join({SetterLines("SetConfiguredIpAddress", 3232235796),
                                               SetterLines("SetConfiguredNetmask", 4294967040),
                                               SetterLines("SetConfiguredGateway", 3232235777),
                                               DnsLines(1, 3232235777), DnsLines(2, 134744072)});

#endif
