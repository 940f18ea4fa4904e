// Property reads, writes and the reset over a device management connection,
// through real UDP sockets, against the manager in memory.
#include "ServerTestSupport.h"

namespace KnxNetIp {
namespace {

using std::chrono::milliseconds;
using Strings = std::vector<std::string>;

class DeviceManagement : public ServerFixture {
protected:
    void SetUp() override {
        Start({std::chrono::seconds(120), milliseconds(150), 8});
        client.emplace(Connect());
        ASSERT_TRUE(client->Connect());
    }
    std::string Read(std::uint16_t object, std::uint8_t pid, std::uint16_t start = 1,
                     std::uint8_t count = 1) {
        Result<Bytes> value = client->ReadProperty(object, pid, start, count);
        if (!value) {
            return value.error();
        }
        std::string text;
        for (const std::uint8_t byte : *value) {
            text += (text.empty() ? "" : " ") + std::string(1, "0123456789abcdef"[byte >> 4]) +
                    "0123456789abcdef"[byte & 0x0F];
        }
        return text;
    }
    std::optional<Client> client;
};

TEST_F(DeviceManagement, PropertiesReadAsACommissioningToolAsksForThem) {
    struct Case {
        std::uint16_t object;
        std::uint8_t pid;
        std::uint16_t start;
        std::uint8_t count;
        const char* value;
    };
    const Case cases[] = {
        {0, 71, 0, 1, "00 02"},
        {0, 71, 0, 2, "00 02"},
        {0, 71, 1, 2, "00 00 00 0b"},
        {0, 1, 1, 1, "00 00"},
        {11, 1, 1, 1, "00 0b"},
        {0, 11, 1, 1, "00 11 22 33 44 55"},
        {0, 12, 1, 1, "00 c5"},
        {11, 51, 1, 1, "12 34"},
        {11, 52, 1, 1, "11 0a"},
        {11, 53, 0, 1, "00 00"},
        {11, 54, 1, 1, "04"},
        {11, 55, 1, 1, "04"},
        {11, 56, 1, 1, "06"},
        {11, 57, 1, 1, "c0 a8 01 0a"},
        {11, 58, 1, 1, "ff ff ff 00"},
        {11, 59, 1, 1, "c0 a8 01 01"},
        {11, 60, 1, 1, "c0 a8 01 0a"},
        {11, 61, 1, 1, "ff ff ff 00"},
        {11, 62, 1, 1, "c0 a8 01 01"},
        {11, 63, 1, 1, "00 00 00 00"},
        {11, 64, 1, 1, "00 24 6d 01 02 03"},
        {11, 65, 1, 1, "e0 00 17 0c"},
        {11, 66, 1, 1, "e0 00 17 0c"},
        {11, 67, 1, 1, "10"},
        {11, 68, 1, 1, "00 01"},
        {11, 69, 1, 1, "00"},
        {11, 70, 1, 1, "00"},
        {11, 76, 0, 1, "00 1e"},
        {11, 76, 1, 10, "74 65 73 74 20 64 65 76 69 63"},
        {11, 76, 11, 10, "65 00 00 00 00 00 00 00 00 00"},
        {11, 201, 1, 1, "08 08 08 08"},
        {11, 202, 1, 1, "01 01 01 01"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Read(c.object, c.pid, c.start, c.count), c.value)
            << c.object << "/" << int(c.pid);
    }
}

TEST_F(DeviceManagement, RequestsThatCannotBeDoneAreAnsweredWithTheirError) {
    struct Case {
        const char* name = nullptr;
        Cemi::Message request;
        std::uint8_t error = 0;
    };
    const Cemi::Message read{Cemi::kPropReadReq, 11, 1, 57, 1, 1, {}};
    const Cemi::Message write{Cemi::kPropWriteReq, 11, 1, 60, 1, 1, Hex("c0 a8 01 32")};
    const auto with = [](Cemi::Message m, auto change) {
        change(m);
        return m;
    };
    const Case cases[] = {
        {"no such object", with(read, [](auto& m) { m.objectType = 5; }), Cemi::kNonExistent},
        {"no such property", with(read, [](auto& m) { m.pid = 99; }), Cemi::kNonExistent},
        {"second instance", with(read, [](auto& m) { m.instance = 2; }), Cemi::kNonExistent},
        {"element beyond the last", with(read, [](auto& m) { m.start = 2; }),
         Cemi::kIndexOutOfRange},
        {"elements across the last",
         with(read, [](auto& m) { m.pid = 76, m.start = 25, m.count = 10; }),
         Cemi::kIndexOutOfRange},
        {"no elements", with(read, [](auto& m) { m.count = 0; }), Cemi::kIndexOutOfRange},
        {"write to a capability", with(write, [](auto& m) { m.pid = 56, m.data = {2}; }),
         Cemi::kReadOnly},
        {"write to a current value", with(write, [](auto& m) { m.pid = 57; }), Cemi::kReadOnly},
        {"write to the element count", with(write, [](auto& m) { m.start = 0; }), Cemi::kReadOnly},
        {"write to no such object", with(write, [](auto& m) { m.objectType = 5; }),
         Cemi::kNonExistent},
        {"three bytes for a u32", with(write, [](auto& m) { m.data.pop_back(); }),
         Cemi::kTypeConflict},
        {"two elements of a scalar",
         with(write, [](auto& m) { m.count = 2, m.data = Hex("0102030405060708"); }),
         Cemi::kIndexOutOfRange},
        {"no assignment method", with(write, [](auto& m) { m.pid = 55, m.data = {0}; }),
         Cemi::kOutOfRange},
        {"unknown assignment method", with(write, [](auto& m) { m.pid = 55, m.data = {0x10}; }),
         Cemi::kOutOfRange},
    };
    for (const Case& c : cases) {
        Result<Cemi::Message> answer = client->Request(c.request);
        ASSERT_TRUE(answer) << c.name << ": " << answer.error();
        Cemi::Message expected = c.request;
        expected.code =
            c.request.code == Cemi::kPropReadReq ? Cemi::kPropReadCon : Cemi::kPropWriteCon;
        expected.count = 0;
        expected.data = {c.error};
        EXPECT_EQ(Cemi::Encode(*answer), Cemi::Encode(expected)) << c.name;
    }
    EXPECT_EQ(manager.calls(), Strings());
}

TEST_F(DeviceManagement, WritesOnlyStoreAndTheResetCommitsThem) {
    struct Case {
        std::uint8_t pid;
        const char* value;
        const char* call; // nullptr: held by the server
    };
    const Case cases[] = {
        {55, "01", "SetIpAssignmentMethods 1"},
        {60, "c0 a8 02 32", "SetConfiguredIpAddress 3232236082"},
        {61, "ff ff 00 00", "SetConfiguredNetmask 4294901760"},
        {62, "c0 a8 02 01", "SetConfiguredGateway 3232236033"},
        {201, "0a 00 00 35", "SetDNSAddress 1 167772213"},
        {202, "0a 00 00 36", "SetDNSAddress 2 167772214"},
        {51, "43 21", nullptr},
        {52, "12 05", nullptr},
        {66, "e0 00 17 0d", nullptr},
        {67, "20", nullptr},
    };
    Strings calls;
    for (const Case& c : cases) {
        ASSERT_TRUE(client->WriteProperty(11, c.pid, Hex(c.value))) << int(c.pid);
        EXPECT_EQ(Read(11, c.pid), c.value);
        if (c.call != nullptr) {
            calls.emplace_back(c.call);
        }
    }
    ASSERT_TRUE(client->WriteProperty(11, 76, Hex("6e 65 77"), 11, 3));
    EXPECT_EQ(Read(11, 76, 9, 6), "69 63 6e 65 77 00");
    EXPECT_EQ(manager.calls(), calls);
    EXPECT_EQ(Read(11, 57), "c0 a8 01 0a");
    EXPECT_EQ(Read(11, 54), "04");

    ASSERT_TRUE(client->Reset());
    calls.emplace_back("CommitConfiguration");
    EXPECT_EQ(manager.calls(), calls);
    EXPECT_EQ(Read(11, 57), "c0 a8 02 32");
    EXPECT_EQ(Read(11, 54), "01");
    Result<Description> description = Connect().Describe();
    ASSERT_TRUE(description);
    EXPECT_EQ(description->ipCurrentConfig->address, 0xC0A80232u);
    EXPECT_EQ(description->ipCurrentConfig->assignmentMethod, 1);
    EXPECT_EQ(description->ipConfig->netmask, 0xFFFF0000u);
    EXPECT_EQ(description->device->individualAddress, 0x1205);
    EXPECT_EQ(description->device->projectInstallationId, 0x4321);
    EXPECT_EQ(description->device->routingMulticast, 0xE000170Du);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(description->device->friendlyName.data())),
              "test devicnew");
}

