// Captures what the add-on logs, through an appender on the root logger.
#ifndef TESTS_LOG_CAPTURE_H
#define TESTS_LOG_CAPTURE_H

#include <log4cplus/appender.h>
#include <log4cplus/loglevel.h>

#include <initializer_list>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

struct LogRecord {
    log4cplus::LogLevel level;
    std::string logger, message, file;
    int line;
    std::string function;
};

// Level and text only, for comparing whole sequences.
struct LogLine {
    log4cplus::LogLevel level;
    std::string message;
    bool operator==(const LogLine& o) const { return level == o.level && message == o.message; }
};
using Lines = std::vector<LogLine>;

inline void PrintTo(const LogLine& line, std::ostream* os) {
    *os << '{' << line.level << ", \"" << line.message << "\"}";
}

// Debug("text") and the like make one expected line.
struct LineAt {
    log4cplus::LogLevel level;
    LogLine operator()(std::string message) const { return {level, std::move(message)}; }
};
inline constexpr LineAt Trace{log4cplus::TRACE_LOG_LEVEL}, Debug{log4cplus::DEBUG_LOG_LEVEL},
    Info{log4cplus::INFO_LOG_LEVEL}, Error{log4cplus::ERROR_LOG_LEVEL};

inline Lines Join(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

// While alive, records every event of every logger at or above `level`.
class LogCapture {
public:
    explicit LogCapture(log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogRecord>& Records() const;
    std::vector<LogLine> Lines() const;
    void Clear();

private:
    log4cplus::SharedAppenderPtr m_appender;
    log4cplus::LogLevel m_previous;
};

#endif
