#include "Log.h"

#include <cstdio>
#include <iostream>

namespace DeviceService {

void Log(const std::string& line) {
    std::string text;
    for (const char c : line) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || byte == '\\') {
            char escape[5];
            std::snprintf(escape, sizeof escape, "\\x%02X", byte);
            text += escape;
        } else {
            text += c;
        }
    }
    std::cerr << "velbor-device-service: " << text << std::endl;
}

} // namespace DeviceService
