// The device service: answers the device-stack clients on a Unix domain
// socket, keeps the device's settings in the state file and, when asked to,
// applies them to a network interface. One thread, poll-driven.
#ifndef DEVICE_SERVICE_SERVICE_H
#define DEVICE_SERVICE_SERVICE_H

#include "DeviceState.h"
#include "ListeningSocket.h"
#include "Network.h"
#include "Result.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace DeviceService {

struct Options {
    std::string socketPath = "/run/velbor-device-stack.sock";
    std::string socketGroup; // empty: only root and the service's user
    std::string statePath = "/var/lib/velbor-device-service/state.json";
    std::string interfaceName;                     // empty: no interface is configured
    std::string resolverPath = "/etc/resolv.conf"; // written only with an interface
};

class Service {
public:
    // Loads the state and starts listening.
    static Result<std::unique_ptr<Service>> Create(const Options& options);
    // Closes every connection and removes the socket file.
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Serves clients until `stopFd` becomes readable.
    void Run(int stopFd);

private:
    using Clock = std::chrono::steady_clock;

    struct Client {
        int fd;
        Clock::time_point deadline; // for its next request to be complete
        std::string input;
        std::string output;
        std::string application; // empty until registered
        bool closing = false;    // close once `output` is sent
    };

    Service(const Options& options, DeviceState state, std::unique_ptr<ListeningSocket> socket,
            std::unique_ptr<Network> network);
    int PollTimeout(Clock::time_point now) const;
    bool Serve(Client& client, short events, Clock::time_point now);
    void AcceptClient();
    void MakeRoom();
    bool Receive(Client& client);
    bool Flush(Client& client);
    std::string Handle(Client& client, const std::string& body);
    std::string Change(const Client& client, DeviceState next, const std::string& what,
                       Network::Mode mode);

    Options m_options;
    DeviceState m_state;
    std::unique_ptr<ListeningSocket> m_socket;
    std::size_t m_capacity;
    Clock::time_point m_acceptResumes; // accepting pauses until then
    bool m_acceptFailing = false;
    std::vector<Client> m_clients;
    std::unique_ptr<Network> m_network; // null without an interface
};

} // namespace DeviceService

#endif
