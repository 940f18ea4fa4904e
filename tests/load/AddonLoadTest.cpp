// Loads the built add-on the way a host does and drives it through its
// registered factories.
#include "KnxStackAddonInterface.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>
#include <vector>

namespace {

// Records every call the add-on makes on the host's add-on manager.
class RecordingAddonManager : public KnxStack::IAddonManager {
public:
    std::vector<std::string> calls;
    KnxStack::AddonClassFactory<KnxStack::IIpConfigurationManager>* ipConfigFactory = nullptr;
    KnxStack::AddonClassFactory<KnxStack::IFactoryResetManager>* resetFactory = nullptr;

    bool RegisterAddon(const char*, int) override { return Unexpected("RegisterAddon"); }
    bool UnregisterAddon(const char*) override { return Unexpected("UnregisterAddon"); }
    bool IsClassRegistered(const char*) override { return Unexpected("IsClassRegistered"); }
    bool SetAddonOption(const char*, const char*) override { return Unexpected("SetAddonOption"); }
    bool GetAddonOption(const char*, char*, unsigned int) override {
        return Unexpected("GetAddonOption");
    }
    bool RegisterIpConfigurationManagerFactory(
        const char* className,
        KnxStack::AddonClassFactory<KnxStack::IIpConfigurationManager>* factory) override {
        calls.push_back(std::string("RegisterIpConfigurationManagerFactory ") + className);
        ipConfigFactory = factory;
        return true;
    }
    bool RegisterFactoryResetManagerFactory(
        const char* className,
        KnxStack::AddonClassFactory<KnxStack::IFactoryResetManager>* factory) override {
        calls.push_back(std::string("RegisterFactoryResetManagerFactory ") + className);
        resetFactory = factory;
        return true;
    }
    bool UnregisterIpConfigurationManagerFactory(const char* className) override {
        calls.push_back(std::string("UnregisterIpConfigurationManagerFactory ") + className);
        return true;
    }
    bool UnregisterFactoryResetManagerFactory(const char* className) override {
        calls.push_back(std::string("UnregisterFactoryResetManagerFactory ") + className);
        return true;
    }

private:
    bool Unexpected(const char* name) {
        calls.push_back(std::string("unexpected ") + name);
        return false;
    }
};

template <typename Function>
Function Entry(void* library, const char* name) {
    return reinterpret_cast<Function>(dlsym(library, name));
}

const char* const kFile = "DeviceStackClient/DscKnxIpConfig/DscKnxIpConfig";
const char* const kResetFile = "DeviceStackClient/DscKnxIpConfig/FactoryResetManager";
const char* const kCreateIp =
    "virtual bool AddonFactory::Create(const char*, KnxStack::IIpConfigurationManager**)";
const char* const kCreateReset =
    "virtual bool AddonFactory::Create(const char*, KnxStack::IFactoryResetManager**)";

struct Expected {
    log4cplus::LogLevel level;
    const char* logger;
    const char* message;
    const char* file;
    const char* function;
};

} // namespace

