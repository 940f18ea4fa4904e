// One logging helper for the whole add-on: tests the level first, so a message
// is only formatted when it will be written, and logs it with an explicit source
// location (file, line and the function's signature).
#ifndef DSC_KNX_IP_CONFIG_LOG_H
#define DSC_KNX_IP_CONFIG_LOG_H

#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

#include <sstream>

// Source file names the add-on's messages carry as their location.
namespace DscLogFile {
constexpr const char* IpConfig = "DeviceStackClient/DscKnxIpConfig/DscKnxIpConfig";
constexpr const char* FactoryReset = "DeviceStackClient/DscKnxIpConfig/FactoryResetManager";
} // namespace DscLogFile

#define DSC_LOG(logger, level, file, function, message)                                           \
    do {                                                                                          \
        if ((logger).isEnabledFor(log4cplus::level##_LOG_LEVEL)) {                                \
            std::ostringstream dscLogStream_;                                                     \
            dscLogStream_ << message;                                                             \
            (logger).forcedLog(log4cplus::level##_LOG_LEVEL, dscLogStream_.str(), file, __LINE__, \
                               function);                                                         \
        }                                                                                         \
    } while (false)

#endif
