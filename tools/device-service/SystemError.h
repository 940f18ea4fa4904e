// The failure of a system call: what was attempted, and errno's description.
#ifndef DEVICE_SERVICE_SYSTEM_ERROR_H
#define DEVICE_SERVICE_SYSTEM_ERROR_H

#include "Result.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace DeviceService {

inline Error SystemError(const std::string& what) {
    return Error{what + ": " + std::strerror(errno)};
}

} // namespace DeviceService

#endif
