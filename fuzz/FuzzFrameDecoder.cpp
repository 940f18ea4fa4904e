// The frame decoder on any byte stream: every whole message it takes is what
// the encoder makes of its body, it takes nothing from an incomplete frame,
// and it refuses exactly the frames that announce more than the largest body.
#include "Framing.h"
#include "FuzzSupport.h"

#include <cstdint>

namespace {

// The body length that the frame header at the front of `stream` announces.
std::uint64_t Announced(const std::string& stream) {
    std::uint64_t length = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        length = length << 8 | static_cast<unsigned char>(stream[i]);
    }
    return length;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string stream(reinterpret_cast<const char*>(data), size);
    std::string body = "body of an earlier message";
    for (;;) {
        const std::string before = stream;
        const std::string previousBody = body;
        const Velbor::FrameStatus status = Velbor::TakeFrame(stream, body);
        if (status != Velbor::FrameStatus::Complete) {
            FUZZ_CHECK(stream == before && body == previousBody);
            const bool tooLarge = before.size() >= 4 && Announced(before) > Velbor::kMaxFrameBody;
            FUZZ_CHECK((status == Velbor::FrameStatus::TooLarge) == tooLarge);
            return 0;
        }
        const std::optional<std::string> frame = Velbor::EncodeFrame(body);
        FUZZ_CHECK(frame && before.compare(0, frame->size(), *frame) == 0);
        FUZZ_CHECK(stream == before.substr(frame->size()));
    }
}
