// The device service: answers the device-stack clients on a Unix domain
// socket, keeps the device's settings in the state file and, when asked to,
// applies them to a network interface. One thread, poll-driven.
#ifndef DEVICE_SERVICE_SERVICE_H
#define DEVICE_SERVICE_SERVICE_H

#include "DeviceState.h"

#include <memory>
#include <string>
#include <vector>

namespace DeviceService {

struct Options {
    std::string socketPath = "/run/velbor-device-stack.sock";
    std::string statePath = "/var/lib/velbor-device-service/state.json";
    std::string interfaceName; // empty: no interface is configured
};

// One line on stderr, prefixed with the program's name.
void Log(const std::string& line);

class Service {
public:
    // Loads the state and starts listening; null (with `error` set) on failure.
    static std::unique_ptr<Service> Create(const Options& options, std::string& error);
    // Closes every connection and removes the socket file.
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Serves clients until `stopFd` becomes readable.
    void Run(int stopFd);

private:
    struct Client {
        int fd;
        std::string input;
        std::string output;
        std::string application; // empty until registered
        bool closing = false;    // close once `output` is sent
    };

    Service(const Options& options, DeviceState state, int listenFd);
    void AcceptClient();
    bool Receive(Client& client);
    bool Flush(Client& client);
    std::string Handle(Client& client, const std::string& body);
    std::string Change(const Client& client, DeviceState next, const std::string& what, bool apply);
    void ApplyToInterface();

    Options m_options;
    DeviceState m_state;
    int m_listenFd;
    std::vector<Client> m_clients;
};

} // namespace DeviceService

#endif
