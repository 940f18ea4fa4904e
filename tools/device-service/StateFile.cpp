#include "StateFile.h"

#include "FileIo.h"
#include "SystemError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace DeviceService {

namespace {

// Creates `directory` and its missing parents with mode 0755 whatever the
// umask: each is made 0700 (or less) and opened up once it exists, so it is
// never writable by others on the way.
Result<void> MakeDirectories(const std::filesystem::path& directory) {
    std::filesystem::path partial;
    for (const std::filesystem::path& part : directory) {
        partial /= part;
        if (mkdir(partial.c_str(), 0700) == 0) {
            if (chmod(partial.c_str(), 0755) != 0) {
                return SystemError("cannot set the mode of " + partial.string());
            }
        } else if (errno != EEXIST) {
            return SystemError("cannot create " + partial.string());
        }
    }
    return Ok{};
}

// Writes `text` to `name` and syncs it. The service is the only writer of its
// state file, so one fixed temporary name suffices: whatever is found there (a
// leftover of a crash between write and rename) is removed, and the file is
// created anew, exclusively and never through a symbolic link, so that nothing
// placed there in between can redirect the write.
Result<void> WriteTemporary(const std::string& name, const std::string& text) {
    if (unlink(name.c_str()) != 0 && errno != ENOENT) {
        return SystemError("cannot remove " + name);
    }
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) {
        return SystemError("cannot create " + name);
    }
    Result<void> written = WriteAll(fd, text) && fsync(fd) == 0
                               ? Result<void>(Ok{})
                               : SystemError("cannot write " + name);
    if (close(fd) != 0 && written) {
        written = SystemError("cannot close " + name);
    }
    if (!written) {
        unlink(name.c_str());
    }
    return written;
}

} // namespace

Result<DeviceState> LoadState(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno == ENOENT ? Result<DeviceState>(DefaultState())
                               : SystemError("cannot open " + path);
    }
    std::string text;
    if (!ReadAll(fd, text)) {
        Error error = SystemError("cannot read " + path);
        close(fd);
        return error;
    }
    close(fd);
    Result<DeviceState> state = ParseStateText(text);
    if (!state) {
        return Error{path + " does not hold a valid device state: " + state.error()};
    }
    return state;
}

Result<void> SaveState(const std::string& path, const DeviceState& state) {
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    const std::string directory = parent.empty() ? "." : parent.string();
    if (Result<void> made = MakeDirectories(directory); !made) {
        return made;
    }
    const int directoryFd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directoryFd < 0) {
        return SystemError("cannot open " + directory);
    }
    const std::string temporary = path + ".tmp";
    Result<void> saved = WriteTemporary(temporary, StateText(state));
    if (saved && rename(temporary.c_str(), path.c_str()) != 0) {
        saved = SystemError("cannot replace " + path);
        unlink(temporary.c_str());
    }
    // Once renamed, the new document is what every reader sees; the directory
    // sync only makes the rename durable, so its failure does not undo it.
    if (saved) {
        fsync(directoryFd);
    }
    close(directoryFd);
    return saved;
}

} // namespace DeviceService
