// The cEMI codec and the interface objects on any frame: a frame the codec
// takes encodes back to the same bytes, and every request gets one answer that
// echoes its address and is either complete or a single error byte.
#include "Cemi.h"
#include "FakeIpConfig.h"
#include "FuzzSupport.h"
#include "InterfaceObjects.h"

using namespace KnxNetIp;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes frame(data, data + size);
    const std::optional<Cemi::Message> request = Cemi::Decode(frame);
    if (!request) {
        return 0;
    }
    FUZZ_CHECK(Cemi::Encode(*request) == frame);
    FakeIpConfig manager;
    InterfaceObjects objects(manager, DeviceIdentity{});
    const std::optional<Cemi::Message> answer = objects.Serve(*request);
    const bool isRequest = request->code == Cemi::kPropReadReq ||
                           request->code == Cemi::kPropWriteReq || request->code == Cemi::kResetReq;
    FUZZ_CHECK(answer.has_value() == isRequest);
    if (!answer) {
        return 0;
    }
    FUZZ_CHECK(Cemi::Decode(Cemi::Encode(*answer)).has_value());
    if (request->code == Cemi::kResetReq) {
        FUZZ_CHECK(answer->code == Cemi::kResetInd);
        return 0;
    }
    FUZZ_CHECK(answer->objectType == request->objectType && answer->instance == request->instance &&
               answer->pid == request->pid && answer->start == request->start);
    const bool refused = answer->count == 0;
    const bool elementCount = request->code == Cemi::kPropReadReq && request->start == 0;
    FUZZ_CHECK(refused ? answer->data.size() == 1
                       : answer->count == (elementCount ? 1 : request->count));
    // A read confirms with the values, a write without any.
    FUZZ_CHECK(refused || answer->data.empty() == (request->code == Cemi::kPropWriteReq));
    return 0;
}
