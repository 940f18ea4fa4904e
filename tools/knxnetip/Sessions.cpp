#include "Sessions.h"

#include <algorithm>

namespace KnxNetIp {

namespace {

constexpr std::size_t kMaxOutbox = 16;

// Where to answer: the address the client gave, or for a client behind NAT
// (address or port 0) where the datagram came from.
Endpoint Target(const Hpai& hpai, const Endpoint& source) {
    return hpai.endpoint.address == 0 || hpai.endpoint.port == 0 ? source : hpai.endpoint;
}

bool Supported(const Families& families, const std::pair<std::uint8_t, std::uint8_t>& asked) {
    return std::any_of(families.begin(), families.end(), [&](const auto& family) {
        return family.first == asked.first && family.second >= asked.second;
    });
}

// What a search may answer with: device information and service families,
// and for an extended search any further DIBs it asks for.
void KeepForSearch(Description& description, const Bytes& dibTypes) {
    const auto asked = [&](std::uint8_t type) {
        return std::find(dibTypes.begin(), dibTypes.end(), type) != dibTypes.end();
    };
    if (!asked(0x03)) {
        description.ipConfig.reset();
    }
    if (!asked(0x04)) {
        description.ipCurrentConfig.reset();
    }
    if (!asked(0x05)) {
        description.knxAddresses.reset();
    }
}

} // namespace

Sessions::Sessions(InterfaceObjects& objects, const Endpoint& local, const SessionLimits& limits)
    : m_objects(objects), m_local(local), m_limits(limits) {
}

Endpoint Sessions::Local() const {
    if (m_local.address != 0) {
        return m_local;
    }
    return {static_cast<std::uint32_t>(m_objects.manager().GetCurrentIpAddress()), m_local.port};
}

void Sessions::Receive(const Datagram& in, Clock::time_point now, std::vector<Datagram>& out) {
    const std::optional<Frame> frame = DecodeFrame(in.bytes.data(), in.bytes.size());
    if (!frame) {
        return;
    }
    switch (static_cast<Service>(frame->service)) {
        case Service::SearchRequest:
        case Service::SearchRequestExtended:
            return Search(*frame, in.peer, out);
        case Service::DescriptionRequest:
            if (const auto hpai = Decode<Hpai>(frame->body); hpai && hpai->protocol == kUdp) {
                Description description = m_objects.Describe();
                description.knxAddresses.reset();
                out.push_back(
                    {Target(*hpai, in.peer), Encode(Service::DescriptionResponse, description)});
            }
            return;
        case Service::ConnectRequest:
            return Connect(*frame, in.peer, now, out);
        case Service::ConnectionStateRequest:
        case Service::DisconnectRequest:
            return ChannelService(*frame, in.peer, now, out);
        case Service::DeviceConfigurationRequest:
            return Configure(*frame, in.peer, now, out);
        case Service::DeviceConfigurationAck:
            return Acknowledged(*frame, now, out);
        default:
            return; // responses and services this server does not offer
    }
}

void Sessions::Search(const Frame& frame, const Endpoint& source, std::vector<Datagram>& out) {
    const bool extended =
        frame.service == static_cast<std::uint16_t>(Service::SearchRequestExtended);
    SearchRequestExtended request;
    if (const auto message = Decode<SearchRequestExtended>(frame.body); message && extended) {
        request = *message;
    } else if (const auto hpai = Decode<Hpai>(frame.body); hpai && !extended) {
        request.discovery = *hpai;
    } else {
        return;
    }
    const SearchParameters& parameters = request.parameters;
    SearchResponse response{{kUdp, Local()}, m_objects.Describe()};
    Description& description = response.description;
    // This device is never in programming mode: a search for such devices passes it by.
    if (request.discovery.protocol != kUdp || parameters.programmingMode ||
        parameters.unsupportedMandatory ||
        (parameters.mac && *parameters.mac != description.device->mac) ||
        (parameters.family && !Supported(description.families, *parameters.family))) {
        return;
    }
    KeepForSearch(description, parameters.dibTypes);
    const Service answer = extended ? Service::SearchResponseExtended : Service::SearchResponse;
    out.push_back({Target(request.discovery, source), Encode(answer, response)});
}

void Sessions::Connect(const Frame& frame, const Endpoint& source, Clock::time_point now,
                       std::vector<Datagram>& out) {
    const std::optional<ConnectRequest> request = Decode<ConnectRequest>(frame.body);
    if (!request) {
        return;
    }
    ConnectResponse response;
    if (request->control.protocol != kUdp || request->data.protocol != kUdp) {
        response.status = kHostProtocolType;
    } else if (request->connectionType != kDeviceManagementConnection) {
        response.status = kConnectionType;
    } else if (m_connections.size() >= m_limits.maxConnections) {
        response.status = kNoMoreConnections;
    } else {
        std::uint8_t channel = 1;
        while (m_connections.count(channel) != 0) {
            ++channel; // the limit keeps this below 256
        }
        Connection& connection = m_connections[channel];
        connection.control = Target(request->control, source);
        connection.data = Target(request->data, source);
        connection.lastHeard = now;
        response = {channel, kNoError, {kUdp, Local()}, kDeviceManagementConnection};
    }
    out.push_back({Target(request->control, source), Encode(Service::ConnectResponse, response)});
}

void Sessions::ChannelService(const Frame& frame, const Endpoint& source, Clock::time_point now,
                              std::vector<Datagram>& out) {
    const std::optional<ChannelRequest> request = Decode<ChannelRequest>(frame.body);
    if (!request) {
        return;
    }
    const auto connection = m_connections.find(request->channel);
    const bool known = connection != m_connections.end();
    const bool disconnect = frame.service == static_cast<std::uint16_t>(Service::DisconnectRequest);
    if (known && disconnect) {
        m_connections.erase(connection);
    } else if (known) {
        connection->second.lastHeard = now;
    }
    const Service answer =
        disconnect ? Service::DisconnectResponse : Service::ConnectionStateResponse;
    const ChannelStatus status{request->channel, known ? kNoError : kConnectionId};
    out.push_back({Target(request->control, source), Encode(answer, status)});
}

void Sessions::Configure(const Frame& frame, const Endpoint& source, Clock::time_point now,
                         std::vector<Datagram>& out) {
    const std::optional<ConfigurationRequest> request = Decode<ConfigurationRequest>(frame.body);
    if (!request) {
        return;
    }
    ConnectionHeader ack = request->header;
    const auto found = m_connections.find(ack.channel);
    if (found == m_connections.end()) {
        ack.status = kConnectionId;
        out.push_back({source, Encode(Service::DeviceConfigurationAck, ack)});
        return;
    }
    Connection& connection = found->second;
    bool queued = false;
    if (ack.sequence == connection.expected) {
        const std::optional<Cemi::Message> cemi = Cemi::Decode(request->cemi);
        const std::optional<Cemi::Message> answer = cemi ? m_objects.Serve(*cemi) : std::nullopt;
        connection.lastStatus = answer ? kNoError : kDataConnection;
        ++connection.expected;
        queued = answer && connection.outbox.size() < kMaxOutbox;
        if (queued) {
            connection.outbox.push_back(Cemi::Encode(*answer));
        }
    } else if (static_cast<std::uint8_t>(ack.sequence + 1) != connection.expected) {
        return; // neither the next request nor a repetition of the last one
    }
    ack.status = connection.lastStatus;
    out.push_back({connection.data, Encode(Service::DeviceConfigurationAck, ack)});
    if (queued && connection.outbox.size() == 1) {
        SendFirst(ack.channel, connection, now, false, out);
    }
}

void Sessions::Acknowledged(const Frame& frame, Clock::time_point now, std::vector<Datagram>& out) {
    const std::optional<ConnectionHeader> ack = Decode<ConnectionHeader>(frame.body);
    const auto found = ack ? m_connections.find(ack->channel) : m_connections.end();
    if (found == m_connections.end()) {
        return;
    }
    Connection& connection = found->second;
    if (connection.outbox.empty() || ack->sequence != connection.sequence) {
        return;
    }
    connection.outbox.pop_front();
    ++connection.sequence;
    if (!connection.outbox.empty()) {
        SendFirst(ack->channel, connection, now, false, out);
    }
}

void Sessions::SendFirst(std::uint8_t channel, Connection& connection, Clock::time_point now,
                         bool repetition, std::vector<Datagram>& out) {
    const ConfigurationRequest request{{channel, connection.sequence, kNoError},
                                       connection.outbox.front()};
    out.push_back({connection.data, Encode(Service::DeviceConfigurationRequest, request)});
    connection.acknowledgeDeadline = now + m_limits.acknowledgeTimeout;
    connection.repeated = repetition;
}

void Sessions::Expire(Clock::time_point now, std::vector<Datagram>& out) {
    for (auto it = m_connections.begin(); it != m_connections.end();) {
        Connection& connection = it->second;
        const bool silent = now >= connection.lastHeard + m_limits.connectionTimeout;
        const bool unacknowledged =
            !connection.outbox.empty() && now >= connection.acknowledgeDeadline;
        if (unacknowledged && !connection.repeated && !silent) {
            SendFirst(it->first, connection, now, true, out);
        } else if (silent || unacknowledged) {
            const ChannelRequest request{it->first, {kUdp, Local()}};
            out.push_back({connection.control, Encode(Service::DisconnectRequest, request)});
            it = m_connections.erase(it);
            continue;
        }
        ++it;
    }
}

std::optional<Clock::time_point> Sessions::NextDeadline() const {
    std::optional<Clock::time_point> next;
    for (const auto& [channel, connection] : m_connections) {
        Clock::time_point due = connection.lastHeard + m_limits.connectionTimeout;
        if (!connection.outbox.empty()) {
            due = std::min(due, connection.acknowledgeDeadline);
        }
        next = next ? std::min(*next, due) : due;
    }
    return next;
}

} // namespace KnxNetIp
