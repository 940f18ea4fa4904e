// The device's settings as the device service keeps them, and their texts:
// the configuration reply that clients scan and the persisted state document.
#ifndef DEVICE_SERVICE_DEVICE_STATE_H
#define DEVICE_SERVICE_DEVICE_STATE_H

#include "Result.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace DeviceService {

using Settings = std::map<std::string, std::string>;

struct DeviceState {
    Settings settings; // always exactly the six known keys
    std::uint64_t restartCount = 0;

    bool operator==(const DeviceState& other) const {
        return settings == other.settings && restartCount == other.restartCount;
    }
};

DeviceState DefaultState();

// Counts one more restart; the count stops at its largest value instead of
// wrapping to 0.
void CountRestart(DeviceState& state);

// Fails with the reason when `value` is not acceptable for the setting `key`.
Result<void> CheckSetting(const std::string& key, const std::string& value);

// The settings of a JSON object whose members are setting texts, each checked;
// fails with the first member that is not a string or not acceptable.
Result<Settings> ParseSettings(const nlohmann::json& object);

// An IPv4 address in dotted text as a host-order number.
std::optional<std::uint32_t> ParseIpv4(const std::string& text);

// {"Dhcp":"false","IpAddress":"192.168.1.20",...}: every key, fixed order,
// no blanks.
std::string ConfigText(const DeviceState& state);

std::string StateText(const DeviceState& state);
// The state in a persisted document; a failure names the field at fault and
// what is wrong with it.
Result<DeviceState> ParseStateText(std::string_view text);

} // namespace DeviceService

#endif
