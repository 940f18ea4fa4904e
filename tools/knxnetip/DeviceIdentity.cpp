#include "DeviceIdentity.h"

#include <cstdlib>
#include <sstream>

namespace KnxNetIp {

namespace {

bool ParseNumber(const std::string& text, unsigned long maximum, unsigned long& value) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    const char* allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.size() > 8 ||
        digits.find_first_not_of(allowed) != std::string::npos) {
        return false;
    }
    value = std::strtoul(digits.c_str(), nullptr, hex ? 16 : 10);
    return value <= maximum;
}

bool ParseU16(const std::string& text, std::uint16_t& out) {
    unsigned long value = 0;
    if (!ParseNumber(text, 0xFFFF, value)) {
        return false;
    }
    out = static_cast<std::uint16_t>(value);
    return true;
}

bool ParseIndividualAddress(const std::string& text, std::uint16_t& out) {
    const std::size_t first = text.find('.');
    const std::size_t second = first == std::string::npos ? first : text.find('.', first + 1);
    unsigned long area = 0, line = 0, device = 0;
    if (second == std::string::npos || !ParseNumber(text.substr(0, first), 15, area) ||
        !ParseNumber(text.substr(first + 1, second - first - 1), 15, line) ||
        !ParseNumber(text.substr(second + 1), 255, device) ||
        text.find_first_of("xX") != std::string::npos) {
        return false;
    }
    out = static_cast<std::uint16_t>(area << 12 | line << 8 | device);
    return true;
}

bool ParseSerialNumber(const std::string& text, std::array<std::uint8_t, 6>& out) {
    if (text.size() != 12 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
    }
    for (std::size_t i = 0; i < out.size(); ++i) {
        out[i] =
            static_cast<std::uint8_t>(std::strtoul(text.substr(2 * i, 2).c_str(), nullptr, 16));
    }
    return true;
}

struct Key {
    const char* name;
    const char* expected;
    bool (*parse)(const std::string&, DeviceIdentity&);
};

constexpr Key kKeys[] = {
    {"knx.individualAddress", "AREA.LINE.DEVICE (0-15.0-15.0-255)",
     [](const std::string& t, DeviceIdentity& d) {
         return ParseIndividualAddress(t, d.individualAddress);
     }},
    {"knx.serialNumber", "12 hexadecimal digits",
     [](const std::string& t, DeviceIdentity& d) { return ParseSerialNumber(t, d.serialNumber); }},
    {"knx.friendlyName", "at most 30 characters",
     [](const std::string& t, DeviceIdentity& d) {
         d.friendlyName = t;
         return t.size() <= kFriendlyNameSize;
     }},
    {"knx.manufacturerId", "a number 0-65535",
     [](const std::string& t, DeviceIdentity& d) { return ParseU16(t, d.manufacturerId); }},
    {"knx.projectInstallationId", "a number 0-65535",
     [](const std::string& t, DeviceIdentity& d) { return ParseU16(t, d.projectInstallationId); }},
};

} // namespace

Result<DeviceIdentity> ParseDeviceIdentity(const std::map<std::string, std::string>& properties) {
    DeviceIdentity identity;
    for (const auto& [name, value] : properties) {
        if (name.rfind("knx.", 0) != 0) {
            continue;
        }
        const Key* key = nullptr;
        for (const Key& candidate : kKeys) {
            key = name == candidate.name ? &candidate : key;
        }
        if (key == nullptr) {
            return Error{"unknown configuration key " + name};
        }
        if (!key->parse(value, identity)) {
            std::string message = name;
            message.append(": expected ").append(key->expected).append(", got '").append(value) +=
                '\'';
            return Error{message};
        }
    }
    return identity;
}

std::string IndividualAddressText(std::uint16_t address) {
    std::ostringstream text;
    text << (address >> 12) << '.' << (address >> 8 & 0x0F) << '.' << (address & 0xFF);
    return text.str();
}

} // namespace KnxNetIp
