// The device read and its reply scanner, against memmem over the same text.
#include "AllocationCounter.h"
#include "DscKnxIpConfig.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

namespace {

// A device's configuration reply of about 200 bytes with all six settings.
const char kDeviceReply[] =
    R"({"HostName":"knx-ip-router","Dhcp":"false","IpAddress":"192.168.1.20",)"
    R"("SubnetMask":"255.255.255.0","DefaultGateway":"192.168.1.1",)"
    R"("NameServer":"192.168.1.1","NameServer2":"8.8.8.8","MacAddress":"00:1a:2b:3c:4d:5e"})";

const char* const kDevicePatterns[] = {R"("Dhcp":)",       R"("IpAddress":)",
                                       R"("SubnetMask":)", R"("DefaultGateway":)",
                                       R"("NameServer":)", R"("NameServer2":)"};

// A client that answers every configuration read with kDeviceReply.
class FixedReplyClient : public Velbor::IDeviceStackClient {
public:
    bool RequestCommand(const std::string&, std::string&, int) override { return true; }
    bool RegisterApplication(const std::string&, const std::string&, const std::string&) override {
        return true;
    }
    bool GetDeviceConfig(std::string& config, int) override {
        config = kDeviceReply;
        return true;
    }
};

void DeviceRead(benchmark::State& state) {
    DscKnxIpConfig config;
    const std::unique_ptr<Velbor::IDeviceStackClient> client(new FixedReplyClient);
    const std::size_t before = AllocationCount();
    for (auto _ : state) {
        DscKnxIpConfig::IpConfiguration settings;
        benchmark::DoNotOptimize(config.FetchQuarnIpSettings(settings, client));
        benchmark::DoNotOptimize(settings);
    }
    ReportAllocations(state, before);
}
BENCHMARK(DeviceRead);

void DeviceReadFloor(benchmark::State& state) {
    const std::string text = kDeviceReply;
    for (auto _ : state) {
        for (const char* pattern : kDevicePatterns) {
            benchmark::DoNotOptimize(
                memmem(text.data(), text.size(), pattern, std::strlen(pattern)));
        }
    }
}
BENCHMARK(DeviceReadFloor);

const char kScanKey[] = "NameServer2";
const char kScanPattern[] = R"("NameServer2":)";
const char kScanTail[] = R"("NameServer2":"8.8.8.8"})";

// A configuration-like text of `size` bytes whose only "NameServer2" is at its end.
std::string ScanText(std::size_t size) {
    std::string text = "{";
    for (unsigned i = 0; text.size() + sizeof kScanTail < size; ++i) {
        text += "\"Setting" + std::to_string(i) + "\":\"value " + std::to_string(i) + "\",";
    }
    text.resize(size - (sizeof kScanTail - 1), ' ');
    return text + kScanTail;
}

void ScanSizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(1 << 10)->Arg(64 << 10)->Arg(1 << 20);
}

void GetValueScan(benchmark::State& state) {
    const std::string text = ScanText(static_cast<std::size_t>(state.range(0)));
    const std::string key = kScanKey;
    DscKnxIpConfig config;
    std::string value;
    for (auto _ : state) {
        benchmark::DoNotOptimize(config.GetValue(text, key, value));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(GetValueScan)->Apply(ScanSizes);

void MemmemScan(benchmark::State& state) {
    const std::string text = ScanText(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            memmem(text.data(), text.size(), kScanPattern, sizeof kScanPattern - 1));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(MemmemScan)->Apply(ScanSizes);

} // namespace
