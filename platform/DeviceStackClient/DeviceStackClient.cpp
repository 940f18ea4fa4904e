// Placeholder device-stack client library: no service to reach, so no client.
#include "VelborDeviceStackClient.h"

namespace Velbor {

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    return nullptr;
}

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient(const std::string& /*connection*/) {
    return nullptr;
}

} // namespace Velbor
