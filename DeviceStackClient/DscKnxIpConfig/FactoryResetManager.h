// The add-on's factory reset manager: deletes the application's data and asks
// the device's system service to restart the device.
#ifndef DSC_FACTORY_RESET_MANAGER_H
#define DSC_FACTORY_RESET_MANAGER_H

#include "KnxStackAddonInterface.h"

#include <log4cplus/logger.h>

#include <cstdint>
#include <string>

class FactoryResetManager : public KnxStack::IFactoryResetManager {
public:
    FactoryResetManager();
    ~FactoryResetManager() override;
    FactoryResetManager(const FactoryResetManager&) = delete;
    FactoryResetManager& operator=(const FactoryResetManager&) = delete;

    bool Init(const ConfigPropertyMap& properties) override;
    unsigned short GetProcessTime() override;
    void OnFactoryReset() override;

private:
    std::uint16_t m_processTime;
    std::string m_restartType;
    std::string m_applicationData;
    log4cplus::Logger m_logger;
};

// Removes `path` and everything below it, logging the outcome on `logger`.
// Links are removed, never followed, and the root directory is never removed.
void DeleteFiles(log4cplus::Logger& logger, const std::string& path);

#endif
