// The KNXnet/IP connection library for Linux: selects a network interface and
// reads its IPv4 values from the kernel's routing netlink on every query, so a
// change of address or route is seen at once. Interface flags, names and the
// hardware address come from the interface ioctls.
#include "KnxIpConnectionInfo.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace KnxStack {
namespace Ip {

namespace {

struct Ipv4Address {
    uint32_t address = 0;
    unsigned prefixLength = 0;
};

struct DefaultRoute {
    unsigned index = 0;
    uint32_t gateway = 0;
};

// The one routing netlink socket of a connection object, kept open for its
// lifetime so that a query costs no socket set-up. The kernel also answers the
// interface ioctls on it, so it serves those too. Like any socket it sees the
// network namespace in which it was opened.
class RouteSocket {
public:
    // Asks for strict request checking, under which the kernel applies the
    // interface and table given in a dump request; older kernels ignore them,
    // and the replies are filtered here in any case.
    RouteSocket() noexcept : m_fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
        const int on = 1;
        if (m_fd >= 0) setsockopt(m_fd, SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof(on));
    }
    ~RouteSocket() {
        if (m_fd >= 0) close(m_fd);
    }
    RouteSocket(const RouteSocket&) = delete;
    RouteSocket& operator=(const RouteSocket&) = delete;
    int Fd() const noexcept { return m_fd; }

    // Sends one IPv4 dump request of `type` (with `payload` as its family header)
    // and hands each reply message to `visit`, until the dump ends or fails.
    // Replies left over from an earlier, broken-off dump carry another sequence
    // number and are skipped.
    template <typename Payload, typename Visit>
    void Dump(uint16_t type, const Payload& payload, Visit visit) noexcept {
        struct {
            nlmsghdr header;
            Payload payload;
        } request{};
        request.header.nlmsg_len = sizeof(request);
        request.header.nlmsg_type = type;
        request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        request.header.nlmsg_seq = ++m_sequence;
        request.payload = payload;
        if (m_fd < 0 || send(m_fd, &request, sizeof(request), 0) < 0) return;
        // The kernel sizes each dump message batch by the largest read buffer
        // the socket has seen, but never below its page-sized minimum. A read
        // of that minimum (a page, at most 8 KiB) therefore always takes a
        // whole batch, and keeps the kernel's per-dump allocation small: with
        // 32 KiB reads it takes fresh pages for every dump, which was most of
        // the cost of a query.
        alignas(nlmsghdr) char buffer[8192];
        static const std::size_t readSize =
            std::min<std::size_t>(sizeof(buffer), static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
        for (;;) {
            ssize_t length = recv(m_fd, buffer, readSize, 0);
            if (length < 0) return;
            for (auto* message = reinterpret_cast<nlmsghdr*>(buffer); NLMSG_OK(message, length);
                 message = NLMSG_NEXT(message, length)) {
                if (message->nlmsg_seq != m_sequence) continue;
                if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) return;
                visit(*message);
            }
        }
    }

private:
    int m_fd;
    uint32_t m_sequence = 0;
};

// Copies the payload of the first attribute of `type` into `value`; false when absent.
template <typename T>
bool FindAttribute(const rtattr* attribute, int length, unsigned short type, T& value) noexcept {
    for (; RTA_OK(attribute, length); attribute = RTA_NEXT(attribute, length)) {
        if (attribute->rta_type == type && RTA_PAYLOAD(attribute) >= sizeof(value)) {
            std::memcpy(&value, RTA_DATA(attribute), sizeof(value));
            return true;
        }
    }
    return false;
}

// Visits every IPv4 address of the system as (interface index, address).
template <typename Visit>
void ForEachAddress(RouteSocket& netlink, unsigned index, Visit visit) noexcept {
    netlink.Dump(RTM_GETADDR, ifaddrmsg{AF_INET, 0, 0, 0, index}, [&](const nlmsghdr& message) {
        const auto* info = static_cast<const ifaddrmsg*>(NLMSG_DATA(&message));
        Ipv4Address entry;
        entry.prefixLength = info->ifa_prefixlen;
        if (FindAttribute(IFA_RTA(info), IFA_PAYLOAD(&message), IFA_LOCAL, entry.address) ||
            FindAttribute(IFA_RTA(info), IFA_PAYLOAD(&message), IFA_ADDRESS, entry.address)) {
            visit(info->ifa_index, entry);
        }
    });
}

// The primary (first listed) IPv4 address of interface `index`; zeros when it has none.
Ipv4Address PrimaryAddress(RouteSocket& netlink, unsigned index) noexcept {
    Ipv4Address primary;
    if (index == 0) return primary;
    bool found = false;
    ForEachAddress(netlink, index, [&](unsigned entryIndex, const Ipv4Address& entry) {
        if (entryIndex != index || found) return;
        primary = entry;
        found = true;
    });
    return primary;
}

// Reads `message` into `route` and `metric` when it is a unicast IPv4 default
// route of the main table with an outgoing interface; false otherwise.
bool ReadDefaultRoute(const nlmsghdr& message, DefaultRoute& route, uint32_t& metric) noexcept {
    const auto* info = static_cast<const rtmsg*>(NLMSG_DATA(&message));
    const int length = RTM_PAYLOAD(&message);
    if (info->rtm_dst_len != 0 || info->rtm_table != RT_TABLE_MAIN ||
        info->rtm_type != RTN_UNICAST ||
        !FindAttribute(RTM_RTA(info), length, RTA_OIF, route.index)) {
        return false;
    }
    FindAttribute(RTM_RTA(info), length, RTA_PRIORITY, metric);
    FindAttribute(RTM_RTA(info), length, RTA_GATEWAY, route.gateway);
    return true;
}

// The IPv4 default route with the lowest metric, among all routes (index 0) or
// those leaving through interface `index`; zeros when there is none.
DefaultRoute BestDefaultRoute(RouteSocket& netlink, unsigned index) noexcept {
    DefaultRoute best;
    uint32_t bestMetric = UINT32_MAX;
    const rtmsg mainTable{AF_INET, 0, 0, 0, RT_TABLE_MAIN, 0, 0, 0, 0};
    netlink.Dump(RTM_GETROUTE, mainTable, [&](const nlmsghdr& message) {
        DefaultRoute route;
        uint32_t metric = 0;
        if (!ReadDefaultRoute(message, route, metric) || (index != 0 && route.index != index) ||
            (best.index != 0 && metric >= bestMetric)) {
            return;
        }
        best = route;
        bestMetric = metric;
    });
    return best;
}

// Looks up the name of interface `index` into `request`; false when there is no such interface.
bool NameInterface(const RouteSocket& netlink, unsigned index, ifreq& request) noexcept {
    std::memset(&request, 0, sizeof(request));
    request.ifr_ifindex = static_cast<int>(index);
    return index != 0 && ioctl(netlink.Fd(), SIOCGIFNAME, &request) == 0;
}

// Fills `request` with the answer of the interface ioctl `command` for interface `index`.
bool QueryInterface(const RouteSocket& netlink, unsigned index, unsigned long command,
                    ifreq& request) noexcept {
    return NameInterface(netlink, index, request) && ioctl(netlink.Fd(), command, &request) == 0;
}

// The lowest-numbered interface that is up, not loopback and has an IPv4 address.
unsigned FirstUsableInterface(RouteSocket& netlink) noexcept {
    unsigned first = 0;
    ForEachAddress(netlink, 0, [&](unsigned index, const Ipv4Address&) {
        ifreq request{};
        if ((first != 0 && index >= first) ||
            !QueryInterface(netlink, index, SIOCGIFFLAGS, request))
            return;
        if ((request.ifr_flags & IFF_UP) != 0 && (request.ifr_flags & IFF_LOOPBACK) == 0)
            first = index;
    });
    return first;
}

// The interface of `index` if positive, else the one named `name`; 0 when it does not exist.
unsigned SpecifiedInterface(const RouteSocket& netlink, const std::string& name,
                            int index) noexcept {
    if (index <= 0) return if_nametoindex(name.c_str());
    ifreq request{};
    return NameInterface(netlink, static_cast<unsigned>(index), request) ? index : 0;
}

// The interface of the default route, else the first usable one; 0 when none fits.
unsigned UnspecifiedInterface(RouteSocket& netlink) noexcept {
    const unsigned routed = BestDefaultRoute(netlink, 0).index;
    return routed != 0 ? routed : FirstUsableInterface(netlink);
}

} // namespace

