#include "NetworkSettings.h"

#include <bitset>

namespace DeviceService {

namespace {

constexpr std::uint32_t kMulticastMask = 0xF0000000;
constexpr std::uint32_t kMulticastNetwork = 0xE0000000;
constexpr std::uint32_t kLimitedBroadcast = 0xFFFFFFFF;

// The subnet as network/prefix, as in 192.168.1.0/24.
std::string Subnet(std::uint32_t address, std::uint32_t mask) {
    const std::uint32_t network = address & mask;
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += std::to_string((network >> shift) & 0xFF) + (shift > 0 ? "." : "");
    }
    return text + "/" + std::to_string(std::bitset<32>(mask).count());
}

// Why `address` cannot be a host's address in the subnet of `mask`; empty
// when it can.
std::string HostProblem(std::uint32_t address, std::uint32_t mask) {
    const std::uint32_t network = address & mask;
    if (address == 0) {
        return "is not a host address";
    }
    if ((address & kMulticastMask) == kMulticastNetwork) {
        return "is a multicast address";
    }
    if (address == kLimitedBroadcast) {
        return "is the broadcast address";
    }
    if (address == network) {
        return "is the network address of the subnet " + Subnet(address, mask);
    }
    return address == (network | ~mask)
               ? "is the broadcast address of the subnet " + Subnet(address, mask)
               : "";
}

std::string ValueOr(const std::vector<std::string>& values, std::size_t index) {
    return index < values.size() ? values[index] : "";
}

} // namespace

Result<void> CheckNetworkSettings(const Settings& settings) {
    if (settings.at("Dhcp") == "true") {
        return Ok{};
    }
    const std::string& addressText = settings.at("IpAddress");
    const std::string& maskText = settings.at("SubnetMask");
    const std::string& gatewayText = settings.at("DefaultGateway");
    const std::optional<std::uint32_t> address = ParseIpv4(addressText);
    const std::optional<std::uint32_t> mask = ParseIpv4(maskText);
    if (!address) {
        return Error{"IpAddress \"" + addressText + "\" is not an IPv4 address"};
    }
    if (!mask || *mask == 0 || !CheckSetting("SubnetMask", maskText)) {
        return Error{"SubnetMask \"" + maskText + "\" is not a usable subnet mask"};
    }
    std::string problem = HostProblem(*address, *mask);
    if (!problem.empty()) {
        return Error{"IpAddress " + addressText + " " + problem};
    }
    const std::optional<std::uint32_t> gateway = ParseIpv4(gatewayText);
    if (gateway == std::uint32_t{0}) {
        return Ok{}; // no default route
    }
    if (!gateway || (*gateway & *mask) != (*address & *mask)) {
        return Error{"DefaultGateway " + gatewayText + " is outside the subnet " +
                     Subnet(*address, *mask)};
    }
    problem = *gateway == *address ? "is the device's own address" : HostProblem(*gateway, *mask);
    if (!problem.empty()) {
        return Error{"DefaultGateway " + gatewayText + " " + problem};
    }
    return Ok{};
}

Settings FactoryNetworkSettings() {
    return {{"Dhcp", "true"},          {"IpAddress", "0.0.0.0"},
            {"SubnetMask", "0.0.0.0"}, {"DefaultGateway", "0.0.0.0"},
            {"NameServer", "0.0.0.0"}, {"NameServer2", "0.0.0.0"}};
}

Settings ReportedSettings(const Settings& configured, const std::optional<Lease>& lease) {
    if (configured.at("Dhcp") != "true") {
        return configured;
    }
    const Lease none;
    const Lease& current = lease ? *lease : none;
    return {{"Dhcp", "true"},
            {"IpAddress", current.address},
            {"SubnetMask", current.mask},
            {"DefaultGateway", current.router},
            {"NameServer", ValueOr(current.nameServers, 0)},
            {"NameServer2", ValueOr(current.nameServers, 1)}};
}

std::vector<std::string> NameServers(const Settings& settings) {
    std::vector<std::string> servers;
    for (const char* key : {"NameServer", "NameServer2"}) {
        const std::string& value = settings.at(key);
        if (!value.empty() && ParseIpv4(value).value_or(0) != 0) {
            servers.push_back(value);
        }
    }
    return servers;
}

} // namespace DeviceService
