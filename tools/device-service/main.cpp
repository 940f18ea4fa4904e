// velbor-device-service: plays the device's system service for the
// device-stack client library.
#include "Log.h"
#include "Service.h"

#include <getopt.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <iostream>

namespace {

const char* const kUsage =
    "usage: velbor-device-service [--socket PATH] [--socket-group GROUP] [--state FILE]\n"
    "                             [--apply-to IFACE [--resolv-conf PATH]]\n"
    "  --socket PATH        Unix domain socket to listen on, mode 0600\n"
    "                       (default /run/velbor-device-stack.sock)\n"
    "  --socket-group GROUP also let this group's members use the socket (mode 0660)\n"
    "  --state FILE         JSON file that keeps the device's settings\n"
    "                       (default /var/lib/velbor-device-service/state.json)\n"
    "  --apply-to IFACE     put the settings on this network interface: static ones\n"
    "                       directly, DHCP through dhcpcd\n"
    "  --resolv-conf PATH   with --apply-to: resolver file that gets the DNS servers\n"
    "                       (default /etc/resolv.conf)\n"
    "  --help               show this text\n";

struct CommandLine {
    DeviceService::Options options;
    bool help = false;
};

// Fails on an unknown option (getopt reports it) or a stray argument.
Result<CommandLine> ParseCommandLine(int argc, char** argv) {
    const option longOptions[] = {{"socket", required_argument, nullptr, 's'},
                                  {"socket-group", required_argument, nullptr, 'g'},
                                  {"state", required_argument, nullptr, 't'},
                                  {"apply-to", required_argument, nullptr, 'a'},
                                  {"resolv-conf", required_argument, nullptr, 'r'},
                                  {"help", no_argument, nullptr, 'h'},
                                  {nullptr, 0, nullptr, 0}};
    CommandLine line;
    int option;
    while ((option = getopt_long(argc, argv, "", longOptions, nullptr)) != -1) {
        switch (option) {
            case 's':
                line.options.socketPath = optarg;
                break;
            case 'g':
                line.options.socketGroup = optarg;
                break;
            case 't':
                line.options.statePath = optarg;
                break;
            case 'a':
                line.options.interfaceName = optarg;
                break;
            case 'r':
                line.options.resolverPath = optarg;
                break;
            case 'h':
                line.help = true;
                break;
            default:
                return Error{""};
        }
    }
    if (optind != argc) {
        return Error{std::string("unexpected argument ") + argv[optind]};
    }
    return line;
}

// SIGTERM and SIGINT arrive as a readable descriptor, so that the service
// loop ends between two messages and cleans up.
int StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

} // namespace

int main(int argc, char** argv) {
    const Result<CommandLine> line = ParseCommandLine(argc, argv);
    if (!line || line->help) {
        if (!line && !line.error().empty()) {
            DeviceService::Log(line.error());
        }
        (line ? std::cout : std::cerr) << kUsage;
        return line ? 0 : 2;
    }
    const int stopFd = StopSignals();
    if (stopFd < 0) {
        DeviceService::Log("cannot watch for stop signals");
        return 1;
    }
    Result<std::unique_ptr<DeviceService::Service>> service =
        DeviceService::Service::Create(line->options);
    if (!service) {
        DeviceService::Log(service.error());
        return 1;
    }
    (*service)->Run(stopFd);
    service->reset();
    close(stopFd);
    DeviceService::Log("stopped");
    return 0;
}
