// A stand-in add-on built for API version 19: the host must refuse it before
// starting it, so its start-up announces itself on standard error.
#include "KnxStackAddonInterface.h"

#include <cstdio>

#define FAKE_ADDON_EXPORT extern "C" __attribute__((visibility("default")))

FAKE_ADDON_EXPORT int getKnxStackApiVersion() {
    return 19;
}

FAKE_ADDON_EXPORT void addonStartup(KnxStack::IAddonManager&) {
    std::fputs("fake add-on started\n", stderr);
}

FAKE_ADDON_EXPORT void addonShutdown(KnxStack::IAddonManager&) {
}
