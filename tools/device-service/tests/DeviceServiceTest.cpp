// The device-stack client library against the service binary, run as a child
// process on a temporary socket and state file.
#include "Framing.h"
#include "VelborDeviceStackClient.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

const char* const kDefaultConfig =
    R"({"Dhcp":"false","IpAddress":"192.168.1.20","SubnetMask":"255.255.255.0",)"
    R"("DefaultGateway":"192.168.1.1","NameServer":"192.168.1.1","NameServer2":"8.8.8.8"})";

std::string SetConfig(const std::string& config) {
    return R"({ "command" : "SetDeviceConfig", "ipc" : "true", "deviceConfig" : { )" + config +
           " } }";
}

std::string Shell(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    for (char buffer[256]; pipe != nullptr && fgets(buffer, sizeof buffer, pipe) != nullptr;) {
        output += buffer;
    }
    if (pipe != nullptr) {
        pclose(pipe);
    }
    return output;
}

int Listener(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(fd, 4), 0);
    return fd;
}

class DeviceServiceTest : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/device-service-XXXXXX";
        m_dir = mkdtemp(pattern);
        m_socket = m_dir + "/service.sock";
        m_state = m_dir + "/state.json";
    }

    void TearDown() override {
        if (m_pid > 0) {
            Stop(SIGKILL);
        }
        unsetenv("VELBOR_DEVICE_STACK_SOCKET");
        std::filesystem::remove_all(m_dir);
    }

    // Runs the service (under `prefix`, a command that executes its arguments)
    // with `options` and waits until it answers.
    void Start(std::vector<std::string> prefix = {}, std::vector<std::string> options = {}) {
        std::vector<std::string> arguments = prefix;
        for (const char* argument :
             {DEVICE_SERVICE_PATH, "--socket", m_socket.c_str(), "--state", m_state.c_str()}) {
            arguments.emplace_back(argument);
        }
        arguments.insert(arguments.end(), options.begin(), options.end());
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        if (posix_spawnp(&m_pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
            throw std::runtime_error("cannot spawn " + arguments.front());
        }
        for (int i = 0; i < 400 && !Velbor::CreateDeviceStackClient(m_socket); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
        }
        if (!Velbor::CreateDeviceStackClient(m_socket)) {
            throw std::runtime_error("service did not start");
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

    std::unique_ptr<Velbor::IDeviceStackClient> Registered() {
        std::unique_ptr<Velbor::IDeviceStackClient> client =
            Velbor::CreateDeviceStackClient(m_socket);
        if (!client || !client->RegisterApplication("Test", "field", "KNX")) {
            throw std::runtime_error("cannot register with the service");
        }
        return client;
    }

    std::string StateBytes() const {
        std::ifstream file(m_state, std::ios::binary);
        std::ostringstream bytes;
        bytes << file.rdbuf();
        return file ? bytes.str() : "<missing>";
    }

    // A raw connection that sends `bytes`; the service's reply, or "<closed>".
    std::string RawExchange(int fd, const std::string& bytes) const {
        send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        std::string received;
        std::string body;
        char chunk[512];
        while (Velbor::TakeFrame(received, body) != Velbor::FrameStatus::Complete) {
            const ssize_t n = recv(fd, chunk, sizeof chunk, 0);
            if (n <= 0) {
                return "<closed>";
            }
            received.append(chunk, static_cast<std::size_t>(n));
        }
        return body;
    }

    int RawConnect() const {
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, m_socket.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        return fd;
    }

    std::string m_dir, m_socket, m_state;
    pid_t m_pid = 0;
};

TEST_F(DeviceServiceTest, ReadsChangesCountsRestartsAndKeepsStateAcrossRestarts) {
    Start();
    auto client = Registered();
    std::string config, reply;
    ASSERT_TRUE(client->GetDeviceConfig(config, 1));
    EXPECT_EQ(config, kDefaultConfig);
    EXPECT_EQ(StateBytes(), "<missing>");
    EXPECT_TRUE(client->RequestCommand(SetConfig(R"("Dhcp" : "true", "NameServer2" : "0.0.0.0")"),
                                       reply, 360));
    EXPECT_TRUE(
        client->RequestCommand(R"({"command":"Restart", "type":"FactoryReset"})", reply, 360));
    const json saved = json::parse(StateBytes());
    EXPECT_EQ(saved["settings"]["Dhcp"], "true");
    EXPECT_EQ(saved["settings"]["IpAddress"], "192.168.1.20");
    EXPECT_EQ(saved["restartCount"], 1);

    client.reset();
    const int status = Stop();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_FALSE(std::filesystem::exists(m_socket));
    Start();
    ASSERT_TRUE(Registered()->GetDeviceConfig(config, 1));
    EXPECT_EQ(config, R"({"Dhcp":"true","IpAddress":"192.168.1.20","SubnetMask":"255.255.255.0",)"
                      R"("DefaultGateway":"192.168.1.1","NameServer":"192.168.1.1",)"
                      R"("NameServer2":"0.0.0.0"})");
}

TEST_F(DeviceServiceTest, RefusedCommandsLeaveTheStateFileAsItWas) {
    Start();
    auto client = Registered();
    std::string reply, config;
    ASSERT_TRUE(client->RequestCommand(SetConfig(R"("IpAddress" : "10.0.0.5")"), reply, 360));
    const std::string before = StateBytes();
    for (const std::string& command :
         {std::string(R"({ "command" : )"), std::string(R"({"command":"Reboot"})"),
          SetConfig(R"("Dhcp" : "false", "IpAddress" : "10.0.0.256")"),
          SetConfig(R"("Hostname" : "knx")"),
          std::string(R"({"command":"Restart", "type":"a"b"})")}) {
        EXPECT_FALSE(client->RequestCommand(command, reply, 360)) << command;
        EXPECT_FALSE(reply.empty()) << command;
        EXPECT_EQ(StateBytes(), before) << command;
    }
    ASSERT_TRUE(client->GetDeviceConfig(config, 1));
    EXPECT_NE(config.find(R"("IpAddress":"10.0.0.5")"), std::string::npos);
}

TEST_F(DeviceServiceTest, AnswersProtocolErrorsAndClosesOnlyOnOversizedMessages) {
    Start();
    const std::string registration =
        *Velbor::EncodeFrame(R"({"op":"register","name":"Raw","type":"field","protocol":"KNX"})");
    const struct {
        std::string bytes;
        bool closes;
    } cases[] = {
        {*Velbor::EncodeFrame("not json"), false},
        {*Velbor::EncodeFrame(R"({"op":"launch"})"), false},
        {*Velbor::EncodeFrame(R"({"op":"getConfig","flags":1})"), false}, // not registered
        {std::string("\x00\x01\x00\x01", 4) + std::string(100, 'x'), true},
    };
    for (const auto& test : cases) {
        const int fd = RawConnect();
        const json reply = json::parse(RawExchange(fd, test.bytes));
        EXPECT_EQ(reply["ok"], false);
        EXPECT_FALSE(reply["error"].get<std::string>().empty());
        EXPECT_EQ(RawExchange(fd, registration),
                  test.closes ? "<closed>" : R"({"ok":true,"reply":""})");
        close(fd);
    }
    EXPECT_EQ(StateBytes(), "<missing>");
}

TEST_F(DeviceServiceTest, ServesOthersWhileOneClientStopsMidMessage) {
    Start();
    const int stalled = RawConnect();
    const std::string change = *Velbor::EncodeFrame(
        json{{"op", "command"}, {"request", SetConfig(R"("Dhcp" : "true")")}}.dump());
    send(stalled, change.data(), change.size() / 2, MSG_NOSIGNAL);
    auto first = Registered();
    auto second = Registered();
    std::string config;
    EXPECT_TRUE(first->GetDeviceConfig(config, 1));
    close(stalled);
    EXPECT_TRUE(second->GetDeviceConfig(config, 1));
    EXPECT_EQ(config, kDefaultConfig);
    EXPECT_EQ(StateBytes(), "<missing>");
}

TEST_F(DeviceServiceTest, FactoriesFindTheServiceOrGiveNull) {
    EXPECT_FALSE(Velbor::CreateDeviceStackClient(m_socket));
    setenv("VELBOR_DEVICE_STACK_SOCKET", m_socket.c_str(), 1);
    EXPECT_FALSE(Velbor::CreateDeviceStackClient());
    Start();
    EXPECT_TRUE(Velbor::CreateDeviceStackClient());
    EXPECT_TRUE(Velbor::CreateDeviceStackClient(""));
}

TEST_F(DeviceServiceTest, LostServiceFailsEveryOperationAtOnce) {
    Start();
    auto client = Registered();
    Stop(SIGKILL);
    std::string text;
    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(client->GetDeviceConfig(text, 1));
    EXPECT_FALSE(client->RequestCommand(R"({"command":"Restart", "type":"x"})", text, 360));
    EXPECT_FALSE(client->RegisterApplication("Test", "field", "KNX"));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
}

TEST_F(DeviceServiceTest, SilentOrDyingPeerFailsWithinTheTimeLimit) {
    const int listener = Listener(m_socket);
    auto silent = Velbor::CreateDeviceStackClient(m_socket); // accepted only after it gave up
    std::string reply;
    Clock::time_point start = Clock::now();
    EXPECT_FALSE(silent->RequestCommand("{}", reply, 1));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(3));
    EXPECT_FALSE(silent->GetDeviceConfig(reply, 1)); // the connection was given up

    auto dying = Velbor::CreateDeviceStackClient(m_socket);
    std::thread peer([listener] {
        char request[64];
        for (int fd : {accept(listener, nullptr, nullptr), accept(listener, nullptr, nullptr)}) {
            if (recv(fd, request, sizeof request, 0) > 0) {
                send(fd, "\0\0\0\x20{\"ok\":tr", 12, MSG_NOSIGNAL); // half a reply
            }
            close(fd);
        }
    });
    start = Clock::now();
    EXPECT_FALSE(dying->RegisterApplication("Test", "field", "KNX"));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
    peer.join();
    close(listener);
}

TEST_F(DeviceServiceTest, AppliesStaticSettingsToTheNamedInterface) {
    if (system("unshare --net true 2>/dev/null") != 0) {
        GTEST_SKIP() << "no private network namespace available";
    }
    // A private network namespace whose loopback interface takes the settings.
    Start({"unshare", "--net", "--", "sh", "-c", "ip link set lo up && exec \"$0\" \"$@\""},
          {"--apply-to", "lo"});
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
}

} // namespace
