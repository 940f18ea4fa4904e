#include "Server.h"

#include <poll.h>

#include <cerrno>
#include <cstring>

namespace KnxNetIp {

namespace {

constexpr std::uint32_t kLoopbackNet = 0x7F000000;
// Datagrams taken from one socket before the others get their turn.
constexpr int kBurst = 64;

int PollTimeout(const std::optional<Clock::time_point>& deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(0, left.count()));
}

} // namespace

Result<std::unique_ptr<Server>> Server::Open(KnxStack::IIpConfigurationManager& manager,
                                             const DeviceIdentity& identity,
                                             const ServerOptions& options) {
    Result<UdpSocket> socket = UdpSocket::Bind(options.endpoint);
    if (!socket) {
        return Error{socket.error()};
    }
    // A socket bound to one unicast address does not see multicast datagrams:
    // a second one, bound to the group, takes them. One bound to any address
    // joins the group itself.
    std::optional<UdpSocket> multicast;
    const std::uint32_t address = options.endpoint.address;
    if (address == 0) {
        if (Result<void> joined = socket->Join(kSystemSetupMulticast, 0); !joined) {
            return Error{joined.error()};
        }
    } else if ((address & 0xFF000000) != kLoopbackNet) {
        Result<UdpSocket> joined =
            UdpSocket::JoinMulticast(kSystemSetupMulticast, socket->local().port, address);
        if (!joined) {
            return Error{joined.error()};
        }
        multicast = std::move(*joined);
    }
    return std::unique_ptr<Server>(
        new Server(manager, identity, options, std::move(*socket), std::move(multicast)));
}

Server::Server(KnxStack::IIpConfigurationManager& manager, const DeviceIdentity& identity,
               const ServerOptions& options, UdpSocket socket, std::optional<UdpSocket> multicast)
    : m_objects(manager, identity),
      m_socket(std::move(socket)),
      m_multicast(std::move(multicast)),
      m_sessions(m_objects, {options.endpoint.address, m_socket.local().port}, options.limits) {
}

void Server::Send(const std::vector<Datagram>& datagrams) const {
    for (const Datagram& datagram : datagrams) {
        m_socket.SendTo(datagram.peer, datagram.bytes); // a datagram that cannot go is lost
    }
}

Result<void> Server::Run(int stopFd) {
    std::vector<Datagram> out;
    const UdpSocket* sockets[] = {&m_socket, m_multicast ? &*m_multicast : nullptr};
    for (;;) {
        pollfd polled[] = {{stopFd, POLLIN, 0},
                           {m_socket.fd(), POLLIN, 0},
                           {m_multicast ? m_multicast->fd() : -1, POLLIN, 0}};
        if (poll(polled, 3, PollTimeout(m_sessions.NextDeadline())) < 0 && errno != EINTR) {
            return Error{std::string("poll: ") + std::strerror(errno)};
        }
        if (polled[0].revents != 0) {
            return Ok{};
        }
        for (std::size_t i = 0; i < 2; ++i) {
            if (sockets[i] == nullptr || polled[i + 1].revents == 0) {
                continue;
            }
            for (int taken = 0; taken < kBurst; ++taken) {
                const std::optional<Datagram> in =
                    sockets[i]->Receive(std::chrono::milliseconds(0));
                if (!in) {
                    break;
                }
                out.clear();
                m_sessions.Receive(*in, Clock::now(), out);
                Send(out);
            }
        }
        out.clear();
        m_sessions.Expire(Clock::now(), out);
        Send(out);
    }
}

} // namespace KnxNetIp
