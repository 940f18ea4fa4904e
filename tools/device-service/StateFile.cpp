#include "StateFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace DeviceService {

namespace {

std::string SystemError(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

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

// Writes `text` to `name` (created or truncated) and syncs it. The service is
// the only writer of its state file, so one fixed temporary name suffices, and
// a crash between write and rename leaves at most that one file, which the
// next save overwrites.
bool WriteTemporary(const std::string& name, const std::string& text, std::string& error) {
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = SystemError("cannot create " + name);
        return false;
    }
    bool written = WriteAll(fd, text) && fsync(fd) == 0;
    if (!written) {
        error = SystemError("cannot write " + name);
    }
    if (close(fd) != 0 && written) {
        error = SystemError("cannot close " + name);
        written = false;
    }
    if (!written) {
        unlink(name.c_str());
    }
    return written;
}

} // namespace

std::optional<DeviceState> LoadState(const std::string& path, std::string& error) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT) {
            return DefaultState();
        }
        error = SystemError("cannot open " + path);
        return std::nullopt;
    }
    std::string text;
    const bool read = ReadAll(fd, text);
    if (!read) {
        error = SystemError("cannot read " + path);
    }
    close(fd);
    std::optional<DeviceState> state = read ? ParseStateText(text) : std::nullopt;
    if (read && !state) {
        error = path + " does not hold a valid device state";
    }
    return state;
}

bool SaveState(const std::string& path, const DeviceState& state, std::string& error) {
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    const std::string directory = parent.empty() ? "." : parent.string();
    std::error_code ignored;
    std::filesystem::create_directories(directory, ignored);
    const int directoryFd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directoryFd < 0) {
        error = SystemError("cannot open " + directory);
        return false;
    }
    const std::string temporary = path + ".tmp";
    const bool written = WriteTemporary(temporary, StateText(state), error);
    const bool renamed = written && rename(temporary.c_str(), path.c_str()) == 0;
    if (written && !renamed) {
        error = SystemError("cannot replace " + path);
        unlink(temporary.c_str());
    }
    // Once renamed, the new document is what every reader sees; the directory
    // sync only makes the rename durable, so its failure does not undo it.
    if (renamed) {
        fsync(directoryFd);
    }
    close(directoryFd);
    return renamed;
}

} // namespace DeviceService
