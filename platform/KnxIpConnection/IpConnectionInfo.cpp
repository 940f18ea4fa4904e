// Placeholder connection library: selects no interface and reports zeros.
#include "KnxIpConnectionInfo.h"

#include <cstring>

namespace KnxStack {
namespace Ip {

struct IpConnectionInfo::State {};

IpConnectionInfo::IpConnectionInfo() : m_state(new State) {}

IpConnectionInfo::~IpConnectionInfo() {
    delete m_state;
}

unsigned long IpConnectionInfo::DetermineNetworkInterface(const std::string& /*name*/,
                                                          int /*index*/, unsigned long /*flags*/,
                                                          bool /*specified*/) {
    return NoInterface;
}

unsigned long IpConnectionInfo::GetCurrentIpAddress() {
    return 0;
}

unsigned long IpConnectionInfo::GetCurrentNetmask() {
    return 0;
}

unsigned long IpConnectionInfo::GetCurrentGateway() {
    return 0;
}

void IpConnectionInfo::GetMacAddress(unsigned char* mac) const {
    std::memset(mac, 0, 6);
}

} // namespace Ip
} // namespace KnxStack
