#include "ServerMode.h"

#include "Server.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

Result<StopSignals> StopSignals::Block() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    if (sigprocmask(SIG_BLOCK, &signals, nullptr) != 0) {
        return Error{std::string("cannot block SIGTERM and SIGINT: ") + std::strerror(errno)};
    }
    const int fd = signalfd(-1, &signals, SFD_CLOEXEC);
    if (fd < 0) {
        return Error{std::string("cannot open a signalfd: ") + std::strerror(errno)};
    }
    return StopSignals(fd);
}

StopSignals::StopSignals(StopSignals&& other) noexcept : m_fd(other.m_fd) {
    other.m_fd = -1;
}

StopSignals::~StopSignals() {
    if (m_fd >= 0) {
        close(m_fd);
    }
}

Result<void> ServeKnxNetIp(KnxStack::IIpConfigurationManager& manager,
                           const KnxNetIp::DeviceIdentity& identity,
                           const KnxNetIp::Endpoint& endpoint, const StopSignals& stop,
                           std::ostream& out) {
    KnxNetIp::ServerOptions options;
    options.endpoint = endpoint;
    Result<std::unique_ptr<KnxNetIp::Server>> server =
        KnxNetIp::Server::Open(manager, identity, options);
    if (!server) {
        return Error{"knxnetip: " + server.error()};
    }
    if (!(out << "knxnetip: serving on " << KnxNetIp::ToString((*server)->LocalEndpoint())
              << std::endl)) {
        return Error{std::string("cannot write to standard output: ") + std::strerror(errno)};
    }
    Result<void> served = (*server)->Run(stop.fd());
    if (!served) {
        return Error{"knxnetip: " + served.error()};
    }
    return Ok{};
}
