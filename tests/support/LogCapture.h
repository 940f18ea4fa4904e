// Captures what is logged, through an appender on the root logger, and makes
// the lines to compare it with: Logged::Debug("text") and the like.
#ifndef TESTS_LOG_CAPTURE_H
#define TESTS_LOG_CAPTURE_H

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <initializer_list>
#include <ostream>
#include <string>
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
    friend void PrintTo(const LogLine& l, std::ostream* os) {
        *os << '{' << l.level << ", \"" << l.message << "\"}";
    }
};
using Lines = std::vector<LogLine>;

// Logged::Debug("text") and the like make one expected line.
struct LineAt {
    log4cplus::LogLevel level;
    LogLine operator()(std::string message) const { return {level, std::move(message)}; }
};
namespace Logged {
inline constexpr LineAt Trace{log4cplus::TRACE_LOG_LEVEL}, Debug{log4cplus::DEBUG_LOG_LEVEL},
    Info{log4cplus::INFO_LOG_LEVEL}, Error{log4cplus::ERROR_LOG_LEVEL};
} // namespace Logged

inline Lines Join(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

// While alive, records every event of every logger at or above `level`.
class LogCapture {
public:
    explicit LogCapture(log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL)
        : m_recorder(new Recorder), m_appender(m_recorder), m_previous(Root().getLogLevel()) {
        Root().setLogLevel(level);
        Root().addAppender(m_appender);
    }
    ~LogCapture() {
        Root().removeAppender(m_appender);
        Root().setLogLevel(m_previous);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogRecord>& Records() const { return m_recorder->records; }
    std::vector<LogLine> Lines() const {
        std::vector<LogLine> lines;
        for (const LogRecord& r : Records()) lines.push_back({r.level, r.message});
        return lines;
    }
    void Clear() { m_recorder->records.clear(); }

private:
    struct Recorder : log4cplus::Appender {
        ~Recorder() override { destructorImpl(); }
        void close() override {}
        void append(const log4cplus::spi::InternalLoggingEvent& e) override {
            records.push_back({e.getLogLevel(), e.getLoggerName(), e.getMessage(), e.getFile(),
                               e.getLine(), e.getFunction()});
        }
        std::vector<LogRecord> records;
    };
    static log4cplus::Logger Root() { return log4cplus::Logger::getRoot(); }

    Recorder* m_recorder; // owned by m_appender
    log4cplus::SharedAppenderPtr m_appender;
    log4cplus::LogLevel m_previous;
};

#endif
