#include "FactoryResetManager.h"

#include "Log.h"
#include "VelborDeviceStackClient.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/system/error_code.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>

#define RESET_LOG(logger, level, function, message) \
    DSC_LOG(logger, level, DscLogFile::FactoryReset, function, message)

namespace {

const char* const kInit = "virtual bool FactoryResetManager::Init(const ConfigPropertyMap&)";
const char* const kGetProcessTime = "virtual unsigned short FactoryResetManager::GetProcessTime()";
const char* const kOnFactoryReset = "virtual void FactoryResetManager::OnFactoryReset()";
const char* const kDeleteFiles = "void DeleteFiles(log4cplus::Logger&, const std::string&)";

const std::uint16_t kDefaultProcessTime = 180;
const int kRequestTimeout = 360;

// strtol with base 0 (decimal, 0x hexadecimal, 0 octal), saturated to 0..65535.
std::uint16_t ParseProcessTime(const std::string& text) {
    const long number = std::strtol(text.c_str(), nullptr, 0);
    if (number < 0) {
        return 0;
    }
    const long largest = std::numeric_limits<std::uint16_t>::max();
    return static_cast<std::uint16_t>(number > largest ? largest : number);
}

// Not an errno value: the removal was refused because it would take the root directory.
const int kRootDirectory = -1;

std::string Reason(int error) {
    return error == kRootDirectory
               ? "Refusing to delete the root directory"
               : boost::system::error_code(error, boost::system::system_category()).message();
}

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

// Removes a tree through directory descriptors: each entry is examined, opened
// and removed relative to the directory that holds it, and links are removed,
// never followed. An entry exchanged for a link while the tree is being removed
// therefore cannot lead the removal out of the tree. The root directory, however
// it is named, is never removed. Each operation returns 0, or the errno value of
// the first failure (or kRootDirectory), which ends the removal.
class TreeRemoval {
public:
    TreeRemoval() { stat("/", &m_root); }

    // Removes `path` and, if it is a directory, everything below it. The
    // directories leading to its last name are followed like any path; the
    // last name itself is not. A path that does not exist removes nothing.
    int Remove(const std::string& path) {
        if (std::filesystem::path(path).lexically_normal() == "/") return kRootDirectory;
        const std::string trimmed = path.substr(0, path.find_last_not_of('/') + 1);
        const std::size_t slash = trimmed.rfind('/');
        const bool bare = slash == std::string::npos;
        const std::string parent = bare ? "." : trimmed.substr(0, slash + 1);
        const std::string name = bare ? trimmed : trimmed.substr(slash + 1);
        const int directory = open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (directory < 0) return errno == ENOENT || errno == ENOTDIR ? 0 : errno;
        const int error = RemoveEntry(directory, name.c_str());
        close(directory);
        return error;
    }

    std::uintmax_t Removed() const { return m_removed; }

private:
    int RemoveEntry(int parent, const char* name) {
        struct stat entry {};
        if (fstatat(parent, name, &entry, AT_SYMLINK_NOFOLLOW) != 0) {
            return errno == ENOENT ? 0 : errno;
        }
        const bool isDirectory = S_ISDIR(entry.st_mode);
        if (isDirectory) {
            if (entry.st_dev == m_root.st_dev && entry.st_ino == m_root.st_ino) {
                return kRootDirectory;
            }
            const int error = RemoveContents(
                openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (error != 0) return error;
        }
        if (unlinkat(parent, name, isDirectory ? AT_REMOVEDIR : 0) != 0) return errno;
        ++m_removed;
        return 0;
    }

    // Removes everything in the open directory `descriptor`, and closes it.
    int RemoveContents(int descriptor) {
        if (descriptor < 0) return errno;
        const std::unique_ptr<DIR, CloseDirectory> directory(fdopendir(descriptor));
        if (!directory) {
            const int error = errno;
            close(descriptor);
            return error;
        }
        errno = 0;
        while (const dirent* entry = readdir(directory.get())) {
            const char* name = entry->d_name;
            if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0) {
                const int error = RemoveEntry(descriptor, name);
                if (error != 0) return error;
            }
            errno = 0;
        }
        return errno;
    }

