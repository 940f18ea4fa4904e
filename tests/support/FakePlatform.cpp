#include "FakePlatform.h"

#include "KnxIpConnectionInfo.h"

#include <cstring>

namespace KnxStack::Ip {

struct IpConnectionInfo::State {};

IpConnectionInfo::IpConnectionInfo() : m_state(nullptr) {
}

IpConnectionInfo::~IpConnectionInfo() = default;

unsigned long IpConnectionInfo::DetermineNetworkInterface(const std::string& name, int index,
                                                          unsigned long flags, bool specified) {
    MockIpConnection* net = MockIpConnection::current;
    return net ? net->DetermineNetworkInterface(name, index, flags, specified) : 1;
}

unsigned long IpConnectionInfo::GetCurrentIpAddress() {
    return MockIpConnection::current ? MockIpConnection::current->GetCurrentIpAddress() : 0;
}

unsigned long IpConnectionInfo::GetCurrentNetmask() {
    return MockIpConnection::current ? MockIpConnection::current->GetCurrentNetmask() : 0;
}

unsigned long IpConnectionInfo::GetCurrentGateway() {
    return MockIpConnection::current ? MockIpConnection::current->GetCurrentGateway() : 0;
}

void IpConnectionInfo::GetMacAddress(unsigned char* mac) const {
    std::memset(mac, 0, 6);
    if (MockIpConnection::current) MockIpConnection::current->GetMacAddress(mac);
}

} // namespace KnxStack::Ip

namespace Velbor {

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    MockDeviceStackFactory* factory = MockDeviceStackFactory::current;
    return factory ? factory->Create() : nullptr;
}

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient(const std::string& connection) {
    MockDeviceStackFactory* factory = MockDeviceStackFactory::current;
    return factory ? factory->CreateWith(connection) : nullptr;
}

} // namespace Velbor
