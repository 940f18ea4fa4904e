// The clock of the protocol's time-outs. The protocol layers take the time as
// a parameter, so that their tests run on made-up time without waiting.
#ifndef KNXNETIP_CLOCK_H
#define KNXNETIP_CLOCK_H

#include <chrono>

namespace KnxNetIp {

using Clock = std::chrono::steady_clock;

} // namespace KnxNetIp

#endif
