// Whole reads and writes on a file descriptor, going on after interruptions
// and short transfers.
#ifndef DEVICE_SERVICE_FILE_IO_H
#define DEVICE_SERVICE_FILE_IO_H

#include <string>

namespace DeviceService {

// Appends everything up to the end of the file to `text`; false (errno set)
// on a read error.
bool ReadAll(int fd, std::string& text);

// False (errno set) when not all of `text` could be written.
bool WriteAll(int fd, const std::string& text);

} // namespace DeviceService

#endif
