// The client library against a scripted peer, and the message framing.
#include "SocketTesting.h"
#include "VelborDeviceStackClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

class ClientTest : public testing::Test {
protected:
    void TearDown() override {
        if (m_peer.joinable()) m_peer.join();
        close(m_listener);
        unlink(m_path.c_str());
    }

    // Takes the next connection, records each request and answers it with the
    // next of `replies` (raw bytes); when they run out, closes the connection.
    void Serve(const std::vector<std::string>& replies) {
        m_peer = std::thread([this, replies] {
            const int fd = accept(m_listener, nullptr, nullptr);
            std::string answer;
            for (const std::string& reply : replies) {
                const std::string request = Exchange(fd, answer);
                if (request.front() == '<') break; // closed or silent
                m_requests.push_back(request);
                answer = reply;
            }
            send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
            close(fd);
        });
    }

    const std::string m_path = "/tmp/velbor-client-test-" + std::to_string(getpid());
    const int m_listener = (unlink(m_path.c_str()), Open(m_path, true));
    std::thread m_peer;
    std::vector<std::string> m_requests;
};

TEST_F(ClientTest, ConnectsToTheConfiguredSocketAndSendsOneRequestPerOperation) {
    Serve({Frame(R"({"ok":true,"reply":""})"), Frame(R"({"ok":true,"reply":"{\"Dhcp\":\"1\"}"})"),
           Frame(R"({"ok":false,"error":"unknown command"})")});
    // A missing socket gives no client; an empty name means the configured one.
    EXPECT_FALSE(Velbor::CreateDeviceStackClient(m_path + ".missing"));
    setenv("VELBOR_DEVICE_STACK_SOCKET", (m_path + ".missing").c_str(), 1);
    EXPECT_FALSE(Velbor::CreateDeviceStackClient());
    setenv("VELBOR_DEVICE_STACK_SOCKET", m_path.c_str(), 1);
    const auto client = Velbor::CreateDeviceStackClient("");
    unsetenv("VELBOR_DEVICE_STACK_SOCKET");
    std::string config, reply;
    ASSERT_TRUE(client);
    EXPECT_TRUE(client->RegisterApplication("App", "field", "KNX"));
    EXPECT_TRUE(client->GetDeviceConfig(config, 1));
    EXPECT_EQ(config, R"({"Dhcp":"1"})");
    EXPECT_FALSE(client->RequestCommand("{}", reply, 360));
    EXPECT_EQ(reply, "unknown command");
    m_peer.join();
    EXPECT_EQ(m_requests,
              (std::vector<std::string>{
                  R"({"name":"App","op":"register","protocol":"KNX","type":"field"})",
                  R"({"flags":1,"op":"getConfig"})", R"({"op":"command","request":"{}"})"}));
}

TEST_F(ClientTest, FailsInTimeAndDropsTheConnectionWhenThePeerFails) {
    const std::vector<std::string> peers[] = {
        {},                                                      // closes at once
        {std::string("\0\0\0\x20{\"ok\":tr", 12)},               // dies in the middle of a reply
        {Frame("not json"), Frame(R"({"ok":true,"reply":""})")}, // garbles a reply
        {"", ""},                                                // never answers
    };
    for (const auto& replies : peers) {
        m_requests.clear();
        Serve(replies);
        const auto client = Velbor::CreateDeviceStackClient(m_path);
        std::string reply;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(client->RequestCommand("{}", reply, 1));
        EXPECT_FALSE(client->RegisterApplication("App", "field", "KNX")); // not sent
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        m_peer.join();
        EXPECT_LE(m_requests.size(), 1u);
    }
}

TEST(Framing, SplitsAStreamIntoMessagesUpToTheLargest) {
    const std::string largest(Velbor::kMaxFrameBody, 'x');
    std::string stream = Frame("first") + Frame("") + Frame(largest) + Frame("last").substr(0, 6);
    std::string body;
    for (const std::string& expected : {std::string("first"), std::string(), largest}) {
        ASSERT_EQ(Velbor::TakeFrame(stream, body), Velbor::FrameStatus::Complete);
        EXPECT_EQ(body, expected);
    }
    EXPECT_EQ(Velbor::TakeFrame(stream, body), Velbor::FrameStatus::Incomplete);
    EXPECT_EQ(stream.size(), 6u);
    EXPECT_FALSE(Velbor::EncodeFrame(largest + "x"));
    stream = std::string("\x00\x01\x00\x01", 4);
    EXPECT_EQ(Velbor::TakeFrame(stream, body), Velbor::FrameStatus::TooLarge);
}

} // namespace
