// The device service's persisted state: one JSON document, replaced
// atomically on every change so that a crash leaves either the old or the new
// document, never a mixture.
#ifndef DEVICE_SERVICE_STATE_FILE_H
#define DEVICE_SERVICE_STATE_FILE_H

#include "DeviceState.h"
#include "Result.h"

#include <string>

namespace DeviceService {

// The state in `path`, or the default state when the file does not exist;
// fails when it cannot be read or is not a valid state.
Result<DeviceState> LoadState(const std::string& path);

// Writes a temporary file beside `path`, syncs it, renames it over `path` and
// syncs the directory, creating missing directories (mode 0755). On failure
// `path` is untouched.
Result<void> SaveState(const std::string& path, const DeviceState& state);

} // namespace DeviceService

#endif
