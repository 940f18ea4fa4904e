// Captures what the add-on logs through a log4cplus appender on the root logger.
#ifndef TESTS_LOG_CAPTURE_H
#define TESTS_LOG_CAPTURE_H

#include <log4cplus/appender.h>
#include <log4cplus/loglevel.h>

#include <ostream>
#include <string>
#include <vector>

struct LogRecord {
    log4cplus::LogLevel level;
    std::string logger;
    std::string message;
    std::string file;
    int line;
    std::string function;
};

// Level and text only, for comparing whole sequences.
struct LogLine {
    log4cplus::LogLevel level;
    std::string message;
    bool operator==(const LogLine& other) const {
        return level == other.level && message == other.message;
    }
};
void PrintTo(const LogLine& line, std::ostream* os);

LogLine Debug(const std::string& message);
LogLine Info(const std::string& message);
LogLine Error(const std::string& message);

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
    log4cplus::LogLevel m_previousLevel;
};

#endif
