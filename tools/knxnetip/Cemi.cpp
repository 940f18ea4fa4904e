#include "Cemi.h"

namespace KnxNetIp::Cemi {

bool IsPropertyService(std::uint8_t code) {
    return code == kPropReadReq || code == kPropReadCon || code == kPropWriteReq ||
           code == kPropWriteCon;
}

std::optional<Message> Decode(const Bytes& frame) {
    Reader in(frame);
    Message message;
    message.code = in.u8();
    if (message.code == kResetReq || message.code == kResetInd) {
        return in.ok() && in.left() == 0 ? std::optional<Message>(message) : std::nullopt;
    }
    if (!IsPropertyService(message.code)) {
        return std::nullopt;
    }
    message.objectType = in.u16();
    message.instance = in.u8();
    message.pid = in.u8();
    const std::uint16_t countAndStart = in.u16();
    message.count = static_cast<std::uint8_t>(countAndStart >> 12);
    message.start = countAndStart & kMaxStart;
    message.data = in.rest();
    if (!in.ok()) {
        return std::nullopt;
    }
    return message;
}

Bytes Encode(const Message& message) {
    Bytes out;
    PutU8(out, message.code);
    if (IsPropertyService(message.code)) {
        PutU16(out, message.objectType);
        PutU8(out, message.instance);
        PutU8(out, message.pid);
        PutU16(out, (message.count & kMaxCount) << 12 | (message.start & kMaxStart));
        PutBytes(out, message.data);
    }
    return out;
}

} // namespace KnxNetIp::Cemi
