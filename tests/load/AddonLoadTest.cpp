// Loads the built add-on the way a host does and drives it through its
// registered factories.
#include "Addon.h"
#include "LogCapture.h"

#include <gmock/gmock.h>

namespace {

using Logged::Debug;
using Logged::Error;
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
        const AddonHost::AddonManager& manager = (*addon)->manager();
        auto* const ipFactory = manager.Factory<AddonHost::IpConfig>("DscKnxIpConfig");
        auto* const resetFactory = manager.Factory<AddonHost::FactoryReset>("FactoryResetManager");
        ASSERT_TRUE(ipFactory && resetFactory);
        // Each factory makes a new object on its exact class name only, leaves
        // the out pointer alone otherwise, and refuses a null one.
        AddonHost::IpConfig *ip = nullptr, *secondIp = nullptr, *none = nullptr;
        AddonHost::FactoryReset* noReset = nullptr;
        EXPECT_TRUE(ipFactory->Create("DscKnxIpConfig", &ip));
        EXPECT_TRUE(ipFactory->Create("DscKnxIpConfig", &secondIp));
        ASSERT_TRUE(ip && secondIp);
        EXPECT_NE(ip, secondIp);
        EXPECT_EQ(ip->GetIpCapabilities(), 6);
        delete ip;
        delete secondIp;
        for (const char* name : {"FactoryResetManager", "dscknxipconfig", "DscKnxIpConfig ", ""}) {
            EXPECT_FALSE(ipFactory->Create(name, &none)) << name;
        }
        EXPECT_FALSE(resetFactory->Create("DscKnxIpConfig", &noReset));
        EXPECT_TRUE(none == nullptr && noReset == nullptr);
        EXPECT_FALSE(ipFactory->Create("DscKnxIpConfig", nullptr));
        EXPECT_FALSE(resetFactory->Create("FactoryResetManager", nullptr));
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
    const LogLine create = Debug("Create() ..."), created = Debug("Create(): end.");
    const LogLine refused = Error("Create(): null pointer as argument.");
    // clang-format off
    const std::vector<std::pair<LogLine, std::string>> expected = {
        {Info("Startup() ..."), startup}, {Debug("Startup() end."), startup},
        {create, createIp}, {created, createIp}, {create, createIp}, {created, createIp},
        {create, createIp}, {created, createIp}, {create, createIp}, {created, createIp},
        {create, createIp}, {created, createIp}, {create, createIp}, {created, createIp},
        {create, createReset}, {created, createReset},
        {create, createIp}, {refused, createIp}, {create, createReset}, {refused, createReset},
        {create, createReset}, {created, createReset},
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
