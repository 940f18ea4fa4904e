#include "Request.h"

#include <nlohmann/json.hpp>

namespace DeviceService {

namespace {

using nlohmann::json;

// Throws json::exception when the member is missing or not a string.
const std::string& Text(const json& object, const char* key) {
    return object.at(key).get_ref<const std::string&>();
}

Result<Request> ParseSetConfig(const json& command) {
    const json& config = command.at("deviceConfig");
    if (!config.is_object()) {
        return Error{"deviceConfig must be an object"};
    }
    Result<Settings> settings = ParseSettings(config);
    if (!settings) {
        return Error{settings.error()};
    }
    return Request{SetConfigRequest{std::move(*settings)}};
}

Result<Request> ParseCommand(const std::string& text) {
    const json command = json::parse(text);
    const std::string& name = Text(command, "command");
    if (name == "SetDeviceConfig") {
        return ParseSetConfig(command);
    }
    if (name == "Restart") {
        return Request{RestartRequest{Text(command, "type")}};
    }
    return Error{"unknown command " + name};
}

Result<Request> ParseMessage(const json& message) {
    const std::string& op = Text(message, "op");
    if (op == "register") {
        RegisterRequest request{Text(message, "name"), Text(message, "type"),
                                Text(message, "protocol")};
        if (request.name.empty()) {
            return Error{"empty application name"};
        }
        return Request{std::move(request)};
    }
    if (op == "getConfig") {
        return message.at("flags").is_number_integer() ? Result<Request>(Request{ConfigRequest{}})
                                                       : Error{"flags must be an integer"};
    }
    if (op == "command") {
        return ParseCommand(Text(message, "request"));
    }
    return Error{"unknown operation " + op};
}

} // namespace

Result<Request> ParseRequest(std::string_view body) {
    // A message that is not JSON, or lacks a member or has one of the wrong
    // type, fails with the JSON library's description of the fault.
    try {
        return ParseMessage(json::parse(body));
    } catch (const json::exception& error) {
        return Error{error.what()};
    }
}

} // namespace DeviceService
