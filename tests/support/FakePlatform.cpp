#include "FakePlatform.h"

#include "KnxIpConnectionInfo.h"

#include <cstring>

namespace {
MockIpConnection* g_connection = nullptr;
MockDeviceStackFactory* g_factory = nullptr;
} // namespace

MockIpConnection::MockIpConnection() {
    g_connection = this;
}

MockIpConnection::~MockIpConnection() {
    g_connection = nullptr;
}

MockDeviceStackFactory::MockDeviceStackFactory() {
    g_factory = this;
}

MockDeviceStackFactory::~MockDeviceStackFactory() {
    g_factory = nullptr;
}

namespace KnxStack {
namespace Ip {

struct IpConnectionInfo::State {};

IpConnectionInfo::IpConnectionInfo() : m_state(nullptr) {
}

IpConnectionInfo::~IpConnectionInfo() = default;

unsigned long IpConnectionInfo::DetermineNetworkInterface(const std::string& name, int index,
                                                          unsigned long flags, bool specified) {
    return g_connection != nullptr
               ? g_connection->DetermineNetworkInterface(name, index, flags, specified)
               : 1;
}

unsigned long IpConnectionInfo::GetCurrentIpAddress() {
    return g_connection != nullptr ? g_connection->GetCurrentIpAddress() : 0;
}

unsigned long IpConnectionInfo::GetCurrentNetmask() {
    return g_connection != nullptr ? g_connection->GetCurrentNetmask() : 0;
}

unsigned long IpConnectionInfo::GetCurrentGateway() {
    return g_connection != nullptr ? g_connection->GetCurrentGateway() : 0;
}

void IpConnectionInfo::GetMacAddress(unsigned char* mac) const {
    if (g_connection != nullptr) {
        g_connection->GetMacAddress(mac);
    } else {
        std::memset(mac, 0, 6);
    }
}

} // namespace Ip
} // namespace KnxStack

namespace Velbor {

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    return g_factory != nullptr ? g_factory->Create() : nullptr;
}

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient(const std::string& connection) {
    return g_factory != nullptr ? g_factory->CreateWith(connection) : nullptr;
}

} // namespace Velbor
