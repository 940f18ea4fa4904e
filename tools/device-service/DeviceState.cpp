#include "DeviceState.h"

#include <nlohmann/json.hpp>

#include <arpa/inet.h>

#include <algorithm>
#include <iterator>

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
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

std::string CheckSetting(const std::string& key, const std::string& value) {
    if (key == "Dhcp") {
        return value == "true" || value == "false" ? "" : "Dhcp must be \"true\" or \"false\"";
    }
    if (!IsKnownKey(key)) {
        return "unknown setting " + key;
    }
    const std::optional<std::uint32_t> address = ParseIpv4(value);
    if (!address) {
        return key + " is not a dotted IPv4 address";
    }
    if (key == "SubnetMask" && !IsContiguousMask(*address)) {
        return "SubnetMask is not a contiguous mask";
    }
    return "";
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

std::optional<DeviceState> ParseStateText(std::string_view text) {
    try {
        const json document = json::parse(text);
        // Only a non-negative integer that fits is a count; get<> would
        // silently convert a negative or fractional number, or one too large.
        if (!document.at("restartCount").is_number_unsigned()) {
            return std::nullopt;
        }
        DeviceState state{document.at("settings").get<Settings>(),
                          document.at("restartCount").get<std::uint64_t>()};
        for (const auto& [key, value] : state.settings) {
            if (!CheckSetting(key, value).empty()) {
                return std::nullopt;
            }
        }
        if (state.settings.size() != std::size(kKeys)) {
            return std::nullopt;
        }
        return state;
    } catch (const json::exception&) {
        return std::nullopt;
    }
}

} // namespace DeviceService