TEST(AddonLoad, HostSessionRegistersCreatesConfiguresAndShutsDown) {
    void* library = dlopen(DSC_ADDON_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto version = Entry<KnxStackGetApiVersionFn>(library, "getKnxStackApiVersion");
    const auto startup = Entry<KnxStackAddonStartupFn>(library, "addonStartup");
    const auto shutdown = Entry<KnxStackAddonShutdownFn>(library, "addonShutdown");
    ASSERT_TRUE(version && startup && shutdown);
    EXPECT_EQ(version(), 20);

    LogCapture log;
    RecordingAddonManager manager;
    startup(manager);
    ASSERT_TRUE(manager.ipConfigFactory && manager.resetFactory);

    KnxStack::IIpConfigurationManager* ipConfig = nullptr;
    KnxStack::IIpConfigurationManager* secondIpConfig = nullptr;
    KnxStack::IFactoryResetManager* reset = nullptr;
    EXPECT_TRUE(manager.ipConfigFactory->Create("DscKnxIpConfig", &ipConfig));
    EXPECT_TRUE(manager.ipConfigFactory->Create("DscKnxIpConfig", &secondIpConfig));
    EXPECT_TRUE(manager.resetFactory->Create("FactoryResetManager", &reset));
    ASSERT_TRUE(ipConfig && secondIpConfig && reset);
    EXPECT_NE(ipConfig, secondIpConfig);
    EXPECT_EQ(ipConfig->GetIpCapabilities(), 6);

    EXPECT_TRUE(reset->Init(
        {{"applicationData", "/data/app"}, {"processTime", "0x3C"}, {"restartType", "Reboot"}}));
    EXPECT_EQ(reset->GetProcessTime(), 60);

    delete ipConfig;
    delete secondIpConfig;
    delete reset;
    shutdown(manager);

    EXPECT_EQ(manager.calls, (std::vector<std::string>{
                                 "RegisterIpConfigurationManagerFactory DscKnxIpConfig",
                                 "RegisterFactoryResetManagerFactory FactoryResetManager",
                                 "UnregisterFactoryResetManagerFactory FactoryResetManager",
                                 "UnregisterIpConfigurationManagerFactory DscKnxIpConfig",
                             }));

    const char* const factoryLogger = "KnxStack.IpConfigFactory";
    const char* const resetLogger = "DscKnxIpConfig.FactoryResetManager";
    const char* const resetInit =
        "virtual bool FactoryResetManager::Init(const ConfigPropertyMap&)";
    const std::vector<Expected> expected = {
        {log4cplus::INFO_LOG_LEVEL, factoryLogger, "Startup() ...", kFile,
         "void AddonFactory::Startup(KnxStack::IAddonManager&)"},
        {log4cplus::DEBUG_LOG_LEVEL, factoryLogger, "Startup() end.", kFile,
         "void AddonFactory::Startup(KnxStack::IAddonManager&)"},
        {log4cplus::DEBUG_LOG_LEVEL, factoryLogger, "Create() ...", kFile, kCreateIp},
        {log4cplus::DEBUG_LOG_LEVEL, factoryLogger, "Create(): end.", kFile, kCreateIp},
        {log4cplus::DEBUG_LOG_LEVEL, factoryLogger, "Create() ...", kFile, kCreateIp},
        {log4cplus::DEBUG_LOG_LEVEL, factoryLogger, "Create(): end.", kFile, kCreateIp},
        {log4cplus::DEBUG_LOG_LEVEL, factoryLogger, "Create() ...", kFile, kCreateReset},
        {log4cplus::DEBUG_LOG_LEVEL, factoryLogger, "Create(): end.", kFile, kCreateReset},
        {log4cplus::DEBUG_LOG_LEVEL, resetLogger, "FactoryResetManager::Init() called.", kResetFile,
         resetInit},
        {log4cplus::INFO_LOG_LEVEL, resetLogger,
         "FactoryResetManager::Init(): applicationData=/data/app", kResetFile, resetInit},
        {log4cplus::DEBUG_LOG_LEVEL, resetLogger,
         "FactoryResetManager::Init(): process time set to 60", kResetFile, resetInit},
        {log4cplus::INFO_LOG_LEVEL, resetLogger, "FactoryResetManager::Init(): restartType=Reboot",
         kResetFile, resetInit},
        {log4cplus::DEBUG_LOG_LEVEL, resetLogger, "FactoryResetManager::GetProcessTime() called.",
         kResetFile, "virtual unsigned short FactoryResetManager::GetProcessTime()"},
        {log4cplus::INFO_LOG_LEVEL, factoryLogger, "Shutdown() ...", kFile,
         "void AddonFactory::Shutdown(KnxStack::IAddonManager&)"},
        {log4cplus::DEBUG_LOG_LEVEL, factoryLogger, "Shutdown() end.", kFile,
         "void AddonFactory::Shutdown(KnxStack::IAddonManager&)"},
    };
    const std::vector<LogRecord>& records = log.Records();
    ASSERT_EQ(records.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(expected[i].message);
        EXPECT_EQ(records[i].level, expected[i].level);
        EXPECT_EQ(records[i].logger, expected[i].logger);
        EXPECT_EQ(records[i].message, expected[i].message);
        EXPECT_EQ(records[i].file, expected[i].file);
        EXPECT_EQ(records[i].function, expected[i].function);
        EXPECT_GT(records[i].line, 0);
    }
    dlclose(library);
}
