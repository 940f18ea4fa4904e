// Logging set-up of the fuzz targets and stand-ins for the platform libraries
// that the add-on's code links against: no network interface, no client from
// the factories (the targets hand their clients to the add-on directly).
#include "FuzzSupport.h"

#include "KnxIpConnectionInfo.h"

#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>

#include <cstring>
#include <memory>

void QuietLogging() {
    static log4cplus::Initializer initializer;
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
}

namespace KnxStack {
namespace Ip {

struct IpConnectionInfo::State {};

IpConnectionInfo::IpConnectionInfo() : m_state(new State) {
}

IpConnectionInfo::~IpConnectionInfo() {
    delete m_state;
}

unsigned long IpConnectionInfo::DetermineNetworkInterface(const std::string&, int, unsigned long,
                                                          bool) {
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

namespace Velbor {

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    return nullptr;
}

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient(const std::string&) {
    return nullptr;
}

} // namespace Velbor
