// The cEMI codec and the interface objects on any frame: a frame the codec
// takes encodes back to the same bytes, and every request gets one answer that
// echoes its address and is either complete or a single error byte.
#include "Cemi.h"
#include "FakeIpConfig.h"
#include "InterfaceObjects.h"

namespace {

using namespace KnxNetIp;

void Require(bool condition) {
    if (!condition) {
        __builtin_trap(); // stops the run, so that libFuzzer keeps the input
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes frame(data, data + size);
    const std::optional<Cemi::Message> request = Cemi::Decode(frame);
    if (!request) {
        return 0;
    }
    Require(Cemi::Encode(*request) == frame);
    FakeIpConfig manager;
    InterfaceObjects objects(manager, DeviceIdentity{});
    const std::optional<Cemi::Message> answer = objects.Serve(*request);
    const bool isRequest = request->code == Cemi::kPropReadReq ||
                           request->code == Cemi::kPropWriteReq || request->code == Cemi::kResetReq;
    Require(answer.has_value() == isRequest);
    if (!answer) {
        return 0;
    }
    Require(Cemi::Decode(Cemi::Encode(*answer)).has_value());
    if (request->code == Cemi::kResetReq) {
        Require(answer->code == Cemi::kResetInd);
        return 0;
    }
    Require(answer->objectType == request->objectType && answer->instance == request->instance &&
            answer->pid == request->pid && answer->start == request->start);
    const bool refused = answer->count == 0;
    const bool elementCount = request->code == Cemi::kPropReadReq && request->start == 0;
    Require(refused ? answer->data.size() == 1
                    : answer->count == (elementCount ? 1 : request->count));
    Require(refused || request->code == Cemi::kPropWriteReq ? refused || answer->data.empty()
                                                            : !answer->data.empty());
    return 0;
}
