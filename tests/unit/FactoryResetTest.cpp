#include "FactoryResetManager.h"
#include "FakePlatform.h"
#include "LogCapture.h"

#include <log4cplus/loggingmacros.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;
using testing::DoAll;
using testing::Return;

const std::string kDefaultCommand = R"({"command":"Restart", "type":"FactoryReset"})";
const LogLine kLeave = Debug("FactoryReset(): Leave.");

// Calls into the client library are logged at TRACE on a logger of their own,
// so one captured sequence shows them interleaved with the add-on's messages.
ACTION_P(Marks, name) {
    LOG4CPLUS_TRACE(log4cplus::Logger::getInstance("test.calls"), name);
}

// A client that registers and has its restart request accepted.
Lines Restarted(const std::string& command = kDefaultCommand) {
    return {Trace("RegisterApplication()"), Info("Performing QUARN Client API call: " + command),
            Trace("RequestCommand()"), kLeave, Trace("Destroyed()")};
}

// The client is made before anything is logged or deleted.
Lines Entered(const Lines& deletion = {}) {
    return Join({{Trace("Create()"), Debug("FactoryReset(): Enter.")}, deletion});
}

Lines Deleted(const std::string& path, int count) {
    return Entered({Info("Number of deleted files at '" + path + "': " + std::to_string(count))});
}

void Write(const fs::path& path, const std::string& text) {
    std::ofstream(path) << text;
}

enum Outcome { NoClient, RegistrationRefused, RequestRefused, Accepted, RequestThrows };

class FactoryReset : public testing::Test {
protected:
    void SetUp() override {
        char directory[] = "/tmp/dsc-factory-reset-XXXXXX";
        ASSERT_NE(mkdtemp(directory), nullptr);
        root_ = directory;
        data_ = root_ / "data";
    }
    void TearDown() override { fs::remove_all(root_); }

    // Expects, in this order: the client's creation, its registration, the
    // restart request carrying `command` and a fresh empty reply, and its
    // destruction, each cut short where `outcome` ends the exchange.
    void ExpectExchange(Outcome outcome, const std::string& command = kDefaultCommand) {
        testing::InSequence order;
        auto* client =
            outcome == NoClient ? nullptr : new testing::StrictMock<MockDeviceStackClient>;
        EXPECT_CALL(factory_, Create())
            .WillOnce(DoAll(
                Marks("Create()"),
                Return(testing::ByMove(std::unique_ptr<Velbor::IDeviceStackClient>(client)))));
        if (client == nullptr) return;
        EXPECT_CALL(*client, RegisterApplication("FactoryResetManager", "field", "KNX"))
            .WillOnce(
                DoAll(Marks("RegisterApplication()"), Return(outcome != RegistrationRefused)));
        if (outcome != RegistrationRefused) {
            EXPECT_CALL(*client, RequestCommand(command, testing::IsEmpty(), 360))
                .WillOnce(DoAll(Marks("RequestCommand()"), [outcome] {
                    if (outcome == RequestThrows) throw std::runtime_error("connection lost");
                    return outcome == Accepted;
                }));
        }
        EXPECT_CALL(*client, Destroyed()).WillOnce(Marks("Destroyed()"));
    }

    void Reset(const ConfigPropertyMap& properties) {
        FactoryResetManager manager;
        manager.Init(properties);
        log_.Clear();
        manager.OnFactoryReset();
    }

    fs::path root_, data_;
    testing::StrictMock<MockDeviceStackFactory> factory_;
    LogCapture log_;
};

TEST_F(FactoryReset, RemovesTheTreeAndItsLinksButNotTheirTargetsThenRequestsRestart) {
    fs::create_directories(data_ / "sub" / "empty");
    fs::create_directories(root_ / "outside");
    Write(data_ / "sub" / "a.db", "a");
    Write(root_ / "outside" / "file", "file");
    fs::create_symlink(root_ / "outside" / "file", data_ / "file-link");
    fs::create_directory_symlink(root_ / "outside", data_ / "sub" / "dir-link");
    ExpectExchange(Accepted);
    Reset({{"applicationData", data_.string()}});
    EXPECT_EQ(log_.Lines(), Join({Deleted(data_.string(), 6), Restarted()}));
    EXPECT_FALSE(fs::exists(fs::symlink_status(data_)));
    EXPECT_TRUE(fs::exists(root_ / "outside" / "file"));

    ExpectExchange(Accepted); // once more, with nothing left to delete
    Reset({{"applicationData", data_.string()}});
    EXPECT_EQ(log_.Lines(), Join({Deleted(data_.string(), 0), Restarted()}));
}

