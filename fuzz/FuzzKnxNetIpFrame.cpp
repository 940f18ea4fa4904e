// The KNXnet/IP frame codec on any datagram: a frame it takes is exactly what
// the encoder makes of its service and body, and every message it reads from
// a body encodes to bytes that read back to the same message.
#include "Frame.h"
#include "FuzzSupport.h"

namespace {

using namespace KnxNetIp;

template <typename Message>
void RoundTrip(const Bytes& body) {
    const std::optional<Message> message = Decode<Message>(body);
    if (!message) {
        return;
    }
    Bytes encoded;
    Put(encoded, *message);
    const std::optional<Message> again = Decode<Message>(encoded);
    FUZZ_CHECK(again.has_value());
    Bytes reencoded;
    Put(reencoded, *again);
    FUZZ_CHECK(reencoded == encoded);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::optional<Frame> frame = DecodeFrame(data, size);
    if (!frame) {
        return 0;
    }
    FUZZ_CHECK(EncodeFrame(static_cast<Service>(frame->service), frame->body) ==
               Bytes(data, data + size));
    RoundTrip<Hpai>(frame->body);
    RoundTrip<SearchRequestExtended>(frame->body);
    RoundTrip<SearchResponse>(frame->body);
    RoundTrip<Description>(frame->body);
    RoundTrip<ConnectRequest>(frame->body);
    RoundTrip<ConnectResponse>(frame->body);
    RoundTrip<ChannelRequest>(frame->body);
    RoundTrip<ChannelStatus>(frame->body);
    RoundTrip<ConnectionHeader>(frame->body);
    RoundTrip<ConfigurationRequest>(frame->body);
    return 0;
}
