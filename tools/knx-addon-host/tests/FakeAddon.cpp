// A stand-in add-on that registers no factories, built for the API version
// FAKE_ADDON_API_VERSION. The host must refuse one built for another version
// before starting it, so its start-up announces itself on standard error.
#include "KnxStackAddonInterface.h"

#include <cstdio>

#define FAKE_ADDON_EXPORT extern "C" __attribute__((visibility("default")))

FAKE_ADDON_EXPORT int getKnxStackApiVersion() {
    return FAKE_ADDON_API_VERSION;
}

FAKE_ADDON_EXPORT void addonStartup(KnxStack::IAddonManager&) {
    std::fprintf(stderr, "fake add-on %d started\n", FAKE_ADDON_API_VERSION);
}

FAKE_ADDON_EXPORT void addonShutdown(KnxStack::IAddonManager&) {
}
