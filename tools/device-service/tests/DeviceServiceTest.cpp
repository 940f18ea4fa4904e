// The service binary run as a child process on a temporary socket and state
// file, reached through the client library and through raw connections.
#include "SocketTesting.h"
#include "StateFile.h"
#include "VelborDeviceStackClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const char* const kRestart = R"({"command":"Restart", "type":"FactoryReset"})";
// A registration whose name tries to end its log line and fake another.
const char* const kRegistration = R"({"op":"register","name":"A\nvelbor-device-service: )"
                                  R"(forged","type":"field","protocol":"KNX"})";
const char* const kRegistered = R"({"ok":true,"reply":""})";

std::string SetConfig(const std::string& config) {
    return R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : { )" + config +
           " } }";
}

// The command's standard output.
std::string Shell(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    for (int c; (c = fgetc(pipe)) != EOF;) output += static_cast<char>(c);
    pclose(pipe);
    return output;
}

std::string FileBytes(const std::string& path) {
    return Shell("cat " + path + " 2>/dev/null");
}

std::string TemporaryDirectory() {
    char pattern[] = "/tmp/device-service-XXXXXX";
    return mkdtemp(pattern);
}

int ExitStatus(pid_t child) {
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

class DeviceServiceTest : public testing::Test {
protected:
    void TearDown() override {
        if (m_pid > 0) Stop(SIGKILL);
        fs::remove_all(m_dir);
    }

    // Runs the service (through `prefix`, a command that executes the rest)
    // with `options`, its log going to Log(), and waits until it answers.
    void Start(std::vector<std::string> prefix = {}, std::vector<std::string> options = {}) {
        prefix.insert(prefix.end(),
                      {DEVICE_SERVICE_PATH, "--socket", m_socket, "--state", m_state});
        prefix.insert(prefix.end(), options.begin(), options.end());
        std::vector<char*> argv(prefix.size() + 1); // ends in a null pointer
        std::transform(prefix.begin(), prefix.end(), argv.begin(),
                       [](std::string& argument) { return argument.data(); });
        if ((m_pid = fork()) == 0) {
            dup2(open((m_dir + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644), 2);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        for (int i = 0; !Velbor::CreateDeviceStackClient(m_socket); ++i) {
            if (i == 400) throw std::runtime_error("service did not start: " + Log());
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
        }
    }

    // The service's exit status.
    int Stop(int signal = SIGTERM) {
        kill(m_pid, signal);
        return ExitStatus(std::exchange(m_pid, 0));
    }

    std::string Log() const { return FileBytes(m_dir + "/log"); }

    std::unique_ptr<Velbor::IDeviceStackClient> Registered() const {
        auto client = Velbor::CreateDeviceStackClient(m_socket);
        if (!client || !client->RegisterApplication("Test", "field", "KNX")) {
            throw std::runtime_error("cannot register with the service");
        }
        return client;
    }

    // Whether a process with nothing but `uid` and `gid` can register.
    bool RegistersAs(uid_t uid, gid_t gid) const {
        const pid_t child = fork();
        if (child == 0) {
            _exit(setgroups(0, nullptr) || setgid(gid) || setuid(uid) ||
                  Exchange(Open(m_socket, false), Frame(kRegistration)) != kRegistered);
        }
        return ExitStatus(child) == 0;
    }

    std::string m_dir = TemporaryDirectory(), m_socket = m_dir + "/service.sock",
                m_state = m_dir + "/state/state.json";
    pid_t m_pid = 0;
};

// Started under umask 000 and with a link planted at the temporary name.
TEST_F(DeviceServiceTest, KeepsItsStatePrivatelyAcrossRestartsAndRefusalsChangeNothing) {
    const mode_t umaskBefore = umask(0);
    Start();
    umask(umaskBefore);
    auto client = Registered();
    std::string config, reply;
    ASSERT_TRUE(client->GetDeviceConfig(config, 1));
    EXPECT_EQ(config, R"({"Dhcp":"false","IpAddress":"192.168.1.20","SubnetMask":)"
                      R"("255.255.255.0","DefaultGateway":"192.168.1.1","NameServer":)"
                      R"("192.168.1.1","NameServer2":"8.8.8.8"})");
    EXPECT_TRUE(client->RequestCommand(SetConfig(R"("Dhcp" : "true", "NameServer2" : "0.0.0.0")"),
                                       reply, 360));
    EXPECT_EQ(reply, R"({"result":"ok"})");
    std::ofstream(m_dir + "/victim") << "kept";
    fs::create_symlink(m_dir + "/victim", m_state + ".tmp");
    EXPECT_TRUE(client->RequestCommand(kRestart, reply, 360));
    EXPECT_EQ(FileBytes(m_dir + "/victim"), "kept");
    EXPECT_EQ(fs::status(m_dir + "/state").permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(m_socket).permissions(), fs::perms(0600));
    const std::string saved = FileBytes(m_state);
    EXPECT_FALSE(
        client->RequestCommand(SetConfig(R"("Dhcp" : "0", "IpAddress" : "10.0.0.1")"), reply, 360));
    EXPECT_EQ(reply, R"(Dhcp must be "true" or "false")");
    // The factory settings hold no static address to go back to.
    EXPECT_FALSE(client->RequestCommand(SetConfig(R"("Dhcp" : "false")"), reply, 360));
    EXPECT_EQ(reply, R"(SubnetMask "0.0.0.0" is not a usable subnet mask)");
    EXPECT_EQ(FileBytes(m_state), saved);
    EXPECT_EQ(json::parse(saved)["restartCount"], 1);
    EXPECT_THAT(Log(), HasSubstr(R"(Restart (type "FactoryReset", restart count 1) from Test)"));

    client.reset();
    EXPECT_EQ(Stop(), 0);
    EXPECT_FALSE(fs::exists(m_socket));
    Start();
    ASSERT_TRUE(Registered()->GetDeviceConfig(config, 1));
    // The factory settings; without an interface there is no lease to report.
    EXPECT_EQ(config,
              R"({"Dhcp":"true","IpAddress":"0.0.0.0","SubnetMask":"0.0.0.0",)"
              R"("DefaultGateway":"0.0.0.0","NameServer":"0.0.0.0","NameServer2":"0.0.0.0"})");

    // The restart count stops at its largest value; a crash leaves a stale
    // socket, which the next start replaces.
    DeviceService::DeviceState state = *DeviceService::LoadState(m_state);
    state.restartCount = std::numeric_limits<std::uint64_t>::max();
    ASSERT_TRUE(DeviceService::SaveState(m_state, state));
    Stop(SIGKILL);
    Start();
    ASSERT_TRUE(Registered()->RequestCommand(kRestart, reply, 360));
    EXPECT_EQ(*DeviceService::LoadState(m_state), state);
}

// Protocol errors are answered; oversized messages, idle and stalled
// connections are closed, and 40 idle ones still leave room for a client.
TEST_F(DeviceServiceTest, AnswersProtocolErrorsAndClosesOversizedIdleAndStalledConnections) {
    Start();
    const struct {
        std::string bytes, error;
        bool closes;
    } cases[] = {
        {Frame("not json"), "[json.exception.parse_error.", false},
        {Frame(R"({"op":"launch"})"), "unknown operation launch", false},
        {Frame(R"({"op":"getConfig","flags":1})"), "not registered: register the application first",
         false},
        {std::string("\x00\x01\x00\x01", 4) + std::string(100, 'x'),
         "message larger than 65536 bytes", true},
    };
    for (const auto& test : cases) {
        const int fd = Open(m_socket, false);
        const json reply = json::parse(Exchange(fd, test.bytes));
        EXPECT_EQ(reply["ok"], false);
        EXPECT_THAT(reply["error"].get<std::string>(), StartsWith(test.error));
        EXPECT_EQ(Exchange(fd, Frame(kRegistration)), test.closes ? "<closed>" : kRegistered);
        close(fd);
    }
    std::vector<int> idle(40);
    for (int& fd : idle) fd = Open(m_socket, false);
    const std::string change =
        Frame(json{{"op", "command"}, {"request", SetConfig(R"("Dhcp" : "true")")}}.dump());
    send(idle.back(), change.data(), change.size() / 2, MSG_NOSIGNAL);
    std::string config;
    EXPECT_TRUE(Registered()->GetDeviceConfig(config, 1));
    std::this_thread::sleep_for(std::chrono::seconds(6));
    for (const int fd : idle) {
        EXPECT_EQ(Exchange(fd, ""), "<closed>");
        close(fd);
    }
    EXPECT_EQ(FileBytes(m_state), "");
    const std::string log = Log();
    EXPECT_THAT(log, HasSubstr("registered A\\x0Avelbor-device-service: forged (field, KNX)"));
    EXPECT_THAT(log, Not(HasSubstr("\nvelbor-device-service: forged")));
    EXPECT_THAT(log, HasSubstr("message over 65536 bytes; closing connection"));
    EXPECT_THAT(log, HasSubstr("too many clients; closed the connection idle longest"));
    EXPECT_THAT(log, HasSubstr("closed a connection that completed no request within 5 s"));
}

TEST_F(DeviceServiceTest, KeepsServingWithoutSpinningAtTheDescriptorLimit) {
    Start({"prlimit", "--nofile=16:", "--"});
    std::vector<int> idle(20);
    for (int& fd : idle) fd = Open(m_socket, false);
    std::string reply;
    EXPECT_TRUE(Registered()->RequestCommand(kRestart, reply, 360)) << reply; // saved
    for (const int fd : idle) close(fd);
    ASSERT_TRUE(Registered()); // answered once it has closed the idle ones too
    // With room for its standard streams, stop signal and socket only, it
    // cannot accept: the connection waits, and the service with it.
    rlimit before{};
    ASSERT_EQ(prlimit(m_pid, RLIMIT_NOFILE, nullptr, &before), 0);
    const rlimit full{5, before.rlim_max};
    ASSERT_EQ(prlimit(m_pid, RLIMIT_NOFILE, &full, nullptr), 0);
    const int waiting = Open(m_socket, false);
    const std::string cpuTicks = "awk '{print $14 + $15}' /proc/" + std::to_string(m_pid) + "/stat";
    const int ticks = std::stoi(Shell(cpuTicks));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_LT(std::stoi(Shell(cpuTicks)) - ticks, sysconf(_SC_CLK_TCK) / 20); // 50 ms
    ASSERT_EQ(prlimit(m_pid, RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_EQ(Exchange(waiting, Frame(kRegistration)), kRegistered);
    EXPECT_THAT(Log(), HasSubstr("cannot accept connections: Too many open files; trying again "
                                 "every 250 ms"));
    close(waiting);
}

TEST_F(DeviceServiceTest, SocketAdmitsOnlyRootItsOwnUserAndItsGroup) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to connect as other users";
    }
    Start({}, {"--socket-group", "nogroup"});
    EXPECT_EQ(fs::status(m_socket).permissions(), fs::perms(0660));
    EXPECT_EQ(Shell("stat -c %G " + m_socket), "nogroup\n");
    // Even with the socket file opened to everyone, only the group gets in.
    fs::permissions(m_socket, fs::perms(0666));
    fs::permissions(m_dir, fs::perms(0755));
    EXPECT_TRUE(RegistersAs(65534, getgrnam("nogroup")->gr_gid));
    EXPECT_FALSE(RegistersAs(65534, 1));
    EXPECT_THAT(Log(), HasSubstr("refused a connection: uid 65534 (gid 1) is neither root, nor "
                                 "the service's user, nor in the socket group"));
}

TEST_F(DeviceServiceTest, CommandLineAndStartUpFailuresSayWhatIsWrong) {
    std::ofstream(m_dir + "/file") << "kept";
    fs::create_directories(m_dir + "/state");
    std::ofstream(m_state) << R"({"settings":{"Dhcp":"false"},"restartCount":0})";
    const std::pair<std::string, const char*> cases[] = {
        {"--help", "  --help               show this text\nstatus 0"},
        {"--bogus", "status 2"},
        {"--socket " + m_dir + "/file --state " + m_dir + "/new.json",
         "file: it exists and is not a socket (left as it is)\nstatus 1"},
        {"--socket " + m_socket + " --state " + m_state,
         "settings: IpAddress is missing\nstatus 1"},
    };
    for (const auto& [arguments, output] : cases) {
        EXPECT_THAT(
            Shell("timeout 10 " DEVICE_SERVICE_PATH " " + arguments + " 2>&1; echo status $?"),
            HasSubstr(output))
            << arguments;
    }
    EXPECT_EQ(FileBytes(m_dir + "/file"), "kept");
}

TEST_F(DeviceServiceTest, AppliesStaticSettingsToTheNamedInterface) {
    if (system("unshare --net true 2>/dev/null") != 0) {
        GTEST_SKIP() << "no private network namespace available";
    }
    // A private network namespace whose loopback interface takes the settings.
    const std::string resolver = m_dir + "/resolv.conf";
    Start({"unshare", "--net", "--", "sh", "-c", "ip link set lo up && exec \"$0\" \"$@\""},
          {"--apply-to", "lo", "--resolv-conf", resolver});
    const std::string inNamespace = "nsenter -t " + std::to_string(m_pid) + " -n ip -4 -o ";
    EXPECT_THAT(Shell(inNamespace + "addr show dev lo"), HasSubstr("192.168.1.20/24"));
    std::string reply;
    ASSERT_TRUE(Registered()->RequestCommand(
        SetConfig(R"("IpAddress" : "10.20.30.40", "SubnetMask" : "255.255.0.0", )"
                  R"("DefaultGateway" : "10.20.0.1")"),
        reply, 360));
    const std::string addresses = Shell(inNamespace + "addr show dev lo");
    EXPECT_THAT(addresses, HasSubstr("10.20.30.40/16"));
    EXPECT_THAT(addresses, Not(HasSubstr("192.168.1.20")));
    EXPECT_THAT(addresses, Not(HasSubstr("127.0.0.1")));
    EXPECT_THAT(Shell(inNamespace + "route show default"),
                HasSubstr("default via 10.20.0.1 dev lo"));
    EXPECT_THAT(FileBytes(resolver), HasSubstr("nameserver 192.168.1.1\nnameserver 8.8.8.8\n"));

    // On an interface that is down the default route cannot be set: the
    // change is refused and the interface keeps its address.
    Shell("nsenter -t " + std::to_string(m_pid) + " -n ip link set lo down");
    EXPECT_FALSE(Registered()->RequestCommand(
        SetConfig(R"("IpAddress" : "10.30.0.5", "DefaultGateway" : "10.30.0.1")"), reply, 360));
    EXPECT_THAT(reply, HasSubstr("cannot set the default route"));
    const std::string kept = Shell(inNamespace + "addr show dev lo");
    EXPECT_THAT(kept, HasSubstr("10.20.30.40/16"));
    EXPECT_THAT(kept, Not(HasSubstr("10.30.0.5")));
}

} // namespace
