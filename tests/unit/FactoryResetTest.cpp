#include "DscKnxIpConfig.h"
#include "FactoryResetManager.h"
#include "LogCapture.h"
#include "PlatformStandIn.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <tuple>

namespace {

using namespace Logged;
namespace fs = std::filesystem;

const std::string kDefaultCommand = R"({"command":"Restart", "type":"FactoryReset"})";
const LogLine kLeave = Debug("FactoryReset(): Leave."), kDestroyed = Trace("~DeviceStackClient()");
const LogLine kRegister = Trace("RegisterApplication(FactoryResetManager, field, KNX)");

// The client is made before anything is logged or deleted.
Lines Entered(const Lines& deletion = {}) {
    return Join({{Trace("CreateDeviceStackClient()"), Debug("FactoryReset(): Enter.")}, deletion});
}
Lines Deleted(const std::string& path, int count) {
    return Entered({Info("Number of deleted files at '" + path + "': " + std::to_string(count))});
}
Lines NotDeleted(const std::string& path, const std::string& reason) {
    return Entered({Error("Failed to delete file(s) at '" + path + "'. Reason: " + reason)});
}
// A client that registers and has its restart request, with an empty reply, accepted.
Lines Restarted(const std::string& command = kDefaultCommand) {
    return {kRegister, Info("Performing QUARN Client API call: " + command),
            Trace("RequestCommand(" + command + ", 360)"), kLeave, kDestroyed};
}

void Write(const fs::path& path, const std::string& text) {
    std::ofstream(path) << text;
}

// Each test works in a folder of its own; afterwards every message of the
// manager must carry its logger, its source file and its function.
class FactoryReset : public testing::Test {
protected:
    void SetUp() override {
        ThePlatform() = Platform();
        char directory[] = "/tmp/dsc-factory-reset-XXXXXX";
        ASSERT_NE(mkdtemp(directory), nullptr);
        root_ = directory;
        data_ = root_ / "data";
    }
    void TearDown() override {
        fs::remove_all(root_);
        for (const LogRecord& r : log_.Records()) {
            if (r.logger == "Platform") continue;
            const bool deletion = r.message.find(" delete") != std::string::npos;
            EXPECT_EQ(r.logger, "DscKnxIpConfig.FactoryResetManager") << r.message;
            EXPECT_EQ(r.file, "DeviceStackClient/DscKnxIpConfig/FactoryResetManager") << r.message;
            EXPECT_EQ(r.function, deletion
                                      ? "void DeleteFiles(log4cplus::Logger&, const std::string&)"
                                      : "virtual void FactoryResetManager::OnFactoryReset()");
        }
    }

    void Reset(const ConfigPropertyMap& properties) {
        FactoryResetManager manager;
        manager.Init(properties);
        log_.Clear();
        manager.OnFactoryReset();
    }

    // Runs `body` in a child process once `isolate` has set the child up. When a
    // step fails, `isolate` names it and the test is skipped with it and errno.
    void InChild(const std::function<const char*()>& isolate, const std::function<void()>& body) {
        int reason[2];
        ASSERT_EQ(pipe(reason), 0);
        const pid_t child = fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            if (const char* step = isolate()) {
                const std::string why = std::string(step) + " failed: " + std::strerror(errno);
                if (write(reason[1], why.data(), why.size()) < 0) ADD_FAILURE();
            } else {
                body();
            }
            _exit(HasFailure() ? 2 : 0);
        }
        close(reason[1]);
        char why[256] = {};
        const bool skipped = read(reason[0], why, sizeof why - 1) > 0;
        close(reason[0]);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "child status";
        if (skipped) GTEST_SKIP() << why;
    }

    fs::path root_, data_;
    LogCapture log_;
};

