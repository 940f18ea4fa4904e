#include "FileIo.h"

#include <unistd.h>

#include <cerrno>

namespace DeviceService {

bool ReadAll(int fd, std::string& text) {
    char chunk[4096];
    for (;;) {
        const ssize_t n = read(fd, chunk, sizeof chunk);
        if (n == 0) {
            return true;
        }
        if (n < 0 && errno != EINTR) {
            return false;
        }
        text.append(chunk, n > 0 ? static_cast<std::size_t>(n) : 0);
    }
}

bool WriteAll(int fd, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t n = write(fd, text.data() + written, text.size() - written);
        if (n < 0 && errno != EINTR) {
            return false;
        }
        written += n > 0 ? static_cast<std::size_t>(n) : 0;
    }
    return true;
}

} // namespace DeviceService
