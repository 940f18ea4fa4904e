// Heap allocations of the whole process, counted by a replaced global operator new.
#ifndef BENCH_ALLOCATION_COUNTER_H
#define BENCH_ALLOCATION_COUNTER_H

#include <benchmark/benchmark.h>

#include <cstddef>

std::size_t AllocationCount();

// Reports the allocations made since `before` as the counter allocs_per_call.
inline void ReportAllocations(benchmark::State& state, std::size_t before) {
    state.counters["allocs_per_call"] = benchmark::Counter(
        static_cast<double>(AllocationCount() - before), benchmark::Counter::kAvgIterations);
}

#endif
