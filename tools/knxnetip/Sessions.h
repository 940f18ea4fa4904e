// The KNXnet/IP server's protocol state without its sockets: answers each
// datagram it is given, keeps the device management connections with their
// sequence counters, repeats its own unacknowledged requests and ends
// connections that fall silent. Time is passed in, so that it is testable
// without waiting.
#ifndef KNXNETIP_SESSIONS_H
#define KNXNETIP_SESSIONS_H

#include "InterfaceObjects.h"
#include "Udp.h"

#include <chrono>
#include <deque>
#include <map>

namespace KnxNetIp {

struct SessionLimits {
    // A connection closes when no CONNECTIONSTATE_REQUEST came for this long.
    std::chrono::milliseconds connectionTimeout{120000};
    // The server repeats an unacknowledged request once after this long, and
    // closes the connection when the repetition is not acknowledged either.
    std::chrono::milliseconds acknowledgeTimeout{10000};
    std::size_t maxConnections = 8;
};

class Sessions {
public:
    // `local` is the server's control and data endpoint; address 0 stands for
    // the manager's current IP address.
    Sessions(InterfaceObjects& objects, const Endpoint& local, const SessionLimits& limits);

    // Appends the datagrams to send in answer to `in`.
    void Receive(const Datagram& in, Clock::time_point now, std::vector<Datagram>& out);
    // Appends repetitions and disconnections that are due at `now`.
    void Expire(Clock::time_point now, std::vector<Datagram>& out);
    // When Expire next has something to do.
    std::optional<Clock::time_point> NextDeadline() const;

private:
    struct Connection {
        Endpoint control, data;
        Clock::time_point lastHeard;
        std::uint8_t expected = 0;   // the client's next sequence number
        std::uint8_t lastStatus = 0; // of the acknowledgement of the client's last request
        std::uint8_t sequence = 0;   // of the server's request in flight
        std::deque<Bytes> outbox;    // cEMI frames to send; the first one is in flight
        Clock::time_point acknowledgeDeadline;
        bool repeated = false;
    };

    Endpoint Local() const;
    void Search(const Frame& frame, const Endpoint& source, std::vector<Datagram>& out);
    void Connect(const Frame& frame, const Endpoint& source, Clock::time_point now,
                 std::vector<Datagram>& out);
    void ChannelService(const Frame& frame, const Endpoint& source, Clock::time_point now,
                        std::vector<Datagram>& out);
    void Configure(const Frame& frame, const Endpoint& source, Clock::time_point now,
                   std::vector<Datagram>& out);
    void Acknowledged(const Frame& frame, Clock::time_point now, std::vector<Datagram>& out);
    void SendFirst(std::uint8_t channel, Connection& connection, Clock::time_point now,
                   bool repetition, std::vector<Datagram>& out);

    InterfaceObjects& m_objects;
    Endpoint m_local;
    SessionLimits m_limits;
    std::map<std::uint8_t, Connection> m_connections;
};

} // namespace KnxNetIp

#endif
