#include "AddonFactory.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>

namespace {

using IpConfig = KnxStack::IIpConfigurationManager;
using Reset = KnxStack::IFactoryResetManager;

// A class name, and whether each of the two factories makes an object of it;
// the out pointer keeps its value when nothing is made.
class CreateByName : public testing::TestWithParam<std::tuple<const char*, bool, bool>> {};

TEST_P(CreateByName, CreatesOnlyOnTheExactName) {
    const auto [name, ipCreated, resetCreated] = GetParam();
    IpConfig* const oldIp = reinterpret_cast<IpConfig*>(0x10);
    Reset* const oldReset = reinterpret_cast<Reset*>(0x20);
    IpConfig* ip = oldIp;
    Reset* reset = oldReset;
    LogCapture log;
    EXPECT_EQ(AddonFactory::Instance()->Create(name, &ip), ipCreated);
    EXPECT_EQ(AddonFactory::Instance()->Create(name, &reset), resetCreated);
    const std::unique_ptr<IpConfig> ownedIp(ipCreated ? ip : nullptr);
    const std::unique_ptr<Reset> ownedReset(resetCreated ? reset : nullptr);
    EXPECT_EQ(ip == oldIp, !ipCreated);
    EXPECT_EQ(reset == oldReset, !resetCreated);
    const Lines create = {Debug("Create() ..."), Debug("Create(): end.")};
    EXPECT_EQ(log.Lines(), Join({create, create}));
}

INSTANTIATE_TEST_SUITE_P(ClassNames, CreateByName,
                         testing::Values(std::tuple("DscKnxIpConfig", true, false),
                                         std::tuple("FactoryResetManager", false, true),
                                         std::tuple("dscknxipconfig", false, false),
                                         std::tuple("DscKnxIpConfig ", false, false),
                                         std::tuple("", false, false)));

TEST(AddonFactory, NullOutPointerIsRefusedWithAnError) {
    LogCapture log;
    EXPECT_FALSE(
        AddonFactory::Instance()->Create("DscKnxIpConfig", static_cast<IpConfig**>(nullptr)));
    EXPECT_FALSE(
        AddonFactory::Instance()->Create("FactoryResetManager", static_cast<Reset**>(nullptr)));
    const Lines refused = {Debug("Create() ..."), Error("Create(): null pointer as argument.")};
    EXPECT_EQ(log.Lines(), Join({refused, refused}));
}

} // namespace
