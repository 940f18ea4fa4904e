// A current-value query right after the network interface is selected again
// (what the first query after a commit does), through the Linux connection
// library, against asking `ip -j addr show` for the same interface.
#include "DscKnxIpConfig.h"
#include "Spawn.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

#include <string>

namespace {

// The name of the interface that a selection with nothing specified picks; empty when none.
std::string SelectedInterfaceName() {
    KnxStack::Ip::IpConnectionInfo connection;
    const unsigned long index = connection.DetermineNetworkInterface("", 0, 0, false);
    char name[IF_NAMESIZE] = {};
    return index != KnxStack::Ip::IpConnectionInfo::NoInterface &&
                   if_indextoname(static_cast<unsigned>(index), name) != nullptr
               ? name
               : "";
}

void Reselect(benchmark::State& state) {
    DscKnxIpConfig config;
    KnxStack::Ip::IpConnectionInfo unused; // InitNetwork takes a connection it does not use
    config.GetCurrentIpAddress();          // the selection due after construction
    for (auto _ : state) {
        config.InitNetwork(unused, false);
        benchmark::DoNotOptimize(config.GetCurrentIpAddress());
    }
}
BENCHMARK(Reselect)->Unit(benchmark::kMicrosecond);

void ReselectFloor(benchmark::State& state) {
    const std::string name = SelectedInterfaceName();
    const int devNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const char* const argv[] = {"ip", "-j", "addr", "show", "dev", name.c_str(), nullptr};
    for (auto _ : state) {
        if (name.empty() || RunToExit(argv, devNull) != 0) {
            state.SkipWithError("no interface, or `ip -j addr show` failed");
            break;
        }
    }
    close(devNull);
}
BENCHMARK(ReselectFloor)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace
