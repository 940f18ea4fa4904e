// Shared pieces of the fuzz targets: a check that stops the run on a broken
// property. FuzzSupport.cpp also starts every target with logging off, and the
// targets link the platform stand-in (PlatformStandIn.h) to script clients.
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

// Stops the run with a crash, so that libFuzzer keeps the input.
#define FUZZ_CHECK(condition) \
    do {                      \
        if (!(condition)) {   \
            __builtin_trap(); \
        }                     \
    } while (false)

#endif
