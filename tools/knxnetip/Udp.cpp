#include "Udp.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace KnxNetIp {

namespace {

constexpr std::size_t kMaxDatagram = 1024;

sockaddr_in ToSockaddr(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(endpoint.address);
    address.sin_port = htons(endpoint.port);
    return address;
}

Error SystemError(const std::string& what) {
    return Error{what + ": " + std::strerror(errno)};
}

} // namespace

Result<UdpSocket> UdpSocket::Bind(const Endpoint& local) {
    UdpSocket socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_in address = ToSockaddr(local);
    if (socket.m_fd < 0 ||
        bind(socket.m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return SystemError("cannot bind UDP socket to " + ToString(local));
    }
    return socket;
}

Result<UdpSocket> UdpSocket::JoinMulticast(std::uint32_t group, std::uint16_t port,
                                           std::uint32_t interfaceAddress) {
    UdpSocket socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int reuse = 1;
    const sockaddr_in address = ToSockaddr({group, port});
    if (socket.m_fd < 0 ||
        setsockopt(socket.m_fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) != 0 ||
        bind(socket.m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return SystemError("cannot bind UDP socket to " + ToString(Endpoint{group, port}));
    }
    if (Result<void> joined = socket.Join(group, interfaceAddress); !joined) {
        return Error{joined.error()};
    }
    return socket;
}

Result<void> UdpSocket::Join(std::uint32_t group, std::uint32_t interfaceAddress) const {
    ip_mreq membership{};
    membership.imr_multiaddr.s_addr = htonl(group);
    membership.imr_interface.s_addr = htonl(interfaceAddress);
    if (setsockopt(m_fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) != 0) {
        return SystemError("cannot join multicast group " + ToString(group) + " on " +
                           ToString(interfaceAddress));
    }
    return Ok{};
}

UdpSocket::UdpSocket(UdpSocket&& other) noexcept : m_fd(other.m_fd) {
    other.m_fd = -1;
}

UdpSocket& UdpSocket::operator=(UdpSocket&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
}

UdpSocket::~UdpSocket() {
    if (m_fd >= 0) {
        close(m_fd);
    }
}

Endpoint UdpSocket::local() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &size);
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

bool UdpSocket::SendTo(const Endpoint& peer, const Bytes& bytes) const {
    const sockaddr_in address = ToSockaddr(peer);
    return sendto(m_fd, bytes.data(), bytes.size(), MSG_DONTWAIT,
                  reinterpret_cast<const sockaddr*>(&address),
                  sizeof address) == static_cast<ssize_t>(bytes.size());
}

std::optional<Datagram> UdpSocket::Receive(std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        Bytes buffer(kMaxDatagram + 1);
        sockaddr_in address{};
        socklen_t size = sizeof address;
        const ssize_t received = recvfrom(m_fd, buffer.data(), buffer.size(), MSG_DONTWAIT,
                                          reinterpret_cast<sockaddr*>(&address), &size);
        if (received >= 0 && static_cast<std::size_t>(received) <= kMaxDatagram) {
            buffer.resize(static_cast<std::size_t>(received));
            return Datagram{{ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)}, buffer};
        }
        if (received >= 0 || errno == EINTR) {
            continue; // too large to be a frame, or interrupted
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (errno != EAGAIN || left.count() <= 0) {
            return std::nullopt;
        }
        pollfd polled{m_fd, POLLIN, 0};
        poll(&polled, 1, static_cast<int>(left.count()));
    }
}

} // namespace KnxNetIp
