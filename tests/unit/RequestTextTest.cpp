#include "DscKnxIpConfig.h"
#include "FakePlatform.h"
#include "LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace std::string_literals;
using testing::_;

namespace {

using Map = std::map<std::string, std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

const std::string kOpening =
    R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : { )";
const std::string kClosing = " } }";

struct Sent {
    bool result;
    std::string request;
};

// Sends `values` through a client that answers `accepted`; the client must see
// exactly one request with an empty reply and 360, and nothing may be logged.
Sent Send(const Map& values, bool accepted = true) {
    auto* client = new testing::StrictMock<MockDeviceStackClient>;
    const std::unique_ptr<Velbor::IDeviceStackClient> idsc(client);
    Sent sent{false, ""};
    testing::InSequence order;
    EXPECT_CALL(*client, RequestCommand(_, testing::IsEmpty(), 360))
        .WillOnce(testing::DoAll(testing::SaveArg<0>(&sent.request), testing::Return(accepted)));
    EXPECT_CALL(*client, Destroyed());
    LogCapture log;
    sent.result = SetDeviceConfigAsync(idsc, values);
    EXPECT_TRUE(log.Lines().empty());
    return sent;
}

struct SanitizeCase {
    std::string text;
    std::string expected;
};

class Sanitize : public testing::TestWithParam<SanitizeCase> {};

struct RequestCase {
    Map values;
    std::string request;
};

class RequestText : public testing::TestWithParam<RequestCase> {};

} // namespace

TEST_P(Sanitize, DropsControlCharactersQuotesAndBackslashes) {
    EXPECT_EQ(SanitizeConfigText(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Texts, Sanitize,
                         testing::Values(SanitizeCase{"", ""}, SanitizeCase{"a\"b", "ab"},
                                         SanitizeCase{"a\\b", "ab"},
                                         SanitizeCase{"\ta\nb\rc\x1f"s, "abc"},
                                         SanitizeCase{"\0a\0"s, "a"},
                                         SanitizeCase{"\x7f Z\xc3\xbcrich \xe2\x82\xac",
                                                      "\x7f Z\xc3\xbcrich \xe2\x82\xac"}));

TEST(Sanitize, KeepsEveryByteButControlsQuoteAndBackslash) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all.push_back(static_cast<char>(byte));
    }
    std::string kept = all.substr(0x20);
    kept.erase(kept.find('\\'), 1);
    kept.erase(kept.find('"'), 1);
    EXPECT_EQ(SanitizeConfigText(all), kept);
}

TEST_P(RequestText, IsOneLineOfSanitizedPairsInMapOrder) {
    const Sent sent = Send(GetParam().values);
    EXPECT_EQ(sent.request, GetParam().request);
}

