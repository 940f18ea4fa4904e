// The server on loopback in a thread of its own over a FakeIpConfig, and a raw
// UDP peer for frames a well-behaved client would never send. The port is
// KNXNETIP_TEST_PORT when set (so that a capture can watch it), else ephemeral.
#ifndef KNXNETIP_SERVER_TEST_SUPPORT_H
#define KNXNETIP_SERVER_TEST_SUPPORT_H

#include "Client.h"
#include "FakeIpConfig.h"
#include "Server.h"

#include <gtest/gtest.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

namespace KnxNetIp {

inline Bytes Hex(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != ' ') {
            bytes.push_back(
                static_cast<std::uint8_t>(std::stoul(text.substr(i++, 2), nullptr, 16)));
        }
    }
    return bytes;
}

inline DeviceIdentity TestIdentity() {
    DeviceIdentity identity;
    identity.individualAddress = 0x110A;
    identity.serialNumber = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    identity.friendlyName = "test device";
    identity.manufacturerId = 0x00C5;
    identity.projectInstallationId = 0x1234;
    return identity;
}

class ServerFixture : public testing::Test {
protected:
    void Start(const SessionLimits& limits = {}) {
        const char* port = std::getenv("KNXNETIP_TEST_PORT");
        const ServerOptions options{
            {0x7F000001, static_cast<std::uint16_t>(port ? std::atoi(port) : 0)}, limits};
        Result<std::unique_ptr<Server>> opened = Server::Open(manager, TestIdentity(), options);
        ASSERT_TRUE(opened) << opened.error();
        server = std::move(*opened);
        endpoint = server->LocalEndpoint();
        thread = std::thread([this] { ASSERT_TRUE(server->Run(stopFd)); });
    }
    void TearDown() override {
        if (thread.joinable()) {
            const std::uint64_t one = 1;
            EXPECT_EQ(write(stopFd, &one, sizeof one), 8);
            thread.join();
        }
        close(stopFd);
    }
    Client Connect(std::chrono::milliseconds timeout = std::chrono::seconds(2)) {
        Result<Client> client = Client::Open(endpoint, timeout);
        EXPECT_TRUE(client) << client.error();
        return std::move(*client);
    }

    FakeIpConfig manager;
    std::unique_ptr<Server> server;
    Endpoint endpoint;
    int stopFd = eventfd(0, EFD_CLOEXEC);
    std::thread thread;
};

// A peer that sends whatever bytes it is given.
class RawPeer {
public:
    explicit RawPeer(const Endpoint& server)
        : m_socket(std::move(*UdpSocket::Bind({0x7F000001, 0}))), m_server(server) {}
    Hpai Own() const { return {kUdp, m_socket.local()}; }
    void Send(const Bytes& bytes) const { m_socket.SendTo(m_server, bytes); }
    // The next datagram, or nothing within `timeout`.
    std::optional<Bytes> Next(std::chrono::milliseconds timeout = std::chrono::seconds(2)) const {
        std::optional<Datagram> in = m_socket.Receive(timeout);
        return in ? std::optional<Bytes>(in->bytes) : std::nullopt;
    }
    // Opens a device management connection and gives its channel.
    std::uint8_t Connect() const {
        Send(Encode(Service::ConnectRequest,
                    ConnectRequest{Own(), Own(), kDeviceManagementConnection, {}}));
        const std::optional<Bytes> answer = Next();
        return answer && answer->size() > 6 ? (*answer)[6] : 0;
    }

private:
    UdpSocket m_socket;
    Endpoint m_server;
};

} // namespace KnxNetIp

#endif
