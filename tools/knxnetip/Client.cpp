#include "Client.h"

namespace KnxNetIp {

namespace {

Error Refused(const char* what, std::uint8_t status) {
    return Error{std::string(what) + " refused with status " + std::to_string(status)};
}

} // namespace

std::string PropertyErrorText(std::uint8_t error) {
    static const char* const kTexts[] = {"unspecified error",
                                         "value out of range",
                                         "value above maximum",
                                         "value below minimum",
                                         "memory error",
                                         "read-only",
                                         "illegal command",
                                         "non-existent property or object",
                                         "type conflict",
                                         "index out of range",
                                         "temporarily not writable"};
    return error < std::size(kTexts) ? kTexts[error] : "error " + std::to_string(error);
}

Result<Client> Client::Open(const Endpoint& server, std::chrono::milliseconds timeout) {
    Result<UdpSocket> socket = UdpSocket::Bind({server.address >> 24 == 127 ? 0x7F000001u : 0u, 0});
    if (!socket) {
        return Error{socket.error()};
    }
    return Client(std::move(*socket), server, timeout);
}

Result<Bytes> Client::Await(Service service) {
    const auto deadline = Clock::now() + m_timeout;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        const std::optional<Datagram> in =
            m_socket.Receive(std::max(left, std::chrono::milliseconds(0)));
        if (!in) {
            return Error{"no answer from " + ToString(m_server)};
        }
        const std::optional<Frame> frame = DecodeFrame(in->bytes.data(), in->bytes.size());
        if (frame && frame->service == static_cast<std::uint16_t>(service)) {
            return frame->body;
        }
    }
}

Result<SearchResponse> Client::Search(const std::optional<SearchParameters>& extended) {
    m_socket.SendTo(m_server, extended ? Encode(Service::SearchRequestExtended,
                                                SearchRequestExtended{Own(), *extended})
                                       : Encode(Service::SearchRequest, Own()));
    Result<Bytes> body =
        Await(extended ? Service::SearchResponseExtended : Service::SearchResponse);
    if (!body) {
        return Error{body.error()};
    }
    std::optional<SearchResponse> response = Decode<SearchResponse>(*body);
    return response ? Result<SearchResponse>(*response) : Error{"malformed search response"};
}

Result<Description> Client::Describe() {
    m_socket.SendTo(m_server, Encode(Service::DescriptionRequest, Own()));
    Result<Bytes> body = Await(Service::DescriptionResponse);
    if (!body) {
        return Error{body.error()};
    }
    std::optional<Description> description = Decode<Description>(*body);
    return description ? Result<Description>(*description) : Error{"malformed description"};
}

Result<void> Client::Connect() {
    m_socket.SendTo(m_server,
                    Encode(Service::ConnectRequest,
                           ConnectRequest{Own(), Own(), kDeviceManagementConnection, {}}));
    Result<Bytes> body = Await(Service::ConnectResponse);
    if (!body) {
        return Error{body.error()};
    }
    const std::optional<ConnectResponse> response = Decode<ConnectResponse>(*body);
    if (!response) {
        return Error{"malformed connect response"};
    }
    if (response->status != kNoError) {
        return Refused("connection", response->status);
    }
    m_channel = response->channel;
    m_sent = m_received = 0;
    return Ok{};
}

Result<ChannelStatus> Client::ChannelExchange(Service request, Service answer) {
    m_socket.SendTo(m_server, Encode(request, ChannelRequest{m_channel, Own()}));
    Result<Bytes> body = Await(answer);
    if (!body) {
        return Error{body.error()};
    }
    const std::optional<ChannelStatus> status = Decode<ChannelStatus>(*body);
    return status ? Result<ChannelStatus>(*status) : Error{"malformed response"};
}

Result<void> Client::Heartbeat() {
    const auto status =
        ChannelExchange(Service::ConnectionStateRequest, Service::ConnectionStateResponse);
    if (!status) {
        return Error{status.error()};
    }
    return status->status == kNoError ? Result<void>(Ok{})
                                      : Refused("connection state", status->status);
}

Result<void> Client::Disconnect() {
    const auto status = ChannelExchange(Service::DisconnectRequest, Service::DisconnectResponse);
    if (!status) {
        return Error{status.error()};
    }
    return status->status == kNoError ? Result<void>(Ok{})
                                      : Refused("disconnection", status->status);
}

Result<void> Client::Acknowledged(std::uint8_t sequence) {
    for (;;) {
        Result<Bytes> body = Await(Service::DeviceConfigurationAck);
        if (!body) {
            return Error{body.error()};
        }
        const std::optional<ConnectionHeader> ack = Decode<ConnectionHeader>(*body);
        if (ack && ack->channel == m_channel && ack->sequence == sequence) {
            return ack->status == kNoError ? Result<void>(Ok{}) : Refused("request", ack->status);
        }
    }
}

Result<Cemi::Message> Client::Request(const Cemi::Message& request) {
    const std::uint8_t sequence = m_sent++;
    m_socket.SendTo(m_server, Encode(Service::DeviceConfigurationRequest,
                                     ConfigurationRequest{{m_channel, sequence, kNoError},
                                                          Cemi::Encode(request)}));
    if (Result<void> acknowledged = Acknowledged(sequence); !acknowledged) {
        return Error{acknowledged.error()};
    }
    for (;;) {
        Result<Bytes> body = Await(Service::DeviceConfigurationRequest);
        if (!body) {
            return Error{body.error()};
        }
        const std::optional<ConfigurationRequest> answer = Decode<ConfigurationRequest>(*body);
        if (!answer || answer->header.channel != m_channel) {
            continue;
        }
        ConnectionHeader ack = answer->header;
        m_socket.SendTo(m_server, Encode(Service::DeviceConfigurationAck, ack));
        if (ack.sequence != m_received) {
            continue; // a repetition of an answer already taken
        }
        ++m_received;
        std::optional<Cemi::Message> cemi = Cemi::Decode(answer->cemi);
        return cemi ? Result<Cemi::Message>(*cemi) : Error{"malformed cEMI frame"};
    }
}

Result<Bytes> Client::ReadProperty(std::uint16_t objectType, std::uint8_t pid, std::uint16_t start,
                                   std::uint8_t count) {
    Result<Cemi::Message> answer =
        Request({Cemi::kPropReadReq, objectType, 1, pid, count, start, {}});
    if (!answer) {
        return Error{answer.error()};
    }
    if (answer->count == 0) {
        return Error{PropertyErrorText(answer->data.empty() ? 0 : answer->data[0])};
    }
    return answer->data;
}

Result<void> Client::WriteProperty(std::uint16_t objectType, std::uint8_t pid, const Bytes& data,
                                   std::uint16_t start, std::uint8_t count) {
    Result<Cemi::Message> answer =
        Request({Cemi::kPropWriteReq, objectType, 1, pid, count, start, data});
    if (!answer) {
        return Error{answer.error()};
    }
    if (answer->count == 0) {
        return Error{PropertyErrorText(answer->data.empty() ? 0 : answer->data[0])};
    }
    return Ok{};
}

Result<void> Client::Reset() {
    Result<Cemi::Message> answer = Request({Cemi::kResetReq, 0, 0, 0, 0, 0, {}});
    if (!answer) {
        return Error{answer.error()};
    }
    return answer->code == Cemi::kResetInd ? Result<void>(Ok{})
                                           : Error{"unexpected answer to reset"};
}

} // namespace KnxNetIp
