#include "InterfaceConfig.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/route.h>

#include <bitset>
#include <cstring>
#include <memory>

namespace DeviceService {

namespace {

struct NetlinkFree {
    void operator()(nl_sock* socket) const { nl_socket_free(socket); }
    void operator()(nl_cache* cache) const { nl_cache_free(cache); }
    void operator()(nl_addr* address) const { nl_addr_put(address); }
    void operator()(rtnl_addr* address) const { rtnl_addr_put(address); }
    void operator()(rtnl_route* route) const { rtnl_route_put(route); }
};

template <typename T>
using Owned = std::unique_ptr<T, NetlinkFree>;

struct StaticConfig {
    int ifindex;
    std::uint32_t address;
    std::uint32_t mask;
    std::uint32_t gateway;
    int prefix() const { return static_cast<int>(std::bitset<32>(mask).count()); }
};

Owned<nl_addr> Ipv4(std::uint32_t value, int prefix) {
    const std::uint32_t network = htonl(value);
    Owned<nl_addr> address(nl_addr_build(AF_INET, &network, sizeof network));
    if (address) {
        nl_addr_set_prefixlen(address.get(), prefix);
    }
    return address;
}

Error Failure(const std::string& what, int error) {
    return Error{what + ": " + nl_geterror(error)};
}

bool IsAddress(rtnl_addr* existing, int ifindex, std::uint32_t address, int prefix) {
    const nl_addr* local = rtnl_addr_get_local(existing);
    const std::uint32_t network = htonl(address);
    return rtnl_addr_get_ifindex(existing) == ifindex &&
           rtnl_addr_get_family(existing) == AF_INET && local != nullptr &&
           nl_addr_get_len(local) == sizeof network &&
           std::memcmp(nl_addr_get_binary_addr(local), &network, sizeof network) == 0 &&
           rtnl_addr_get_prefixlen(existing) == prefix;
}

Result<Owned<nl_sock>> Connect() {
    Owned<nl_sock> socket(nl_socket_alloc());
    const int error = socket ? nl_connect(socket.get(), NETLINK_ROUTE) : -NLE_NOMEM;
    if (error != 0) {
        return Failure("cannot open a netlink socket", error);
    }
    return socket;
}

Result<Owned<nl_cache>> Addresses(nl_sock* socket) {
    nl_cache* cache = nullptr;
    const int error = rtnl_addr_alloc_cache(socket, &cache);
    if (error != 0) {
        return Failure("cannot read the addresses", error);
    }
    return Owned<nl_cache>(cache);
}

// Deletes the interface's IPv4 addresses but the one in `keep`, if any.
// Deleting a primary address can take its secondaries along, so a kept
// address is added again by the caller.
Result<void> DeleteAddresses(nl_sock* socket, int ifindex, const StaticConfig* keep) {
    Result<Owned<nl_cache>> cache = Addresses(socket);
    if (!cache) {
        return Error{cache.error()};
    }
    for (nl_object* object = nl_cache_get_first(cache->get()); object != nullptr;
         object = nl_cache_get_next(object)) {
        auto* existing = reinterpret_cast<rtnl_addr*>(object);
        const bool kept =
            keep != nullptr && IsAddress(existing, ifindex, keep->address, keep->prefix());
        if (rtnl_addr_get_ifindex(existing) != ifindex ||
            rtnl_addr_get_family(existing) != AF_INET || kept) {
            continue;
        }
        const int error = rtnl_addr_delete(socket, existing, 0);
        if (error != 0 && error != -NLE_NOADDR) {
            return Failure("cannot remove the old addresses", error);
        }
    }
    return Ok{};
}

Owned<rtnl_addr> AddressOf(const StaticConfig& config) {
    Owned<rtnl_addr> object(rtnl_addr_alloc());
    const Owned<nl_addr> local = Ipv4(config.address, config.prefix());
    rtnl_addr_set_ifindex(object.get(), config.ifindex);
    rtnl_addr_set_family(object.get(), AF_INET);
    rtnl_addr_set_local(object.get(), local.get());
    rtnl_addr_set_prefixlen(object.get(), config.prefix());
    return object;
}

// Adds (or renews) the wanted address; `existed` says whether it was there.
Result<void> AddAddress(nl_sock* socket, const StaticConfig& config, bool& existed) {
    Result<Owned<nl_cache>> cache = Addresses(socket);
    if (!cache) {
        return Error{cache.error()};
    }
    existed = false;
    for (nl_object* object = nl_cache_get_first(cache->get()); object != nullptr;
         object = nl_cache_get_next(object)) {
        existed = existed || IsAddress(reinterpret_cast<rtnl_addr*>(object), config.ifindex,
                                       config.address, config.prefix());
    }
    const int error = rtnl_addr_add(socket, AddressOf(config).get(), NLM_F_REPLACE);
    return error == 0 ? Result<void>(Ok{}) : Failure("cannot add the address", error);
}

// Points the main table's default route through the interface at the
// gateway; without a gateway, removes the interface's default route.
Result<void> SetDefaultRoute(nl_sock* socket, const StaticConfig& config) {
    const Owned<rtnl_route> route(rtnl_route_alloc());
    const Owned<nl_addr> destination = Ipv4(0, 0);
    const Owned<nl_addr> gateway = Ipv4(config.gateway, 32);
    rtnl_route_set_family(route.get(), AF_INET);
    rtnl_route_set_table(route.get(), RT_TABLE_MAIN);
    rtnl_route_set_dst(route.get(), destination.get());
    rtnl_nexthop* hop = rtnl_route_nh_alloc();
    rtnl_route_nh_set_ifindex(hop, config.ifindex);
    if (config.gateway == 0) {
        rtnl_route_add_nexthop(route.get(), hop); // the route owns the hop from here
        const int error = rtnl_route_delete(socket, route.get(), 0);
        return error == 0 || error == -NLE_OBJ_NOTFOUND
                   ? Result<void>(Ok{})
                   : Failure("cannot remove the default route", error);
    }
    rtnl_route_set_protocol(route.get(), RTPROT_STATIC);
    rtnl_route_nh_set_gateway(hop, gateway.get());
    rtnl_route_add_nexthop(route.get(), hop);
    const int error = rtnl_route_add(socket, route.get(), NLM_F_REPLACE);
    return error == 0 ? Result<void>(Ok{}) : Failure("cannot set the default route", error);
}

Result<int> InterfaceIndex(const std::string& interfaceName) {
    const int ifindex = static_cast<int>(if_nametoindex(interfaceName.c_str()));
    if (ifindex == 0) {
        return Error{"no interface named " + interfaceName};
    }
    return ifindex;
}

} // namespace

Result<std::string> ApplyStaticSettings(const std::string& interfaceName,
                                        const Settings& settings) {
    const Result<int> ifindex = InterfaceIndex(interfaceName);
    if (!ifindex) {
        return Error{ifindex.error()};
    }
    const StaticConfig config{*ifindex, ParseIpv4(settings.at("IpAddress")).value_or(0),
                              ParseIpv4(settings.at("SubnetMask")).value_or(0),
                              ParseIpv4(settings.at("DefaultGateway")).value_or(0)};
    Result<Owned<nl_sock>> socket = Connect();
    if (!socket) {
        return Error{socket.error()};
    }
    const std::string target =
        interfaceName + ": " + settings.at("IpAddress") + "/" + std::to_string(config.prefix());
    bool existed = false;
    Result<void> done = AddAddress(socket->get(), config, existed);
    if (done) {
        done = SetDefaultRoute(socket->get(), config);
        if (!done && !existed) {
            rtnl_addr_delete(socket->get(), AddressOf(config).get(), 0);
        }
    }
    if (done) {
        done = DeleteAddresses(socket->get(), config.ifindex, &config);
    }
    if (done) {
        done = AddAddress(socket->get(), config, existed);
    }
    if (!done) {
        return Error{target + ": " + done.error()};
    }
    return target +
           (config.gateway != 0 ? " via " + settings.at("DefaultGateway") : ", no default route");
}

Result<void> RemoveAddresses(const std::string& interfaceName) {
    const Result<int> ifindex = InterfaceIndex(interfaceName);
    Result<Owned<nl_sock>> socket =
        ifindex ? Connect() : Result<Owned<nl_sock>>(Error{ifindex.error()});
    if (!socket) {
        return Error{socket.error()};
    }
    const Result<void> removed = DeleteAddresses(socket->get(), *ifindex, nullptr);
    return removed ? removed : Error{interfaceName + ": " + removed.error()};
}

} // namespace DeviceService
