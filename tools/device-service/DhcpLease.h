// The address that the DHCP client currently holds on the interface, as its
// hook script reports it: a DHCP lease or, with no server answering, a
// link-local address.
#ifndef DEVICE_SERVICE_DHCP_LEASE_H
#define DEVICE_SERVICE_DHCP_LEASE_H

#include "Result.h"

#include <string>
#include <string_view>
#include <vector>

namespace DeviceService {

struct Lease {
    std::string address; // dotted IPv4
    std::string mask;    // dotted IPv4, contiguous
    std::string router;  // the first router offered; empty when none
    std::vector<std::string> nameServers;

    bool operator==(const Lease& other) const {
        return address == other.address && mask == other.mask && router == other.router &&
               nameServers == other.nameServers;
    }
    bool operator!=(const Lease& other) const { return !(*this == other); }
};

// A lease file: the lines ip=, mask=, routers= and dns= with the client's
// values (routers and dns hold blank-separated lists and may be empty). Every
// address is checked: a lease file is the only way in for a DHCP server's data.
Result<Lease> ParseLease(std::string_view text);

} // namespace DeviceService

#endif
