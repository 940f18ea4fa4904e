// Parsing of the messages that clients send to the device service. Pure: no
// state, no input or output; every malformed message yields an error text.
#ifndef DEVICE_SERVICE_REQUEST_H
#define DEVICE_SERVICE_REQUEST_H

#include "DeviceState.h"

#include <string>
#include <string_view>
#include <variant>

namespace DeviceService {

struct RegisterRequest {
    std::string name;
    std::string type;
    std::string protocol;
};

struct ConfigRequest {};

// Settings to merge into the device's, each already checked.
struct SetConfigRequest {
    Settings settings;
};

struct RestartRequest {
    std::string type;
};

struct BadRequest {
    std::string reason;
};

using Request =
    std::variant<BadRequest, RegisterRequest, ConfigRequest, SetConfigRequest, RestartRequest>;

// One message body: {"op":"register",...}, {"op":"getConfig",...} or
// {"op":"command","request":"<command text>"}, whose command text is
// "SetDeviceConfig" with a "deviceConfig" object or "Restart" with a "type".
Request ParseRequest(std::string_view body);

} // namespace DeviceService

#endif
