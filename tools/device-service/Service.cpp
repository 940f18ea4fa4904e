#include "Service.h"

#include "Framing.h"
#include "Log.h"
#include "NetworkSettings.h"
#include "Request.h"
#include "StateFile.h"
#include "SystemError.h"

#include <nlohmann/json.hpp>

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace DeviceService {

namespace {

using nlohmann::json;

// At most this many connections are served at once (fewer when the
// descriptor limit is low); a new one takes the place of the one idle longest.
constexpr std::size_t kMaxClients = 32;
// Descriptors left to the service itself beside its clients: the state
// directory and temporary file, the netlink socket, the resolver file and its
// directory, the DHCP client's process and file watch, one more.
constexpr rlim_t kSpareDescriptors = 8;
// A connection must complete each request within this time of connecting or
// of its previous request; one that does not is closed.
constexpr std::chrono::seconds kRequestTimeout(5);
// When there is no descriptor (or memory) for a new connection, it stays
// queued and accepting pauses this long instead of retrying at once.
constexpr std::chrono::milliseconds kAcceptPause(250);
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

std::string Describe(const Settings& settings) {
    std::string text;
    for (const auto& [key, value] : settings) {
        text.append(text.empty() ? "" : ", ").append(key).append("=").append(value);
    }
    return text;
}

// As many clients as the descriptor limit leaves room for beside the
// descriptors up to `highestFd` and the spare ones.
std::size_t ClientCapacity(int highestFd) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) {
        return kMaxClients;
    }
    const rlim_t used = static_cast<rlim_t>(highestFd) + 1 + kSpareDescriptors;
    return limit.rlim_cur > used ? std::min<rlim_t>(limit.rlim_cur - used, kMaxClients) : 0;
}

// The device's network on the named interface, configured as on a boot;
// null when no interface is named. A failure is logged: the service still
// answers, so that the settings can be corrected.
std::unique_ptr<Network> StartNetwork(const Options& options, const Settings& settings) {
    if (options.interfaceName.empty()) {
        return nullptr;
    }
    const std::filesystem::path state(options.statePath);
    auto network = std::make_unique<Network>(NetworkOptions{
        options.interfaceName, options.resolverPath,
        (state.has_parent_path() ? state.parent_path() : ".") / ("dhcp-" + options.interfaceName)});
    const Result<void> checked = CheckNetworkSettings(settings);
    const Result<std::string> applied =
        checked ? network->Apply(settings, Network::Mode::Reboot) : Error{checked.error()};
    Log(applied ? "applied " + *applied : "could not apply the settings: " + applied.error());
    return network;
}

} // namespace

Result<std::unique_ptr<Service>> Service::Create(const Options& options) {
    Result<DeviceState> state = LoadState(options.statePath);
    if (!state) {
        return Error{state.error()};
    }
    // The interface is configured before the socket accepts anyone, so a client
    // that reaches the service already finds the settings applied.
    std::unique_ptr<Network> network = StartNetwork(options, state->settings);
    Result<std::unique_ptr<ListeningSocket>> socket =
        ListeningSocket::Open(options.socketPath, options.socketGroup);
    if (!socket) {
        return Error{socket.error()};
    }
    std::unique_ptr<Service> service(
        new Service(options, std::move(*state), std::move(*socket), std::move(network)));
    if (service->m_capacity == 0) {
        return Error{"the descriptor limit leaves no room for clients"};
    }
    return {std::move(service)};
}

Service::Service(const Options& options, DeviceState state, std::unique_ptr<ListeningSocket> socket,
                 std::unique_ptr<Network> network)
    : m_options(options),
      m_state(std::move(state)),
      m_socket(std::move(socket)),
      m_capacity(ClientCapacity(m_socket->Descriptor())),
      m_network(std::move(network)) {
}

Service::~Service() {
    for (const Client& client : m_clients) {
        close(client.fd);
    }
}

