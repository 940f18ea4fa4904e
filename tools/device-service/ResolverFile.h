// The resolver file (resolv.conf) through which name look-ups on the device
// find its DNS servers.
#ifndef DEVICE_SERVICE_RESOLVER_FILE_H
#define DEVICE_SERVICE_RESOLVER_FILE_H

#include "Result.h"

#include <string>
#include <vector>

namespace DeviceService {

// A comment line that names the writer, then one "nameserver" line per server.
std::string ResolverText(const std::vector<std::string>& servers);

// Writes the servers to a new file in the directory of `path` and renames it
// over `path`, so that a look-up reads either the old or the new file. A link
// at `path` is replaced, not followed. On failure `path` is untouched.
Result<void> ReplaceResolverFile(const std::string& path, const std::vector<std::string>& servers);

} // namespace DeviceService

#endif
