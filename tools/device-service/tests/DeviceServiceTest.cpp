// The service binary run as a child process on a temporary socket and state
// file, reached through the client library and through raw connections.
#include "SocketTesting.h"
#include "StateFile.h"
#include "VelborDeviceStackClient.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

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
    for (int c; (c = fgetc(pipe)) != EOF;) {
        output += static_cast<char>(c);
    }
    pclose(pipe);
    return output;
}

std::string FileBytes(const std::string& path) {
    return Shell("cat " + path + " 2>/dev/null");
}

class DeviceServiceTest : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/device-service-XXXXXX";
        m_dir = mkdtemp(pattern);
        m_socket = m_dir + "/service.sock";
        m_state = m_dir + "/state/state.json";
    }

    void TearDown() override {
        if (m_pid > 0) {
            Stop(SIGKILL);
        }
        fs::remove_all(m_dir);
    }

    // Runs the service (through `prefix`, a command that executes the rest)
    // with `options`, its log going to Log(), and waits until it answers.
    void Start(std::vector<std::string> prefix = {}, std::vector<std::string> options = {}) {
        prefix.insert(prefix.end(),
                      {DEVICE_SERVICE_PATH, "--socket", m_socket, "--state", m_state});
        prefix.insert(prefix.end(), options.begin(), options.end());
        std::vector<char*> argv;
        for (std::string& argument : prefix) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        if ((m_pid = fork()) == 0) {
            dup2(open((m_dir + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644), 2);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        for (int i = 0; i < 400 && !Velbor::CreateDeviceStackClient(m_socket); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
        }
        if (!Velbor::CreateDeviceStackClient(m_socket)) {
            throw std::runtime_error("service did not start: " + Log());
        }
    }

    // The service's exit status.
    int Stop(int signal = SIGTERM) {
        kill(m_pid, signal);
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = 0;
        return status;
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
            _exit(setgroups(0, nullptr) == 0 && setgid(gid) == 0 && setuid(uid) == 0 &&
                          Exchange(Open(m_socket, false), Frame(kRegistration)) == kRegistered
                      ? 0
                      : 1);
        }
        int status = 1;
        waitpid(child, &status, 0);
        return status == 0;
    }

    std::string m_dir, m_socket, m_state;
    pid_t m_pid = 0;
};

TEST_F(DeviceServiceTest, KeepsItsStateAcrossRestartsAndRefusalsChangeNothing) {
    Start();
    auto client = Registered();
    std::string config, reply;
    ASSERT_TRUE(client->GetDeviceConfig(config, 1));
    EXPECT_EQ(config, R"({"Dhcp":"false","IpAddress":"192.168.1.20","SubnetMask":)"
                      R"("255.255.255.0","DefaultGateway":"192.168.1.1","NameServer":)"
                      R"("192.168.1.1","NameServer2":"8.8.8.8"})");
    EXPECT_TRUE(client->RequestCommand(SetConfig(R"("Dhcp" : "true", "NameServer2" : "0.0.0.0")"),
                                       reply, 360));
    EXPECT_TRUE(client->RequestCommand(kRestart, reply, 360));
    const std::string saved = FileBytes(m_state);
    EXPECT_FALSE(
        client->RequestCommand(SetConfig(R"("Dhcp" : "0", "IpAddress" : "10.0.0.1")"), reply, 360));
    EXPECT_EQ(reply, R"(Dhcp must be "true" or "false")");
    // The factory settings hold no static address to go back to.
    EXPECT_FALSE(client->RequestCommand(SetConfig(R"("Dhcp" : "false")"), reply, 360));
    EXPECT_EQ(reply, R"(SubnetMask "0.0.0.0" is not a usable subnet mask)");
    EXPECT_EQ(FileBytes(m_state), saved);
    EXPECT_EQ(json::parse(saved)["restartCount"], 1);

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

TEST_F(DeviceServiceTest, AnswersProtocolErrorsClosesOnOversizedMessagesLogsOneLineEach) {
    Start();
    const struct {
        std::string bytes;
        bool closes;
    } cases[] = {
        {Frame("not json"), false},
        {Frame(R"({"op":"launch"})"), false},
        {Frame(R"({"op":"getConfig","flags":1})"), false}, // not registered
        {std::string("\x00\x01\x00\x01", 4) + std::string(100, 'x'), true},
    };
    for (const auto& test : cases) {
        const int fd = Open(m_socket, false);
        const json reply = json::parse(Exchange(fd, test.bytes));
        EXPECT_EQ(reply["ok"], false);
        EXPECT_FALSE(reply["error"].get<std::string>().empty());
        EXPECT_EQ(Exchange(fd, Frame(kRegistration)), test.closes ? "<closed>" : kRegistered);
        close(fd);
    }
    EXPECT_EQ(FileBytes(m_state), "");
    EXPECT_NE(Log().find("registered A\\x0Avelbor-device-service: forged"), std::string::npos);
    EXPECT_EQ(Log().find("\nvelbor-device-service: forged"), std::string::npos);
}

TEST_F(DeviceServiceTest, IdleAndStalledConnectionsMakeRoomAndTimeOut) {
    Start();
    std::vector<int> idle(40);
    for (int& fd : idle) {
        fd = Open(m_socket, false);
    }
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
    EXPECT_NE(Log().find("too many clients; closed the connection idle longest"),
              std::string::npos);
    EXPECT_NE(Log().find("closed a connection that completed no request within 5 s"),
              std::string::npos);
}

TEST_F(DeviceServiceTest, KeepsServingWithoutSpinningAtTheDescriptorLimit) {
    Start({"prlimit", "--nofile=16:", "--"});
    std::vector<int> idle(20);
    for (int& fd : idle) {
        fd = Open(m_socket, false);
    }
    std::string reply;
    EXPECT_TRUE(Registered()->RequestCommand(kRestart, reply, 360)) << reply; // saved
    for (const int fd : idle) {
        close(fd);
    }
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
    EXPECT_NE(Log().find("cannot accept connections: Too many open files"), std::string::npos);
    close(waiting);
}

TEST_F(DeviceServiceTest, CreatesItsFilesPrivatelyWhateverTheUmaskAndNeverThroughALink) {
    const mode_t umaskBefore = umask(0);
    Start();
    umask(umaskBefore);
    auto client = Registered();
    std::string reply;
    ASSERT_TRUE(client->RequestCommand(kRestart, reply, 360));
    std::ofstream(m_dir + "/victim") << "kept";
    fs::create_symlink(m_dir + "/victim", m_state + ".tmp");
    ASSERT_TRUE(client->RequestCommand(kRestart, reply, 360));
    EXPECT_EQ(FileBytes(m_dir + "/victim"), "kept");
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(m_state)));
    EXPECT_EQ(json::parse(FileBytes(m_state))["restartCount"], 2);
    EXPECT_EQ(fs::status(m_dir + "/state").permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(m_socket).permissions(), fs::perms(0600));
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
    EXPECT_NE(Log().find("refused a connection: uid 65534 (gid 1)"), std::string::npos);
}

