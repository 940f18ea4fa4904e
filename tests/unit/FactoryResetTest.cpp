#include "FactoryResetManager.h"
#include "FakePlatform.h"
#include "LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using testing::ByMove;
using testing::DoAll;
using testing::Return;
using testing::StrictMock;

namespace {

const std::string kDefaultCommand = R"({"command":"Restart", "type":"FactoryReset"})";
const LogLine kLeave = Debug("FactoryReset(): Leave.");

// Calls into the client library are logged at TRACE on a logger of their own,
// so one captured sequence shows them interleaved with the add-on's messages.
LogLine Call(const std::string& name) {
    return {log4cplus::TRACE_LOG_LEVEL, name};
}

ACTION_P(Marks, name) {
    LOG4CPLUS_TRACE(log4cplus::Logger::getInstance("test.calls"), name);
}

std::vector<LogLine> Concat(std::vector<LogLine> head, const std::vector<LogLine>& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

// A client that registers and has its restart request accepted.
std::vector<LogLine> Restarted(const std::string& command = kDefaultCommand) {
    return {Call("RegisterApplication()"), Info("Performing QUARN Client API call: " + command),
            Call("RequestCommand()"), kLeave, Call("Destroyed()")};
}

// The client is made before anything is logged or deleted.
std::vector<LogLine> Entered(const std::vector<LogLine>& deletion = {}) {
    return Concat({Call("Create()"), Debug("FactoryReset(): Enter.")}, deletion);
}

std::vector<LogLine> Deleted(const std::string& path, int count) {
    return Entered({Info("Number of deleted files at '" + path + "': " + std::to_string(count))});
}

void Write(const fs::path& path, const std::string& text) {
    std::ofstream(path) << text;
}

std::string Read(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

enum class Outcome { NoClient, RegistrationRefused, RequestRefused, Accepted, RequestThrows };

class FactoryReset : public testing::Test {
protected:
    void SetUp() override {
        char directory[] = "/tmp/dsc-factory-reset-XXXXXX";
        ASSERT_NE(mkdtemp(directory), nullptr) << std::strerror(errno);
        root_ = directory;
        data_ = root_ / "data";
    }

    void TearDown() override { fs::remove_all(root_); }

    // Expects, in this order: the client's creation, its registration, the
    // restart request carrying `command` and a fresh empty reply, and its
    // destruction, each cut short where `outcome` ends the exchange.
    void ExpectExchange(Outcome outcome, const std::string& command = kDefaultCommand) {
        testing::InSequence order;
        auto* const client =
            outcome == Outcome::NoClient ? nullptr : new StrictMock<MockDeviceStackClient>;
        EXPECT_CALL(factory_, Create())
            .WillOnce(DoAll(Marks("Create()"),
                            Return(ByMove(std::unique_ptr<Velbor::IDeviceStackClient>(client)))));
        if (client == nullptr) {
            return;
        }
        EXPECT_CALL(*client, RegisterApplication("FactoryResetManager", "field", "KNX"))
            .WillOnce(DoAll(Marks("RegisterApplication()"),
                            Return(outcome != Outcome::RegistrationRefused)));
        if (outcome == Outcome::RequestThrows) {
            EXPECT_CALL(*client, RequestCommand(command, testing::IsEmpty(), 360))
                .WillOnce(DoAll(Marks("RequestCommand()"),
                                testing::Throw(std::runtime_error("connection lost"))));
        } else if (outcome != Outcome::RegistrationRefused) {
            EXPECT_CALL(*client, RequestCommand(command, testing::IsEmpty(), 360))
                .WillOnce(DoAll(Marks("RequestCommand()"), Return(outcome == Outcome::Accepted)));
        }
        EXPECT_CALL(*client, Destroyed()).WillOnce(Marks("Destroyed()"));
    }

    void Reset(const ConfigPropertyMap& properties) {
        FactoryResetManager manager;
        manager.Init(properties);
        log_.Clear();
        manager.OnFactoryReset();
    }

    fs::path root_;
    fs::path data_;
    StrictMock<MockDeviceStackFactory> factory_;
    LogCapture log_;
};

TEST_F(FactoryReset, RemovesDirectoryTreeCountingItselfThenRequestsRestart) {
    fs::create_directories(data_ / "sub" / "deeper");
    fs::create_directories(data_ / "sub" / "empty");
    Write(data_ / "a.db", "a");
    Write(data_ / "sub" / "b.cfg", "b");
    Write(data_ / "sub" / "deeper" / "c.log", "c");
    ExpectExchange(Outcome::Accepted);

    Reset({{"applicationData", data_.string()}});

    EXPECT_EQ(log_.Lines(), Concat(Deleted(data_.string(), 7), Restarted()));
    EXPECT_FALSE(fs::exists(data_));
    EXPECT_TRUE(fs::is_directory(root_));
    for (const LogRecord& record : log_.Records()) {
        if (record.level != log4cplus::TRACE_LOG_LEVEL) {
            EXPECT_EQ(record.logger, "DscKnxIpConfig.FactoryResetManager") << record.message;
            EXPECT_EQ(record.file, "DeviceStackClient/DscKnxIpConfig/FactoryResetManager");
        }
    }
}

TEST_F(FactoryReset, MissingPathCountsZeroAndStillRequestsRestart) {
    ExpectExchange(Outcome::Accepted);
    Reset({{"applicationData", data_.string()}});
    EXPECT_EQ(log_.Lines(), Concat(Deleted(data_.string(), 0), Restarted()));
}

TEST_F(FactoryReset, UnconfiguredDataDeletesNothingAndStillRequestsRestart) {
    Write(root_ / "kept", "kept");
    ExpectExchange(Outcome::Accepted);
    Reset({{"restartType", "FactoryReset"}});
    EXPECT_EQ(log_.Lines(), Concat(Entered(), Restarted()));
    EXPECT_EQ(Read(root_ / "kept"), "kept");
}

TEST_F(FactoryReset, RemovesSymbolicLinksButNotWhatTheyPointTo) {
    fs::create_directories(root_ / "outside" / "dir");
    fs::create_directories(data_);
    Write(root_ / "outside" / "file", "file");
    Write(root_ / "outside" / "dir" / "inner", "inner");
    fs::create_symlink(root_ / "outside" / "file", data_ / "file-link");
    fs::create_directory_symlink(root_ / "outside" / "dir", data_ / "dir-link");
    ExpectExchange(Outcome::Accepted);

    Reset({{"applicationData", data_.string()}});

    EXPECT_EQ(log_.Lines(), Concat(Deleted(data_.string(), 3), Restarted()));
    EXPECT_FALSE(fs::exists(fs::symlink_status(data_)));
    EXPECT_EQ(Read(root_ / "outside" / "file"), "file");
    EXPECT_EQ(Read(root_ / "outside" / "dir" / "inner"), "inner");
}

class FactoryResetReadOnly : public FactoryReset {
protected:
    // Runs in a child process: makes `file` an entry of a read-only tmpfs in a
    // private mount namespace, resets with it as the data path and writes the
    // captured lines to `out`. Exits 77 when the process may not make mounts.
    [[noreturn]] void ResetInChild(const fs::path& mountPoint, const fs::path& file, int out) {
        const auto fail = [out](const char* step) {
            const int error = errno;
            dprintf(out, "%s: %s\n", step, std::strerror(error));
            _exit(error == EPERM ? 77 : 1);
        };
        if (unshare(CLONE_NEWNS) != 0) fail("unshare");
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) fail("private");
        if (mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, nullptr) != 0) fail("tmpfs");
        Write(file, "data");
        if (mount("tmpfs", mountPoint.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
            fail("read-only");
        }
        ExpectExchange(Outcome::Accepted);
        Reset({{"applicationData", file.string()}});
        for (const LogLine& line : log_.Lines()) {
            dprintf(out, "%d\t%s\n", static_cast<int>(line.level), line.message.c_str());
        }
        _exit(0);
    }
};

TEST_F(FactoryResetReadOnly, FailedRemovalIsReportedAndRestartStillRequested) {
    const fs::path mountPoint = root_ / "mnt";
    const fs::path file = mountPoint / "data";
    fs::create_directory(mountPoint);
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        close(pipeEnds[0]);
        ResetInChild(mountPoint, file, pipeEnds[1]);
    }
    close(pipeEnds[1]);
    std::string output;
    char buffer[512];
    for (ssize_t n; (n = read(pipeEnds[0], buffer, sizeof buffer)) > 0;) {
        output.append(buffer, static_cast<std::size_t>(n));
    }
    close(pipeEnds[0]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << output;
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "no privilege for a private read-only mount: " << output;
    }
    ASSERT_EQ(WEXITSTATUS(status), 0) << output;

    std::vector<LogLine> lines;
    std::istringstream stream(output);
    for (std::string level, message; std::getline(stream, level, '\t');) {
        std::getline(stream, message);
        lines.push_back({std::stoi(level), message});
    }
    EXPECT_EQ(lines, Concat(Entered({Error("Failed to delete file(s) at '" + file.string() +
                                           "'. Reason: Read-only file system")}),
                            Restarted()));
}

struct ClientCase {
    const char* name;
    Outcome outcome;
    std::vector<LogLine> afterDeletion;
};

void PrintTo(const ClientCase& clientCase, std::ostream* os) {
    *os << clientCase.name;
}

class ClientFailure : public FactoryReset, public testing::WithParamInterface<ClientCase> {};

TEST_P(ClientFailure, DataIsDeletedFirstAndFailureIsLoggedBeforeLeave) {
    fs::create_directories(data_);
    Write(data_ / "a.db", "a");
    ExpectExchange(GetParam().outcome);
    Reset({{"applicationData", data_.string()}});
    EXPECT_EQ(log_.Lines(), Concat(Deleted(data_.string(), 2), GetParam().afterDeletion));
    EXPECT_FALSE(fs::exists(data_));
}

INSTANTIATE_TEST_SUITE_P(
    Paths, ClientFailure,
    testing::Values(
        ClientCase{"NoClient",
                   Outcome::NoClient,
                   {Error("FactoryReset(): DeviceStackClient could not be created. Executing "
                          "factory reset failed."),
                    kLeave}},
        ClientCase{"RegistrationRefused",
                   Outcome::RegistrationRefused,
                   {Call("RegisterApplication()"),
                    Error("FactoryReset(): Failed to request command via QUARN Client API."),
                    kLeave, Call("Destroyed()")}},
        ClientCase{
            "RequestRefused",
            Outcome::RequestRefused,
            {Call("RegisterApplication()"),
             Info("Performing QUARN Client API call: " + kDefaultCommand), Call("RequestCommand()"),
             Error("FactoryReset(): Failed to request command via QUARN Client API:" +
                   kDefaultCommand),
             kLeave, Call("Destroyed()")}}),
    [](const testing::TestParamInfo<ClientCase>& info) { return info.param.name; });

struct RestartCase {
    const char* name;
    ConfigPropertyMap properties;
    std::string command;
};

void PrintTo(const RestartCase& restartCase, std::ostream* os) {
    *os << restartCase.name;
}

class RestartText : public FactoryReset, public testing::WithParamInterface<RestartCase> {};

TEST_P(RestartText, CarriesTheRestartTypeUnescaped) {
    ExpectExchange(Outcome::Accepted, GetParam().command);
    Reset(GetParam().properties);
    EXPECT_EQ(log_.Lines(), Concat(Entered(), Restarted(GetParam().command)));
}

INSTANTIATE_TEST_SUITE_P(
    Types, RestartText,
    testing::Values(
        RestartCase{"Default", {}, kDefaultCommand},
        RestartCase{
            "Reboot", {{"restartType", "Reboot"}}, R"({"command":"Restart", "type":"Reboot"})"},
        RestartCase{"Empty", {{"restartType", ""}}, R"({"command":"Restart", "type":""})"},
        RestartCase{"QuoteAndBackslash",
                    {{"restartType", R"(a"b\c)"}},
                    R"({"command":"Restart", "type":"a"b\c"})"}),
    [](const testing::TestParamInfo<RestartCase>& info) { return info.param.name; });

TEST_F(FactoryReset, ExceptionFromRequestReachesCallerAfterClientIsDestroyedOnce) {
    ExpectExchange(Outcome::RequestThrows);
    EXPECT_THROW(Reset({}), std::runtime_error);
    EXPECT_EQ(log_.Lines(),
              Concat(Entered(), {Call("RegisterApplication()"),
                                 Info("Performing QUARN Client API call: " + kDefaultCommand),
                                 Call("RequestCommand()"), Call("Destroyed()")}));
}

} // namespace
