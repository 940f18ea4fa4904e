// The device-stack client library: one Unix domain socket connection to the
// device service per client, one framed request and reply per operation.
#include "VelborDeviceStackClient.h"
#include "Framing.h"
#include "ServiceSocket.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace Velbor {

namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;

// Every exchange ends within this limit; a caller's shorter timeout (in
// seconds, when positive) takes its place.
constexpr std::chrono::seconds kExchangeLimit(5);

std::chrono::seconds ExchangeLimit(int timeoutSeconds) {
    return timeoutSeconds > 0 ? std::min(kExchangeLimit, std::chrono::seconds(timeoutSeconds))
                              : kExchangeLimit;
}

int Connect(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return -1;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return -1;
    }
    // Non-blocking, a full listen queue fails at once instead of waiting.
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// The framed request, or nothing for one that cannot be sent: texts that are
// not valid UTF-8, or a request longer than a frame.
std::optional<std::string> Encode(const json& request) {
    try {
        return EncodeFrame(request.dump());
    } catch (const json::exception&) {
        return std::nullopt;
    }
}

// Whether the service accepted the request, or nothing for a malformed reply.
std::optional<bool> ParseReply(const std::string& body, std::string& reply) {
    try {
        const json answer = json::parse(body);
        const bool accepted = answer.at("ok").get<bool>();
        reply = answer.at(accepted ? "reply" : "error").get<std::string>();
        return accepted;
    } catch (const json::exception&) {
        return std::nullopt;
    }
}

class SocketClient : public IDeviceStackClient {
public:
    explicit SocketClient(int fd) : m_fd(fd) {}
    ~SocketClient() override { Disconnect(); }
    SocketClient(const SocketClient&) = delete;
    SocketClient& operator=(const SocketClient&) = delete;

    bool RequestCommand(const std::string& request, std::string& reply, int timeout) override {
        return Exchange({{"op", "command"}, {"request", request}}, reply, ExchangeLimit(timeout));
    }

    bool RegisterApplication(const std::string& name, const std::string& type,
                             const std::string& protocol) override {
        std::string reply;
        return Exchange(
            {{"op", "register"}, {"name", name}, {"type", type}, {"protocol", protocol}}, reply,
            kExchangeLimit);
    }

    bool GetDeviceConfig(std::string& config, int flags) override {
        std::string reply;
        if (!Exchange({{"op", "getConfig"}, {"flags", flags}}, reply, kExchangeLimit)) {
            return false;
        }
        config = reply;
        return true;
    }

private:
    // Sends one request and waits for its reply; the service's answer, or its
    // reason for a refusal, goes to `reply`. A lost, silent or garbled
    // connection is closed: a late reply would otherwise answer the next request.
    bool Exchange(const json& request, std::string& reply, std::chrono::seconds limit) {
        const std::optional<std::string> frame = Encode(request);
        if (m_fd < 0 || !frame) {
            return false;
        }
        const Clock::time_point deadline = Clock::now() + limit;
        std::string body;
        if (Send(*frame, deadline) && Receive(body, deadline)) {
            if (const std::optional<bool> accepted = ParseReply(body, reply)) {
                return *accepted;
            }
        }
        Disconnect();
        return false;
    }

    bool Wait(short events, Clock::time_point deadline) const {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            return false;
        }
        pollfd entry{m_fd, events, 0};
        const int ready = poll(&entry, 1, static_cast<int>(left.count()));
        return ready > 0 || (ready < 0 && errno == EINTR);
    }

    bool Send(const std::string& data, Clock::time_point deadline) const {
        std::size_t sent = 0;
        while (sent < data.size()) {
            const ssize_t n = send(m_fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
            if (n > 0) {
                sent += static_cast<std::size_t>(n);
            } else if (n == 0 || (errno != EAGAIN && errno != EINTR) || !Wait(POLLOUT, deadline)) {
                return false;
            }
        }
        return true;
    }

    bool Receive(std::string& body, Clock::time_point deadline) {
        char chunk[4096];
        for (;;) {
            switch (TakeFrame(m_pending, body)) {
                case FrameStatus::Complete:
                    return true;
                case FrameStatus::TooLarge:
                    return false;
                case FrameStatus::Incomplete:
                    break;
            }
            const ssize_t n = recv(m_fd, chunk, sizeof chunk, 0);
            if (n > 0) {
                m_pending.append(chunk, static_cast<std::size_t>(n));
            } else if (n == 0 || (errno != EAGAIN && errno != EINTR) || !Wait(POLLIN, deadline)) {
                return false;
            }
        }
    }

    void Disconnect() {
        if (m_fd >= 0) {
            close(m_fd);
            m_fd = -1;
        }
    }

    int m_fd;
    std::string m_pending;
};

} // namespace

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    return CreateDeviceStackClient(ServiceSocketPath());
}

// `connection` is the service's socket path; an empty text means the same
// socket as the factory without arguments.
std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient(const std::string& connection) {
    if (connection.empty()) {
        return CreateDeviceStackClient();
    }
    const int fd = Connect(connection);
    if (fd < 0) {
        return nullptr;
    }
    return std::make_unique<SocketClient>(fd);
}

} // namespace Velbor