INSTANTIATE_TEST_SUITE_P(
    WorkedExamples, RequestText,
    testing::Values(
        RequestCase{{{"DefaultGateway", "192.168.1.1"},
                     {"Dhcp", "false"},
                     {"IpAddress", "192.168.1.10"},
                     {"NameServer", "192.168.1.1"},
                     {"NameServer2", "0.0.0.0"},
                     {"SubnetMask", "255.255.255.0"}},
                    R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : { )"
                    R"("DefaultGateway" : "192.168.1.1", "Dhcp" : "false", )"
                    R"("IpAddress" : "192.168.1.10", "NameServer" : "192.168.1.1", )"
                    R"("NameServer2" : "0.0.0.0", "SubnetMask" : "255.255.255.0" } })"},
        RequestCase{{{"Dhcp", "true"}},
                    R"({ "command" : "SetDeviceConfig", "ipc" : "true", )"
                    R"("deviceConfig" : { "Dhcp" : "true" } })"},
        RequestCase{
            {}, R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : {  } })"}));

INSTANTIATE_TEST_SUITE_P(
    DroppedCharacters, RequestText,
    testing::Values(RequestCase{{{"Name", "a\"b"}}, kOpening + R"("Name" : "ab")" + kClosing},
                    RequestCase{{{"Na\\me", "a\tb\n"}}, kOpening + R"("Name" : "ab")" + kClosing},
                    RequestCase{{{"Name", "\t\n\r\0\x1f"s}},
                                kOpening + R"("Name" : "")" + kClosing},
                    RequestCase{{{"Name", "\x7f\xc3\xbc"}},
                                kOpening + "\"Name\" : \"\x7f\xc3\xbc\"" + kClosing},
                    RequestCase{{{"IpAddress", "1"}, {"I\tpAddress", "2"}},
                                kOpening + R"("IpAddress" : "2", "IpAddress" : "1")" + kClosing}));

TEST(RequestText, ReturnsTheClientsResult) {
    for (const bool accepted : {true, false}) {
        EXPECT_EQ(Send({{"Dhcp", "true"}}, accepted).result, accepted);
    }
}

namespace {

// Up to 8 characters from a mix of dropped bytes, ASCII and UTF-8 letters; with
// `anyByte`, a quarter of them are random bytes, which may break UTF-8.
std::string RandomText(std::mt19937& random, bool anyByte) {
    static const std::string ascii = "\0\"\\\t\n\r\x1f\x7f"s + "aZ0:,{} u";
    static const std::vector<std::string> utf8 = {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"};
    std::uniform_int_distribution<std::size_t> length(0, 8);
    std::uniform_int_distribution<std::size_t> pick(0, ascii.size() + utf8.size() - 1);
    std::uniform_int_distribution<int> byte(0, 255);
    std::string text;
    for (std::size_t n = length(random); n > 0; --n) {
        const std::size_t index = pick(random);
        if (anyByte && byte(random) < 64) {
            text += static_cast<char>(byte(random));
        } else if (index < ascii.size()) {
            text += ascii[index];
        } else {
            text += utf8[index - ascii.size()];
        }
    }
    return text;
}

bool IsUtf8(const std::string& text) {
    try {
        static_cast<void>(nlohmann::json(text).dump());
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

// Parses `request`, collecting the key/value pairs of the nested object in text order.
nlohmann::ordered_json Parse(const std::string& request, Pairs& nested) {
    using Event = nlohmann::ordered_json::parse_event_t;
    return nlohmann::ordered_json::parse(
        request, [&nested](int depth, Event event, nlohmann::ordered_json& parsed) {
            if (depth == 2 && event == Event::key) {
                nested.emplace_back(parsed.get<std::string>(), "");
            } else if (depth == 2 && event == Event::value) {
                nested.back().second = parsed.is_string() ? parsed.get<std::string>() : "<none>";
            }
            return true;
        });
}

} // namespace

TEST(RequestText, ParsesAsJsonCarryingTheSanitizedPairsInMapOrder) {
    std::mt19937 random(20240611);
    std::uniform_int_distribution<std::size_t> size(0, 6);
    int checked = 0;
    for (int round = 0; round < 3000; ++round) {
        const bool anyByte = round % 2 == 0;
        Map values;
        for (std::size_t n = size(random); n > 0; --n) {
            values[RandomText(random, anyByte)] = RandomText(random, anyByte);
        }
        bool utf8 = true;
        Pairs expected;
        for (const auto& entry : values) {
            utf8 = utf8 && IsUtf8(entry.first) && IsUtf8(entry.second);
            expected.emplace_back(SanitizeConfigText(entry.first),
                                  SanitizeConfigText(entry.second));
        }
        if (!utf8) {
            continue;
        }
        ++checked;
        const std::string request = Send(values).request;
        SCOPED_TRACE(request);
        Pairs nested;
        nlohmann::ordered_json document;
        ASSERT_NO_THROW(document = Parse(request, nested));
        std::vector<std::string> keys;
        for (const auto& item : document.items()) {
            keys.push_back(item.key());
        }
        ASSERT_EQ(keys, (std::vector<std::string>{"command", "ipc", "deviceConfig"}));
        EXPECT_EQ(document["command"], "SetDeviceConfig");
        EXPECT_EQ(document["ipc"], "true");
        ASSERT_TRUE(document["deviceConfig"].is_object());
        ASSERT_EQ(nested, expected);
    }
    EXPECT_GT(checked, 1500);
}
