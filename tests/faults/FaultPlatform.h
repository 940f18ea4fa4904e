// Scriptable stand-ins for both platform libraries. Every call into the
// device-stack client library (factory, RegisterApplication, GetDeviceConfig,
// RequestCommand) and into the connection library (interface selection, a
// current value, the MAC) takes the next call position; the call at the armed
// position fails (a null client, false, NoInterface, zero values) or throws
// InjectedFault. Clients are counted as they are made and destroyed. Without a
// fault the connection library finds an interface, or, with `noInterface`,
// reports NoInterface and zero values.
#ifndef TESTS_FAULT_PLATFORM_H
#define TESTS_FAULT_PLATFORM_H

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

enum class Operation {
    Create,
    RegisterApplication,
    GetDeviceConfig,
    RequestCommand,
    SelectInterface,
    CurrentValue,
    MacAddress,
};
enum class FaultKind { Fail, Throw };

const char* Name(Operation operation);

// The only exception the stand-ins throw.
struct InjectedFault : std::runtime_error {
    explicit InjectedFault(Operation operation)
        : std::runtime_error(std::string("injected fault in ") + Name(operation)) {}
};

struct Boundary {
    // Script.
    std::optional<std::size_t> faultAt;
    FaultKind kind = FaultKind::Fail;
    bool noInterface = false;
    std::string deviceConfig;

    // Record.
    std::size_t calls = 0;
    std::optional<Operation> faulted;
    int clientsMade = 0;
    int clientsDestroyed = 0;
    std::vector<std::string> requests;

    // Takes the next call position; false when the call is to fail.
    bool Pass(Operation operation);
};

// The one boundary the stand-ins use; reset it before each session.
Boundary& TheBoundary();

#endif
