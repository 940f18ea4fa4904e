// Link-time stand-ins of both platform libraries, the KNXnet/IP connection
// library and the device-stack client library, for the unit tests and the
// fuzz builds. Every call plays the script of ThePlatform(), takes the next
// call position and is traced at TRACE on the logger "Platform", so that a
// capture of the log shows the calls among the add-on's own messages.
#ifndef TESTS_PLATFORM_STAND_IN_H
#define TESTS_PLATFORM_STAND_IN_H

#include "VelborDeviceStackClient.h"

#include <array>
#include <cstddef>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

enum class Call { Create, RegisterApplication, GetDeviceConfig, RequestCommand, Select, Read };
enum class FaultKind { Fail, Throw };

// The only exception the stand-ins throw; tells the call it hit.
struct InjectedFault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Platform {
    // Script. A failing call makes no client, returns false, selects no
    // interface or reads zeros. The interface selected (NoInterface: none,
    // and every value then reads zero), its values and MAC:
    unsigned long interfaceId = 2;
    unsigned long address = 0xC0A8010AUL, netmask = 0xFFFFFF00UL, gateway = 0xC0A80101UL;
    std::array<unsigned char, 6> mac = {0x02, 0x4B, 0x4E, 0x58, 0x00, 0x01};
    std::string deviceConfig;
    std::set<Call> failing;             // every call of these kinds fails
    std::optional<std::size_t> faultAt; // the call at this position fails or throws
    FaultKind kind = FaultKind::Fail;

    // Record.
    std::size_t calls = 0;
    int clientsAlive = 0;
    std::vector<std::string> requests;

    // Traces `text` and takes the next call position; false when the call is to fail.
    bool Pass(Call call, const std::string& text);
};

// The platform the stand-ins play; assign Platform() to start afresh.
Platform& ThePlatform();

#endif