void Service::Run(int stopFd) {
    Log("listening on " + m_options.socketPath);
    for (;;) {
        const bool accepting = Clock::now() >= m_acceptResumes;
        std::vector<pollfd> polled{{stopFd, POLLIN, 0},
                                   {accepting ? m_socket->Descriptor() : -1, POLLIN, 0}};
        for (const Client& client : m_clients) {
            // A client with replies pending is not read until it takes them.
            const short events = client.output.empty() ? POLLIN : POLLOUT;
            polled.push_back({client.fd, events, 0});
        }
        if (m_network) {
            m_network->AddPollFds(polled); // after the clients, whose places are counted
        }
        if (poll(polled.data(), polled.size(), PollTimeout(Clock::now())) < 0) {
            if (errno == EINTR) {
                continue;
            }
            Log(SystemError("poll failed").message);
            return;
        }
        if (polled[0].revents != 0) {
            return;
        }
        if (m_network) {
            m_network->Update();
        }
        const Clock::time_point now = Clock::now();
        std::vector<Client> kept;
        for (std::size_t i = 0; i < m_clients.size(); ++i) {
            Client& client = m_clients[i];
            if (Serve(client, polled[i + 2].revents, now)) {
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

// Until the earliest client deadline, the end of a pause in accepting or
// what the network waits for; -1 (no limit) when there is none of them.
int Service::PollTimeout(Clock::time_point now) const {
    Clock::time_point wake = now < m_acceptResumes ? m_acceptResumes : Clock::time_point::max();
    for (const Client& client : m_clients) {
        wake = std::min(wake, client.deadline);
    }
    const int network = m_network ? m_network->Timeout() : -1;
    if (wake == Clock::time_point::max()) {
        return network;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(wake - now).count();
    const int timeout = static_cast<int>(std::max<decltype(left)>(left, 0));
    return network < 0 ? timeout : std::min(timeout, network);
}

// Reads or writes what the client is ready for; false when the connection is
// to be closed, also when its time for a request is up.
bool Service::Serve(Client& client, short events, Clock::time_point now) {
    if (events != 0 && !((events & POLLOUT) != 0 ? Flush(client) : Receive(client))) {
        return false;
    }
    if (now < client.deadline) {
        return true;
    }
    Log("closed a connection that completed no request within " +
        std::to_string(kRequestTimeout.count()) + " s");
    return false;
}

void Service::AcceptClient() {
    const int fd = accept4(m_socket->Descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
            if (!m_acceptFailing) {
                Log(SystemError("cannot accept connections").message + "; trying again every " +
                    std::to_string(kAcceptPause.count()) + " ms");
            }
            m_acceptFailing = true;
            m_acceptResumes = Clock::now() + kAcceptPause;
        }
        return;
    }
    m_acceptFailing = false;
    if (Result<void> allowed = m_socket->CheckPeer(fd); !allowed) {
        Log("refused a connection: " + allowed.error());
        close(fd);
        return;
    }
    MakeRoom();
    m_clients.push_back(Client{fd, Clock::now() + kRequestTimeout, {}, {}, {}, false});
}

// With every place taken, closes the connection idle longest.
void Service::MakeRoom() {
    if (m_clients.size() < m_capacity) {
        return;
    }
    const auto oldest =
        std::min_element(m_clients.begin(), m_clients.end(),
                         [](const Client& a, const Client& b) { return a.deadline < b.deadline; });
    Log("too many clients; closed the connection idle longest");
    close(oldest->fd);
    m_clients.erase(oldest);
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
        client.deadline = Clock::now() + kRequestTimeout;
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
    const Result<Request> request = ParseRequest(body);
    if (!request) {
        Log("refused a request: " + request.error().substr(0, kMaxReasonLength));
        return Refused(request.error());
    }
    if (const auto* registration = std::get_if<RegisterRequest>(&*request)) {
        client.application = registration->name;
        Log("registered " + registration->name + " (" + registration->type + ", " +
            registration->protocol + ")");
        return Accepted("");
    }
    if (client.application.empty()) {
        return Refused("not registered: register the application first");
    }
    if (std::holds_alternative<ConfigRequest>(*request)) {
        // Without an interface there is no lease: the settings are reported as kept.
        return Accepted(ConfigText(
            m_network ? DeviceState{m_network->Reported(m_state.settings), m_state.restartCount}
                      : m_state));
    }
    DeviceState next = m_state;
    if (const auto* change = std::get_if<SetConfigRequest>(&*request)) {
        for (const auto& [key, value] : change->settings) {
            next.settings[key] = value;
        }
        const std::string what = "SetDeviceConfig " + Describe(change->settings);
        if (Result<void> checked = CheckNetworkSettings(next.settings); !checked) {
            Log(what + " from " + client.application + " refused: " + checked.error());
            return Refused(checked.error());
        }
        return Change(client, next, what, Network::Mode::Change);
    }
    const std::string& type = std::get<RestartRequest>(*request).type;
    CountRestart(next);
    if (type == "FactoryReset") {
        next.settings = FactoryNetworkSettings();
    }
    return Change(
        client, next,
        "Restart (type \"" + type + "\", restart count " + std::to_string(next.restartCount) + ")",
        type == "FactoryReset" ? Network::Mode::FactoryReset : Network::Mode::Reboot);
}

// Applies `next` to the interface, if any, and saves it as the device's
// state; when either fails the device keeps its previous state.
std::string Service::Change(const Client& client, DeviceState next, const std::string& what,
                            Network::Mode mode) {
    if (m_network) {
        const Result<std::string> applied = m_network->Apply(next.settings, mode);
        if (!applied) {
            Log(what + " from " + client.application + " not applied: " + applied.error());
            return Refused("settings not applied: " + applied.error());
        }
        Log("applied " + *applied);
    }
    if (Result<void> saved = SaveState(m_options.statePath, next); !saved) {
        Log(what + " from " + client.application + " not saved: " + saved.error());
        if (m_network) {
            const Result<std::string> restored =
                m_network->Apply(m_state.settings, Network::Mode::Change);
            Log(restored ? "restored " + *restored
                         : "could not restore the settings: " + restored.error());
        }
        return Refused("state not saved: " + saved.error());
    }
    m_state = std::move(next);
    Log(what + " from " + client.application);
    return Accepted(R"({"result":"ok"})");
}

} // namespace DeviceService
