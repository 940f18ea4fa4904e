#include "ResolverFile.h"

#include "FileIo.h"
#include "SystemError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace DeviceService {

namespace {

// Fills the new file `fd`, named `name`, and closes it; readable by everyone,
// as resolvers in every process read it.
Result<void> Fill(int fd, const std::string& name, const std::string& text) {
    Result<void> result = Ok{};
    if (fchmod(fd, 0644) != 0 || !WriteAll(fd, text) || fsync(fd) != 0) {
        result = SystemError("cannot write " + name);
    }
    if (close(fd) != 0 && result) {
        result = SystemError("cannot close " + name);
    }
    return result;
}

} // namespace

std::string ResolverText(const std::vector<std::string>& servers) {
    std::string text = "# Written by velbor-device-service: the device's DNS servers\n";
    for (const std::string& server : servers) {
        text += "nameserver " + server + "\n";
    }
    return text;
}

Result<void> ReplaceResolverFile(const std::string& path, const std::vector<std::string>& servers) {
    const std::filesystem::path target(path);
    const std::string directory = target.has_parent_path() ? target.parent_path().string() : ".";
    // mkostemp creates the file exclusively: a link planted at the temporary
    // name makes it fail instead of writing through the link.
    std::string temporary = directory + "/." + target.filename().string() + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        return SystemError("cannot create a file beside " + path);
    }
    Result<void> filled = Fill(fd, temporary, ResolverText(servers));
    if (filled && rename(temporary.c_str(), path.c_str()) != 0) {
        filled = SystemError("cannot replace " + path);
    }
    if (!filled) {
        unlink(temporary.c_str());
        return filled;
    }
    const int directoryFd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directoryFd >= 0) {
        fsync(directoryFd); // makes the rename durable; the new file is in place either way
        close(directoryFd);
    }
    return Ok{};
}

} // namespace DeviceService
