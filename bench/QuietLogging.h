// Logging as a host runs it in production: INFO and above enabled, DEBUG off.
// Messages go to an appender that drops them, so that the benchmarks time the
// add-on and not a log sink.
#ifndef BENCH_QUIET_LOGGING_H
#define BENCH_QUIET_LOGGING_H

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

inline void UseQuietInfoLogging() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    root.setLogLevel(log4cplus::INFO_LOG_LEVEL);
}

#endif
