// GoogleMock doubles of the device-stack client library, for tests that set
// expectations on each call: while a MockDeviceStackFactory lives, the
// stand-in's factory functions hand out the clients it returns.
#ifndef TESTS_FAKE_PLATFORM_H
#define TESTS_FAKE_PLATFORM_H

#include "PlatformStandIn.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>

class MockDeviceStackClient : public Velbor::IDeviceStackClient {
public:
    ~MockDeviceStackClient() override { Destroyed(); }
    MOCK_METHOD(bool, RequestCommand, (const std::string&, std::string&, int), (override));
    MOCK_METHOD(bool, RegisterApplication,
                (const std::string&, const std::string&, const std::string&), (override));
    MOCK_METHOD(bool, GetDeviceConfig, (std::string&, int), (override));
    MOCK_METHOD(void, Destroyed, ());
};

class MockDeviceStackFactory {
public:
    MockDeviceStackFactory() {
        ThePlatform().factory = [this](const std::string* connection) {
            return connection != nullptr ? CreateWith(*connection) : Create();
        };
    }
    ~MockDeviceStackFactory() { ThePlatform().factory = nullptr; }
    MockDeviceStackFactory(const MockDeviceStackFactory&) = delete;
    MockDeviceStackFactory& operator=(const MockDeviceStackFactory&) = delete;
    MOCK_METHOD(std::unique_ptr<Velbor::IDeviceStackClient>, Create, ());
    MOCK_METHOD(std::unique_ptr<Velbor::IDeviceStackClient>, CreateWith, (const std::string&));
};

#endif
