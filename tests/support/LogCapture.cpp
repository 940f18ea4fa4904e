#include "LogCapture.h"

#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

namespace {

struct Recorder : log4cplus::Appender {
    ~Recorder() override { destructorImpl(); }
    void close() override {}
    void append(const log4cplus::spi::InternalLoggingEvent& e) override {
        records.push_back({e.getLogLevel(), e.getLoggerName(), e.getMessage(), e.getFile(),
                           e.getLine(), e.getFunction()});
    }
    std::vector<LogRecord> records;
};

std::vector<LogRecord>& RecordsOf(const log4cplus::SharedAppenderPtr& appender) {
    return static_cast<Recorder&>(*appender).records;
}

} // namespace

LogCapture::LogCapture(log4cplus::LogLevel level)
    : m_appender(new Recorder), m_previous(log4cplus::Logger::getRoot().getLogLevel()) {
    log4cplus::Logger::getRoot().setLogLevel(level);
    log4cplus::Logger::getRoot().addAppender(m_appender);
}

LogCapture::~LogCapture() {
    log4cplus::Logger::getRoot().removeAppender(m_appender);
    log4cplus::Logger::getRoot().setLogLevel(m_previous);
}

const std::vector<LogRecord>& LogCapture::Records() const {
    return RecordsOf(m_appender);
}

std::vector<LogLine> LogCapture::Lines() const {
    std::vector<LogLine> lines;
    for (const LogRecord& r : Records()) lines.push_back({r.level, r.message});
    return lines;
}

void LogCapture::Clear() {
    RecordsOf(m_appender).clear();
}