    struct stat m_root {};
    std::uintmax_t m_removed = 0;
};

} // namespace

FactoryResetManager::FactoryResetManager()
    : m_processTime(kDefaultProcessTime),
      m_restartType("FactoryReset"),
      m_logger(log4cplus::Logger::getInstance("DscKnxIpConfig.FactoryResetManager")) {
}

FactoryResetManager::~FactoryResetManager() = default;

bool FactoryResetManager::Init(const ConfigPropertyMap& properties) {
    RESET_LOG(m_logger, DEBUG, kInit, "FactoryResetManager::Init() called.");
    for (const auto& property : properties) {
        if (property.first == "processTime") {
            m_processTime = ParseProcessTime(property.second);
            RESET_LOG(m_logger, DEBUG, kInit,
                      "FactoryResetManager::Init(): process time set to " << m_processTime);
        } else if (property.first == "restartType") {
            m_restartType = property.second;
            RESET_LOG(m_logger, INFO, kInit,
                      "FactoryResetManager::Init(): restartType=" << property.second);
        } else if (property.first == "applicationData") {
            m_applicationData = property.second;
            RESET_LOG(m_logger, INFO, kInit,
                      "FactoryResetManager::Init(): applicationData=" << property.second);
        }
    }
    return true;
}

unsigned short FactoryResetManager::GetProcessTime() {
    RESET_LOG(m_logger, DEBUG, kGetProcessTime, "FactoryResetManager::GetProcessTime() called.");
    return m_processTime;
}

void FactoryResetManager::OnFactoryReset() {
    // The client is made before anything else happens, the data is deleted
    // before the client is checked, and the restart is asked for even when the
    // deletion failed.
    const std::unique_ptr<Velbor::IDeviceStackClient> client = Velbor::CreateDeviceStackClient();
    RESET_LOG(m_logger, DEBUG, kOnFactoryReset, "FactoryReset(): Enter.");
    if (!m_applicationData.empty()) {
        DeleteFiles(m_logger, m_applicationData);
    }
    if (!client) {
        RESET_LOG(m_logger, ERROR, kOnFactoryReset,
                  "FactoryReset(): DeviceStackClient could not be created. Executing factory "
                  "reset failed.");
    } else if (!client->RegisterApplication("FactoryResetManager", "field", "KNX")) {
        RESET_LOG(m_logger, ERROR, kOnFactoryReset,
                  "FactoryReset(): Failed to request command via QUARN Client API.");
    } else {
        // The restart type goes into the command as it stands, without escaping.
        const std::string command = "{\"command\":\"Restart\", \"type\":\"" + m_restartType + "\"}";
        RESET_LOG(m_logger, INFO, kOnFactoryReset, "Performing QUARN Client API call: " << command);
        std::string reply;
        if (!client->RequestCommand(command, reply, kRequestTimeout)) {
            RESET_LOG(m_logger, ERROR, kOnFactoryReset,
                      "FactoryReset(): Failed to request command via QUARN Client API:" << command);
        }
    }
    RESET_LOG(m_logger, DEBUG, kOnFactoryReset, "FactoryReset(): Leave.");
}

void DeleteFiles(log4cplus::Logger& logger, const std::string& path) {
    TreeRemoval removal;
    const int error = removal.Remove(path);
    if (error != 0) {
        RESET_LOG(logger, ERROR, kDeleteFiles,
                  "Failed to delete file(s) at '" << path << "'. Reason: " << Reason(error));
    } else {
        RESET_LOG(logger, INFO, kDeleteFiles,
                  "Number of deleted files at '" << path << "': " << removal.Removed());
    }
}
