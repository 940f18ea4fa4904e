// Runs Debian's DHCP client, dhcpcd, on one interface and keeps it running:
// dhcpcd obtains and renews the lease, puts its address, mask and default
// route on the interface and, when no server answers, takes a link-local
// address (169.254.0.0/16). Its hook script reports the address it holds in
// lease files, which this class reads.
//
// dhcpcd runs under a small keeper process forked from the service. dhcpcd
// changes its user, which clears a parent-death signal, so the keeper holds
// one instead: it passes its signals on to dhcpcd, so that dhcpcd stops when
// the service does, also when the service is killed. The keeper leads a
// process group of its own that holds dhcpcd and all its helpers; it reaps
// them, and the group is killed when anything is left.
#ifndef DEVICE_SERVICE_DHCP_CLIENT_H
#define DEVICE_SERVICE_DHCP_CLIENT_H

#include "DhcpLease.h"
#include "Result.h"

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace DeviceService {

class DhcpClient {
public:
    struct Options {
        std::string interfaceName;
        std::string directory; // private: dhcpcd's configuration, the hook, the lease files
        std::string program = "dhcpcd";
    };

    explicit DhcpClient(Options options);
    // Stops the client, keeping its lease for the next start.
    ~DhcpClient();
    DhcpClient(const DhcpClient&) = delete;
    DhcpClient& operator=(const DhcpClient&) = delete;

    // Starts the client afresh, without a lease of ours; a client already
    // running on the interface is stopped first.
    Result<void> Start();
    // Stops the client, which removes its addresses from the interface; with
    // `release` it first gives the lease back to the server, which also ends
    // dhcpcd's memory of it. Returns once the client and its helpers are gone.
    void Stop(bool release);
    bool Running() const { return m_keeper > 0 || m_restartAt.has_value(); }

    // For the caller's poll loop: the descriptors to watch, and the most it may
    // wait (milliseconds, -1 for no limit) before calling Update.
    void AddPollFds(std::vector<pollfd>& polled) const;
    int Timeout() const;
    // Reaps a client that ended and restarts it when it is due, and reads the
    // lease files; true when the address it holds changed.
    bool Update();
    const std::optional<Lease>& CurrentLease() const { return m_lease; }

private:
    using Clock = std::chrono::steady_clock;

    Result<void> Launch();
    Result<void> Prepare();
    Result<void> Spawn();
    void Exited(int status);
    void Collect(bool wait);
    bool KeeperEnds(int timeoutMs) const;
    bool ReadLease();

    Options m_options;
    pid_t m_keeper = 0;
    int m_keeperFd = -1; // readable once the keeper has ended; -1 without pidfd_open
    int m_watchFd = -1;  // inotify on the directory of the lease files
    std::optional<Lease> m_lease;
    Clock::time_point m_startedAt;
    std::optional<Clock::time_point> m_restartAt;
    std::chrono::seconds m_backoff{1};
};

} // namespace DeviceService

#endif
