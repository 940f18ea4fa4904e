// The server mode of knx-addon-host: the add-on's IP configuration manager
// served over KNXnet/IP on one UDP endpoint until SIGTERM or SIGINT.
#ifndef KNX_ADDON_HOST_SERVER_MODE_H
#define KNX_ADDON_HOST_SERVER_MODE_H

#include "DeviceIdentity.h"
#include "Frame.h"
#include "KnxStackAddonInterface.h"
#include "Result.h"

#include <ostream>

// SIGTERM and SIGINT, taken from their default action and delivered to a
// descriptor instead. Blocked before the add-on starts, so that a signal that
// arrives while it starts still ends the run through the normal shut-down.
class StopSignals {
public:
    static Result<StopSignals> Block();
    StopSignals(StopSignals&& other) noexcept;
    StopSignals& operator=(StopSignals&&) = delete;
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    ~StopSignals();

    // Readable once one of the signals has arrived.
    int fd() const { return m_fd; }

private:
    explicit StopSignals(int fd) : m_fd(fd) {}
    int m_fd;
};

// Serves KNXnet/IP for `manager` on `endpoint` (port 0: an ephemeral port)
// until `stop` is signalled. Once the socket is bound, writes the line
// "knxnetip: serving on ADDRESS:PORT" to `out` and flushes it; a failed write
// ends the run with an error, as does an endpoint that cannot be bound.
Result<void> ServeKnxNetIp(KnxStack::IIpConfigurationManager& manager,
                           const KnxNetIp::DeviceIdentity& identity,
                           const KnxNetIp::Endpoint& endpoint, const StopSignals& stop,
                           std::ostream& out);

#endif
