// Message framing shared by the device-stack client library and the device
// service: every message is a 4-byte big-endian body length followed by the
// body, one JSON object text.
//
// Requests:  {"op":"register","name":N,"type":T,"protocol":P}
//            {"op":"getConfig","flags":F}
//            {"op":"command","request":"<command text>"}
// Replies:   {"ok":true,"reply":"<text>"} or {"ok":false,"error":"<reason>"}
// A connection must register before anything else; the service answers every
// request in order, one reply per request.
#ifndef VELBOR_FRAMING_H
#define VELBOR_FRAMING_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Velbor {

// Largest body either side sends or accepts.
constexpr std::size_t kMaxFrameBody = std::size_t{64} * 1024;

// The framed message, or nothing when the body exceeds kMaxFrameBody.
std::optional<std::string> EncodeFrame(std::string_view body);

enum class FrameStatus { Incomplete, Complete, TooLarge };

// Takes the first whole message off the front of `buffer` into `body`.
// Incomplete and TooLarge leave both untouched; after TooLarge the stream
// cannot be resynchronised.
FrameStatus TakeFrame(std::string& buffer, std::string& body);

} // namespace Velbor

#endif
