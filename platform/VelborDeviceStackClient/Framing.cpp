#include "Framing.h"

#include <cstdint>

namespace Velbor {

namespace {
constexpr std::size_t kHeaderSize = 4;
} // namespace

std::optional<std::string> EncodeFrame(std::string_view body) {
    if (body.size() > kMaxFrameBody) {
        return std::nullopt;
    }
    const auto size = static_cast<std::uint32_t>(body.size());
    std::string frame;
    frame.reserve(kHeaderSize + body.size());
    for (int shift = 24; shift >= 0; shift -= 8) {
        frame.push_back(static_cast<char>((size >> shift) & 0xFF));
    }
    frame.append(body);
    return frame;
}

FrameStatus TakeFrame(std::string& buffer, std::string& body) {
    if (buffer.size() < kHeaderSize) {
        return FrameStatus::Incomplete;
    }
    std::uint32_t size = 0;
    for (std::size_t i = 0; i < kHeaderSize; ++i) {
        size = (size << 8) | static_cast<unsigned char>(buffer[i]);
    }
    if (size > kMaxFrameBody) {
        return FrameStatus::TooLarge;
    }
    if (buffer.size() - kHeaderSize < size) {
        return FrameStatus::Incomplete;
    }
    body.assign(buffer, kHeaderSize, size);
    buffer.erase(0, kHeaderSize + size);
    return FrameStatus::Complete;
}

} // namespace Velbor
