// The fixture of the tests that drive DscKnxIpConfig against the fake platform,
// and the log lines of connecting, reading and applying device settings.
#ifndef TESTS_UNIT_DEVICE_FIXTURE_H
#define TESTS_UNIT_DEVICE_FIXTURE_H

#include "DscKnxIpConfig.h"
#include "FakePlatform.h"
#include "LogCapture.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>

using ClientPtr = std::unique_ptr<Velbor::IDeviceStackClient>;
using testing::_;
using testing::InSequence;
using testing::Return;

class DeviceTest : public testing::Test {
protected:
    // The factory's default answer is no client.
    void ExpectNoClient() { EXPECT_CALL(factory, Create()); }
    // Expects the factory to make one client, and the client to be registered as the add-on.
    MockDeviceStackClient& ExpectClient(
        testing::Action<bool(const std::string&, const std::string&, const std::string&)>
            registration = Return(true)) {
        auto* client = new testing::StrictMock<MockDeviceStackClient>;
        EXPECT_CALL(factory, Create()).WillOnce(Return(testing::ByMove(ClientPtr(client))));
        EXPECT_CALL(*client, RegisterApplication("DscKnxIpConfig", "field", "KNX"))
            .WillOnce(std::move(registration));
        return *client;
    }

    testing::NiceMock<MockIpConnection> net;
    testing::StrictMock<MockDeviceStackFactory> factory;
    DscKnxIpConfig config;
    LogCapture log;
};

// Expects configuration reads into a new empty text, answered with `reply`.
inline void ExpectRead(MockDeviceStackClient& client, const std::string& reply, bool ok = true,
                       int times = 1) {
    EXPECT_CALL(client, GetDeviceConfig(testing::IsEmpty(), 1))
        .Times(times)
        .WillRepeatedly(testing::DoAll(testing::SetArgReferee<0>(reply), Return(ok)));
}

inline const Lines kConnectLines = {
    Debug("Connect(): starting..."),
    Debug("Connect(): calling RegisterApplication DscKnxIpConfig..."),
    Debug("Connect(): end RegisterApplication DscKnxIpConfig."), Debug("Connect(): end.")};
inline const Lines kNoClientLines = {Debug("Connect(): starting..."),
                                     Error("Connect(): Create device stack client failed."),
                                     Debug("Connect(): end.")};

// The values of the six keys a device reply may carry; nullptr where absent.
using DeviceValues = std::array<const char*, 6>;
inline const DeviceValues kDeviceKeys = {"Dhcp",           "IpAddress",  "SubnetMask",
                                         "DefaultGateway", "NameServer", "NameServer2"};
inline const DeviceValues kExampleValues = {"false",       "192.168.1.20", "255.255.255.0",
                                            "192.168.1.1", "192.168.1.1",  "8.8.8.8"};
inline DeviceValues With(DeviceValues values, std::size_t index, const char* value) {
    values[index] = value;
    return values;
}
inline std::string ReplyText(const DeviceValues& values) {
    std::string text;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i]) text += ",\"" + std::string(kDeviceKeys[i]) + "\":\"" + values[i] + "\"";
    }
    return "{" + text.substr(text.empty() ? 0 : 1) + "}";
}

// One device read; without `scanned` the configuration was unreadable.
inline Lines FetchLines(int result, const DeviceValues* scanned = nullptr) {
    Lines lines = {Debug("FetchQuarnIpSettings(): starting..."),
                   Debug("FetchQuarnIpSettings(): calling GetDeviceConfig...")};
    for (std::size_t i = 0; scanned != nullptr && i < scanned->size(); ++i) {
        const std::string key = kDeviceKeys[i], value = (*scanned)[i] ? (*scanned)[i] : "";
        lines.push_back(Debug("GetValue(): start. Node = " + key));
        if (!(*scanned)[i])
            lines.push_back(Error("GetValue(): Missing key. key = \"" + key + "\":"));
        lines.push_back(Debug("GetValue(): end. Value = " + value));
    }
    lines.push_back(Debug("FetchQuarnIpSettings(): end GetDeviceConfig. IP assignment methods = " +
                          std::to_string(result)));
    return lines;
}

// The messages of one plain configured-value setter, and of SetDNSAddress.
inline Lines SetterLines(const std::string& name, long long value) {
    return {Debug(name + "(): starting..."),
            Debug(name + "(): end. Value = " + std::to_string(value))};
}
inline Lines DnsLines(unsigned int index, unsigned long value) {
    return {Debug("SetDNSAddress(): starting... index= " + std::to_string(index)),
            Debug("SetDNSAddress(): end. Value = " + std::to_string(value))};
}

// IP address, netmask, gateway, DNS 1 and DNS 2 read from a device, and the
// setters that applying those with their valid bit set calls, in that order.
using Addresses = std::array<std::uint32_t, 5>;
inline const Addresses kExampleAddresses = {3232235796, 4294967040, 3232235777, 3232235777,
                                            134744072};
inline Lines AppliedLines(std::uint32_t validFields, const Addresses& values) {
    const char* const names[] = {"SetConfiguredIpAddress", "SetConfiguredNetmask",
                                 "SetConfiguredGateway"};
    Lines lines;
    for (unsigned int i = 0; i < values.size(); ++i) {
        if ((validFields & (1U << i)) == 0) continue;
        lines =
            Join({lines, i < 3 ? SetterLines(names[i], values[i]) : DnsLines(i - 2, values[i])});
    }
    return lines;
}

#endif
