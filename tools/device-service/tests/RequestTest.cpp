// The request parser and the state document, without sockets.
#include "Request.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <limits>
#include <string>

namespace {

using namespace DeviceService;

std::string Command(const std::string& text) {
    return nlohmann::json{{"op", "command"}, {"request", text}}.dump();
}

std::string SetConfig(const std::string& config) {
    return Command(R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : )" +
                   config + " }");
}

TEST(ParseRequest, RefusesMalformedMessagesSayingWhy) {
    const std::pair<std::string, const char*> cases[] = {
        {"", "[json.exception.parse_error."},
        {R"({"op":"launch"})", "unknown operation launch"},
        {R"({"op":"register","name":"","type":"field","protocol":"KNX"})",
         "empty application name"},
        {R"({"op":"getConfig","flags":"1"})", "flags must be an integer"},
        {R"({"op":"command","request":{"command":"Restart"}})", "[json.exception.type_error."},
        {Command(R"({ "command" : )"), "[json.exception.parse_error."},
        {Command(R"({"command":"Reboot"})"), "unknown command Reboot"},
        {SetConfig("[]"), "deviceConfig must be an object"},
        {SetConfig(R"({ "Hostname" : "knx" })"), "unknown setting Hostname"},
        {SetConfig(R"({ "Dhcp" : true })"), "Dhcp must be a string"},
        {SetConfig(R"({ "Dhcp" : "TRUE" })"), R"(Dhcp must be "true" or "false")"},
        {SetConfig(R"({ "SubnetMask" : "255.0.255.0" })"), "SubnetMask is not a contiguous mask"},
    };
    for (const auto& [body, error] : cases) {
        const Result<Request> request = ParseRequest(body);
        ASSERT_FALSE(request) << body;
        EXPECT_EQ(request.error().rfind(error, 0), 0u) << body << ": " << request.error();
    }
}

// The default state document changed by `patch` (a JSON merge patch): its
// error, or "<accepted>".
std::string StateError(const std::string& patch) {
    nlohmann::json document = nlohmann::json::parse(StateText(DefaultState()));
    document.merge_patch(nlohmann::json::parse(patch));
    const Result<DeviceState> state = ParseStateText(document.dump());
    return state ? "<accepted>" : state.error();
}

TEST(StateText, RoundTripsAndNamesTheFieldAtFault) {
    DeviceState state = DefaultState();
    state.restartCount = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(*ParseStateText(StateText(state)), state);
    EXPECT_EQ(ParseStateText("").error().rfind("not a JSON document: ", 0), 0u);
    const std::string count =
        "restartCount is missing or not a whole number from 0 to 18446744073709551615";
    const std::pair<const char*, std::string> cases[] = {
        {R"({"settings":null})", "settings is missing or not an object"},
        {R"({"settings":{"NameServer2":null}})", "settings: NameServer2 is missing"},
        {R"({"settings":{"IpAddress":"10.0.0"}})",
         "settings: IpAddress is not a dotted IPv4 address"},
        {R"({"restartCount":-1})", count},
        {R"({"restartCount":2.75})", count},
        {R"({"restartCount":18446744073709551616})", count},
    };
    for (const auto& [patch, error] : cases) {
        EXPECT_EQ(StateError(patch), error) << patch;
    }
}

} // namespace
