// The add-on loaded as a host loads it: a configured-value getter against one
// virtual call plus one log level test, and the cold start in a fresh host.
#include "AddonBench.h"

#include "AllocationCounter.h"
#include "FloorValue.h"
#include "Spawn.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace {

Result<AddonHost::Addon*> StartAddon() {
    Result<std::unique_ptr<AddonHost::Addon>> addon = AddonHost::Addon::Start(DSC_ADDON_PATH);
    if (!addon) {
        return Error{addon.error()};
    }
    return addon->release();
}

} // namespace

std::unique_ptr<KnxStack::IIpConfigurationManager> NewIpConfig(benchmark::State& state) {
    // Loaded once and never unloaded: the add-on supports one start-up per load.
    static const Result<AddonHost::Addon*> addon = StartAddon();
    if (!addon) {
        state.SkipWithError(addon.error().c_str());
        return nullptr;
    }
    Result<std::unique_ptr<KnxStack::IIpConfigurationManager>> object =
        (*addon)->CreateIpConfig({});
    if (!object) {
        state.SkipWithError(object.error().c_str());
        return nullptr;
    }
    return std::move(*object);
}

namespace {

void GetterAddon(benchmark::State& state) {
    const std::unique_ptr<KnxStack::IIpConfigurationManager> object = NewIpConfig(state);
    if (!object) {
        return;
    }
    KnxStack::IIpConfigurationManager* manager = object.get();
    benchmark::DoNotOptimize(manager);
    const std::size_t before = AllocationCount();
    for (auto _ : state) {
        benchmark::DoNotOptimize(manager->GetConfiguredNetmask());
    }
    ReportAllocations(state, before);
}
BENCHMARK(GetterAddon);

void GetterFloor(benchmark::State& state) {
    const std::unique_ptr<LoggedValue> value = MakeFloorValue();
    const std::size_t before = AllocationCount();
    for (auto _ : state) {
        benchmark::DoNotOptimize(value->Get());
    }
    ReportAllocations(state, before);
}
BENCHMARK(GetterFloor);

struct ColdStartSample {
    double seconds = 0;
    long residentBefore = 0;
    long residentAfter = 0;
};

// Runs the cold start helper in a new process and reads what it measured.
bool RunColdStart(ColdStartSample& sample) {
    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0) {
        return false;
    }
    const char* const argv[] = {DSC_COLDSTART_PATH, nullptr};
    const int status = RunToExit(argv, output[1]);
    close(output[1]);
    char text[128] = {};
    const ssize_t length = read(output[0], text, sizeof text - 1);
    close(output[0]);
    return status == 0 && length > 0 &&
           std::sscanf(text, "%lf %ld %ld", &sample.seconds, &sample.residentBefore,
                       &sample.residentAfter) == 3;
}

// Time of dlopen + addonStartup + Create + Init in a fresh host process, and
// the resident memory that they add to it.
void ColdStart(benchmark::State& state) {
    double addedKilobytes = 0;
    for (auto _ : state) {
        ColdStartSample sample;
        if (!RunColdStart(sample)) {
            state.SkipWithError("the cold start helper failed");
            break;
        }
        state.SetIterationTime(sample.seconds);
        addedKilobytes += static_cast<double>(sample.residentAfter - sample.residentBefore);
    }
    state.counters["rss_added_kb"] =
        benchmark::Counter(addedKilobytes, benchmark::Counter::kAvgIterations);
}
BENCHMARK(ColdStart)->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace
