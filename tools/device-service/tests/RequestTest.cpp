// The request parser, the framing and the state document, without sockets.
#include "Framing.h"
#include "Request.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
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

TEST(ParseRequest, RefusesMalformedMessages) {
    const std::string bad[] = {
        "",
        "[]",
        R"({"op":"launch"})",
        R"({"op":"register","name":"","type":"field","protocol":"KNX"})",
        R"({"op":"register","name":"App"})",
        R"({"op":"getConfig","flags":"1"})",
        R"({"op":"command","request":{"command":"Restart","type":"x"}})",
        Command(R"({ "command" : )"),
        Command(R"({"command":"Reboot"})"),
        Command(R"({"command":"Restart"})"),
        Command(R"({"command":"Restart", "type":"Factory"Reset"})"),
        SetConfig("[]"),
        SetConfig(R"({ "Hostname" : "knx" })"),
        SetConfig(R"({ "Dhcp" : true })"),
        SetConfig(R"({ "Dhcp" : "TRUE" })"),
        SetConfig(R"({ "Dhcp" : "true", "IpAddress" : "192.168.1.256" })"),
        SetConfig(R"({ "DefaultGateway" : "10.0.0" })"),
        SetConfig(R"({ "NameServer" : "" })"),
        SetConfig(R"({ "SubnetMask" : "255.0.255.0" })"),
    };
    for (const std::string& body : bad) {
        const Request request = ParseRequest(body);
        ASSERT_TRUE(std::holds_alternative<BadRequest>(request)) << body;
        EXPECT_FALSE(std::get<BadRequest>(request).reason.empty()) << body;
    }
}

TEST(ParseRequest, AcceptsWhatTheClientsSend) {
    const auto registration = std::get<RegisterRequest>(ParseRequest(
        R"({"op":"register","name":"DscKnxIpConfig","type":"field","protocol":"KNX"})"));
    EXPECT_EQ(registration.name + registration.type + registration.protocol,
              "DscKnxIpConfigfieldKNX");
    EXPECT_TRUE(
        std::holds_alternative<ConfigRequest>(ParseRequest(R"({"op":"getConfig","flags":1})")));
    EXPECT_EQ(
        std::get<RestartRequest>(ParseRequest(Command(R"({"command":"Restart", "type":""})"))).type,
        "");

    const Settings all{{"DefaultGateway", "192.168.1.1"}, {"Dhcp", "false"},
                       {"IpAddress", "192.168.1.10"},     {"NameServer", "192.168.1.1"},
                       {"NameServer2", "0.0.0.0"},        {"SubnetMask", "255.255.255.255"}};
    std::string config = "{ ";
    for (const auto& [key, value] : all) {
        config += (config.size() > 2 ? ", \"" : "\"") + key + "\" : \"" + value + "\"";
    }
    EXPECT_EQ(std::get<SetConfigRequest>(ParseRequest(SetConfig(config + " }"))).settings, all);
    EXPECT_TRUE(std::get<SetConfigRequest>(ParseRequest(SetConfig("{  }"))).settings.empty());
}

TEST(Framing, SplitsAStreamIntoMessages) {
    std::string stream = *Velbor::EncodeFrame("first") + *Velbor::EncodeFrame("");
    stream += Velbor::EncodeFrame("third")->substr(0, 6);
    std::string body;
    ASSERT_EQ(Velbor::TakeFrame(stream, body), Velbor::FrameStatus::Complete);
    EXPECT_EQ(body, "first");
    ASSERT_EQ(Velbor::TakeFrame(stream, body), Velbor::FrameStatus::Complete);
    EXPECT_EQ(body, "");
    EXPECT_EQ(Velbor::TakeFrame(stream, body), Velbor::FrameStatus::Incomplete);
    EXPECT_EQ(stream.size(), 6u);

    const std::string largest(Velbor::kMaxFrameBody, 'x');
    stream = *Velbor::EncodeFrame(largest);
    EXPECT_EQ(Velbor::TakeFrame(stream, body), Velbor::FrameStatus::Complete);
    EXPECT_EQ(body, largest);
    EXPECT_FALSE(Velbor::EncodeFrame(largest + "x"));
    stream = std::string("\x00\x01\x00\x01", 4);
    EXPECT_EQ(Velbor::TakeFrame(stream, body), Velbor::FrameStatus::TooLarge);
}

TEST(StateText, RoundTripsAndRejectsInvalidDocuments) {
    DeviceState state = DefaultState();
    state.restartCount = 3;
    EXPECT_EQ(ParseStateText(StateText(state)), state);
    for (const char* text : {"", "{}", R"({"settings":{},"restartCount":0})",
                             R"({"settings":{"Dhcp":"maybe"},"restartCount":0})"}) {
        EXPECT_FALSE(ParseStateText(text)) << text;
    }
    // A restart count must be a non-negative integer that fits.
    const std::string valid = StateText(DefaultState());
    const std::size_t at = valid.find("\"restartCount\": 0");
    ASSERT_NE(at, std::string::npos) << valid;
    for (const char* count : {"-1", "2.75", "1e30", "18446744073709551616", "\"1\""}) {
        std::string text = valid;
        text.replace(at, std::strlen("\"restartCount\": 0"),
                     std::string("\"restartCount\": ") + count);
        EXPECT_FALSE(ParseStateText(text)) << text;
    }
}

} // namespace
