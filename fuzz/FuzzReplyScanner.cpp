// The reply scanner on any text with any key: no crash, no read outside the
// text, an empty value after every miss, and a hit is a piece of the text
// that follows the key's pattern and holds no end delimiter.
#include "DscKnxIpConfig.h"
#include "FuzzSupport.h"

#include <fuzzer/FuzzedDataProvider.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static DscKnxIpConfig scanner;
    FuzzedDataProvider input(data, size);
    const std::string key = input.ConsumeRandomLengthString(64);
    const std::string text = input.ConsumeRemainingBytesAsString();

    std::string value = "left over from an earlier call";
    const bool found = scanner.GetValue(text, key, value);
    if (!found) {
        FUZZ_CHECK(value.empty());
        return 0;
    }
    const bool tagMode = text[0] == '<';
    const std::string pattern = tagMode ? "<" + key + ">" : "\"" + key + "\":";
    const std::size_t keyAt = text.find(pattern);
    FUZZ_CHECK(keyAt != std::string::npos);
    FUZZ_CHECK(text.find(value, keyAt + pattern.size()) != std::string::npos);
    FUZZ_CHECK(value.find(tagMode ? '>' : '"') == std::string::npos);
    return 0;
}
