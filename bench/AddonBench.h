// The built add-on, loaded and started once for the whole benchmark run.
#ifndef BENCH_ADDON_BENCH_H
#define BENCH_ADDON_BENCH_H

#include "Addon.h"

#include <benchmark/benchmark.h>

#include <memory>

// A new initialised "DscKnxIpConfig" object of the loaded add-on; null, with
// the benchmark marked as failed, when there is none.
std::unique_ptr<KnxStack::IIpConfigurationManager> NewIpConfig(benchmark::State& state);

#endif
