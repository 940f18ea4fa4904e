// The device's network settings as an interface sees them: which static
// settings can work at all, what a factory reset restores, what the device
// reports while its address comes from DHCP, and which DNS servers name
// look-ups use. Pure functions.
#ifndef DEVICE_SERVICE_NETWORK_SETTINGS_H
#define DEVICE_SERVICE_NETWORK_SETTINGS_H

#include "DeviceState.h"
#include "DhcpLease.h"
#include "Result.h"

#include <optional>
#include <string>
#include <vector>

namespace DeviceService {

// With Dhcp "false", why IpAddress/SubnetMask/DefaultGateway cannot be put on
// an interface: a mask of 0.0.0.0 or with holes, an address that is 0.0.0.0,
// multicast, the broadcast address or its subnet's network or broadcast
// address, a gateway that is not another host of the subnet. A gateway of
// 0.0.0.0 means no default route. With Dhcp "true" any addresses are kept for
// later and not looked at.
Result<void> CheckNetworkSettings(const Settings& settings);

// What a factory reset restores: DHCP on, and 0.0.0.0 (none) for the static
// address, mask, gateway and both DNS servers.
Settings FactoryNetworkSettings();

// The settings as the configuration reply reports them: with Dhcp "false" the
// configured ones; with Dhcp "true" the current lease's address, mask, router
// and first two DNS servers, each empty while unknown (no lease yet, no router
// or DNS server in it).
Settings ReportedSettings(const Settings& configured, const std::optional<Lease>& lease);

// The DNS servers among NameServer and NameServer2, in that order, leaving out
// 0.0.0.0 and empty values.
std::vector<std::string> NameServers(const Settings& settings);

} // namespace DeviceService

#endif
