// Entry point of the benchmark programs: log4cplus stays initialised for the
// whole run, with DEBUG disabled. Also the report of allocation counts.
#include "AllocationCounter.h"
#include "QuietLogging.h"

#include <benchmark/benchmark.h>
#include <log4cplus/initializer.h>

void ReportAllocations(benchmark::State& state, std::size_t before) {
    state.counters["allocs_per_call"] = benchmark::Counter(
        static_cast<double>(AllocationCount() - before), benchmark::Counter::kAvgIterations);
}

int main(int argc, char** argv) {
    log4cplus::Initializer logging;
    UseQuietInfoLogging();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
