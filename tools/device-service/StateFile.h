// The device service's persisted state: one JSON document, replaced
// atomically on every change so that a crash leaves either the old or the new
// document, never a mixture.
#ifndef DEVICE_SERVICE_STATE_FILE_H
#define DEVICE_SERVICE_STATE_FILE_H

#include "DeviceState.h"

#include <optional>
#include <string>

namespace DeviceService {

// The state in `path`, the default state when the file does not exist, or
// nothing (with `error` set) when it cannot be read or is not a valid state.
std::optional<DeviceState> LoadState(const std::string& path, std::string& error);

// Writes a temporary file beside `path`, syncs it, renames it over `path` and
// syncs the directory. On failure `path` is untouched and `error` says why.
bool SaveState(const std::string& path, const DeviceState& state, std::string& error);

} // namespace DeviceService

#endif
