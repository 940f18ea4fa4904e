// The device service's log.
#ifndef DEVICE_SERVICE_LOG_H
#define DEVICE_SERVICE_LOG_H

#include <string>

namespace DeviceService {

// One line on stderr, prefixed with the program's name. Control characters
// and backslashes are written as \xNN, so that no text (clients' included)
// can end the line or fake another.
void Log(const std::string& line);

} // namespace DeviceService

#endif
