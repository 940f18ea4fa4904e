// Where the device service listens: the socket that device-stack clients
// connect to, unless VELBOR_DEVICE_STACK_SOCKET names another one.
#ifndef VELBOR_SERVICE_SOCKET_H
#define VELBOR_SERVICE_SOCKET_H

#include <cstdlib>
#include <string>

namespace Velbor {

inline constexpr char kDefaultServiceSocket[] = "/run/velbor-device-stack.sock";
inline constexpr char kServiceSocketVariable[] = "VELBOR_DEVICE_STACK_SOCKET";

// $VELBOR_DEVICE_STACK_SOCKET when it is set and not empty, else the default socket.
inline std::string ServiceSocketPath() {
    const char* path = std::getenv(kServiceSocketVariable);
    return path != nullptr && *path != '\0' ? path : kDefaultServiceSocket;
}

} // namespace Velbor

#endif
