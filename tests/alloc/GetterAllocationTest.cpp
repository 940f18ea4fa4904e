// The configured-value getters must not touch the heap while DEBUG is off: the
// host polls them often. The allocation counter replaces global operator new.
#include "AllocationCounter.h"
#include "DscKnxIpConfig.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

namespace {

// Allocations made by one round of the four getters.
std::size_t AllocationsOfGetters() {
    DscKnxIpConfig config;
    KnxStack::IIpConfigurationManager& manager = config;
    const std::size_t before = AllocationCount();
    volatile unsigned long sink = manager.GetConfiguredNetmask();
    sink = sink + manager.GetConfiguredIpAddress();
    sink = sink + manager.GetConfiguredGateway();
    sink = sink + static_cast<unsigned long>(manager.GetIpAssignmentMethods());
    return AllocationCount() - before;
}

TEST(GetterAllocation, NoneWhileDebugIsOff) {
    const LogCapture quiet(log4cplus::INFO_LOG_LEVEL);
    EXPECT_EQ(AllocationsOfGetters(), 0U);
    // With DEBUG on, the getters format their messages and the counter sees it.
    const LogCapture verbose(log4cplus::DEBUG_LOG_LEVEL);
    EXPECT_GT(AllocationsOfGetters(), 0U);
}

} // namespace
