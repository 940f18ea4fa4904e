#include "Service.h"

#include "Framing.h"
#include "InterfaceConfig.h"
#include "Request.h"
#include "StateFile.h"

#include <nlohmann/json.hpp>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>

namespace DeviceService {

namespace {

using nlohmann::json;

constexpr std::size_t kMaxClients = 32;
constexpr std::size_t kMaxReasonLength = 512;

std::string Accepted(const std::string& reply) {
    return json{{"ok", true}, {"reply", reply}}.dump();
}

// Reasons may quote the offending input: cut to size, with any broken UTF-8
// replaced.
std::string Refused(const std::string& reason) {
    return json{{"ok", false}, {"error", reason.substr(0, kMaxReasonLength)}}.dump(
        -1, ' ', false, json::error_handler_t::replace);
}

std::string Frame(const std::string& body) {
    return Velbor::EncodeFrame(body).value(); // replies are far below the frame limit
}

bool ToAddress(const std::string& path, sockaddr_un& address) {
    address = sockaddr_un{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

// A socket file nobody listens on is left over from an earlier run.
bool IsStale(const sockaddr_un& address) {
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool live = probe >= 0 && connect(probe, reinterpret_cast<const sockaddr*>(&address),
                                            sizeof address) == 0;
    if (probe >= 0) {
        close(probe);
    }
    return !live;
}

int Listen(const std::string& path, std::string& error) {
    sockaddr_un address{};
    if (!ToAddress(path, address)) {
        error = "socket path too long or empty: " + path;
        return -1;
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const auto* raw = reinterpret_cast<const sockaddr*>(&address);
    bool bound = fd >= 0 && bind(fd, raw, sizeof address) == 0;
    if (fd >= 0 && !bound && errno == EADDRINUSE && IsStale(address)) {
        unlink(path.c_str());
        bound = bind(fd, raw, sizeof address) == 0;
    }
    if (!bound || listen(fd, 16) != 0) {
        error = "cannot listen on " + path + ": " + std::strerror(errno);
        if (fd >= 0) {
            close(fd);
        }
        return -1;
    }
    return fd;
}

std::string Describe(const Settings& settings) {
    std::string text;
    for (const auto& [key, value] : settings) {
        text.append(text.empty() ? "" : ", ").append(key).append("=").append(value);
    }
    return text;
}

} // namespace

void Log(const std::string& line) {
    std::cerr << "velbor-device-service: " << line << std::endl;
}

// Applies a static configuration to the named interface, when one is named.
static void ApplySettings(const std::string& interfaceName, const Settings& settings) {
    if (interfaceName.empty()) {
        return;
    }
    const ApplyResult result = ApplyToInterface(interfaceName, settings);
    Log((result.ok ? "applied " : "could not apply the settings to ") + result.message);
}

std::unique_ptr<Service> Service::Create(const Options& options, std::string& error) {
    std::optional<DeviceState> state = LoadState(options.statePath, error);
    if (!state) {
        return nullptr;
    }
    // The interface is configured before the socket accepts anyone, so a client
    // that reaches the service already finds the settings applied.
    ApplySettings(options.interfaceName, state->settings);
    const int listenFd = Listen(options.socketPath, error);
    if (listenFd < 0) {
        return nullptr;
    }
    return std::unique_ptr<Service>(new Service(options, *state, listenFd));
}

Service::Service(const Options& options, DeviceState state, int listenFd)
    : m_options(options), m_state(std::move(state)), m_listenFd(listenFd) {
}

Service::~Service() {
    for (const Client& client : m_clients) {
        close(client.fd);
    }
    close(m_listenFd);
    unlink(m_options.socketPath.c_str());
}

void Service::Run(int stopFd) {
    Log("listening on " + m_options.socketPath);
    for (;;) {
        std::vector<pollfd> polled{{stopFd, POLLIN, 0}, {m_listenFd, POLLIN, 0}};
        for (const Client& client : m_clients) {
            // A client with replies pending is not read until it takes them.
            const short events = client.output.empty() ? POLLIN : POLLOUT;
            polled.push_back({client.fd, events, 0});
        }
        if (poll(polled.data(), polled.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            Log(std::string("poll failed: ") + std::strerror(errno));
            return;
        }
        if (polled[0].revents != 0) {
            return;
        }
        std::vector<Client> kept;
        for (std::size_t i = 0; i < m_clients.size(); ++i) {
            const short events = polled[i + 2].revents;
            Client& client = m_clients[i];
            const bool keep =
                events == 0 || ((events & POLLOUT) != 0 ? Flush(client) : Receive(client));
            if (keep) {
                kept.push_back(std::move(client));
            } else {
                close(client.fd);
            }
        }
        m_clients = std::move(kept);
        if ((polled[1].revents & POLLIN) != 0) {
            AcceptClient();
        }
    }
}

void Service::AcceptClient() {
    const int fd = accept4(m_listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
        return;
    }
    if (m_clients.size() >= kMaxClients) {
        Log("too many clients, connection refused");
        close(fd);
        return;
    }
    m_clients.push_back(Client{fd, {}, {}, {}, false});
}

// Reads what the client sent and answers every whole message in it; false
// when the connection is to be closed.
bool Service::Receive(Client& client) {
    char chunk[16 * 1024];
    const ssize_t n = recv(client.fd, chunk, sizeof chunk, 0);
    if (n < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    if (n == 0) {
        if (!client.input.empty()) {
            Log("client disconnected in the middle of a message; message dropped");
        }
        return false;
    }
    client.input.append(chunk, static_cast<std::size_t>(n));
    std::string body;
    Velbor::FrameStatus status;
    while ((status = Velbor::TakeFrame(client.input, body)) == Velbor::FrameStatus::Complete) {
        client.output += Frame(Handle(client, body));
    }
    if (status == Velbor::FrameStatus::TooLarge) {
        Log("message over " + std::to_string(Velbor::kMaxFrameBody) + " bytes; closing connection");
        client.output += Frame(
            Refused("message larger than " + std::to_string(Velbor::kMaxFrameBody) + " bytes"));
        client.input.clear();
        client.closing = true;
    }
    return Flush(client);
}

bool Service::Flush(Client& client) {
    const ssize_t n = send(client.fd, client.output.data(), client.output.size(), MSG_NOSIGNAL);
    if (n < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    client.output.erase(0, static_cast<std::size_t>(n));
    return !(client.closing && client.output.empty());
}

std::string Service::Handle(Client& client, const std::string& body) {
    const Request request = ParseRequest(body);
    if (const auto* bad = std::get_if<BadRequest>(&request)) {
        Log("refused a request: " + bad->reason.substr(0, kMaxReasonLength));
        return Refused(bad->reason);
    }
    if (const auto* registration = std::get_if<RegisterRequest>(&request)) {
        client.application = registration->name;
        Log("registered " + registration->name + " (" + registration->type + ", " +
            registration->protocol + ")");
        return Accepted("");
    }
    if (client.application.empty()) {
        return Refused("not registered: register the application first");
    }
    if (std::holds_alternative<ConfigRequest>(request)) {
        return Accepted(ConfigText(m_state));
    }
    DeviceState next = m_state;
    if (const auto* change = std::get_if<SetConfigRequest>(&request)) {
        for (const auto& [key, value] : change->settings) {
            next.settings[key] = value;
        }
        return Change(client, next, "SetDeviceConfig " + Describe(change->settings), true);
    }
    ++next.restartCount;
    return Change(client, next,
                  "Restart (type \"" + std::get<RestartRequest>(request).type +
                      "\", restart count " + std::to_string(next.restartCount) + ")",
                  false);
}

// Saves `next` and makes it the device's state, then applies the settings to
// the interface when `apply` is set; nothing changes when it cannot be saved.
std::string Service::Change(const Client& client, DeviceState next, const std::string& what,
                            bool apply) {
    std::string error;
    if (!SaveState(m_options.statePath, next, error)) {
        Log(what + " from " + client.application + " not saved: " + error);
        return Refused("state not saved: " + error);
    }
    m_state = std::move(next);
    Log(what + " from " + client.application);
    if (apply) {
        ApplyToInterface();
    }
    return Accepted(R"({"result":"ok"})");
}

void Service::ApplyToInterface() {
    ApplySettings(m_options.interfaceName, m_state.settings);
}

} // namespace DeviceService
