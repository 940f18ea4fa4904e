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

Error Failure(const char* what, int error) {
    return Error{std::string(what) + ": " + nl_geterror(error)};
}

bool IsWanted(rtnl_addr* existing, const StaticConfig& config) {
    const nl_addr* local = rtnl_addr_get_local(existing);
    const std::uint32_t network = htonl(config.address);
    return local != nullptr && nl_addr_get_len(local) == sizeof network &&
           std::memcmp(nl_addr_get_binary_addr(local), &network, sizeof network) == 0 &&
           rtnl_addr_get_prefixlen(existing) == config.prefix();
}

// Deletes every other IPv4 address of the interface, then adds (or renews)
// the wanted one: deleting a primary address can take its secondaries along.
Result<void> ReplaceAddresses(nl_sock* socket, const StaticConfig& config) {
    nl_cache* rawCache = nullptr;
    int error = rtnl_addr_alloc_cache(socket, &rawCache);
    const Owned<nl_cache> cache(rawCache);
    for (nl_object* object = error == 0 ? nl_cache_get_first(rawCache) : nullptr;
         object != nullptr && error == 0; object = nl_cache_get_next(object)) {
        auto* existing = reinterpret_cast<rtnl_addr*>(object);
        if (rtnl_addr_get_ifindex(existing) == config.ifindex &&
            rtnl_addr_get_family(existing) == AF_INET && !IsWanted(existing, config)) {
            error = rtnl_addr_delete(socket, existing, 0);
            error = error == -NLE_NOADDR ? 0 : error;
        }
    }
    if (error != 0) {
        return Failure("cannot remove the old addresses", error);
    }
    const Owned<rtnl_addr> wanted(rtnl_addr_alloc());
    const Owned<nl_addr> local = Ipv4(config.address, config.prefix());
    rtnl_addr_set_ifindex(wanted.get(), config.ifindex);
    rtnl_addr_set_family(wanted.get(), AF_INET);
    rtnl_addr_set_local(wanted.get(), local.get());
    rtnl_addr_set_prefixlen(wanted.get(), config.prefix());
    error = rtnl_addr_add(socket, wanted.get(), NLM_F_REPLACE);
    return error == 0 ? Result<void>(Ok{}) : Failure("cannot add the address", error);
}

Result<void> SetDefaultRoute(nl_sock* socket, const StaticConfig& config) {
    const Owned<rtnl_route> route(rtnl_route_alloc());
    const Owned<nl_addr> destination = Ipv4(0, 0);
    const Owned<nl_addr> gateway = Ipv4(config.gateway, 32);
    rtnl_route_set_family(route.get(), AF_INET);
    rtnl_route_set_table(route.get(), RT_TABLE_MAIN);
    rtnl_route_set_protocol(route.get(), RTPROT_STATIC);
    rtnl_route_set_dst(route.get(), destination.get());
    rtnl_nexthop* hop = rtnl_route_nh_alloc();
    rtnl_route_nh_set_ifindex(hop, config.ifindex);
    rtnl_route_nh_set_gateway(hop, gateway.get());
    rtnl_route_add_nexthop(route.get(), hop); // the route owns the hop from here
    const int error = rtnl_route_add(socket, route.get(), NLM_F_REPLACE);
    return error == 0 ? Result<void>(Ok{}) : Failure("cannot set the default route", error);
}

} // namespace

Result<std::string> ApplyToInterface(const std::string& interfaceName, const Settings& settings) {
    if (settings.at("Dhcp") == "true") {
        return interfaceName + " is left to DHCP";
    }
    const StaticConfig config{static_cast<int>(if_nametoindex(interfaceName.c_str())),
                              ParseIpv4(settings.at("IpAddress")).value_or(0),
                              ParseIpv4(settings.at("SubnetMask")).value_or(0),
                              ParseIpv4(settings.at("DefaultGateway")).value_or(0)};
    if (config.ifindex == 0) {
        return Error{"no interface named " + interfaceName};
    }
    const Owned<nl_sock> socket(nl_socket_alloc());
    const int error = socket ? nl_connect(socket.get(), NETLINK_ROUTE) : -NLE_NOMEM;
    if (error != 0) {
        return Failure("cannot open a netlink socket", error);
    }
    const std::string target =
        interfaceName + ": " + settings.at("IpAddress") + "/" + std::to_string(config.prefix());
    if (Result<void> replaced = ReplaceAddresses(socket.get(), config); !replaced) {
        return Error{target + ": " + replaced.error()};
    }
    const bool gatewayInSubnet = config.gateway != 0 && config.gateway != config.address &&
                                 (config.gateway & config.mask) == (config.address & config.mask);
    if (!gatewayInSubnet) {
        return target + ", default route unchanged (gateway " + settings.at("DefaultGateway") +
               " is outside the subnet)";
    }
    if (Result<void> routed = SetDefaultRoute(socket.get(), config); !routed) {
        return Error{target + ": " + routed.error()};
    }
    return target + " via " + settings.at("DefaultGateway");
}

} // namespace DeviceService