TEST_F(DeviceServiceTest, CommandLineAndStartUpFailuresSayWhatIsWrong) {
    std::ofstream(m_dir + "/file") << "kept";
    fs::create_directories(m_dir + "/state");
    std::ofstream(m_state) << R"({"settings":{"Dhcp":"false"},"restartCount":0})";
    const std::pair<std::string, const char*> cases[] = {
        {"--help", "--socket-group GROUP also let this group's members use the socket"},
        {"--help", "status 0"},
        {"--bogus", "status 2"},
        {"--socket " + m_dir + "/file --state " + m_dir + "/new.json",
         "file: it exists and is not"},
        {"--socket " + m_socket + " --state " + m_state, "settings: IpAddress is missing"},
    };
    for (const auto& [arguments, output] : cases) {
        const std::string text =
            Shell(DEVICE_SERVICE_PATH " " + arguments + " 2>&1; echo status $?");
        EXPECT_NE(text.find(output), std::string::npos) << arguments << ": " << text;
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
    EXPECT_NE(Shell(inNamespace + "addr show dev lo").find("192.168.1.20/24"), std::string::npos);
    std::string reply;
    ASSERT_TRUE(Registered()->RequestCommand(
        SetConfig(R"("IpAddress" : "10.20.30.40", "SubnetMask" : "255.255.0.0", )"
                  R"("DefaultGateway" : "10.20.0.1")"),
        reply, 360));
    const std::string addresses = Shell(inNamespace + "addr show dev lo");
    EXPECT_NE(addresses.find("10.20.30.40/16"), std::string::npos) << addresses;
    EXPECT_EQ(addresses.find("192.168.1.20"), std::string::npos) << addresses;
    EXPECT_EQ(addresses.find("127.0.0.1"), std::string::npos) << addresses;
    EXPECT_NE(Shell(inNamespace + "route show default").find("default via 10.20.0.1 dev lo"),
              std::string::npos);
    EXPECT_NE(FileBytes(resolver).find("nameserver 192.168.1.1\nnameserver 8.8.8.8\n"),
              std::string::npos);

    // On an interface that is down the default route cannot be set: the
    // change is refused and the interface keeps its address.
    Shell("nsenter -t " + std::to_string(m_pid) + " -n ip link set lo down");
    EXPECT_FALSE(Registered()->RequestCommand(
        SetConfig(R"("IpAddress" : "10.30.0.5", "DefaultGateway" : "10.30.0.1")"), reply, 360));
    EXPECT_NE(reply.find("cannot set the default route"), std::string::npos) << reply;
    const std::string kept = Shell(inNamespace + "addr show dev lo");
    EXPECT_NE(kept.find("10.20.30.40/16"), std::string::npos) << kept;
    EXPECT_EQ(kept.find("10.30.0.5"), std::string::npos) << kept;
}

} // namespace
