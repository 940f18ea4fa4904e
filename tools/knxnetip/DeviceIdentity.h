// The KNX identity of the device the server presents, and its reading from the
// configuration keys "knx.individualAddress" (AREA.LINE.DEVICE),
// "knx.serialNumber" (12 hex digits), "knx.friendlyName" (at most 30
// characters), "knx.manufacturerId" and "knx.projectInstallationId" (decimal
// or 0x-prefixed hexadecimal, 0-65535).
#ifndef KNXNETIP_DEVICE_IDENTITY_H
#define KNXNETIP_DEVICE_IDENTITY_H

#include "Result.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>

namespace KnxNetIp {

struct DeviceIdentity {
    std::uint16_t individualAddress = 0xFFFF; // 15.15.255, a device not yet addressed
    std::array<std::uint8_t, 6> serialNumber{};
    std::string friendlyName = "knx-addon-host";
    std::uint16_t manufacturerId = 0;
    std::uint16_t projectInstallationId = 0;
};

constexpr std::size_t kFriendlyNameSize = 30;

// Reads the "knx." keys of `properties` over the defaults; other keys are
// ignored, an unknown "knx." key or a malformed value is an error.
Result<DeviceIdentity> ParseDeviceIdentity(const std::map<std::string, std::string>& properties);

std::string IndividualAddressText(std::uint16_t address);

} // namespace KnxNetIp

#endif
