// In-process stand-ins for the two platform libraries, driven by GoogleMock.
// A test installs the mocks it needs; without one, the connection library
// selects interface 1 with zero values and the client factory makes no client.
#ifndef TESTS_FAKE_PLATFORM_H
#define TESTS_FAKE_PLATFORM_H

#include "VelborDeviceStackClient.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>

class MockIpConnection {
public:
    static inline MockIpConnection* current = nullptr;
    MockIpConnection() { current = this; }
    ~MockIpConnection() { current = nullptr; }
    MOCK_METHOD(unsigned long, DetermineNetworkInterface,
                (const std::string& name, int index, unsigned long flags, bool specified));
    MOCK_METHOD(unsigned long, GetCurrentIpAddress, ());
    MOCK_METHOD(unsigned long, GetCurrentNetmask, ());
    MOCK_METHOD(unsigned long, GetCurrentGateway, ());
    MOCK_METHOD(void, GetMacAddress, (unsigned char* mac), (const));
};

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
    static inline MockDeviceStackFactory* current = nullptr;
    MockDeviceStackFactory() { current = this; }
    ~MockDeviceStackFactory() { current = nullptr; }
    MOCK_METHOD(std::unique_ptr<Velbor::IDeviceStackClient>, Create, ());
    MOCK_METHOD(std::unique_ptr<Velbor::IDeviceStackClient>, CreateWith, (const std::string&));
};

#endif
