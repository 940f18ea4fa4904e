// Puts the device's static settings on a real network interface, and clears
// the interface for the DHCP client, through netlink.
#ifndef DEVICE_SERVICE_INTERFACE_CONFIG_H
#define DEVICE_SERVICE_INTERFACE_CONFIG_H

#include "DeviceState.h"
#include "Result.h"

#include <string>

namespace DeviceService {

// With settings that passed CheckNetworkSettings and Dhcp "false": adds
// IpAddress/SubnetMask to the interface, points the default route at
// DefaultGateway (or removes the interface's default route when it is
// 0.0.0.0), then removes the interface's other IPv4 addresses. A failure
// before the old addresses are gone takes the new address off again, so the
// interface never ends up without an address. Says what was done.
Result<std::string> ApplyStaticSettings(const std::string& interfaceName, const Settings& settings);

// Removes every IPv4 address of the interface, and with them its routes.
Result<void> RemoveAddresses(const std::string& interfaceName);

} // namespace DeviceService

#endif
