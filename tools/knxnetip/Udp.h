// A UDP socket over IPv4, as the server and the client use it: bound to an
// endpoint, sending without blocking, receiving with a time limit.
#ifndef KNXNETIP_UDP_H
#define KNXNETIP_UDP_H

#include "Clock.h"
#include "Frame.h"
#include "Result.h"

namespace KnxNetIp {

struct Datagram {
    Endpoint peer;
    Bytes bytes;
};

class UdpSocket {
public:
    // Port 0 binds an ephemeral port.
    static Result<UdpSocket> Bind(const Endpoint& local);
    // A socket that receives what is sent to `group`:`port` on the interface
    // with the address `interfaceAddress`.
    static Result<UdpSocket> JoinMulticast(std::uint32_t group, std::uint16_t port,
                                           std::uint32_t interfaceAddress);
    // Receives what is sent to `group` on this socket's port too (0: any interface).
    Result<void> Join(std::uint32_t group, std::uint32_t interfaceAddress) const;

    UdpSocket(UdpSocket&& other) noexcept;
    UdpSocket& operator=(UdpSocket&& other) noexcept;
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;
    ~UdpSocket();

    int fd() const { return m_fd; }
    Endpoint local() const;
    bool SendTo(const Endpoint& peer, const Bytes& bytes) const;
    // The next datagram within `timeout` (zero: only one already waiting).
    // Datagrams larger than any KNXnet/IP frame are dropped.
    std::optional<Datagram> Receive(std::chrono::milliseconds timeout) const;

private:
    explicit UdpSocket(int fd) : m_fd(fd) {}
    int m_fd;
};

} // namespace KnxNetIp

#endif
