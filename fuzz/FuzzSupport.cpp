// Set-up of every fuzz target: log4cplus initialised with the root logger at
// OFF, so that no message is formatted.
#include "FuzzSupport.h"

#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static log4cplus::Initializer initializer;
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    return 0;
}
