// Search, description and the connection services through real UDP sockets,
// and datagrams that are malformed or address nothing.
#include "ServerTestSupport.h"

namespace KnxNetIp {
namespace {

using std::chrono::milliseconds;

std::string Name(const std::array<std::uint8_t, 30>& name) {
    return std::string(name.begin(), name.end()).c_str();
}

class CoreServices : public ServerFixture {};

TEST_F(CoreServices, SearchAndDescriptionCarryTheIdentityAndTheManagersValues) {
    Start();
    Client client = Connect();
    Result<SearchResponse> search = client.Search();
    ASSERT_TRUE(search) << search.error();
    EXPECT_EQ(search->control.endpoint, endpoint);
    const DeviceInfo& device = *search->description.device;
    EXPECT_EQ(Name(device.friendlyName), "test device");
    EXPECT_EQ(device.individualAddress, 0x110A);
    EXPECT_EQ(device.projectInstallationId, 0x1234);
    EXPECT_EQ(device.serialNumber, TestIdentity().serialNumber);
    EXPECT_EQ(device.mac, manager.values().mac);
    EXPECT_EQ(device.routingMulticast, kSystemSetupMulticast);
    EXPECT_EQ(search->description.families,
              (Families{{kCoreFamily, 1}, {kDeviceManagementFamily, 1}}));
    EXPECT_FALSE(search->description.ipConfig);

    Result<Description> description = client.Describe();
    ASSERT_TRUE(description) << description.error();
    EXPECT_EQ(Name(description->device->friendlyName), "test device");
    const IpConfig& configured = *description->ipConfig;
    EXPECT_EQ(
        std::vector<std::uint32_t>({configured.address, configured.netmask, configured.gateway,
                                    configured.capabilities, configured.assignmentMethod}),
        std::vector<std::uint32_t>({0xC0A8010A, 0xFFFFFF00, 0xC0A80101, 6, 4}));
    const IpCurrentConfig& current = *description->ipCurrentConfig;
    EXPECT_EQ(std::vector<std::uint32_t>({current.address, current.netmask, current.gateway,
                                          current.dhcpServer, current.assignmentMethod}),
              std::vector<std::uint32_t>({0xC0A8010A, 0xFFFFFF00, 0xC0A80101, 0, 4}));
}

TEST_F(CoreServices, ExtendedSearchAnswersOnlyWhenItsParametersSelectTheDevice) {
    Start();
    struct Case {
        const char* name = nullptr;
        SearchParameters parameters;
        bool answered = false;
    };
    SearchParameters dibs;
    dibs.dibTypes = {0x03, 0x04, 0x05};
    SearchParameters programming;
    programming.programmingMode = true;
    SearchParameters ownMac, otherMac, management, tunnelling;
    ownMac.mac = manager.values().mac;
    otherMac.mac = {1, 2, 3, 4, 5, 6};
    management.family = {kDeviceManagementFamily, 1};
    tunnelling.family = {0x04, 1};
    const Case cases[] = {{"no parameters", {}, true},
                          {"DIBs asked for", dibs, true},
                          {"programming mode", programming, false},
                          {"own MAC", ownMac, true},
                          {"other MAC", otherMac, false},
                          {"device management", management, true},
                          {"tunnelling", tunnelling, false}};
    Client client = Connect(milliseconds(200));
    for (const Case& c : cases) {
        Result<SearchResponse> response = client.Search(c.parameters);
        EXPECT_EQ(bool(response), c.answered) << c.name;
        if (response) {
            const bool asked = !c.parameters.dibTypes.empty();
            EXPECT_TRUE(response->description.device) << c.name;
            EXPECT_EQ(bool(response->description.ipConfig), asked) << c.name;
            EXPECT_EQ(bool(response->description.ipCurrentConfig), asked) << c.name;
            EXPECT_EQ(bool(response->description.knxAddresses), asked) << c.name;
        }
    }
}

TEST_F(CoreServices, ConnectionsAreLimitedAndEndOnDisconnect) {
    Start({std::chrono::seconds(120), std::chrono::seconds(10), 2});
    Client first = Connect(), second = Connect(), third = Connect();
    ASSERT_TRUE(first.Connect());
    ASSERT_TRUE(second.Connect());
    EXPECT_NE(first.channel(), second.channel());
    const Result<void> refused = third.Connect();
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error(), "connection refused with status 36"); // E_NO_MORE_CONNECTIONS
    EXPECT_TRUE(first.Heartbeat());
    EXPECT_TRUE(first.Disconnect());
    EXPECT_EQ(first.Heartbeat().error(),
              "connection state refused with status 33"); // E_CONNECTION_ID
    EXPECT_EQ(first.Disconnect().error(), "disconnection refused with status 33");
    EXPECT_TRUE(third.Connect());
}

TEST_F(CoreServices, ASilentConnectionIsClosedAndHeartbeatsKeepOneOpen) {
    Start({milliseconds(300), std::chrono::seconds(10), 8});
    Client kept = Connect();
    ASSERT_TRUE(kept.Connect());
    RawPeer silent(endpoint);
    const std::uint8_t channel = silent.Connect();
    for (int i = 0; i < 8; ++i) {
        std::this_thread::sleep_for(milliseconds(60));
        ASSERT_TRUE(kept.Heartbeat());
    }
    const std::optional<Bytes> closing = silent.Next();
    ASSERT_TRUE(closing);
    EXPECT_EQ(Decode<ChannelRequest>(DecodeFrame(closing->data(), closing->size())->body)->channel,
              channel);
    EXPECT_EQ(Bytes(closing->begin(), closing->begin() + 4), Hex("06 10 02 09"));
    silent.Send(Encode(Service::ConnectionStateRequest, ChannelRequest{channel, silent.Own()}));
    EXPECT_EQ(silent.Next(),
              Encode(Service::ConnectionStateResponse, ChannelStatus{channel, kConnectionId}));
}

// Every datagram here is dropped or refused; the server goes on serving.
TEST_F(CoreServices, MalformedDatagramsAreDroppedOrRefused) {
    Start();
    RawPeer peer(endpoint);
    const std::uint8_t ch = peer.Connect();
    ASSERT_NE(ch, 0);
    const auto hpai = [&] {
        Bytes bytes;
        Put(bytes, peer.Own());
        return bytes;
    }();
    const auto frame = [](const char* header, const Bytes& body, const char* tail = "") {
        Bytes bytes = Hex(header);
        PutBytes(bytes, body);
        PutBytes(bytes, Hex(tail));
        return bytes;
    };
    const auto config = [&](std::uint8_t channel, const char* cemi) {
        return Encode(Service::DeviceConfigurationRequest,
                      ConfigurationRequest{{channel, 0, 0}, Hex(cemi)});
    };
    struct Case {
        const char* name;
        Bytes request;
        Bytes answer; // empty: none
    };
    const Case cases[] = {
        {"empty datagram", {}, {}},
        {"shorter than a header", Hex("06 10 02 03 00"), {}},
        {"header length 5", frame("05 10 02 03 00 0e", hpai), {}},
        {"version 2.0", frame("06 20 02 03 00 0e", hpai), {}},
        {"length field above the size", frame("06 10 02 03 00 0f", hpai), {}},
        {"length field below the size", frame("06 10 02 03 00 0d", hpai), {}},
        {"unknown service", frame("06 10 04 20 00 0e", hpai), {}},
        {"truncated HPAI", frame("06 10 02 03 00 0d", Bytes(hpai.begin(), hpai.end() - 1)), {}},
        {"HPAI length 9", frame("06 10 02 03 00 0f", Hex("09 01 7f 00 00 01 0e 57 00")), {}},
        {"TCP HPAI", frame("06 10 02 01 00 0e", Hex("08 02 7f 00 00 01 0e 57")), {}},
        {"truncated search parameter", frame("06 10 02 0b 00 10", hpai, "04 04"), {}},
        {"unknown mandatory search parameter", frame("06 10 02 0b 00 10", hpai, "02 ff"), {}},
        {"truncated CRI", frame("06 10 02 05 00 17", hpai, "08 01 7f 00 00 01 0e 57 02"), {}},
        {"CRI longer than the frame",
         frame("06 10 02 05 00 18", hpai, "08 01 7f 00 00 01 0e 57 04 03"),
         {}},
        {"truncated connection header", frame("06 10 03 10 00 09", {}, "04 01 00"), {}},
        {"sequence number ahead",
         Encode(Service::DeviceConfigurationRequest, ConfigurationRequest{{ch, 5, 0}, Hex("f1")}),
         {}},
        {"tunnelling connection",
         frame("06 10 02 05 00 1a", hpai, "08 01 7f 00 00 01 0e 57 04 04 02 00"),
         Hex("06 10 02 06 00 08 00 22")},
        {"TCP data endpoint", frame("06 10 02 05 00 18", hpai, "08 02 7f 00 00 01 0e 57 02 03"),
         Hex("06 10 02 06 00 08 00 01")},
        {"unknown channel", config(0x77, "fc 00 0b 01 01 10 01"),
         Hex("06 10 03 11 00 0a 04 77 00 21")},
        {"truncated cEMI frame", config(ch, "fc 00 0b 01"),
         frame("06 10 03 11 00 0a 04", {ch}, "00 26")},
        {"state of an unknown channel",
         Encode(Service::ConnectionStateRequest, ChannelRequest{0x78, peer.Own()}),
         Hex("06 10 02 08 00 08 78 21")},
        {"disconnection of an unknown channel",
         Encode(Service::DisconnectRequest, ChannelRequest{0x79, peer.Own()}),
         Hex("06 10 02 0a 00 08 79 21")},
    };
    for (const Case& c : cases) {
        peer.Send(c.request);
        EXPECT_EQ(peer.Next(milliseconds(c.answer.empty() ? 100 : 2000)).value_or(Bytes()),
                  c.answer)
            << c.name;
    }
    // A flood of junk from one peer leaves another served once the kernel's
    // queue has room again: like any client, this one asks again.
    for (int i = 0; i < 2000; ++i) {
        peer.Send(Hex("06 10 02 03 00 0e 08 01"));
    }
    Client other = Connect(milliseconds(200));
    bool described = false;
    for (int attempt = 0; attempt < 5 && !described; ++attempt) {
        described = bool(other.Describe());
    }
    EXPECT_TRUE(described);
}

} // namespace
} // namespace KnxNetIp
