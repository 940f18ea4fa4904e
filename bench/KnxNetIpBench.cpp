// The KNXnet/IP server on loopback: an M_PropRead round trip (request, its
// acknowledgement, the confirmation and the client's acknowledgement of it)
// through the server into an IP configuration manager, and a description
// request, each against a bare UDP exchange of the same datagram sizes with a
// server that only answers, measured in the same run.
#include "FakeIpConfig.h"
#include "Server.h"

#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

namespace {

using namespace KnxNetIp;

const Endpoint kLoopback{0x7F000001, 0};

// A client socket connected to one server, sending and receiving whole datagrams.
class Peer {
public:
    explicit Peer(const Endpoint& server) : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(server.address);
        address.sin_port = htons(server.port);
        connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    ~Peer() { close(m_fd); }
    void Send(const Bytes& bytes) const { send(m_fd, bytes.data(), bytes.size(), 0); }
    std::size_t Receive(Bytes& buffer) const {
        const ssize_t size = recv(m_fd, buffer.data(), buffer.size(), 0);
        return size < 0 ? 0 : static_cast<std::size_t>(size);
    }
    Endpoint Local() const { return LocalOf(m_fd); }
    static Endpoint LocalOf(int fd) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
        return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
    }

private:
    int m_fd;
};

// The server over a manager in memory, in a thread of its own.
class RunningServer {
public:
    RunningServer() {
        m_server = std::move(*Server::Open(m_manager, DeviceIdentity{}, {kLoopback, {}}));
        m_thread = std::thread([this] { (void)m_server->Run(m_stop); });
    }
    ~RunningServer() {
        const std::uint64_t one = 1;
        (void)!write(m_stop, &one, sizeof one);
        m_thread.join();
        close(m_stop);
    }
    Endpoint endpoint() const { return m_server->LocalEndpoint(); }

private:
    FakeIpConfig m_manager;
    std::unique_ptr<Server> m_server;
    int m_stop = eventfd(0, EFD_CLOEXEC);
    std::thread m_thread;
};

// A UDP server that answers each datagram of `requestSize` bytes with datagrams
// of the sizes in `answers` and takes any other datagram in silence.
class BareServer {
public:
    BareServer(std::size_t requestSize, std::vector<std::size_t> answers)
        : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(kLoopback.address);
        bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        m_thread = std::thread([this, requestSize, answers] { Serve(requestSize, answers); });
    }
    ~BareServer() {
        Peer(endpoint()).Send({0}); // a one-byte datagram ends the loop
        m_thread.join();
        close(m_fd);
    }
    Endpoint endpoint() const { return Peer::LocalOf(m_fd); }

private:
    void Serve(std::size_t requestSize, const std::vector<std::size_t>& answers) const {
        Bytes buffer(1024);
        for (;;) {
            sockaddr_in peer{};
            socklen_t size = sizeof peer;
            const ssize_t received = recvfrom(m_fd, buffer.data(), buffer.size(), 0,
                                              reinterpret_cast<sockaddr*>(&peer), &size);
            if (received == 1) {
                return;
            }
            if (static_cast<std::size_t>(received) != requestSize) {
                continue;
            }
            for (const std::size_t answer : answers) {
                sendto(m_fd, buffer.data(), answer, 0, reinterpret_cast<const sockaddr*>(&peer),
                       size);
            }
        }
    }

    int m_fd;
    std::thread m_thread;
};

// Opens a device management connection from `peer` and gives its channel.
std::uint8_t Connect(const Peer& peer) {
    const Hpai own{kUdp, peer.Local()};
    peer.Send(
        Encode(Service::ConnectRequest, ConnectRequest{own, own, kDeviceManagementConnection, {}}));
    Bytes buffer(1024);
    return peer.Receive(buffer) > 6 ? buffer[6] : 0;
}

// The client's side of one property read: request, then the server's
// acknowledgement and confirmation, then the client's acknowledgement.
void ReadRoundTrips(benchmark::State& state, const Endpoint& server, bool connect) {
    const Peer peer(server);
    const std::uint8_t channel = connect ? Connect(peer) : 1;
    const Bytes cemi = Cemi::Encode({Cemi::kPropReadReq, kIpParameterObject, 1, 60, 1, 1, {}});
    Bytes buffer(1024);
    std::uint8_t sequence = 0;
    for (auto _ : state) {
        peer.Send(Encode(Service::DeviceConfigurationRequest,
                         ConfigurationRequest{{channel, sequence, 0}, cemi}));
        const std::size_t ack = peer.Receive(buffer);
        const std::size_t confirmation = peer.Receive(buffer);
        peer.Send(Encode(Service::DeviceConfigurationAck, ConnectionHeader{channel, buffer[8], 0}));
        if (ack != 10 || confirmation != 21) {
            state.SkipWithError("unexpected answer");
            break;
        }
        ++sequence;
    }
}

void Describe(benchmark::State& state, const Endpoint& server) {
    const Peer peer(server);
    const Bytes request = Encode(Service::DescriptionRequest, Hpai{kUdp, peer.Local()});
    Bytes buffer(1024);
    for (auto _ : state) {
        peer.Send(request);
        if (peer.Receive(buffer) != 102) {
            state.SkipWithError("unexpected answer");
            break;
        }
    }
}

void PropertyRead(benchmark::State& state) {
    const RunningServer server;
    ReadRoundTrips(state, server.endpoint(), true);
}
BENCHMARK(PropertyRead)->UseRealTime()->Unit(benchmark::kMicrosecond);

void PropertyReadFloor(benchmark::State& state) {
    const BareServer server(17, {10, 21});
    ReadRoundTrips(state, server.endpoint(), false);
}
BENCHMARK(PropertyReadFloor)->UseRealTime()->Unit(benchmark::kMicrosecond);

void Description(benchmark::State& state) {
    const RunningServer server;
    Describe(state, server.endpoint());
}
BENCHMARK(Description)->UseRealTime()->Unit(benchmark::kMicrosecond);

void DescriptionFloor(benchmark::State& state) {
    const BareServer server(14, {102});
    Describe(state, server.endpoint());
}
BENCHMARK(DescriptionFloor)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace
