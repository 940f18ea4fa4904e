#include "FactoryResetManager.h"

#include "Log.h"
#include "VelborDeviceStackClient.h"

#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>

#include <cstdlib>
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
    boost::system::error_code error;
    const boost::uintmax_t removed = boost::filesystem::remove_all(path, error);
    if (error) {
        RESET_LOG(logger, ERROR, kDeleteFiles,
                  "Failed to delete file(s) at '" << path << "'. Reason: " << error.message());
    } else {
        RESET_LOG(logger, INFO, kDeleteFiles,
                  "Number of deleted files at '" << path << "': " << removed);
    }
}
