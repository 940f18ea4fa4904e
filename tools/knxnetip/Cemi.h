// The cEMI codec for local device management: property read and write
// requests and their confirmations, reset request and indication. Pure functions.
#ifndef KNXNETIP_CEMI_H
#define KNXNETIP_CEMI_H

#include "Bytes.h"

#include <cstdint>
#include <optional>

namespace KnxNetIp::Cemi {

enum Code : std::uint8_t {
    kPropReadReq = 0xFC,
    kPropReadCon = 0xFB,
    kPropWriteReq = 0xF6,
    kPropWriteCon = 0xF5,
    kResetReq = 0xF1,
    kResetInd = 0xF0,
};

// The error byte of a negative confirmation (element count 0).
enum Error : std::uint8_t {
    kUnspecified = 0x00,
    kOutOfRange = 0x01,
    kReadOnly = 0x05,
    kNonExistent = 0x07,
    kTypeConflict = 0x08,
    kIndexOutOfRange = 0x09,
};

constexpr std::uint8_t kMaxCount = 0x0F;
constexpr std::uint16_t kMaxStart = 0x0FFF;

// A property service carries all fields; a reset carries the code alone.
struct Message {
    std::uint8_t code = kPropReadReq;
    std::uint16_t objectType = 0;
    std::uint8_t instance = 1;
    std::uint8_t pid = 0;
    std::uint8_t count = 0;  // 4 bits
    std::uint16_t start = 0; // 12 bits
    Bytes data;
};

bool IsPropertyService(std::uint8_t code);
// A frame of one of the six codes above, complete.
std::optional<Message> Decode(const Bytes& frame);
Bytes Encode(const Message& message);

} // namespace KnxNetIp::Cemi

#endif
