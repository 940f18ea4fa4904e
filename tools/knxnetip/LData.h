// The cEMI link-layer data frame (L_Data) that tunnels carry: requests from a
// client, confirmations of them, and indications to a client. Pure functions.
//
//   code, additional-info length, additional info, control 1, control 2,
//   source, destination, N, TPDU (N + 1 bytes: the TPCI byte and N more)
#ifndef KNXNETIP_LDATA_H
#define KNXNETIP_LDATA_H

#include "Bytes.h"

#include <cstdint>
#include <optional>

namespace KnxNetIp::Cemi {

enum LDataCode : std::uint8_t {
    kLDataReq = 0x11,
    kLDataCon = 0x2E,
    kLDataInd = 0x29,
};

// Control field 1: standard frame, no repetition, system broadcast off, low
// priority, acknowledgement requested.
constexpr std::uint8_t kStandardControl1 = 0xB0;
constexpr std::uint8_t kControl1ConfirmError = 0x01;
// Control field 2: individual destination, hop count 6.
constexpr std::uint8_t kStandardControl2 = 0x60;
constexpr std::uint8_t kControl2GroupAddress = 0x80;
// The largest TPDU of a standard or extended frame: the TPCI byte and 254 more.
constexpr std::size_t kMaxTpdu = 255;

struct LData {
    std::uint8_t code = kLDataReq;
    Bytes additionalInfo;
    std::uint8_t control1 = kStandardControl1;
    std::uint8_t control2 = kStandardControl2;
    std::uint16_t source = 0;
    std::uint16_t destination = 0;
    Bytes tpdu; // never empty in a decoded frame

    bool ToGroup() const { return (control2 & kControl2GroupAddress) != 0; }
};

bool IsLDataCode(std::uint8_t code);
// One complete L_Data frame of the three codes above whose length byte matches
// its TPDU; nothing for anything else.
std::optional<LData> DecodeLData(const Bytes& frame);
Bytes Encode(const LData& frame);

} // namespace KnxNetIp::Cemi

#endif