// The client's repeated request is acknowledged again and not executed again;
// the server's own request is repeated once, then the connection is closed.
TEST_F(DeviceManagement, RepetitionsInBothDirections) {
    RawPeer peer(endpoint);
    const std::uint8_t ch = peer.Connect();
    const Bytes request =
        Encode(Service::DeviceConfigurationRequest,
               ConfigurationRequest{{ch, 0, 0}, Hex("f6 00 0b 01 3c 10 01 c0 a8 01 63")});
    const Bytes ack = Encode(Service::DeviceConfigurationAck, ConnectionHeader{ch, 0, 0});
    const Bytes confirmation =
        Encode(Service::DeviceConfigurationRequest,
               ConfigurationRequest{{ch, 0, 0}, Hex("f5 00 0b 01 3c 10 01")});
    peer.Send(request);
    EXPECT_EQ(peer.Next(), ack);
    EXPECT_EQ(peer.Next(), confirmation);
    peer.Send(request);
    EXPECT_EQ(peer.Next(), ack);
    EXPECT_EQ(peer.Next(), confirmation); // repeated: it was not acknowledged
    EXPECT_EQ(peer.Next(),
              Encode(Service::DisconnectRequest, ChannelRequest{ch, {kUdp, endpoint}}));
    EXPECT_EQ(manager.calls(), Strings{"SetConfiguredIpAddress 3232235875"});
    EXPECT_TRUE(client->Heartbeat()); // the other connection is untouched
}

} // namespace
} // namespace KnxNetIp
