// The device service's listening socket: a socket file with an explicit mode
// (owner only, or owner and one group) that replaces nothing but a stale
// socket, and the check of who is connected through it.
#ifndef DEVICE_SERVICE_LISTENING_SOCKET_H
#define DEVICE_SERVICE_LISTENING_SOCKET_H

#include "Result.h"

#include <sys/types.h>
#include <sys/un.h>

#include <memory>
#include <optional>
#include <string>

namespace DeviceService {

class ListeningSocket {
public:
    // Listens on `path`, mode 0600, or 0660 and owned by `group` when that
    // names a group (empty: none). A socket file that nobody listens on is
    // replaced; anything else at `path` is left alone and fails the call.
    static Result<std::unique_ptr<ListeningSocket>> Open(const std::string& path,
                                                         const std::string& group);
    // Closes the socket and removes its file.
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    int Descriptor() const { return m_fd; }

    // Only root, the service's own user and members of the socket group may
    // use the service; fails with who the peer on `connection` is otherwise.
    Result<void> CheckPeer(int connection) const;

private:
    ListeningSocket(int fd, std::string path, std::optional<gid_t> group);
    Result<void> Listen(const sockaddr_un& address);

    int m_fd;
    std::string m_path;
    std::optional<gid_t> m_group;
    bool m_bound = false;
};

} // namespace DeviceService

#endif
