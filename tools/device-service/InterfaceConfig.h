// Applies the device's static IPv4 settings to a real network interface
// through netlink.
#ifndef DEVICE_SERVICE_INTERFACE_CONFIG_H
#define DEVICE_SERVICE_INTERFACE_CONFIG_H

#include "DeviceState.h"

#include <string>

namespace DeviceService {

struct ApplyResult {
    bool ok;
    std::string message; // what was done, or why it failed
};

// With Dhcp "false": replaces the interface's IPv4 addresses with
// IpAddress/SubnetMask and, when DefaultGateway lies in that subnet, points the
// default route at it through the interface. With Dhcp "true" the interface is
// left to the system's DHCP client and nothing changes.
ApplyResult ApplyToInterface(const std::string& interfaceName, const Settings& settings);

} // namespace DeviceService

#endif
