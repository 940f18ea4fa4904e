// Heap allocations of the whole process, counted by a replaced global operator
// new; linked into the benchmarks and into the allocation tests.
#ifndef BENCH_ALLOCATION_COUNTER_H
#define BENCH_ALLOCATION_COUNTER_H

#include <cstddef>

namespace benchmark {
class State;
} // namespace benchmark

std::size_t AllocationCount();

// Reports the allocations made since `before` as the counter allocs_per_call;
// defined with the benchmarks' entry point.
void ReportAllocations(benchmark::State& state, std::size_t before);

#endif
