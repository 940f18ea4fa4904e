// Loads the built add-on the way a host does and drives it through its
// registered factories.
#include "KnxStackAddonInterface.h"
#include "LogCapture.h"

#include <gmock/gmock.h>

#include <dlfcn.h>

#include <tuple>

namespace {

using testing::_;
using testing::StrEq;
using IpConfigFactory = KnxStack::AddonClassFactory<KnxStack::IIpConfigurationManager>;
using ResetFactory = KnxStack::AddonClassFactory<KnxStack::IFactoryResetManager>;

class MockAddonManager : public KnxStack::IAddonManager {
public:
    MOCK_METHOD(bool, RegisterAddon, (const char*, int), (override));
    MOCK_METHOD(bool, UnregisterAddon, (const char*), (override));
    MOCK_METHOD(bool, IsClassRegistered, (const char*), (override));
    MOCK_METHOD(bool, RegisterIpConfigurationManagerFactory, (const char*, IpConfigFactory*),
                (override));
    MOCK_METHOD(bool, RegisterFactoryResetManagerFactory, (const char*, ResetFactory*), (override));
    MOCK_METHOD(bool, SetAddonOption, (const char*, const char*), (override));
    MOCK_METHOD(bool, GetAddonOption, (const char*, char*, unsigned int), (override));
    MOCK_METHOD(bool, UnregisterIpConfigurationManagerFactory, (const char*), (override));
    MOCK_METHOD(bool, UnregisterFactoryResetManagerFactory, (const char*), (override));
};

template <typename Function>
Function Entry(void* library, const char* name) {
    return reinterpret_cast<Function>(dlsym(library, name));
}

// The expected record of the factory, or with `reset` of the factory reset manager.
LogRecord Expected(const LogLine& line, const char* function, bool reset = false) {
    return {line.level,
            reset ? "DscKnxIpConfig.FactoryResetManager" : "KnxStack.IpConfigFactory",
            line.message,
            reset ? "DeviceStackClient/DscKnxIpConfig/FactoryResetManager"
                  : "DeviceStackClient/DscKnxIpConfig/DscKnxIpConfig",
            0,
            function};
}

TEST(AddonLoad, HostSessionRegistersCreatesConfiguresAndShutsDown) {
    void* library = dlopen(DSC_ADDON_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto version = Entry<KnxStackGetApiVersionFn>(library, "getKnxStackApiVersion");
    const auto startup = Entry<KnxStackAddonStartupFn>(library, "addonStartup");
    const auto shutdown = Entry<KnxStackAddonShutdownFn>(library, "addonShutdown");
    ASSERT_TRUE(version && startup && shutdown);
    EXPECT_EQ(version(), 20);

    LogCapture log;
    testing::StrictMock<MockAddonManager> manager;
    IpConfigFactory* ipConfigFactory = nullptr;
    ResetFactory* resetFactory = nullptr;
    {
        testing::InSequence order;
        EXPECT_CALL(manager, RegisterIpConfigurationManagerFactory(StrEq("DscKnxIpConfig"), _))
            .WillOnce(testing::DoAll(testing::SaveArg<1>(&ipConfigFactory), testing::Return(true)));
        EXPECT_CALL(manager, RegisterFactoryResetManagerFactory(StrEq("FactoryResetManager"), _))
            .WillOnce(testing::DoAll(testing::SaveArg<1>(&resetFactory), testing::Return(true)));
        EXPECT_CALL(manager, UnregisterFactoryResetManagerFactory(StrEq("FactoryResetManager")));
        EXPECT_CALL(manager, UnregisterIpConfigurationManagerFactory(StrEq("DscKnxIpConfig")));
    }
    startup(manager);
    ASSERT_TRUE(ipConfigFactory && resetFactory);
    KnxStack::IIpConfigurationManager *ipConfig = nullptr, *secondIpConfig = nullptr;
    KnxStack::IFactoryResetManager* reset = nullptr;
    EXPECT_TRUE(ipConfigFactory->Create("DscKnxIpConfig", &ipConfig));
    EXPECT_TRUE(ipConfigFactory->Create("DscKnxIpConfig", &secondIpConfig));
    EXPECT_TRUE(resetFactory->Create("FactoryResetManager", &reset));
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

    const char* const startupFn = "void AddonFactory::Startup(KnxStack::IAddonManager&)";
    const char* const shutdownFn = "void AddonFactory::Shutdown(KnxStack::IAddonManager&)";
    const char* const createIp =
        "virtual bool AddonFactory::Create(const char*, KnxStack::IIpConfigurationManager**)";
    const char* const createReset =
        "virtual bool AddonFactory::Create(const char*, KnxStack::IFactoryResetManager**)";
    const char* const init = "virtual bool FactoryResetManager::Init(const ConfigPropertyMap&)";
    const char* const time = "virtual unsigned short FactoryResetManager::GetProcessTime()";
    // clang-format off
    const std::vector<LogRecord> expected = {
        Expected(Info("Startup() ..."), startupFn), Expected(Debug("Startup() end."), startupFn),
        Expected(Debug("Create() ..."), createIp), Expected(Debug("Create(): end."), createIp),
        Expected(Debug("Create() ..."), createIp), Expected(Debug("Create(): end."), createIp),
        Expected(Debug("Create() ..."), createReset), Expected(Debug("Create(): end."), createReset),
        Expected(Debug("FactoryResetManager::Init() called."), init, true),
        Expected(Info("FactoryResetManager::Init(): applicationData=/data/app"), init, true),
        Expected(Debug("FactoryResetManager::Init(): process time set to 60"), init, true),
        Expected(Info("FactoryResetManager::Init(): restartType=Reboot"), init, true),
        Expected(Debug("FactoryResetManager::GetProcessTime() called."), time, true),
        Expected(Info("Shutdown() ..."), shutdownFn), Expected(Debug("Shutdown() end."), shutdownFn)};
    // clang-format on
    const auto fields = [](const LogRecord& r) {
        return std::tie(r.level, r.logger, r.message, r.file, r.function);
    };
    ASSERT_EQ(log.Records().size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(fields(log.Records()[i]), fields(expected[i])) << i;
        EXPECT_GT(log.Records()[i].line, 0) << i;
    }
    dlclose(library);
}

} // namespace
