// soak-driver: long runs against the simulated device service.
//
//   soak-driver cycles ADDON CYCLES RESETS DATA_DIR SERVICE_PID
//     Loads the add-on as the host does and runs CYCLES commit cycles: a new IP
//     configuration object reads the device's settings (which must be those of
//     the previous cycle), changes them and commits. RESETS factory resets are
//     spread over the run. Peak RSS, RSS and open descriptors of the driver and
//     of the service are sampled 100 times between cycles; the last quarter
//     must not exceed the first.
//   soak-driver writer KEY PROGRESS_FILE
//     Until SIGTERM, sets the address setting KEY (or, for KEY Restart, asks for
//     restarts) through the client library, one exchange per client, and logs
//     "sent N" before and "acked N" after each accepted request.
//   soak-driver watch PID
//     Samples the process PID every 100 ms, from one second after the start
//     until it ends; the last quarter of the samples must not exceed the first.
//   soak-driver check STATE_FILE PROGRESS_FILE...
//     The state file must load, and every writer's setting must be the value it
//     last had acknowledged or the one it sent after that; the restart count
//     must lie between the acknowledged and the sent restarts.
#include "Addon.h"
#include "Address.h"
#include "StateFile.h"
#include "VelborDeviceStackClient.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <log4cplus/appender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace {

using AddonHost::Addon;
using AddonHost::IpConfig;

// ---------------------------------------------------------------------------
// The host side: the add-on's failures end the run, its errors are counted.

// The value of `result`; a failure ends the run, reported by main.
template <typename T>
T Take(Result<T> result) {
    if (!result) {
        throw std::runtime_error(result.error());
    }
    return std::move(*result);
}

class ErrorCounter : public log4cplus::Appender {
public:
    ~ErrorCounter() override { destructorImpl(); }
    void close() override {}
    int errors = 0;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        if (errors++ == 0) {
            std::cerr << "first add-on error: " << event.getMessage() << std::endl;
        }
    }
};

// ---------------------------------------------------------------------------
// Memory and descriptors of a process, from /proc/<process>.

struct Figures {
    long peakKb;
    long rssKb;
    long descriptors;
};

long StatusValue(const std::string& process, const std::string& name) {
    std::ifstream status("/proc/" + process + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) {
            return std::stol(line.substr(name.size() + 1));
        }
    }
    return -1;
}

long OpenDescriptors(const std::string& process) {
    const fs::directory_iterator entries("/proc/" + process + "/fd");
    const long count = std::distance(fs::begin(entries), fs::end(entries));
    return process == "self" ? count - 1 : count; // less the iterator's own
}

Figures Measure(const std::string& process) {
    return {StatusValue(process, "VmHWM"), StatusValue(process, "VmRSS"), OpenDescriptors(process)};
}

// Growth of a memory figure from the first to the last quarter that still
// counts as flat: a few pages of allocator and library caches.
const long kToleranceKb = 256;

// Compares the first and the last quarter of the samples; true when flat.
// The peak is compared at the quarters' ends; RSS and descriptors by their
// lowest values, which a connection being closed at the moment does not raise.
// `transient` descriptors may be open at the moment of a sample without a leak.
bool ReportFlat(const std::string& process, const std::vector<Figures>& samples,
                long transient = 0) {
    const std::size_t n = samples.size();
    const std::size_t quarter = std::max<std::size_t>(1, n / 4);
    const auto lowest = [&](std::size_t from, long Figures::*field) {
        long value = samples[from].*field;
        for (std::size_t i = from; i < from + quarter; ++i) {
            value = std::min(value, samples[i].*field);
        }
        return value;
    };
    const long peak[] = {samples[quarter - 1].peakKb, samples[n - 1].peakKb};
    const long rss[] = {lowest(0, &Figures::rssKb), lowest(n - quarter, &Figures::rssKb)};
    const long fds[] = {lowest(0, &Figures::descriptors),
                        lowest(n - quarter, &Figures::descriptors)};
    std::cout << process << ": VmHWM kB " << peak[0] << " -> " << peak[1] << ", VmRSS kB " << rss[0]
              << " -> " << rss[1] << ", open descriptors " << fds[0] << " -> " << fds[1]
              << " (first quarter -> last quarter)" << std::endl;
    return peak[1] <= peak[0] + kToleranceKb && rss[1] <= rss[0] + kToleranceKb &&
           fds[1] <= fds[0] + transient;
}

// Samples another process until it ends (a zombie has no VmRSS); the first
// second, its start-up, is left out.
int RunWatch(const std::string& process) {
    std::vector<Figures> samples;
    std::this_thread::sleep_for(std::chrono::seconds(1));
    try {
        for (Figures figures = Measure(process); figures.rssKb >= 0; figures = Measure(process)) {
            samples.push_back(figures);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    } catch (const fs::filesystem_error&) {
        // The process ended between the two reads of a sample.
    }
    if (samples.size() < 8) {
        throw std::runtime_error("process " + process + " ended too soon to be watched");
    }
    // Sampled from outside, the process may be in the middle of an exchange
    // with its device-stack client's connection open.
    return ReportFlat("process " + process, samples, 1) ? 0 : 1;
}

// ---------------------------------------------------------------------------
// Commit cycles and factory resets through the add-on.

struct Settings {
    unsigned long ip, netmask, gateway, dns1, dns2;
};

// Different in every cycle, so that every commit sends.
Settings ForCycle(long cycle) {
    const unsigned long host = static_cast<unsigned long>(cycle % 65000) + 2;
    return {0x0A010000UL | host, 0xFFFF0000UL, 0x0A010001UL, 0x0A010001UL,
            0x0A020000UL | (host ^ 0x5A5AUL)};
}

bool ReadsBack(IpConfig& config, const Settings& expected) {
    return config.GetIpAssignmentMethods() == 1 && config.GetConfiguredIpAddress() == expected.ip &&
           config.GetConfiguredNetmask() == expected.netmask &&
           config.GetConfiguredGateway() == expected.gateway &&
           config.GetDNSAddress(1) == expected.dns1 && config.GetDNSAddress(2) == expected.dns2;
}

// One cycle: read the device's settings, check the last commit, change, commit.
bool CommitCycle(Addon& addon, long cycle) {
    const std::unique_ptr<IpConfig> config = Take(addon.CreateIpConfig({{"interfaceName", "lo"}}));
    const bool kept = cycle == 0 || ReadsBack(*config, ForCycle(cycle - 1));
    const Settings next = ForCycle(cycle);
    config->SetIpAssignmentMethods(1);
    config->SetConfiguredIpAddress(next.ip);
    config->SetConfiguredNetmask(next.netmask);
    config->SetConfiguredGateway(next.gateway);
    config->SetDNSAddress(1, next.dns1);
    config->SetDNSAddress(2, next.dns2);
    config->CommitConfiguration();
    return kept;
}

// One factory reset of freshly made application data; true when it was deleted.
// The restart it asks for is a plain one: a "FactoryReset" restart would return
// the device's settings to their factory values under the commit cycles' feet.
bool FactoryResetCycle(Addon& addon, const fs::path& data) {
    fs::create_directories(data / "sub");
    std::ofstream(data / "sub" / "settings") << "application data";
    Take(addon.CreateFactoryReset({{"applicationData", data.string()}, {"restartType", "Reboot"}}))
        ->OnFactoryReset();
    return !fs::exists(data);
}

int RunCycles(const std::string& path, long cycles, long resets, const fs::path& data,
              const std::string& service) {
    log4cplus::SharedAppenderPtr counter(new ErrorCounter);
    log4cplus::Logger::getRoot().addAppender(counter);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    std::unique_ptr<Addon> addon = Take(Addon::Start(path));

    const auto start = std::chrono::steady_clock::now();
    const long sampleEvery = std::max(1L, cycles / 100);
    const long resetEvery = resets > 0 ? std::max(1L, cycles / resets) : cycles + 1;
    std::vector<Figures> driverSamples, serviceSamples;
    long lost = 0, resetsDone = 0, dataKept = 0;
    for (long cycle = 0; cycle < cycles; ++cycle) {
        lost += CommitCycle(*addon, cycle) ? 0 : 1;
        if ((cycle + 1) % resetEvery == 0 && resetsDone < resets) {
            ++resetsDone;
            dataKept += FactoryResetCycle(*addon, data) ? 0 : 1;
        }
        if ((cycle + 1) % sampleEvery == 0) {
            driverSamples.push_back(Measure("self"));
            serviceSamples.push_back(Measure(service));
        }
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    addon.reset(); // addonShutdown, then dlclose
    const int errors = static_cast<ErrorCounter&>(*counter).errors;
    std::cout << "commit cycles " << cycles << ", factory resets " << resetsDone << ", seconds "
              << seconds << "\ncommits not read back " << lost << ", application data kept "
              << dataKept << ", add-on errors logged " << errors << std::endl;
    const bool driverFlat = ReportFlat("soak-driver", driverSamples);
    const bool serviceFlat = ReportFlat("device service", serviceSamples);
    return lost == 0 && dataKept == 0 && errors == 0 && driverFlat && serviceFlat ? 0 : 1;
}

// ---------------------------------------------------------------------------
// Writers: one setting each, through the client library.

std::atomic<bool> g_stop(false);

// The value a writer of an address setting sends as its n-th. The address and
// the gateway stay in the default state's subnet (192.168.1.0/24) and apart
// from each other, so that the service takes every combination of the two.
std::string WriterValue(const std::string& key, long n) {
    const unsigned long step = static_cast<unsigned long>(n % 100);
    if (key == "IpAddress" || key == "DefaultGateway") {
        return FormatAddress(0xC0A80100UL + (key == "IpAddress" ? 2 : 102) + step);
    }
    return FormatAddress(0x0A000000UL | static_cast<unsigned long>(n & 0xFFFFFF));
}

std::string Command(const std::string& key, long n) {
    if (key == "Restart") {
        return R"({"command":"Restart", "type":"Soak"})";
    }
    return R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : { ")" + key +
           R"(" : ")" + WriterValue(key, n) + R"(" } })";
}

bool Exchange(const std::string& command) {
    const std::unique_ptr<Velbor::IDeviceStackClient> client = Velbor::CreateDeviceStackClient();
    std::string reply;
    return client && client->RegisterApplication("SoakWriter", "field", "KNX") &&
           client->RequestCommand(command, reply, 5);
}

void Append(int fd, const std::string& line) {
    if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        g_stop = true;
    }
}

// An address writer sends value n until it is acknowledged, then n + 1; its
// lines carry n. The restart writer's "sent" lines count attempts, its "acked"
// lines acknowledged restarts: an unacknowledged attempt may still have counted.
int RunWriter(const std::string& key, const std::string& progress) {
    std::signal(SIGTERM, [](int) { g_stop = true; });
    const int fd = open(progress.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const bool restarts = key == "Restart";
    for (long sent = 0, acked = 0; fd >= 0 && !g_stop;) {
        sent = restarts ? sent + 1 : acked + 1;
        Append(fd, "sent " + std::to_string(sent) + "\n");
        if (Exchange(Command(key, sent))) {
            acked = restarts ? acked + 1 : sent;
            Append(fd, "acked " + std::to_string(acked) + "\n");
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    return fd >= 0 ? 0 : 1;
}

// ---------------------------------------------------------------------------
// The check after a crash of the service.

struct Progress {
    long sent = 0;
    long acked = 0;
};

Progress ReadProgress(const std::string& path) {
    Progress progress;
    std::ifstream file(path);
    std::string word;
    for (long n; file >> word >> n;) {
        (word == "sent" ? progress.sent : progress.acked) = n;
    }
    return progress;
}

// PROGRESS_FILE names end in "<KEY>.progress".
std::string KeyOf(const std::string& path) {
    return fs::path(path).stem().string();
}

bool CheckWriter(const DeviceService::DeviceState& state, const std::string& path) {
    const std::string key = KeyOf(path);
    const Progress progress = ReadProgress(path);
    if (key == "Restart") {
        const auto count = static_cast<long>(state.restartCount);
        std::cout << "Restart: count " << count << ", acked " << progress.acked << ", sent "
                  << progress.sent << std::endl;
        return count >= progress.acked && count <= progress.sent;
    }
    const std::string& value = state.settings.at(key);
    const bool ok =
        (progress.acked == 0 && value == DeviceService::DefaultState().settings.at(key)) ||
        (progress.acked > 0 && value == WriterValue(key, progress.acked)) ||
        (progress.sent > progress.acked && value == WriterValue(key, progress.sent));
    std::cout << key << ": " << value << ", acked " << progress.acked << ", sent " << progress.sent
              << std::endl;
    return ok;
}

int RunCheck(const std::string& statePath, const std::vector<std::string>& progressFiles) {
    const Result<DeviceService::DeviceState> state = DeviceService::LoadState(statePath);
    if (!state) {
        std::cout << "state file unusable: " << state.error() << std::endl;
        return 1;
    }
    bool ok = true;
    for (const std::string& path : progressFiles) {
        ok = CheckWriter(*state, path) && ok;
    }
    return ok ? 0 : 1;
}

int Usage() {
    std::cerr << "usage: soak-driver cycles ADDON CYCLES RESETS DATA_DIR SERVICE_PID\n"
                 "       soak-driver writer KEY PROGRESS_FILE\n"
                 "       soak-driver watch PID\n"
                 "       soak-driver check STATE_FILE PROGRESS_FILE...\n";
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    log4cplus::Initializer logging;
    const std::vector<std::string> args(argv + 1, argv + argc);
    try {
        if (args.size() == 6 && args[0] == "cycles") {
            return RunCycles(args[1], std::stol(args[2]), std::stol(args[3]), args[4], args[5]);
        }
        if (args.size() == 3 && args[0] == "writer") {
            return RunWriter(args[1], args[2]);
        }
        if (args.size() == 2 && args[0] == "watch") {
            return RunWatch(args[1]);
        }
        if (args.size() >= 2 && args[0] == "check") {
            return RunCheck(args[1], std::vector<std::string>(args.begin() + 2, args.end()));
        }
    } catch (const std::exception& error) {
        std::cerr << "soak-driver: " << error.what() << std::endl;
        return 1;
    }
    return Usage();
}
