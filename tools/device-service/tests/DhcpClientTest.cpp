// The DHCP client's supervision, with a stand-in for dhcpcd that reports a
// lease through the hook and keeps a helper process: how it is started, that
// its lease is read, that it is started again when it dies, and that nothing
// of it is left after a stop or after the service was killed.
#include "DhcpClient.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

using namespace DeviceService;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

// What the stand-in reports through the hook.
Lease FakeLease() {
    return {"10.99.0.120", "255.255.255.0", "10.99.0.1", {"10.99.0.1"}};
}

bool Gone(pid_t pid) {
    return kill(pid, 0) != 0 && errno == ESRCH;
}

template <typename Done>
bool WaitFor(Done done) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(20ms);
    }
    return done();
}

class DhcpClientTest : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/dhcp-client-XXXXXX";
        m_dir = mkdtemp(pattern);
        setenv("FAKE_DHCPCD_LOG", (m_dir / "log").c_str(), 1);
    }
    void TearDown() override {
        unsetenv("FAKE_DHCPCD_LOG");
        fs::remove_all(m_dir);
    }

    DhcpClient::Options Options(const std::string& program = FAKE_DHCPCD) const {
        return {"fake0", (m_dir / "dhcp").string(), program};
    }

    std::string Log() const {
        std::ifstream file(m_dir / "log");
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    // Polls and updates the client until `done` holds or 10 s have passed.
    template <typename Done>
    bool Serve(DhcpClient& client, Done done) const {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (!done() && std::chrono::steady_clock::now() < deadline) {
            std::vector<pollfd> polled;
            client.AddPollFds(polled);
            const int timeout = client.Timeout();
            poll(polled.data(), polled.size(), timeout < 0 || timeout > 100 ? 100 : timeout);
            client.Update();
        }
        return done();
    }

    // The process ids of the n-th start of the stand-in: itself and its helper.
    std::pair<pid_t, pid_t> Started(int n) const {
        std::istringstream lines(Log());
        std::string word;
        pid_t client = 0, helper = 0;
        for (std::string line; n > 0 && std::getline(lines, line);) {
            std::istringstream words(line);
            if (words >> word && word == "start" && --n == 0) {
                words >> client >> helper;
            }
        }
        return {client, helper};
    }

    fs::path m_dir;
};

TEST_F(DhcpClientTest, RunsTheClientReadsItsLeaseAndLeavesNothingWhenStopped) {
    DhcpClient client(Options());
    ASSERT_TRUE(client.Start());
    ASSERT_TRUE(Serve(client, [&] { return client.CurrentLease() == FakeLease(); }));
    const auto [pid, helper] = Started(1);
    const std::string directory = (m_dir / "dhcp").string();
    EXPECT_NE(Log().find("start " + std::to_string(pid) + " " + std::to_string(helper) + " -f " +
                         directory + "/dhcpcd.conf -B -4 -c " + directory + "/hook fake0\n"),
              std::string::npos)
        << Log();

    client.Stop(true);
    EXPECT_FALSE(client.Running());
    EXPECT_FALSE(client.CurrentLease());
    EXPECT_NE(Log().find("stop ALRM"), std::string::npos) << Log();
    EXPECT_TRUE(Gone(pid) && Gone(helper));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1); // no child of ours left, not even a zombie
}

TEST_F(DhcpClientTest, StartsAClientThatDiedAgain) {
    DhcpClient client(Options());
    ASSERT_TRUE(client.Start());
    ASSERT_TRUE(Serve(client, [&] { return Started(1).first != 0; }));
    const auto [pid, helper] = Started(1);
    kill(pid, SIGKILL); // its helper stays behind, as dhcpcd's do
    ASSERT_TRUE(Serve(client, [&] { return Started(2).first != 0 && client.CurrentLease(); }));
    // The killed helper is reaped by whoever adopted it, which can take a moment.
    EXPECT_TRUE(WaitFor([&] { return Gone(pid) && Gone(helper); }));
    EXPECT_TRUE(client.Running());
}

TEST_F(DhcpClientTest, AKilledServiceTakesItsClientAlong) {
    const pid_t service = fork();
    if (service == 0) {
        DhcpClient client(Options());
        _exit(client.Start() ? (pause(), 0) : 1);
    }
    ASSERT_TRUE(WaitFor([&] { return Started(1).first != 0; }));
    const auto [pid, helper] = Started(1);
    kill(service, SIGKILL);
    waitpid(service, nullptr, 0);
    EXPECT_TRUE(WaitFor([&, pid = pid, helper = helper] { return Gone(pid) && Gone(helper); }));
    EXPECT_NE(Log().find("stop TERM"), std::string::npos) << Log();
}

TEST_F(DhcpClientTest, HookKeepsTheLeaseOverTheLinkLocalAddress) {
    DhcpClient client(Options());
    ASSERT_TRUE(client.Start());
    ASSERT_TRUE(Serve(client, [&] { return client.CurrentLease() == FakeLease(); }));
    const std::string hook = (m_dir / "dhcp" / "hook").string();
    const Lease linkLocal{"169.254.7.9", "255.255.0.0", "", {}};
    const struct {
        const char* event = nullptr;
        std::optional<Lease> lease;
    } steps[] = {
        {"reason=EXPIRE", std::nullopt},
        {"reason=IPV4LL new_ip_address=169.254.7.9 new_subnet_mask=255.255.0.0", linkLocal},
        {"reason=BOUND new_ip_address=10.99.0.120 new_subnet_mask=255.255.255.0 "
         "new_routers=10.99.0.1 new_domain_name_servers=10.99.0.1",
         FakeLease()},
        {"reason=IPV4LL", FakeLease()}, // dhcpcd drops the link-local address once bound
        {"reason=IPV4LL new_ip_address=169.254.7.9 new_subnet_mask=255.255.0.0", FakeLease()},
        {"reason=NAK", linkLocal},
        {"reason=STOP", std::nullopt},
    };
    for (const auto& step : steps) {
        ASSERT_EQ(std::system(("env " + std::string(step.event) + " " + hook).c_str()), 0);
        EXPECT_TRUE(Serve(client, [&] { return client.CurrentLease() == step.lease; }))
            << step.event;
    }
}

TEST_F(DhcpClientTest, AMissingClientIsAnError) {
    DhcpClient client(Options("no-such-dhcp-client"));
    const Result<void> started = client.Start();
    ASSERT_FALSE(started);
    EXPECT_EQ(started.error(),
              "cannot find the DHCP client no-such-dhcp-client (Debian package dhcpcd-base)");
    EXPECT_FALSE(client.Running());
}

} // namespace
