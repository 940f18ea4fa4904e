// One cold start of the add-on in this fresh host process: dlopen, addonStartup,
// Create and Init (against the device service named by
// VELBOR_DEVICE_STACK_SOCKET). Prints the seconds it took and the process's
// resident memory in kB before and after: "<seconds> <before> <after>".
#include "Addon.h"
#include "QuietLogging.h"

#include <log4cplus/initializer.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

namespace {

long ResidentKilobytes() {
    std::ifstream status("/proc/self/status");
    std::string field;
    long kilobytes = -1;
    while (status >> field) {
        if (field == "VmRSS:") {
            status >> kilobytes;
            break;
        }
    }
    return kilobytes;
}

} // namespace

int main() {
    log4cplus::Initializer logging;
    UseQuietInfoLogging();
    const long before = ResidentKilobytes();
    const auto start = std::chrono::steady_clock::now();
    const Result<std::unique_ptr<AddonHost::Addon>> addon = AddonHost::Addon::Start(DSC_ADDON_PATH);
    if (!addon) {
        std::fprintf(stderr, "%s\n", addon.error().c_str());
        return 1;
    }
    const Result<std::unique_ptr<KnxStack::IIpConfigurationManager>> ipConfig =
        (*addon)->CreateIpConfig({});
    if (!ipConfig) {
        std::fprintf(stderr, "%s\n", ipConfig.error().c_str());
        return 1;
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    const long after = ResidentKilobytes();
    std::printf("%.9f %ld %ld\n", elapsed.count(), before, after);
    return 0;
}
