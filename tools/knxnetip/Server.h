// The KNXnet/IP server: serves core and device management services for an IP
// configuration manager over UDP, on one endpoint and, for an endpoint on a
// network interface other than loopback, on the system setup multicast group
// 224.0.23.12 too. It prints nothing; everything runs on the thread that calls
// Run, which is also the only one that calls the manager.
//
//   auto server = KnxNetIp::Server::Open(manager, identity, {endpoint});
//   ... report server->LocalEndpoint() ...
//   server->Run(stopFd); // returns when stopFd becomes readable
#ifndef KNXNETIP_SERVER_H
#define KNXNETIP_SERVER_H

#include "Sessions.h"

#include <memory>

namespace KnxNetIp {

struct ServerOptions {
    Endpoint endpoint{0x7F000001, kDefaultPort}; // port 0: an ephemeral port
    SessionLimits limits;
};

class Server {
public:
    static Result<std::unique_ptr<Server>> Open(KnxStack::IIpConfigurationManager& manager,
                                                const DeviceIdentity& identity,
                                                const ServerOptions& options);

    // The endpoint bound, with the port chosen when port 0 was asked for.
    Endpoint LocalEndpoint() const { return m_socket.local(); }

    // Serves until `stopFd` (for example a signalfd or an eventfd) is readable.
    Result<void> Run(int stopFd);

private:
    Server(KnxStack::IIpConfigurationManager& manager, const DeviceIdentity& identity,
           const ServerOptions& options, UdpSocket socket, std::optional<UdpSocket> multicast);
    void Send(const std::vector<Datagram>& datagrams) const;

    InterfaceObjects m_objects;
    UdpSocket m_socket;
    std::optional<UdpSocket> m_multicast;
    Sessions m_sessions;
};

} // namespace KnxNetIp

#endif
