// Byte strings and the big-endian reading and writing that every KNXnet/IP
// structure is made of. A Reader never reads past its end: a read that would
// marks it failed and yields zeros, so a decoder checks ok() once at the end.
#ifndef KNXNETIP_BYTES_H
#define KNXNETIP_BYTES_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace KnxNetIp {

using Bytes = std::vector<std::uint8_t>;

class Reader {
public:
    Reader(const std::uint8_t* data, std::size_t size) : m_data(data), m_left(size) {}
    explicit Reader(const Bytes& bytes) : Reader(bytes.data(), bytes.size()) {}

    bool ok() const { return m_ok; }
    std::size_t left() const { return m_ok ? m_left : 0; }
    // Marks the reader failed, for a value that is present but not acceptable.
    void fail() { m_ok = false; }

    std::uint8_t u8() { return static_cast<std::uint8_t>(Number(1)); }
    std::uint16_t u16() { return static_cast<std::uint16_t>(Number(2)); }
    std::uint32_t u32() { return static_cast<std::uint32_t>(Number(4)); }
    Bytes bytes(std::size_t count) {
        if (!Take(count)) {
            return {};
        }
        return Bytes(m_data - count, m_data);
    }
    template <std::size_t N>
    std::array<std::uint8_t, N> array() {
        std::array<std::uint8_t, N> out{};
        if (Take(N)) {
            std::copy(m_data - N, m_data, out.begin());
        }
        return out;
    }
    Bytes rest() { return bytes(left()); }

private:
    bool Take(std::size_t count) {
        if (!m_ok || count > m_left) {
            m_ok = false;
            return false;
        }
        m_data += count;
        m_left -= count;
        return true;
    }
    std::uint32_t Number(std::size_t width) {
        std::uint32_t value = 0;
        if (Take(width)) {
            for (std::size_t i = width; i > 0; --i) {
                value = value << 8 | m_data[-static_cast<std::ptrdiff_t>(i)];
            }
        }
        return value;
    }

    const std::uint8_t* m_data;
    std::size_t m_left;
    bool m_ok = true;
};

inline void PutU8(Bytes& out, unsigned value) {
    out.push_back(static_cast<std::uint8_t>(value));
}
inline void PutU16(Bytes& out, unsigned value) {
    PutU8(out, value >> 8 & 0xFF);
    PutU8(out, value & 0xFF);
}
inline void PutU32(Bytes& out, std::uint32_t value) {
    PutU16(out, value >> 16);
    PutU16(out, value & 0xFFFF);
}
template <typename Container>
void PutBytes(Bytes& out, const Container& bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

} // namespace KnxNetIp

#endif
