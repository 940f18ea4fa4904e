// Loads the built add-on the way a host does and drives it through its
// registered factories.
#include "Addon.h"
#include "LogCapture.h" // after Addon.h: its Error hides the name of the result type's

#include <gmock/gmock.h>

#include <tuple>

namespace {

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
    LogCapture log;
    std::vector<std::string> calls;
    {
        auto addon = AddonHost::Addon::Start(
            DSC_ADDON_PATH, [&](const std::string& operation, const std::string& name) {
                calls.push_back(operation + " " + name);
            });
        ASSERT_TRUE(addon) << addon.error();
        auto* const factory = (*addon)->manager().Factory<AddonHost::IpConfig>("DscKnxIpConfig");
        ASSERT_NE(factory, nullptr);
        KnxStack::IIpConfigurationManager *ipConfig = nullptr, *secondIpConfig = nullptr;
        EXPECT_TRUE(factory->Create("DscKnxIpConfig", &ipConfig));
        EXPECT_TRUE(factory->Create("DscKnxIpConfig", &secondIpConfig));
        ASSERT_TRUE(ipConfig && secondIpConfig);
        EXPECT_NE(ipConfig, secondIpConfig);
        EXPECT_EQ(ipConfig->GetIpCapabilities(), 6);
        delete ipConfig;
        delete secondIpConfig;
        const auto reset = (*addon)->CreateFactoryReset(
            {{"applicationData", "/data/app"}, {"processTime", "0x3C"}, {"restartType", "Reboot"}});
        ASSERT_TRUE(reset) << reset.error();
        EXPECT_EQ((*reset)->GetProcessTime(), 60);
    }
    EXPECT_THAT(calls,
                testing::ElementsAre("RegisterIpConfigurationManagerFactory DscKnxIpConfig",
                                     "RegisterFactoryResetManagerFactory FactoryResetManager",
                                     "UnregisterFactoryResetManagerFactory FactoryResetManager",
                                     "UnregisterIpConfigurationManagerFactory DscKnxIpConfig"));

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
}

} // namespace
