// Dotted IPv4 texts of address values whose first octet is the most
// significant byte (192.168.1.10 is 0xC0A8010A), as the add-on, the KNXnet/IP
// frames and the device service's settings carry them.
#ifndef TOOLS_COMMON_ADDRESS_H
#define TOOLS_COMMON_ADDRESS_H

#include "Result.h"

#include <string>

std::string FormatAddress(unsigned long value);

// The value of a dotted IPv4 text such as "192.168.1.10"; an error for anything else.
Result<unsigned long> ParseAddress(const std::string& text);

#endif