TEST_F(FactoryReset, RemovesTheTreeAndItsLinksButNotTheirTargetsThenRequestsRestart) {
    fs::create_directories(data_ / "sub" / "empty");
    fs::create_directories(root_ / "outside");
    Write(data_ / "sub" / "a.db", "a");
    Write(root_ / "outside" / "file", "file");
    fs::create_symlink(root_ / "outside" / "file", data_ / "file-link");
    fs::create_directory_symlink(root_ / "outside", data_ / "sub" / "dir-link");
    Reset({{"applicationData", data_.string()}});
    EXPECT_EQ(log_.Lines(), Join({Deleted(data_.string(), 6), Restarted()}));
    EXPECT_FALSE(fs::exists(fs::symlink_status(data_)));
    EXPECT_TRUE(fs::exists(root_ / "outside" / "file"));

    Reset({{"applicationData", data_.string()}}); // once more, with nothing left to delete
    EXPECT_EQ(log_.Lines(), Join({Deleted(data_.string(), 0), Restarted()}));

    for (const ConfigPropertyMap& unset : {ConfigPropertyMap{}, {{"applicationData", ""}}}) {
        Reset(unset); // no data configured: no deletion at all
        EXPECT_EQ(log_.Lines(), Join({Entered(), Restarted()}));
    }
}

// The data is a file on a read-only tmpfs in a private mount namespace.
TEST_F(FactoryReset, FailedRemovalIsReportedAndRestartStillRequested) {
    const fs::path dir = root_ / "mnt", file = dir / "data";
    fs::create_directory(dir);
    const auto mountReadOnly = [&]() -> const char* {
        if (unshare(CLONE_NEWNS) != 0) return "unshare(CLONE_NEWNS)";
        if (mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0) {
            return "mount --make-rslave /";
        }
        if (mount("tmpfs", dir.c_str(), "tmpfs", 0, nullptr) != 0) return "mount tmpfs";
        Write(file, "data");
        const auto readOnly = MS_REMOUNT | MS_RDONLY;
        return mount("tmpfs", dir.c_str(), "tmpfs", readOnly, nullptr) != 0 ? "remount" : nullptr;
    };
    InChild(mountReadOnly, [&] {
        Reset({{"applicationData", file.string()}});
        const Lines expected = NotDeleted(file.string(), "Read-only file system");
        EXPECT_EQ(log_.Lines(), Join({expected, Restarted()}));
    });
}

// Each spelling of the root directory, lexical or through a link, is refused
// before anything is removed. The child is confined to the test's folder, so
// that a fault cannot reach the real root.
TEST_F(FactoryReset, RefusesToDeleteTheRootDirectoryAndStillRequestsRestart) {
    Write(root_ / "keep", "keep");
    fs::create_directory_symlink("/", root_ / "up");
    InChild(
        [&] { return chroot(root_.c_str()) == 0 && chdir("/") == 0 ? nullptr : "chroot"; },
        [&] {
            for (const char* path : {"/", "//", "/.", "/..", "/./..//", "/missing/..", "/up/."}) {
                SCOPED_TRACE(path);
                Reset({{"applicationData", path}});
                const Lines expected = NotDeleted(path, "Refusing to delete the root directory");
                EXPECT_EQ(log_.Lines(), Join({expected, Restarted()}));
                EXPECT_TRUE(fs::exists("/keep"));
            }
        });
}

