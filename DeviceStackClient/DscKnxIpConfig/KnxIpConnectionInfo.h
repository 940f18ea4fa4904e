// The KNXnet/IP connection library's view of the network interface in use:
// interface selection, current IPv4 values and the MAC address. IPv4 values
// carry the first octet of the dotted text in the most significant byte.
#ifndef KNXSTACK_IP_CONNECTION_INFO_H
#define KNXSTACK_IP_CONNECTION_INFO_H

#include <string>

#define KNXSTACK_IP_API __attribute__((visibility("default")))

namespace KnxStack {
namespace Ip {

class KNXSTACK_IP_API IpConnectionInfo {
public:
    // Returned by DetermineNetworkInterface when no interface fits.
    static constexpr unsigned long NoInterface = 0xFFFFFFFFUL;

    IpConnectionInfo();
    ~IpConnectionInfo();
    IpConnectionInfo(const IpConnectionInfo&) = delete;
    IpConnectionInfo& operator=(const IpConnectionInfo&) = delete;

    // Selects the interface to use: when `specified`, the one of `index` (if > 0)
    // or else of `name`; otherwise the library's own choice. Returns the selected
    // interface's identifier, or NoInterface.
    unsigned long DetermineNetworkInterface(const std::string& name, int index, unsigned long flags,
                                            bool specified);
    unsigned long GetCurrentIpAddress();
    unsigned long GetCurrentNetmask();
    unsigned long GetCurrentGateway();
    // Writes the 6 bytes of the selected interface's MAC address.
    void GetMacAddress(unsigned char* mac) const;

private:
    struct State;
    State* m_state;
};

} // namespace Ip
} // namespace KnxStack

#endif
