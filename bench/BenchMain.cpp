// Entry point of the benchmark programs: log4cplus stays initialised for the
// whole run, with DEBUG disabled.
#include "QuietLogging.h"

#include <benchmark/benchmark.h>
#include <log4cplus/initializer.h>

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
