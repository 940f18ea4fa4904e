// The "SetDeviceConfig" request text for any map of valid UTF-8 keys and
// values: it parses as JSON, and its events are exactly the command, the
// "ipc" flag and the map's pairs with the dropped characters removed, in map
// order (two keys that differ only in dropped characters stay two entries).
#include "DscKnxIpConfig.h"
#include "FuzzSupport.h"
#include "PlatformStandIn.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <memory>
#include <vector>

namespace {

using Events = std::vector<std::string>;

// Records the structure of a JSON text: objects, keys and strings; anything
// else, and a parse error, as a marker that never matches.
class EventRecorder : public nlohmann::json_sax<nlohmann::json> {
public:
    Events events;

    bool null() override { return Other(); }
    bool boolean(bool) override { return Other(); }
    bool number_integer(number_integer_t) override { return Other(); }
    bool number_unsigned(number_unsigned_t) override { return Other(); }
    bool number_float(number_float_t, const string_t&) override { return Other(); }
    bool binary(binary_t&) override { return Other(); }
    bool string(string_t& text) override { return Add("s:" + text); }
    bool key(string_t& text) override { return Add("k:" + text); }
    bool start_object(std::size_t) override { return Add("{"); }
    bool end_object() override { return Add("}"); }
    bool start_array(std::size_t) override { return Other(); }
    bool end_array() override { return Other(); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return Other();
    }

private:
    bool Add(std::string event) {
        events.push_back(std::move(event));
        return true;
    }
    bool Other() { return Add("<unexpected>"); }
};

// The length of the valid UTF-8 sequence that starts at `at`; 0 when none does.
std::size_t SequenceLength(const std::string& bytes, std::size_t at) {
    const auto lead = static_cast<unsigned char>(bytes[at]);
    const std::size_t length = lead < 0x80   ? 1
                               : lead < 0xC2 ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    if (length == 0 || at + length > bytes.size()) {
        return 0;
    }
    // The second byte's range excludes overlong forms, surrogates and code
    // points above U+10FFFF.
    const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (std::size_t k = 1; k < length; ++k) {
        const auto next = static_cast<unsigned char>(bytes[at + k]);
        if (k == 1 ? next < low || next > high : next < 0x80 || next > 0xBF) {
            return 0;
        }
    }
    return length;
}

// The valid UTF-8 sequences of `bytes`; every other byte is left out.
std::string ValidUtf8(const std::string& bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size();) {
        const std::size_t length = SequenceLength(bytes, i);
        text.append(bytes, i, length);
        i += length > 0 ? length : 1;
    }
    return text;
}

std::string WithoutDropped(std::string text) {
    text.erase(
        std::remove_if(
            text.begin(), text.end(),
            [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\'; }),
        text.end());
    return text;
}

Events Expected(const std::map<std::string, std::string>& settings) {
    Events events = {"{", "k:command", "s:SetDeviceConfig", "k:ipc", "s:true", "k:deviceConfig",
                     "{"};
    for (const auto& [key, value] : settings) {
        events.push_back("k:" + WithoutDropped(key));
        events.push_back("s:" + WithoutDropped(value));
    }
    events.insert(events.end(), {"}", "}"});
    return events;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const bool accepts = input.ConsumeBool();
    std::map<std::string, std::string> settings;
    while (input.remaining_bytes() > 0) {
        const std::string key = ValidUtf8(input.ConsumeRandomLengthString(32));
        settings[key] = ValidUtf8(input.ConsumeRandomLengthString(32));
    }
    Platform& platform = ThePlatform();
    platform = Platform();
    if (!accepts) {
        platform.failing = {Call::RequestCommand};
    }
    const std::unique_ptr<Velbor::IDeviceStackClient> client = Velbor::CreateDeviceStackClient();
    FUZZ_CHECK(SetDeviceConfigAsync(client, settings) == accepts);

    EventRecorder recorder;
    nlohmann::json::sax_parse(platform.requests.at(0), &recorder);
    FUZZ_CHECK(recorder.events == Expected(settings));
    return 0;
}
