// Address texts: the MAC text reader writes only the bytes it is asked for and
// lets nothing but std::out_of_range escape, exactly when a piece would start
// past the end of the text; an IPv4 value survives value -> text -> value.
#include "DscKnxIpConfig.h"
#include "FuzzSupport.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

const std::size_t kMaxMacText = 17;

void CheckMacText(const DscKnxIpConfig& config, const std::string& text, unsigned int count) {
    // Exactly `count` bytes, so that a write past them is caught.
    std::vector<unsigned char> bytes(count);
    const bool reads = !text.empty() && text.size() <= kMaxMacText;
    const bool passesEnd = reads && count > 0 && 3 * (count - 1) > text.size();
    try {
        const bool result = config.PrepareMacAddress(text, bytes.data(), count);
        FUZZ_CHECK(!passesEnd);
        FUZZ_CHECK(result == !text.empty());
    } catch (const std::out_of_range&) {
        FUZZ_CHECK(passesEnd);
    }
}

void CheckRoundTrip(const DscKnxIpConfig& config, std::uint32_t value) {
    const char* text = config.DWORD2IpAddress(value);
    FUZZ_CHECK(std::strlen(text) <= 15);
    FUZZ_CHECK(config.IpAddress2DWORD(text) == value);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const DscKnxIpConfig config;
    FuzzedDataProvider input(data, size);
    const auto count = input.ConsumeIntegral<std::uint8_t>();
    const auto value = input.ConsumeIntegral<std::uint32_t>();
    const std::string macText = input.ConsumeRandomLengthString(32);
    const std::string ipText = input.ConsumeRemainingBytesAsString();

    CheckMacText(config, macText, count);
    CheckRoundTrip(config, value);
    // Any text gives a 32-bit value, and that value round-trips as well.
    const unsigned long parsed = config.IpAddress2DWORD(ipText.c_str());
    FUZZ_CHECK(parsed <= 0xFFFFFFFFUL);
    CheckRoundTrip(config, static_cast<std::uint32_t>(parsed));
    return 0;
}
