// The KNXnet/IP frame codec (protocol version 1.0): the header, the host
// protocol address information (HPAI), connection request and response
// information (CRI/CRD), the connection header, search request parameters and
// description information blocks (DIBs). Pure functions: a decoder answers
// nothing for bytes that are not exactly one well-formed structure.
#ifndef KNXNETIP_FRAME_H
#define KNXNETIP_FRAME_H

#include "Bytes.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KnxNetIp {

enum class Service : std::uint16_t {
    SearchRequest = 0x0201,
    SearchResponse = 0x0202,
    DescriptionRequest = 0x0203,
    DescriptionResponse = 0x0204,
    ConnectRequest = 0x0205,
    ConnectResponse = 0x0206,
    ConnectionStateRequest = 0x0207,
    ConnectionStateResponse = 0x0208,
    DisconnectRequest = 0x0209,
    DisconnectResponse = 0x020A,
    SearchRequestExtended = 0x020B,
    SearchResponseExtended = 0x020C,
    DeviceConfigurationRequest = 0x0310,
    DeviceConfigurationAck = 0x0311,
};

// Status codes of responses and acknowledgements.
enum Status : std::uint8_t {
    kNoError = 0x00,
    kHostProtocolType = 0x01,
    kConnectionId = 0x21,
    kConnectionType = 0x22,
    kNoMoreConnections = 0x24,
    kDataConnection = 0x26,
};

constexpr std::size_t kHeaderSize = 6;
constexpr std::uint8_t kUdp = 0x01;
constexpr std::uint8_t kDeviceManagementConnection = 0x03;
constexpr std::uint8_t kCoreFamily = 0x02;
constexpr std::uint8_t kDeviceManagementFamily = 0x03;
constexpr std::uint8_t kMediumKnxIp = 0x20;
constexpr std::uint32_t kSystemSetupMulticast = 0xE000170C; // 224.0.23.12
constexpr std::uint16_t kDefaultPort = 3671;

// An IPv4 address (first octet in the most significant byte) and a UDP port.
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;
};
bool operator==(const Endpoint& a, const Endpoint& b);
// "ADDRESS[:PORT]" with a dotted IPv4 address; the port defaults to 3671.
std::optional<Endpoint> ParseEndpoint(const std::string& text);
std::string ToString(const Endpoint& endpoint);
std::string ToString(std::uint32_t address);

struct Hpai {
    std::uint8_t protocol = kUdp;
    Endpoint endpoint;
};

struct Frame {
    std::uint16_t service = 0;
    Bytes body;
};
// A whole datagram: header length 6, version 1.0, a length field equal to the size.
std::optional<Frame> DecodeFrame(const std::uint8_t* data, std::size_t size);

struct SearchParameters {
    bool programmingMode = false;
    std::optional<std::array<std::uint8_t, 6>> mac;
    std::optional<std::pair<std::uint8_t, std::uint8_t>> family; // family, version
    Bytes dibTypes;
    bool unsupportedMandatory = false; // a parameter marked mandatory that is not understood
};
struct SearchRequestExtended {
    Hpai discovery;
    SearchParameters parameters;
};

struct DeviceInfo {
    std::uint8_t medium = kMediumKnxIp;
    std::uint8_t status = 0;
    std::uint16_t individualAddress = 0;
    std::uint16_t projectInstallationId = 0;
    std::array<std::uint8_t, 6> serialNumber{};
    std::uint32_t routingMulticast = 0;
    std::array<std::uint8_t, 6> mac{};
    std::array<std::uint8_t, 30> friendlyName{};
};
struct IpConfig {
    std::uint32_t address = 0, netmask = 0, gateway = 0;
    std::uint8_t capabilities = 0, assignmentMethod = 0;
};
struct IpCurrentConfig {
    std::uint32_t address = 0, netmask = 0, gateway = 0, dhcpServer = 0;
    std::uint8_t assignmentMethod = 0;
};
using Families = std::vector<std::pair<std::uint8_t, std::uint8_t>>;
// A sequence of DIBs; a part that is absent is not sent. Unknown DIB types are skipped.
struct Description {
    std::optional<DeviceInfo> device;
    Families families;
    std::optional<IpConfig> ipConfig;
    std::optional<IpCurrentConfig> ipCurrentConfig;
    std::optional<std::vector<std::uint16_t>> knxAddresses;
};
struct SearchResponse {
    Hpai control;
    Description description;
};

struct ConnectRequest {
    Hpai control, data;
    std::uint8_t connectionType = kDeviceManagementConnection;
    Bytes options; // the CRI's bytes after its type
};
// Carries data endpoint and CRD only when the status is kNoError.
struct ConnectResponse {
    std::uint8_t channel = 0, status = kNoError;
    Hpai data;
    std::uint8_t connectionType = kDeviceManagementConnection;
};
// CONNECTIONSTATE_REQUEST and DISCONNECT_REQUEST.
struct ChannelRequest {
    std::uint8_t channel = 0;
    Hpai control;
};
// CONNECTIONSTATE_RESPONSE and DISCONNECT_RESPONSE.
struct ChannelStatus {
    std::uint8_t channel = 0, status = kNoError;
};
// The connection header; alone it is a DEVICE_CONFIGURATION_ACK.
struct ConnectionHeader {
    std::uint8_t channel = 0, sequence = 0, status = kNoError;
};
struct ConfigurationRequest {
    ConnectionHeader header;
    Bytes cemi;
};

void Put(Bytes& out, const Hpai& hpai);
void Put(Bytes& out, const SearchRequestExtended& message);
void Put(Bytes& out, const Description& message);
void Put(Bytes& out, const SearchResponse& message);
void Put(Bytes& out, const ConnectRequest& message);
void Put(Bytes& out, const ConnectResponse& message);
void Put(Bytes& out, const ChannelRequest& message);
void Put(Bytes& out, const ChannelStatus& message);
void Put(Bytes& out, const ConnectionHeader& message);
void Put(Bytes& out, const ConfigurationRequest& message);

void Read(Reader& in, Hpai& hpai);
void Read(Reader& in, SearchRequestExtended& message);
void Read(Reader& in, Description& message);
void Read(Reader& in, SearchResponse& message);
void Read(Reader& in, ConnectRequest& message);
void Read(Reader& in, ConnectResponse& message);
void Read(Reader& in, ChannelRequest& message);
void Read(Reader& in, ChannelStatus& message);
void Read(Reader& in, ConnectionHeader& message);
void Read(Reader& in, ConfigurationRequest& message);

Bytes EncodeFrame(Service service, const Bytes& body);

template <typename Message>
Bytes Encode(Service service, const Message& message) {
    Bytes body;
    Put(body, message);
    return EncodeFrame(service, body);
}

// The message that makes up the whole of `body`.
template <typename Message>
std::optional<Message> Decode(const Bytes& body) {
    Reader in(body);
    Message message;
    Read(in, message);
    if (!in.ok() || in.left() != 0) {
        return std::nullopt;
    }
    return message;
}

} // namespace KnxNetIp

#endif
