#include "LData.h"

namespace KnxNetIp::Cemi {

bool IsLDataCode(std::uint8_t code) {
    return code == kLDataReq || code == kLDataCon || code == kLDataInd;
}

std::optional<LData> DecodeLData(const Bytes& frame) {
    Reader in(frame);
    LData message;
    message.code = in.u8();
    message.additionalInfo = in.bytes(in.u8());
    message.control1 = in.u8();
    message.control2 = in.u8();
    message.source = in.u16();
    message.destination = in.u16();
    const std::size_t length = in.u8();
    message.tpdu = in.bytes(length + 1);
    if (!in.ok() || in.left() != 0 || !IsLDataCode(message.code)) {
        return std::nullopt;
    }
    return message;
}

Bytes Encode(const LData& frame) {
    Bytes out;
    PutU8(out, frame.code);
    PutU8(out, static_cast<unsigned>(frame.additionalInfo.size()));
    PutBytes(out, frame.additionalInfo);
    PutU8(out, frame.control1);
    PutU8(out, frame.control2);
    PutU16(out, frame.source);
    PutU16(out, frame.destination);
    PutU8(out, frame.tpdu.empty() ? 0 : static_cast<unsigned>(frame.tpdu.size() - 1));
    PutBytes(out, frame.tpdu);
    return out;
}

} // namespace KnxNetIp::Cemi
