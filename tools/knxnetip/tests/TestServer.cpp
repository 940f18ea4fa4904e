// knxnetip-test-server: the KNXnet/IP server over an IP configuration manager
// in memory, for trying clients against it. Serves until SIGTERM or SIGINT,
// then lists the calls that changed the manager.
// usage: knxnetip-test-server [--connection-timeout MS] [KEY=VALUE...] ADDRESS[:PORT]
#include "FakeIpConfig.h"
#include "Server.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <iostream>

int main(int argc, char** argv) {
    std::map<std::string, std::string> properties;
    KnxNetIp::ServerOptions options;
    std::optional<KnxNetIp::Endpoint> endpoint =
        argc > 1 ? KnxNetIp::ParseEndpoint(argv[argc - 1]) : std::nullopt;
    for (int i = 1; i + 1 < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--connection-timeout" && i + 2 < argc) {
            options.limits.connectionTimeout = std::chrono::milliseconds(std::stoul(argv[++i]));
        } else if (word.find('=') != std::string::npos) {
            properties[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
        } else {
            endpoint.reset();
        }
    }
    const Result<KnxNetIp::DeviceIdentity> identity = KnxNetIp::ParseDeviceIdentity(properties);
    if (!endpoint || !identity) {
        std::cerr << (identity
                          ? "usage: knxnetip-test-server [--connection-timeout MS] [KEY=VALUE...] "
                            "ADDRESS[:PORT]"
                          : identity.error())
                  << "\n";
        return 2;
    }
    options.endpoint = *endpoint;

    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const int stopFd = signalfd(-1, &signals, SFD_CLOEXEC);

    KnxNetIp::FakeIpConfig manager;
    Result<std::unique_ptr<KnxNetIp::Server>> server =
        KnxNetIp::Server::Open(manager, *identity, options);
    if (!server) {
        std::cerr << "knxnetip: " << server.error() << "\n";
        return 1;
    }
    std::cout << "knxnetip: serving on " << KnxNetIp::ToString((*server)->LocalEndpoint())
              << std::endl;
    const Result<void> served = (*server)->Run(stopFd);
    for (const std::string& call : manager.calls()) {
        std::cout << "call: " << call << "\n";
    }
    close(stopFd);
    if (!served) {
        std::cerr << "knxnetip: " << served.error() << "\n";
        return 1;
    }
    return 0;
}
