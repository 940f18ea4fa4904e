// The KNXnet/IP server's protocol state on any sequence of datagrams from a
// few peers, with time passing between them: it never fails, and everything it
// sends is a well-formed frame.
#include "FakeIpConfig.h"
#include "FuzzSupport.h"
#include "Sessions.h"

using namespace KnxNetIp;

// Input: records of [peer and time step byte][length byte][datagram].
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FakeIpConfig manager;
    InterfaceObjects objects(manager, DeviceIdentity{});
    Sessions sessions(objects, {0x7F000001, 3671},
                      {std::chrono::milliseconds(1000), std::chrono::milliseconds(100), 3});
    Clock::time_point now{};
    std::vector<Datagram> out;
    Reader in(data, size);
    while (in.left() >= 2) {
        const std::uint8_t control = in.u8();
        const Bytes datagram = in.bytes(std::min<std::size_t>(in.u8(), in.left()));
        now += std::chrono::milliseconds(10 * (control >> 2));
        out.clear();
        sessions.Receive(
            {{0x7F000001, static_cast<std::uint16_t>(40000 + (control & 3))}, datagram}, now, out);
        sessions.Expire(now, out);
        for (const Datagram& sent : out) {
            const std::optional<Frame> frame = DecodeFrame(sent.bytes.data(), sent.bytes.size());
            FUZZ_CHECK(frame.has_value() && sent.peer.port != 0);
        }
        const std::optional<Clock::time_point> next = sessions.NextDeadline();
        FUZZ_CHECK(!next || *next > now);
    }
    return 0;
}
