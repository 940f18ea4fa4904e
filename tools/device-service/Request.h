// Parsing of the messages that clients send to the device service. Pure: no
// state, no input or output; every malformed message fails with its reason.
#ifndef DEVICE_SERVICE_REQUEST_H
#define DEVICE_SERVICE_REQUEST_H

#include "DeviceState.h"
#include "Result.h"

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

using Request = std::variant<RegisterRequest, ConfigRequest, SetConfigRequest, RestartRequest>;

// One message body: {"op":"register",...}, {"op":"getConfig",...} or
// {"op":"command","request":"<command text>"}, whose command text is
// "SetDeviceConfig" with a "deviceConfig" object or "Restart" with a "type".
Result<Request> ParseRequest(std::string_view body);

} // namespace DeviceService

#endif
