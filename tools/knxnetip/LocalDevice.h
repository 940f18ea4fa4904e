// What answers the L_Data frames that tunnels address to the device's own
// individual address: the device's management stack. The tunnels only carry
// frames to it and back; tests of the tunnels put a stand-in in its place.
#ifndef KNXNETIP_LOCAL_DEVICE_H
#define KNXNETIP_LOCAL_DEVICE_H

#include "Clock.h"
#include "LData.h"
#include "KnxStackAddonInterface.h"

#include <memory>
#include <optional>
#include <vector>

namespace KnxNetIp {

class InterfaceObjects;

class LocalDevice {
public:
    virtual ~LocalDevice() = default;

    // `request` is an L_Data.req that a tunnel addressed to the device; the
    // answers, L_Data.ind frames from the device to the request's source, are
    // appended to `out`.
    virtual void Receive(const Cemi::LData& request, Clock::time_point now,
                         std::vector<Cemi::LData>& out) = 0;
    // Appends the repetitions and disconnections that are due at `now`.
    virtual void Expire(Clock::time_point now, std::vector<Cemi::LData>& out) = 0;
    // When Expire next has something to do.
    virtual std::optional<Clock::time_point> NextDeadline() const = 0;
    // Called after every frame handed out so far has been sent: runs what must
    // wait until its answer has left the device, such as a factory reset.
    virtual void Sent() = 0;
};

// The device's management stack over its interface objects. `reset` runs a
// master reset's factory reset; without one a master reset is refused.
std::unique_ptr<LocalDevice> MakeDeviceManagement(InterfaceObjects& objects,
                                                  KnxStack::IFactoryResetManager* reset);

} // namespace KnxNetIp

#endif
