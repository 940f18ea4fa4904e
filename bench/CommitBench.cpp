// A whole CommitConfiguration that sends a static change to the device service,
// against the floor of the same request/reply round trips over a Unix socket.
#include "AddonBench.h"
#include "Framing.h"
#include "VelborDeviceStackClient.h"

#include <nlohmann/json.hpp>

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

namespace {

// The device's configuration as the device service reports it.
const char kDeviceConfig[] =
    R"({"Dhcp":"false","IpAddress":"192.168.1.10","SubnetMask":"255.255.255.0",)"
    R"("DefaultGateway":"192.168.1.1","NameServer":"192.168.1.1","NameServer2":"8.8.8.8"})";

// The command with which a commit sets the address `address`.
std::string SetAddressCommand(const std::string& address) {
    return R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : { )"
           R"("DefaultGateway" : "192.168.1.1", "Dhcp" : "false", "IpAddress" : ")" +
           address +
           R"(", "NameServer" : "192.168.1.1", "NameServer2" : "8.8.8.8", )"
           R"("SubnetMask" : "255.255.255.0" } })";
}

const std::size_t kExchangeCount = 3;

// The framed requests and replies of one commit as the device-stack client and
// the device service send them: register, read the configuration, send the change.
struct CommitFrames {
    std::string requests[kExchangeCount];
    std::string replies[kExchangeCount];
};

CommitFrames MakeCommitFrames() {
    using nlohmann::json;
    const json requests[] = {
        {{"op", "register"}, {"name", "DscKnxIpConfig"}, {"type", "field"}, {"protocol", "KNX"}},
        {{"op", "getConfig"}, {"flags", 1}},
        {{"op", "command"}, {"request", SetAddressCommand("192.168.1.11")}}};
    const json replies[] = {{{"ok", true}, {"reply", ""}},
                            {{"ok", true}, {"reply", kDeviceConfig}},
                            {{"ok", true}, {"reply", R"({"result":"ok"})"}}};
    CommitFrames frames;
    for (std::size_t i = 0; i < kExchangeCount; ++i) {
        frames.requests[i] = *Velbor::EncodeFrame(requests[i].dump());
        frames.replies[i] = *Velbor::EncodeFrame(replies[i].dump());
    }
    return frames;
}

const CommitFrames& Frames() {
    static const CommitFrames frames = MakeCommitFrames();
    return frames;
}

// The two static addresses that the commits alternate between.
struct Address {
    unsigned long value;
    const char* text;
};
const Address kAddresses[] = {{0xC0A8010AUL, "192.168.1.10"}, {0xC0A8010BUL, "192.168.1.11"}};

// Sends all of `data`; false when the connection broke.
bool SendAll(int fd, const std::string& data) {
    for (std::size_t sent = 0; sent < data.size();) {
        const ssize_t n = send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    return true;
}

// Receives the next whole message on `fd` into `body`; false at the end of the stream.
bool ReceiveFrame(int fd, std::string& pending, std::string& body) {
    char chunk[4096];
    while (Velbor::TakeFrame(pending, body) != Velbor::FrameStatus::Complete) {
        const ssize_t n = recv(fd, chunk, sizeof chunk, 0);
        if (n <= 0) {
            return false;
        }
        pending.append(chunk, static_cast<std::size_t>(n));
    }
    return true;
}

// A peer that answers the i-th request of every connection with the i-th reply
// of a commit, and does nothing else.
class ReplyPeer {
public:
    ReplyPeer() : m_listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        // An abstract address: nothing to clean up in the file system.
        const std::string name = "dsc-bench-peer-" + std::to_string(getpid());
        name.copy(m_address.sun_path + 1, sizeof m_address.sun_path - 2);
        m_addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
        bind(m_listener, SocketAddress(), m_addressLength);
        listen(m_listener, 4);
        m_thread = std::thread(&ReplyPeer::Serve, this);
    }
    ~ReplyPeer() {
        m_stopping = true;
        close(Connect()); // wakes the accept
        m_thread.join();
        close(m_listener);
    }
    ReplyPeer(const ReplyPeer&) = delete;
    ReplyPeer& operator=(const ReplyPeer&) = delete;

    int Connect() const {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        connect(fd, SocketAddress(), m_addressLength);
        return fd;
    }

private:
    const sockaddr* SocketAddress() const { return reinterpret_cast<const sockaddr*>(&m_address); }

    void Serve() {
        while (!m_stopping) {
            const int fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            std::string pending;
            std::string body;
            for (std::size_t i = 0; fd >= 0 && ReceiveFrame(fd, pending, body); ++i) {
                SendAll(fd, Frames().replies[i % kExchangeCount]);
            }
            close(fd);
        }
    }

    int m_listener;
    sockaddr_un m_address{AF_UNIX, {}};
    socklen_t m_addressLength;
    std::atomic<bool> m_stopping{false};
    std::thread m_thread;
};