// A process that owns a directory in the data exchanges it with a link to a
// directory outside as fast as it can while resets run for three seconds: no
// file outside may go. The directory's entries are named like the files outside.
// Removal by path after a type check lost files outside within 0.1 to 2.5 s.
TEST_F(FactoryReset, DirectorySwappedWithALinkDuringRemovalDoesNotLeadOutside) {
    const int kNames = 32;
    const fs::path outside = root_ / "outside", stage = root_ / "stage";
    const fs::path dir = data_ / "dir", link = data_ / "link";
    fs::create_directory(outside);
    for (int name = 0; name < kNames; ++name) Write(outside / std::to_string(name), "");
    const auto intact = [&] {
        return std::distance(fs::directory_iterator(outside), fs::directory_iterator()) == kNames;
    };
    std::atomic<bool> done{false};
    std::atomic<int> swaps{0};
    std::thread swapper([&] {
        while (!done) {
            swaps += renameat2(AT_FDCWD, dir.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) == 0;
        }
    });
    ThePlatform().failing = {Call::Create};
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    int resets = 0;
    for (; std::chrono::steady_clock::now() < end && intact(); ++resets) {
        fs::create_directories(stage / "dir");
        for (int name = 0; name < kNames; ++name) {
            fs::create_symlink("x", stage / "dir" / std::to_string(name));
        }
        fs::create_directory_symlink(outside, stage / "link");
        fs::rename(stage, data_);
        Reset({{"applicationData", data_.string()}});
        std::error_code ignored; // what a failed removal left goes out of the swapper's way
        fs::rename(data_, root_ / std::to_string(resets), ignored);
    }
    done = true;
    swapper.join();
    if (swaps == 0) GTEST_SKIP() << "renameat2(RENAME_EXCHANGE) never succeeded";
    EXPECT_TRUE(intact()) << "files outside deleted within " << resets << " resets";
}

// A fault, a failure or an exception, at each of the 21 calls of a host session
// into the platform libraries, with an interface found and with none: the
// session goes on, only the injected exception reaches the host, no client
// outlives the host call that made it, and only a throw from the reset's own
// client factory (position 18, its first call of three) keeps the data.
TEST_F(FactoryReset, HostSessionGoesOnAfterAFaultAtEveryCallPosition) {
    for (const auto& [kind, found] : {std::pair(FaultKind::Fail, true),
                                      {FaultKind::Fail, false},
                                      {FaultKind::Throw, true},
                                      {FaultKind::Throw, false}}) {
        for (std::size_t position = 0; position <= 21; ++position) { // 21: no fault
            SCOPED_TRACE(std::to_string(position) + (found ? "" : " without interface"));
            Platform& platform = ThePlatform() = Platform();
            if (position < 21) platform.faultAt = position;
            platform.kind = kind;
            platform.interfaceId = found ? 2 : 0xFFFFFFFFUL;
            platform.deviceConfig = R"({"Dhcp":"false","IpAddress":"192.168.1.20"})";
            fs::create_directories(data_ / "sub");
            Write(data_ / "sub" / "file", "application data");
            DscKnxIpConfig ip;
            FactoryResetManager reset;
            unsigned char mac[6];
            // clang-format off
            const std::function<void()> steps[] = {
                [&] { ip.Init({{"interfaceName", "eth0"}}); }, [&] { ip.GetCurrentIpAddress(); },
                [&] { ip.GetCurrentNetmask(); }, [&] { ip.GetCurrentGateway(); },
                [&] { ip.GetMacAddress(mac); }, [&] { ip.SetIpAssignmentMethods(1); },
                [&] { ip.SetConfiguredIpAddress(0xC0A8010AUL); }, [&] { ip.SetConfiguredNetmask(0xFFFF0000UL); },
                [&] { ip.SetConfiguredGateway(0xC0A80101UL); }, [&] { ip.SetDNSAddress(1, 1); },
                [&] { ip.SetDNSAddress(2, 2); }, [&] { ip.CommitConfiguration(); },
                [&] { ip.SetIpAssignmentMethods(4); }, [&] { ip.CommitConfiguration(); },
                [&] { reset.Init({{"applicationData", data_.string()}}); }, [&] { reset.OnFactoryReset(); }};
            // clang-format on
            int thrown = 0;
            for (const auto& step : steps) {
                try {
                    step();
                } catch (const InjectedFault&) {
                    ++thrown;
                }
                EXPECT_EQ(platform.clientsAlive, 0);
            }
            EXPECT_EQ(thrown, kind == FaultKind::Throw && position < 21 ? 1 : 0);
            EXPECT_EQ(fs::exists(data_), kind == FaultKind::Throw && position == 18);
            // The static settings, the DHCP flag and the restart are requested.
            if (position == 21) {
                EXPECT_EQ(platform.calls, 21U);
                EXPECT_EQ(platform.requests.size(), 3U);
            }
            log_.Clear();
        }
    }
}

// The data is deleted first; the restart type goes into the command unescaped;
// each way the exchange ends (a fault at the client's creation, registration
// or request) is logged before leaving.
using ExchangeCase = std::tuple<const char*, std::optional<std::size_t>, FaultKind, Lines>;
const std::string kCommand = R"({"command":"Restart", "type":"a"b\c"})";
const std::string kFailed = "FactoryReset(): Failed to request command via QUARN Client API";
const LogLine kPerforming = Info("Performing QUARN Client API call: " + kCommand);
const LogLine kRequest = Trace("RequestCommand(" + kCommand + ", 360)");
const LogLine kNoClient = Error(
    "FactoryReset(): DeviceStackClient could not be created. Executing factory reset failed.");
// clang-format off
const ExchangeCase kExchangeCases[] = {
    {"Accepted", std::nullopt, FaultKind::Fail, Restarted(kCommand)},
    {"NoClient", 0, FaultKind::Fail, {kNoClient, kLeave}},
    {"RegistrationRefused", 1, FaultKind::Fail, {kRegister, Error(kFailed + "."), kLeave, kDestroyed}},
    {"RequestRefused", 2, FaultKind::Fail,
     {kRegister, kPerforming, kRequest, Error(kFailed + ":" + kCommand), kLeave, kDestroyed}},
    {"RequestThrows", 2, FaultKind::Throw, {kRegister, kPerforming, kRequest, kDestroyed}},
};
// clang-format on

class Exchange : public FactoryReset, public testing::WithParamInterface<ExchangeCase> {};

TEST_P(Exchange, DeletesTheDataFirstAndLogsTheOutcomeBeforeLeaving) {
    const auto& [name, faultAt, kind, afterDeletion] = GetParam();
    fs::create_directories(data_);
    Write(data_ / "a.db", "a");
    ThePlatform().faultAt = faultAt;
    ThePlatform().kind = kind;
    const ConfigPropertyMap properties = {{"applicationData", data_.string()},
                                          {"restartType", R"(a"b\c)"}};
    if (kind == FaultKind::Throw) {
        EXPECT_THROW(Reset(properties), InjectedFault);
    } else {
        Reset(properties);
    }
    EXPECT_EQ(log_.Lines(), Join({Deleted(data_.string(), 2), afterDeletion}));
    EXPECT_FALSE(fs::exists(data_));
}

INSTANTIATE_TEST_SUITE_P(Outcomes, Exchange, testing::ValuesIn(kExchangeCases),
                         [](const auto& info) { return std::get<0>(info.param); });

// processTime is read like strtol with base 0 and saturated to 0..65535; only
// its exact key sets it, and it is 180 until then.
TEST(ProcessTime, ConvertsLikeStrtolAndSaturates) {
    // clang-format off
    for (const auto& [text, expected] : std::initializer_list<std::pair<const char*, int>>{
             {"300", 300}, {"0x12C", 300}, {"0X12c", 300}, {"0454", 300}, {"  90s", 90},
             {"abc", 0}, {"", 0}, {"-1", 0}, {"65535", 65535}, {"70000", 65535},
             {"99999999999999999999999", 65535}}) {
        // clang-format on
        FactoryResetManager manager;
        EXPECT_EQ(manager.GetProcessTime(), 180);
        LogCapture log;
        EXPECT_TRUE(manager.Init({{"processTime", text}, {"processtime", "6"}, {"other", "x"}}));
        EXPECT_EQ(manager.GetProcessTime(), expected) << text;
        EXPECT_EQ(log.Lines(), (Lines{Debug("FactoryResetManager::Init() called."),
                                      Debug("FactoryResetManager::Init(): process time set to " +
                                            std::to_string(expected)),
                                      Debug("FactoryResetManager::GetProcessTime() called.")}));
    }
}

} // namespace