// A child process with a private mount namespace resets with a file on a
// read-only tmpfs as its data; it exits 77 when it may not make mounts.
TEST_F(FactoryReset, FailedRemovalIsReportedAndRestartStillRequested) {
    const fs::path dir = root_ / "mnt", file = dir / "data";
    fs::create_directory(dir);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", dir.c_str(), "tmpfs", 0, nullptr) != 0) {
            _exit(errno == EPERM ? 77 : 1);
        }
        Write(file, "data");
        if (mount("tmpfs", dir.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) != 0) _exit(1);
        ExpectExchange(Accepted);
        Reset({{"applicationData", file.string()}});
        EXPECT_EQ(log_.Lines(),
                  Join({Entered({Error("Failed to delete file(s) at '" + file.string() +
                                       "'. Reason: Read-only file system")}),
                        Restarted()}));
        _exit(HasFailure() ? 2 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "may not make mounts";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
}

// The data is deleted first; the restart type goes into the command unescaped;
// each way the exchange ends is logged before leaving.
using ExchangeCase = std::tuple<const char*, const char*, std::string, Outcome, Lines>;
const std::string kReboot = R"({"command":"Restart", "type":"Reboot"})";
const std::string kEmptyType = R"({"command":"Restart", "type":""})";
const std::string kOddType = R"({"command":"Restart", "type":"a"b\c"})";
const std::string kFailed = "FactoryReset(): Failed to request command via QUARN Client API";
const LogLine kPerforming = Info("Performing QUARN Client API call: " + kDefaultCommand);
const LogLine kNoClient = Error(
    "FactoryReset(): DeviceStackClient could not be created. Executing factory reset failed.");
const LogLine kRegister = Trace("RegisterApplication()"), kRequest = Trace("RequestCommand()");
// clang-format off
const ExchangeCase kExchangeCases[] = {
    {"Default", nullptr, kDefaultCommand, Accepted, Restarted()},
    {"Reboot", "Reboot", kReboot, Accepted, Restarted(kReboot)},
    {"EmptyType", "", kEmptyType, Accepted, Restarted(kEmptyType)},
    {"QuoteAndBackslash", R"(a"b\c)", kOddType, Accepted, Restarted(kOddType)},
    {"NoClient", nullptr, kDefaultCommand, NoClient, {kNoClient, kLeave}},
    {"RegistrationRefused", nullptr, kDefaultCommand, RegistrationRefused,
     {kRegister, Error(kFailed + "."), kLeave, Trace("Destroyed()")}},
    {"RequestRefused", nullptr, kDefaultCommand, RequestRefused,
     {kRegister, kPerforming, kRequest, Error(kFailed + ":" + kDefaultCommand), kLeave,
      Trace("Destroyed()")}},
    {"RequestThrows", nullptr, kDefaultCommand, RequestThrows,
     {kRegister, kPerforming, kRequest, Trace("Destroyed()")}},
};
// clang-format on

class Exchange : public FactoryReset, public testing::WithParamInterface<ExchangeCase> {};

TEST_P(Exchange, DeletesTheDataFirstAndLogsTheOutcomeBeforeLeaving) {
    const auto& [name, restartType, command, outcome, afterDeletion] = GetParam();
    SCOPED_TRACE(name);
    fs::create_directories(data_);
    Write(data_ / "a.db", "a");
    ExpectExchange(outcome, command);
    ConfigPropertyMap properties = {{"applicationData", data_.string()}};
    if (restartType != nullptr) properties["restartType"] = restartType;
    if (outcome == RequestThrows) {
        EXPECT_THROW(Reset(properties), std::runtime_error);
    } else {
        Reset(properties);
    }
    EXPECT_EQ(log_.Lines(), Join({Deleted(data_.string(), 2), afterDeletion}));
    EXPECT_FALSE(fs::exists(data_));
}

INSTANTIATE_TEST_SUITE_P(Outcomes, Exchange, testing::ValuesIn(kExchangeCases));

// processTime is read like strtol with base 0 and saturated to 0..65535; only
// its exact key sets it, and it is 180 until then.
class ProcessTime : public testing::TestWithParam<std::pair<const char*, int>> {};

TEST_P(ProcessTime, ConvertsLikeStrtolAndSaturates) {
    const auto [text, expected] = GetParam();
    FactoryResetManager manager;
    EXPECT_EQ(manager.GetProcessTime(), 180);
    LogCapture log;
    EXPECT_TRUE(manager.Init({{"processTime", text}, {"processtime", "6"}, {"other", "x"}}));
    EXPECT_EQ(manager.GetProcessTime(), expected);
    const std::string shown = std::to_string(expected);
    EXPECT_EQ(log.Lines(),
              (Lines{Debug("FactoryResetManager::Init() called."),
                     Debug("FactoryResetManager::Init(): process time set to " + shown),
                     Debug("FactoryResetManager::GetProcessTime() called.")}));
}

const std::pair<const char*, int> kProcessTimes[] = {{"300", 300},
                                                     {"0x12C", 300},
                                                     {"0X12c", 300},
                                                     {"0454", 300},
                                                     {"  90s", 90},
                                                     {"abc", 0},
                                                     {"", 0},
                                                     {"-1", 0},
                                                     {"65535", 65535},
                                                     {"70000", 65535},
                                                     {"99999999999999999999999", 65535}};
INSTANTIATE_TEST_SUITE_P(Texts, ProcessTime, testing::ValuesIn(kProcessTimes));

} // namespace