// The round trips of one commit on `fd`; false when the peer went away.
bool CommitRoundTrips(int fd, const std::string (&requests)[kExchangeCount]) {
    std::string pending;
    std::string body;
    for (const std::string& request : requests) {
        if (!SendAll(fd, request) || !ReceiveFrame(fd, pending, body)) {
            return false;
        }
    }
    return true;
}

// Floor: the three round trips of a commit, each commit on a new connection
// (range 1, as the device-stack client does) or all on one (range 0).
void CommitFloor(benchmark::State& state) {
    const bool connectEachCommit = state.range(0) != 0;
    ReplyPeer peer;
    int fd = peer.Connect();
    for (auto _ : state) {
        if (connectEachCommit) {
            close(fd);
            fd = peer.Connect();
        }
        if (!CommitRoundTrips(fd, Frames().requests)) {
            state.SkipWithError("the reply peer went away");
            break;
        }
    }
    close(fd);
}
BENCHMARK(CommitFloor)->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Whether the device service now holds `address` as its IP address.
bool DeviceHolds(const Address& address) {
    const std::unique_ptr<Velbor::IDeviceStackClient> client = Velbor::CreateDeviceStackClient();
    std::string config;
    return client && client->RegisterApplication("bench", "field", "KNX") &&
           client->GetDeviceConfig(config, 1) &&
           config.find(std::string("\"IpAddress\":\"") + address.text + '"') != std::string::npos;
}

// CommitConfiguration with a static address that alternates between two values,
// so that every commit reads the device and sends one change.
void Commit(benchmark::State& state) {
    const std::unique_ptr<KnxStack::IIpConfigurationManager> manager = NewIpConfig(state);
    if (!manager) {
        return;
    }
    manager->SetIpAssignmentMethods(1);
    manager->SetConfiguredNetmask(0xFFFFFF00UL);
    manager->SetConfiguredGateway(0xC0A80101UL);
    manager->SetDNSAddress(1, 0xC0A80101UL);
    manager->SetDNSAddress(2, 0x08080808UL);
    std::size_t commits = 0;
    for (auto _ : state) {
        manager->SetConfiguredIpAddress(kAddresses[++commits % 2].value);
        manager->CommitConfiguration();
    }
    if (!DeviceHolds(kAddresses[commits % 2])) {
        state.SkipWithError("the device service did not take the commits");
    }
}
BENCHMARK(Commit)->UseRealTime()->Unit(benchmark::kMicrosecond);

// The device-stack client library alone making the calls of a commit: what a
// commit costs beyond this is the add-on's own share.
void ClientCommit(benchmark::State& state) {
    const std::string commands[] = {SetAddressCommand(kAddresses[0].text),
                                    SetAddressCommand(kAddresses[1].text)};
    std::size_t commits = 0;
    for (auto _ : state) {
        const std::unique_ptr<Velbor::IDeviceStackClient> client =
            Velbor::CreateDeviceStackClient();
        std::string config;
        std::string reply;
        if (!client || !client->RegisterApplication("DscKnxIpConfig", "field", "KNX") ||
            !client->GetDeviceConfig(config, 1) ||
            !client->RequestCommand(commands[++commits % 2], reply, 360)) {
            state.SkipWithError("the device service refused the exchange");
            break;
        }
    }
}
BENCHMARK(ClientCommit)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace
