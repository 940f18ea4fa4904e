// The configured-value getters must not touch the heap while DEBUG is off: the
// host polls them often. Global operator new is replaced by a counting one.
#include "DscKnxIpConfig.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::size_t> g_allocations{0};
} // namespace

void* operator new(std::size_t size) {
    ++g_allocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

// Allocations made by one round of the four getters.
std::size_t AllocationsOfGetters() {
    DscKnxIpConfig config;
    KnxStack::IIpConfigurationManager& manager = config;
    const std::size_t before = g_allocations;
    volatile unsigned long sink = manager.GetConfiguredNetmask();
    sink = sink + manager.GetConfiguredIpAddress();
    sink = sink + manager.GetConfiguredGateway();
    sink = sink + static_cast<unsigned long>(manager.GetIpAssignmentMethods());
    return g_allocations - before;
}

TEST(GetterAllocation, NoneWithDebugOff) {
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    EXPECT_EQ(AllocationsOfGetters(), 0U);
    EXPECT_TRUE(log.Lines().empty());
}

TEST(GetterAllocation, EveryGetterLogsWithDebugOn) {
    const LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
    EXPECT_GT(AllocationsOfGetters(), 0U);
    EXPECT_EQ(log.Lines(), (Lines{Debug("GetConfiguredNetmask(): Value = 0"),
                                  Debug("GetConfiguredIpAddress(): Value = 0"),
                                  Debug("GetConfiguredGateway(): Value = 0"),
                                  Debug("GetIpAssignmentMethods(): Value = 15")}));
}

} // namespace
