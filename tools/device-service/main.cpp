// velbor-device-service: plays the device's system service for the
// device-stack client library.
#include "Service.h"

#include <getopt.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <iostream>

namespace {

const char* const kUsage =
    "usage: velbor-device-service [--socket PATH] [--state FILE] [--apply-to IFACE]\n"
    "  --socket PATH     Unix domain socket to listen on (default /run/velbor-device-stack.sock)\n"
    "  --state FILE      JSON file that keeps the device's settings\n"
    "                    (default /var/lib/velbor-device-service/state.json)\n"
    "  --apply-to IFACE  apply static settings to this network interface\n";

bool ParseOptions(int argc, char** argv, DeviceService::Options& options) {
    const option longOptions[] = {{"socket", required_argument, nullptr, 's'},
                                  {"state", required_argument, nullptr, 't'},
                                  {"apply-to", required_argument, nullptr, 'a'},
                                  {"help", no_argument, nullptr, 'h'},
                                  {nullptr, 0, nullptr, 0}};
    int option;
    while ((option = getopt_long(argc, argv, "", longOptions, nullptr)) != -1) {
        switch (option) {
            case 's':
                options.socketPath = optarg;
                break;
            case 't':
                options.statePath = optarg;
                break;
            case 'a':
                options.interfaceName = optarg;
                break;
            default:
                return false;
        }
    }
    return optind == argc;
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
    DeviceService::Options options;
    if (!ParseOptions(argc, argv, options)) {
        std::cerr << kUsage;
        return 2;
    }
    const int stopFd = StopSignals();
    std::string error;
    std::unique_ptr<DeviceService::Service> service =
        stopFd >= 0 ? DeviceService::Service::Create(options, error) : nullptr;
    if (!service) {
        DeviceService::Log(stopFd >= 0 ? error : "cannot watch for stop signals");
        return 1;
    }
    service->Run(stopFd);
    service.reset();
    close(stopFd);
    DeviceService::Log("stopped");
    return 0;
}
