// Applies the device's settings to a real network interface through netlink:
// everything the service does to an interface is here.
#ifndef DEVICE_SERVICE_INTERFACE_CONFIG_H
#define DEVICE_SERVICE_INTERFACE_CONFIG_H

#include "DeviceState.h"
#include "Result.h"

#include <string>

namespace DeviceService {

// With Dhcp "false": replaces the interface's IPv4 addresses with
// IpAddress/SubnetMask and, when DefaultGateway lies in that subnet, points the
// default route at it through the interface. With Dhcp "true" the interface is
// left to the system's DHCP client and nothing changes. The result says what
// was done.
Result<std::string> ApplyToInterface(const std::string& interfaceName, const Settings& settings);

} // namespace DeviceService

#endif
