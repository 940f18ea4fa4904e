#include "DeviceState.h"

#include <nlohmann/json.hpp>

#include "Address.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace DeviceService {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

// The settings in the order in which the configuration reply lists them.
const char* const kKeys[] = {"Dhcp",           "IpAddress",  "SubnetMask",
                             "DefaultGateway", "NameServer", "NameServer2"};

bool IsKnownKey(const std::string& key) {
    return std::find(std::begin(kKeys), std::end(kKeys), key) != std::end(kKeys);
}

bool IsContiguousMask(std::uint32_t mask) {
    const std::uint32_t hostBits = ~mask;
    return (hostBits & (hostBits + 1)) == 0;
}

} // namespace

DeviceState DefaultState() {
    return {{{"Dhcp", "false"},
             {"IpAddress", "192.168.1.20"},
             {"SubnetMask", "255.255.255.0"},
             {"DefaultGateway", "192.168.1.1"},
             {"NameServer", "192.168.1.1"},
             {"NameServer2", "8.8.8.8"}},
            0};
}

std::optional<std::uint32_t> ParseIpv4(const std::string& text) {
    const Result<unsigned long> address = ParseAddress(text);
    return address ? std::optional<std::uint32_t>(static_cast<std::uint32_t>(*address))
                   : std::nullopt;
}

Result<void> CheckSetting(const std::string& key, const std::string& value) {
    if (key == "Dhcp") {
        return value == "true" || value == "false" ? Result<void>(Ok{})
                                                   : Error{"Dhcp must be \"true\" or \"false\""};
    }
    if (!IsKnownKey(key)) {
        return Error{"unknown setting " + key};
    }
    const std::optional<std::uint32_t> address = ParseIpv4(value);
    if (!address) {
        return Error{key + " is not a dotted IPv4 address"};
    }
    if (key == "SubnetMask" && !IsContiguousMask(*address)) {
        return Error{"SubnetMask is not a contiguous mask"};
    }
    return Ok{};
}

Result<Settings> ParseSettings(const json& object) {
    Settings settings;
    for (const auto& [key, value] : object.items()) {
        if (!value.is_string()) {
            return Error{key + " must be a string"};
        }
        if (Result<void> valid = CheckSetting(key, value.get<std::string>()); !valid) {
            return Error{valid.error()};
        }
        settings[key] = value.get<std::string>();
    }
    return settings;
}

void CountRestart(DeviceState& state) {
    if (state.restartCount < std::numeric_limits<std::uint64_t>::max()) {
        ++state.restartCount;
    }
}

std::string ConfigText(const DeviceState& state) {
    ordered_json config = ordered_json::object();
    for (const char* key : kKeys) {
        config[key] = state.settings.at(key);
    }
    return config.dump();
}

std::string StateText(const DeviceState& state) {
    const json document = {{"settings", state.settings}, {"restartCount", state.restartCount}};
    return document.dump(2) + "\n";
}

Result<DeviceState> ParseStateText(std::string_view text) {
    json document;
    try {
        document = json::parse(text);
    } catch (const json::exception& error) {
        return Error{std::string("not a JSON document: ") + error.what()};
    }
    if (!document.is_object()) {
        return Error{"not a JSON object"};
    }
    const auto settings = document.find("settings");
    if (settings == document.end() || !settings->is_object()) {
        return Error{"settings is missing or not an object"};
    }
    Result<Settings> parsed = ParseSettings(*settings);
    if (!parsed) {
        return Error{"settings: " + parsed.error()};
    }
    for (const char* key : kKeys) {
        if (parsed->count(key) == 0) {
            return Error{std::string("settings: ") + key + " is missing"};
        }
    }
    // Only a non-negative integer that fits is a count; get<> would silently
    // convert a negative or fractional number, or one too large.
    const auto count = document.find("restartCount");
    if (count == document.end() || !count->is_number_unsigned()) {
        return Error{"restartCount is missing or not a whole number from 0 to " +
                     std::to_string(std::numeric_limits<std::uint64_t>::max())};
    }
    return DeviceState{std::move(*parsed), count->get<std::uint64_t>()};
}

} // namespace DeviceService
