// Loads the built add-on the way a host does and drives it through its
// registered factories.
#include "Addon.h"
#include "LogCapture.h"

#include <gmock/gmock.h>

namespace {

using Logged::Debug;
using Logged::Info;

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

    // Each message with its function; the factory reset manager's have a logger
    // and a source file of their own.
    const std::string startup = "void AddonFactory::Startup(KnxStack::IAddonManager&)";
    const std::string shutdown = "void AddonFactory::Shutdown(KnxStack::IAddonManager&)";
    const std::string createIp =
        "virtual bool AddonFactory::Create(const char*, KnxStack::IIpConfigurationManager**)";
    const std::string createReset =
        "virtual bool AddonFactory::Create(const char*, KnxStack::IFactoryResetManager**)";
    const std::string init = "virtual bool FactoryResetManager::Init(const ConfigPropertyMap&)";
    const std::string time = "virtual unsigned short FactoryResetManager::GetProcessTime()";
    // clang-format off
    const std::vector<std::pair<LogLine, std::string>> expected = {
        {Info("Startup() ..."), startup}, {Debug("Startup() end."), startup},
        {Debug("Create() ..."), createIp}, {Debug("Create(): end."), createIp},
        {Debug("Create() ..."), createIp}, {Debug("Create(): end."), createIp},
        {Debug("Create() ..."), createReset}, {Debug("Create(): end."), createReset},
        {Debug("FactoryResetManager::Init() called."), init},
        {Info("FactoryResetManager::Init(): applicationData=/data/app"), init},
        {Debug("FactoryResetManager::Init(): process time set to 60"), init},
        {Info("FactoryResetManager::Init(): restartType=Reboot"), init},
        {Debug("FactoryResetManager::GetProcessTime() called."), time},
        {Info("Shutdown() ..."), shutdown}, {Debug("Shutdown() end."), shutdown}};
    // clang-format on
    ASSERT_EQ(log.Lines().size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const LogRecord& r = log.Records()[i];
        const bool reset = expected[i].second.find(" FactoryResetManager::") != std::string::npos;
        EXPECT_EQ(log.Lines()[i], expected[i].first) << i;
        EXPECT_EQ(r.function, expected[i].second) << i;
        EXPECT_EQ(r.logger,
                  reset ? "DscKnxIpConfig.FactoryResetManager" : "KnxStack.IpConfigFactory");
        EXPECT_EQ(r.file, reset ? "DeviceStackClient/DscKnxIpConfig/FactoryResetManager"
                                : "DeviceStackClient/DscKnxIpConfig/DscKnxIpConfig");
        EXPECT_GT(r.line, 0) << i;
    }
}

} // namespace
