#include "Request.h"

#include <nlohmann/json.hpp>

namespace DeviceService {

namespace {

using nlohmann::json;

const std::string& Text(const json& object, const char* key) {
    return object.at(key).get_ref<const std::string&>();
}

Request ParseSetConfig(const json& command) {
    const json& config = command.at("deviceConfig");
    if (!config.is_object()) {
        return BadRequest{"deviceConfig must be an object"};
    }
    SetConfigRequest request;
    for (const auto& [key, value] : config.items()) {
        if (!value.is_string()) {
            return BadRequest{key + " must be a string"};
        }
        const std::string problem = CheckSetting(key, value.get<std::string>());
        if (!problem.empty()) {
            return BadRequest{problem};
        }
        request.settings[key] = value.get<std::string>();
    }
    return request;
}

Request ParseCommand(const std::string& text) {
    const json command = json::parse(text);
    const std::string& name = Text(command, "command");
    if (name == "SetDeviceConfig") {
        return ParseSetConfig(command);
    }
    if (name == "Restart") {
        return RestartRequest{Text(command, "type")};
    }
    return BadRequest{"unknown command " + name};
}

} // namespace

Request ParseRequest(std::string_view body) {
    try {
        const json message = json::parse(body);
        const std::string& op = Text(message, "op");
        if (op == "register") {
            RegisterRequest request{Text(message, "name"), Text(message, "type"),
                                    Text(message, "protocol")};
            if (request.name.empty()) {
                return BadRequest{"empty application name"};
            }
            return request;
        }
        if (op == "getConfig") {
            return message.at("flags").is_number_integer()
                       ? Request{ConfigRequest{}}
                       : Request{BadRequest{"flags must be an integer"}};
        }
        if (op == "command") {
            return ParseCommand(Text(message, "request"));
        }
        return BadRequest{"unknown operation " + op};
    } catch (const nlohmann::json::exception& error) {
        return BadRequest{error.what()};
    }
}

} // namespace DeviceService
