// Dotted IPv4 texts of the add-on's address values, whose first octet is the
// most significant byte (192.168.1.10 is 0xC0A8010A).
#ifndef ADDON_HOST_ADDRESS_H
#define ADDON_HOST_ADDRESS_H

#include "Result.h"

#include <string>

namespace AddonHost {

std::string FormatAddress(unsigned long value);

// The value of a dotted IPv4 text such as "192.168.1.10"; an error for anything else.
Result<unsigned long> ParseAddress(const std::string& text);

} // namespace AddonHost

#endif
