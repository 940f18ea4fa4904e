// The device service's state document on any text: what it accepts has the
// six settings, each valid, and the restart count that the document states;
// it is written back to the same state; and the configuration reply made from
// it gives the add-on's scanner every setting unchanged.
#include "DeviceState.h"
#include "DscKnxIpConfig.h"
#include "FuzzSupport.h"

#include <nlohmann/json.hpp>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace DeviceService;
    static DscKnxIpConfig scanner;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const Result<DeviceState> state = ParseStateText(text);
    if (!state) {
        return 0;
    }
    FUZZ_CHECK(state->settings.size() == 6);
    // A count such as -1, 2.5 or 1e30 must not be taken as some other count.
    const nlohmann::json count = nlohmann::json::parse(text).at("restartCount");
    FUZZ_CHECK(count.is_number_unsigned() && count.get<std::uint64_t>() == state->restartCount);
    const Result<DeviceState> again = ParseStateText(StateText(*state));
    FUZZ_CHECK(again && *again == *state);
    const std::string reply = ConfigText(*state);
    for (const auto& [key, value] : state->settings) {
        FUZZ_CHECK(CheckSetting(key, value));
        std::string scanned;
        FUZZ_CHECK(scanner.GetValue(reply, key, scanned) && scanned == value);
    }
    return 0;
}
