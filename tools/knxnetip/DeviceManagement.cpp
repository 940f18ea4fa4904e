#include "InterfaceObjects.h"
#include "LocalDevice.h"

namespace KnxNetIp {

namespace {

// Answers nothing: the device's management stack takes its place.
class SilentDevice final : public LocalDevice {
public:
    void Receive(const Cemi::LData&, Clock::time_point, std::vector<Cemi::LData>&) override {}
    void Expire(Clock::time_point, std::vector<Cemi::LData>&) override {}
    std::optional<Clock::time_point> NextDeadline() const override { return std::nullopt; }
    void Sent() override {}
};

} // namespace

std::unique_ptr<LocalDevice> MakeDeviceManagement(InterfaceObjects&,
                                                  KnxStack::IFactoryResetManager*) {
    return std::make_unique<SilentDevice>();
}

} // namespace KnxNetIp
