#include "ListeningSocket.h"

#include "SystemError.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace DeviceService {

namespace {

// Connections queued before the service accepts them: room for a burst of
// clients, whose library does not wait for a place in the queue.
constexpr int kBacklog = 64;

bool IsListenedOn(const sockaddr_un& address) {
    // Non-blocking: a listener with a full queue answers EAGAIN instead of
    // holding the probe up.
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool live = probe >= 0 && (connect(probe, reinterpret_cast<const sockaddr*>(&address),
                                             sizeof address) == 0 ||
                                     errno == EAGAIN);
    if (probe >= 0) {
        close(probe);
    }
    return live;
}

// Only a socket file that nobody listens on is left over from an earlier run;
// a regular file (say, a state file given as the socket) or a live socket is
// never removed.
Result<void> RemoveStaleSocket(const std::string& path, const sockaddr_un& address) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return SystemError("cannot examine it");
    }
    if (!S_ISSOCK(status.st_mode)) {
        return Error{"it exists and is not a socket (left as it is)"};
    }
    if (IsListenedOn(address)) {
        return Error{"another process listens on it"};
    }
    if (unlink(path.c_str()) != 0) {
        return SystemError("cannot remove the stale socket");
    }
    return Ok{};
}

// Binds under a umask that gives the group and others nothing, so that the
// socket file is never open wider than wanted, not even for a moment.
int BindPrivately(int fd, const sockaddr_un& address) {
    const mode_t previous = umask(0177);
    const int result = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    umask(previous);
    return result;
}

Result<gid_t> GroupId(const std::string& name) {
    const group* entry = getgrnam(name.c_str());
    if (entry == nullptr) {
        return Error{"no group named " + name};
    }
    return entry->gr_gid;
}

// Whether the peer's group, or one of its supplementary groups, is `group`.
bool InGroup(int connection, gid_t primary, gid_t group) {
    if (primary == group) {
        return true;
    }
    std::vector<gid_t> groups(32);
    auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    int result = getsockopt(connection, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
    if (result != 0 && errno == ERANGE) {
        groups.resize(size / sizeof(gid_t));
        result = getsockopt(connection, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
    }
    groups.resize(result == 0 ? size / sizeof(gid_t) : 0);
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

} // namespace

Result<std::unique_ptr<ListeningSocket>> ListeningSocket::Open(const std::string& path,
                                                               const std::string& group) {
    std::optional<gid_t> groupId;
    if (!group.empty()) {
        const Result<gid_t> id = GroupId(group);
        if (!id) {
            return Error{id.error()};
        }
        groupId = *id;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return Error{"socket path too long or empty: " + path};
    }
    path.copy(address.sun_path, path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return SystemError("cannot create a socket");
    }
    std::unique_ptr<ListeningSocket> listening(new ListeningSocket(fd, path, groupId));
    if (Result<void> listened = listening->Listen(address); !listened) {
        return Error{"cannot listen on " + path + ": " + listened.error()};
    }
    return listening;
}

ListeningSocket::ListeningSocket(int fd, std::string path, std::optional<gid_t> group)
    : m_fd(fd), m_path(std::move(path)), m_group(group) {
}

ListeningSocket::~ListeningSocket() {
    close(m_fd);
    struct stat status {};
    if (m_bound && lstat(m_path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
        unlink(m_path.c_str());
    }
}

Result<void> ListeningSocket::Listen(const sockaddr_un& address) {
    if (BindPrivately(m_fd, address) != 0) {
        if (errno != EADDRINUSE) {
            return Error{std::strerror(errno)};
        }
        if (Result<void> removed = RemoveStaleSocket(m_path, address); !removed) {
            return removed;
        }
        if (BindPrivately(m_fd, address) != 0) {
            return Error{std::strerror(errno)};
        }
    }
    m_bound = true;
    if (m_group && (chown(m_path.c_str(), static_cast<uid_t>(-1), *m_group) != 0 ||
                    chmod(m_path.c_str(), 0660) != 0)) {
        return SystemError("cannot open it to its group");
    }
    if (listen(m_fd, kBacklog) != 0) {
        return Error{std::strerror(errno)};
    }
    return Ok{};
}

Result<void> ListeningSocket::CheckPeer(int connection) const {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return SystemError("cannot read the peer's credentials");
    }
    if (peer.uid == 0 || peer.uid == geteuid() ||
        (m_group && InGroup(connection, peer.gid, *m_group))) {
        return Ok{};
    }
    return Error{"uid " + std::to_string(peer.uid) + " (gid " + std::to_string(peer.gid) +
                 ") is neither root, nor the service's user, nor in the socket group"};
}

} // namespace DeviceService
