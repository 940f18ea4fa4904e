#include "AddonFactory.h"
#include "DscKnxIpConfig.h"
#include "FactoryResetManager.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

struct CreateCase {
    const char* className;
    bool ipConfigCreated;
    bool resetCreated;
};

class CreateByName : public testing::TestWithParam<CreateCase> {};

} // namespace

TEST_P(CreateByName, CreatesOnlyOnExactClassName) {
    AddonFactory& factory = *AddonFactory::Instance();
    auto* const untouchedIp = reinterpret_cast<KnxStack::IIpConfigurationManager*>(0x10);
    auto* const untouchedReset = reinterpret_cast<KnxStack::IFactoryResetManager*>(0x20);
    KnxStack::IIpConfigurationManager* ipConfig = untouchedIp;
    KnxStack::IFactoryResetManager* reset = untouchedReset;
    LogCapture log;

    EXPECT_EQ(factory.Create(GetParam().className, &ipConfig), GetParam().ipConfigCreated);
    EXPECT_EQ(factory.Create(GetParam().className, &reset), GetParam().resetCreated);

    std::unique_ptr<KnxStack::IIpConfigurationManager> ownedIp(
        GetParam().ipConfigCreated ? ipConfig : nullptr);
    std::unique_ptr<KnxStack::IFactoryResetManager> ownedReset(GetParam().resetCreated ? reset
                                                                                       : nullptr);
    EXPECT_EQ(ipConfig == untouchedIp, !GetParam().ipConfigCreated);
    EXPECT_EQ(reset == untouchedReset, !GetParam().resetCreated);
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{Debug("Create() ..."), Debug("Create(): end."),
                                                 Debug("Create() ..."), Debug("Create(): end.")}));
}

INSTANTIATE_TEST_SUITE_P(ClassNames, CreateByName,
                         testing::Values(CreateCase{"DscKnxIpConfig", true, false},
                                         CreateCase{"FactoryResetManager", false, true},
                                         CreateCase{"dscknxipconfig", false, false},
                                         CreateCase{"factoryresetmanager", false, false},
                                         CreateCase{"DscKnxIpConfig ", false, false},
                                         CreateCase{"", false, false}));

TEST(AddonFactory, NullOutPointerIsRefusedWithOneError) {
    AddonFactory& factory = *AddonFactory::Instance();
    LogCapture log;
    EXPECT_FALSE(factory.Create("DscKnxIpConfig",
                                static_cast<KnxStack::IIpConfigurationManager**>(nullptr)));
    EXPECT_FALSE(factory.Create("FactoryResetManager",
                                static_cast<KnxStack::IFactoryResetManager**>(nullptr)));
    const LogLine refused = Error("Create(): null pointer as argument.");
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{Debug("Create() ..."), refused,
                                                 Debug("Create() ..."), refused}));
}

TEST(DscKnxIpConfig, FreshObjectReportsDefaultsWithoutLogging) {
    LogCapture log;
    DscKnxIpConfig config;
    EXPECT_EQ(config.GetIpCapabilities(), 6);
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(config.GetIpAssignmentMethods(), 15);
    EXPECT_EQ(config.GetConfiguredIpAddress(), 0U);
    EXPECT_EQ(config.GetConfiguredNetmask(), 0U);
    EXPECT_EQ(config.GetConfiguredGateway(), 0U);
    EXPECT_EQ(config.GetDNSAddress(1), 0U);
    EXPECT_EQ(config.GetDNSAddress(2), 0U);
}

namespace {

struct ProcessTimeCase {
    const char* text;
    unsigned short expected;
};

class ProcessTime : public testing::TestWithParam<ProcessTimeCase> {};

} // namespace

TEST_P(ProcessTime, ConvertsLikeStrtolAndSaturates) {
    FactoryResetManager manager;
    LogCapture log;
    EXPECT_TRUE(manager.Init({{"processTime", GetParam().text}}));
    EXPECT_EQ(manager.GetProcessTime(), GetParam().expected);
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{
                               Debug("FactoryResetManager::Init() called."),
                               Debug("FactoryResetManager::Init(): process time set to " +
                                     std::to_string(GetParam().expected)),
                               Debug("FactoryResetManager::GetProcessTime() called."),
                           }));
}

INSTANTIATE_TEST_SUITE_P(Texts, ProcessTime,
                         testing::Values(ProcessTimeCase{"300", 300}, ProcessTimeCase{"0x12C", 300},
                                         ProcessTimeCase{"0X12c", 300},
                                         ProcessTimeCase{"0454", 300}, ProcessTimeCase{"  90s", 90},
                                         ProcessTimeCase{"abc", 0}, ProcessTimeCase{"", 0},
                                         ProcessTimeCase{"-1", 0}, ProcessTimeCase{"65535", 65535},
                                         ProcessTimeCase{"70000", 65535},
                                         ProcessTimeCase{"99999999999999999999999", 65535}));

TEST(FactoryResetManager, InitKeepsDefaultsAndIgnoresOtherKeys) {
    FactoryResetManager manager;
    LogCapture log;
    EXPECT_EQ(manager.GetProcessTime(), 180);
    EXPECT_TRUE(manager.Init({{"ProcessTime", "5"}, {"processtime", "6"}, {"other", "x"}}));
    EXPECT_EQ(manager.GetProcessTime(), 180);
    EXPECT_TRUE(manager.Init({{"processTime", "7"}}));
    EXPECT_TRUE(manager.Init({{"restartType", ""}}));
    EXPECT_EQ(manager.GetProcessTime(), 7);
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{
                               Debug("FactoryResetManager::GetProcessTime() called."),
                               Debug("FactoryResetManager::Init() called."),
                               Debug("FactoryResetManager::GetProcessTime() called."),
                               Debug("FactoryResetManager::Init() called."),
                               Debug("FactoryResetManager::Init(): process time set to 7"),
                               Debug("FactoryResetManager::Init() called."),
                               Info("FactoryResetManager::Init(): restartType="),
                               Debug("FactoryResetManager::GetProcessTime() called."),
                           }));
}
