// The fixture of the tests that drive DscKnxIpConfig against the platform
// stand-in, and the log lines, the add-on's messages among the traced platform
// calls, of selecting the interface, connecting and reading the device.
#ifndef TESTS_UNIT_IP_CONFIG_TEST_H
#define TESTS_UNIT_IP_CONFIG_TEST_H

#include "DscKnxIpConfig.h"
#include "LogCapture.h"
#include "PlatformStandIn.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

using namespace Logged;

// Each test starts on the default platform; afterwards every message of the
// add-on must carry its logger, its source file and a function of the
// operation that the message names.
class IpConfigTest : public testing::Test {
protected:
    IpConfigTest() { ThePlatform() = Platform(); }
    void TearDown() override {
        for (const LogRecord& r : log.Records()) {
            if (r.logger == "Platform") continue;
            const std::string named = r.message.substr(0, r.message.find_first_of("(:"));
            const std::string operation = named == "DscKnxIpConfig" ? "InitNetwork" : named;
            EXPECT_EQ(r.logger, "KnxStack.IpConfig") << r.message;
            EXPECT_EQ(r.file, "DeviceStackClient/DscKnxIpConfig/DscKnxIpConfig") << r.message;
            EXPECT_NE(r.function.find(" DscKnxIpConfig::" + operation + "("), std::string::npos)
                << r.message << " in " << r.function;
        }
    }

    DscKnxIpConfig config;
    LogCapture log;
};

inline const LogLine kCreate = Trace("CreateDeviceStackClient()");
inline const LogLine kRegister = Trace("RegisterApplication(DscKnxIpConfig, field, KNX)");
inline const LogLine kDestroyed = Trace("~DeviceStackClient()");
inline const Lines kConnected = {Debug("Connect(): starting..."),
                                 kCreate,
                                 Debug("Connect(): calling RegisterApplication DscKnxIpConfig..."),
                                 kRegister,
                                 Debug("Connect(): end RegisterApplication DscKnxIpConfig."),
                                 Debug("Connect(): end.")};
inline const Lines kNoClient = {Debug("Connect(): starting..."), kCreate,
                                Error("Connect(): Create device stack client failed."),
                                Debug("Connect(): end.")};

// A client that was made but refused the registration is gone before the failure is logged.
inline const Lines kRefused = {kConnected[0], kCreate,
                               kConnected[2], kRegister,
                               kDestroyed,    Error("Connect(): RegisterApplication failed."),
                               kConnected[4], kConnected[5]};
inline LogLine Select(const std::string& name = "", int index = 0, bool specified = false) {
    return Trace("DetermineNetworkInterface(\"" + name + "\", " + std::to_string(index) + ", 0, " +
                 (specified ? "true" : "false") + ")");
}
// InitNetwork, with Init's device read in `deviceRead`; the stand-in's MAC
// shows as "\x02KNX", its bytes up to the first zero.
inline Lines Selection(const LogLine& select, const Lines& deviceRead = {}) {
    return Join({{Info("InitNetwork(): starting..."),
                  Info("DscKnxIpConfig: Selecting the primary network interface..."), select,
                  Trace("GetMacAddress()"), Debug("GetMacAddress(): Value = \x02KNX")},
                 deviceRead,
                 {Debug("InitNetwork(): end.")}});
}

// The values of the six keys a device reply may carry; nullptr where absent.
using DeviceValues = std::array<const char*, 6>;
inline const DeviceValues kDeviceKeys = {"Dhcp",           "IpAddress",  "SubnetMask",
                                         "DefaultGateway", "NameServer", "NameServer2"};
inline const DeviceValues kExampleValues = {"false",       "192.168.1.20", "255.255.255.0",
                                            "192.168.1.1", "192.168.1.2",  "8.8.8.8"};
inline std::string ReplyText(const DeviceValues& values) {
    std::string text;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i]) text += ",\"" + std::string(kDeviceKeys[i]) + "\":\"" + values[i] + "\"";
    }
    return "{" + text.substr(text.empty() ? 0 : 1) + "}";
}

// One device read; without `scanned` the configuration was unreadable.
inline Lines FetchLines(int method, const DeviceValues* scanned) {
    Lines lines = {Debug("FetchQuarnIpSettings(): starting..."),
                   Debug("FetchQuarnIpSettings(): calling GetDeviceConfig..."),
                   Trace("GetDeviceConfig(1)")};
    for (std::size_t i = 0; scanned != nullptr && i < scanned->size(); ++i) {
        const std::string key = kDeviceKeys[i], value = (*scanned)[i] ? (*scanned)[i] : "";
        lines.push_back(Debug("GetValue(): start. Node = " + key));
        if (!(*scanned)[i])
            lines.push_back(Error("GetValue(): Missing key. key = \"" + key + "\":"));
        lines.push_back(Debug("GetValue(): end. Value = " + value));
    }
    lines.push_back(Debug("FetchQuarnIpSettings(): end GetDeviceConfig. IP assignment methods = " +
                          std::to_string(method)));
    return lines;
}

// The messages of a plain configured-value setter showing `shown`, and of SetDNSAddress.
inline Lines SetterLines(const std::string& name, long long shown) {
    return {Debug(name + "(): starting..."),
            Debug(name + "(): end. Value = " + std::to_string(shown))};
}
inline Lines DnsLines(unsigned int index, unsigned long value) {
    return {Debug("SetDNSAddress(): starting... index= " + std::to_string(index)),
            Debug("SetDNSAddress(): end. Value = " + std::to_string(value))};
}

// IP address, netmask, gateway, DNS 1 and DNS 2 read from a device, and the
// setters that applying those with their valid bit set calls, in that order.
using Addresses = std::array<std::uint32_t, 5>;
inline const Addresses kExampleAddresses = {3232235796, 4294967040, 3232235777, 3232235778,
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