struct IpConnectionInfo::State {
    RouteSocket netlink;
    unsigned index = 0; // the selected interface; 0 while none is selected
};

IpConnectionInfo::IpConnectionInfo() : m_state(new State) {
}

IpConnectionInfo::~IpConnectionInfo() {
    delete m_state;
}

unsigned long IpConnectionInfo::DetermineNetworkInterface(const std::string& name, int index,
                                                          unsigned long /*flags*/, bool specified) {
    m_state->index = specified ? SpecifiedInterface(m_state->netlink, name, index)
                               : UnspecifiedInterface(m_state->netlink);
    return m_state->index != 0 ? m_state->index : NoInterface;
}

unsigned long IpConnectionInfo::GetCurrentIpAddress() {
    return ntohl(PrimaryAddress(m_state->netlink, m_state->index).address);
}

unsigned long IpConnectionInfo::GetCurrentNetmask() {
    const unsigned prefixLength = PrimaryAddress(m_state->netlink, m_state->index).prefixLength;
    // The top `prefixLength` of 32 bits set, computed in 64 bits so that 0 yields none.
    return static_cast<uint32_t>(UINT64_MAX << (32 - prefixLength));
}

unsigned long IpConnectionInfo::GetCurrentGateway() {
    return m_state->index != 0 ? ntohl(BestDefaultRoute(m_state->netlink, m_state->index).gateway)
                               : 0;
}

void IpConnectionInfo::GetMacAddress(unsigned char* mac) const {
    std::memset(mac, 0, 6);
    ifreq request{};
    if (QueryInterface(m_state->netlink, m_state->index, SIOCGIFHWADDR, request))
        std::memcpy(mac, request.ifr_hwaddr.sa_data, 6);
}

} // namespace Ip
} // namespace KnxStack
