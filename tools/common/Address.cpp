#include "Address.h"

#include <arpa/inet.h>

#include <cstdint>

std::string FormatAddress(unsigned long value) {
    const in_addr address{htonl(static_cast<std::uint32_t>(value))};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

Result<unsigned long> ParseAddress(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return Error{"not a dotted IPv4 address: '" + text + "'"};
    }
    return static_cast<unsigned long>(ntohl(address.s_addr));
}
