#include "LogCapture.h"

#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

namespace {

class RecordingAppender : public log4cplus::Appender {
public:
    ~RecordingAppender() override { destructorImpl(); }
    void close() override {}
    std::vector<LogRecord> records;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        records.push_back({event.getLogLevel(), event.getLoggerName(), event.getMessage(),
                           event.getFile(), event.getLine(), event.getFunction()});
    }
};

RecordingAppender& Recorder(const log4cplus::SharedAppenderPtr& appender) {
    return static_cast<RecordingAppender&>(*appender);
}

} // namespace

void PrintTo(const LogLine& line, std::ostream* os) {
    *os << "{" << line.level << ", \"" << line.message << "\"}";
}

LogLine Debug(const std::string& message) {
    return {log4cplus::DEBUG_LOG_LEVEL, message};
}

LogLine Info(const std::string& message) {
    return {log4cplus::INFO_LOG_LEVEL, message};
}

LogLine Error(const std::string& message) {
    return {log4cplus::ERROR_LOG_LEVEL, message};
}

LogCapture::LogCapture(log4cplus::LogLevel level)
    : m_appender(new RecordingAppender),
      m_previousLevel(log4cplus::Logger::getRoot().getLogLevel()) {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.setLogLevel(level);
    root.addAppender(m_appender);
}

LogCapture::~LogCapture() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAppender(m_appender);
    root.setLogLevel(m_previousLevel);
}

const std::vector<LogRecord>& LogCapture::Records() const {
    return Recorder(m_appender).records;
}

std::vector<LogLine> LogCapture::Lines() const {
    std::vector<LogLine> lines;
    for (const LogRecord& record : Records()) {
        lines.push_back({record.level, record.message});
    }
    return lines;
}

void LogCapture::Clear() {
    Recorder(m_appender).records.clear();
}
