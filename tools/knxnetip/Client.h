// A KNXnet/IP client for one server: search, description, and device
// management over a connection (property reads and writes, reset). Each call
// waits at most the timeout for each answer it needs.
#ifndef KNXNETIP_CLIENT_H
#define KNXNETIP_CLIENT_H

#include "Cemi.h"
#include "Udp.h"

namespace KnxNetIp {

class Client {
public:
    static Result<Client> Open(const Endpoint& server,
                               std::chrono::milliseconds timeout = std::chrono::seconds(3));

    Result<SearchResponse> Search(const std::optional<SearchParameters>& extended = std::nullopt);
    Result<Description> Describe();

    Result<void> Connect();
    Result<void> Heartbeat();
    Result<void> Disconnect();
    // One local device management request and the server's answer to it.
    Result<Cemi::Message> Request(const Cemi::Message& request);
    Result<Bytes> ReadProperty(std::uint16_t objectType, std::uint8_t pid, std::uint16_t start = 1,
                               std::uint8_t count = 1);
    Result<void> WriteProperty(std::uint16_t objectType, std::uint8_t pid, const Bytes& data,
                               std::uint16_t start = 1, std::uint8_t count = 1);
    Result<void> Reset();

    std::uint8_t channel() const { return m_channel; }
    const UdpSocket& socket() const { return m_socket; }

private:
    Client(UdpSocket socket, const Endpoint& server, std::chrono::milliseconds timeout)
        : m_socket(std::move(socket)), m_server(server), m_timeout(timeout) {}
    Hpai Own() const { return {kUdp, m_socket.local()}; }
    // The body of the next frame of `service` from the server.
    Result<Bytes> Await(Service service);
    Result<ChannelStatus> ChannelExchange(Service request, Service answer);
    Result<void> Acknowledged(std::uint8_t sequence);

    UdpSocket m_socket;
    Endpoint m_server;
    std::chrono::milliseconds m_timeout;
    std::uint8_t m_channel = 0;
    std::uint8_t m_sent = 0;     // sequence number of the next request
    std::uint8_t m_received = 0; // sequence number expected from the server
};

// The text of a property error byte, such as "non-existent property or object".
std::string PropertyErrorText(std::uint8_t error);

} // namespace KnxNetIp

#endif
