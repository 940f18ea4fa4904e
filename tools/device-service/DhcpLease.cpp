#include "DhcpLease.h"

#include "DeviceState.h"

#include <map>
#include <sstream>

namespace DeviceService {

namespace {

std::vector<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

bool IsAddress(const std::string& text) {
    return ParseIpv4(text).value_or(0) != 0;
}

} // namespace

Result<Lease> ParseLease(std::string_view text) {
    std::map<std::string, std::string> values;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos) {
            values[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
    Lease lease{values["ip"], values["mask"], "", Words(values["dns"])};
    if (!IsAddress(lease.address)) {
        return Error{"lease without an address: \"" + lease.address + "\""};
    }
    if (!IsAddress(lease.mask) || !CheckSetting("SubnetMask", lease.mask)) {
        return Error{"lease with a bad subnet mask: \"" + lease.mask + "\""};
    }
    std::vector<std::string> addresses = Words(values["routers"]);
    lease.router = addresses.empty() ? "" : addresses.front();
    addresses.insert(addresses.end(), lease.nameServers.begin(), lease.nameServers.end());
    for (const std::string& address : addresses) {
        if (!IsAddress(address)) {
            return Error{"lease with a bad router or DNS server: \"" + address + "\""};
        }
    }
    return lease;
}

} // namespace DeviceService
