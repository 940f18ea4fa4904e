// The device's network on one interface: static settings put on it through
// netlink, DHCP through a supervised dhcpcd, and the DNS servers in the
// resolver file, so that name look-ups on the device use them.
#ifndef DEVICE_SERVICE_NETWORK_H
#define DEVICE_SERVICE_NETWORK_H

#include "DeviceState.h"
#include "DhcpClient.h"
#include "Result.h"

#include <optional>
#include <string>
#include <vector>

namespace DeviceService {

struct NetworkOptions {
    std::string interfaceName;
    std::string resolverPath;
    std::string dhcpDirectory; // see DhcpClient::Options
    std::string dhcpProgram = "dhcpcd";
};

class Network {
public:
    // How settings reach the interface: as a change while the device runs, as
    // on a reboot (the DHCP client stopped and started afresh, its lease kept
    // for the new one) or as on a factory reset (the lease given back).
    enum class Mode { Change, Reboot, FactoryReset };

    explicit Network(NetworkOptions options);

    // Makes `settings` (checked with CheckNetworkSettings) the interface's and
    // writes their DNS servers to the resolver file: with Dhcp "false" the
    // static address, mask and default route, the DHCP client stopped (its
    // lease released); with Dhcp "true" the addresses cleared and the DHCP
    // client started, unless a change finds it running already. On failure the
    // interface and the resolver file keep their previous configuration where
    // they can. Says what was done.
    Result<std::string> Apply(const Settings& settings, Mode mode);

    // The settings as the device reports them (see ReportedSettings).
    Settings Reported(const Settings& configured) const;

    // For the service's poll loop, as with DhcpClient.
    void AddPollFds(std::vector<pollfd>& polled) const { m_client.AddPollFds(polled); }
    int Timeout() const { return m_client.Timeout(); }
    // Follows the DHCP client; a changed lease updates the resolver file.
    void Update();

private:
    Result<std::string> ApplyDhcp(Mode mode);
    Result<void> WriteResolver(const Settings& reported);

    NetworkOptions m_options;
    DhcpClient m_client;
    std::optional<Settings> m_settings; // as last applied
};

} // namespace DeviceService

#endif
