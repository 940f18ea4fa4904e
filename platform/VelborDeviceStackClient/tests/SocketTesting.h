// Raw ends of the framed protocol on Unix domain sockets, for the tests of the
// client library and of the device service.
#ifndef VELBOR_SOCKET_TESTING_H
#define VELBOR_SOCKET_TESTING_H

#include "Framing.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <string>

inline std::string Frame(const std::string& body) {
    return *Velbor::EncodeFrame(body);
}

// A socket listening on `path` or connected to it, whose reads give up after
// ten seconds; -1 on failure.
inline int Open(const std::string& path, bool listening) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    const auto* raw = reinterpret_cast<const sockaddr*>(&address);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (listening ? bind(fd, raw, sizeof address) == 0 && listen(fd, 8) == 0
                  : connect(fd, raw, sizeof address) == 0) {
        return fd;
    }
    close(fd);
    return -1;
}

// Sends `bytes`, then reads one message: its body, "<closed>" or "<silent>".
inline std::string Exchange(int fd, const std::string& bytes) {
    send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    std::string received, body;
    for (char chunk[512]; Velbor::TakeFrame(received, body) != Velbor::FrameStatus::Complete;) {
        const ssize_t n = recv(fd, chunk, sizeof chunk, 0);
        if (n <= 0) {
            return n < 0 && errno == EAGAIN ? "<silent>" : "<closed>";
        }
        received.append(chunk, static_cast<std::size_t>(n));
    }
    return body;
}

#endif
