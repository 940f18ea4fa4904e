#include "FloorValue.h"

#include <benchmark/benchmark.h>
#include <log4cplus/logger.h>

namespace {

class FloorValue : public LoggedValue {
public:
    unsigned long Get() override {
        benchmark::DoNotOptimize(m_logger.isEnabledFor(log4cplus::DEBUG_LOG_LEVEL));
        return m_value;
    }

private:
    log4cplus::Logger m_logger = log4cplus::Logger::getInstance("KnxStack.IpConfig");
    unsigned long m_value = 0;
};

} // namespace

std::unique_ptr<LoggedValue> MakeFloorValue() {
    return std::make_unique<FloorValue>();
}
