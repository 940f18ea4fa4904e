#include "AddonFactory.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>

namespace {

using namespace Logged;
using IpConfig = KnxStack::IIpConfigurationManager;
using Reset = KnxStack::IFactoryResetManager;

// Each factory makes an object only for its exact class name; the out pointer
// keeps its value when nothing is made, and a null one is refused.
TEST(AddonFactory, CreatesOnlyOnTheExactNameAndRefusesANullOutPointer) {
    AddonFactory& factory = *AddonFactory::Instance();
    for (const auto& [name, ipMade, resetMade] : {std::tuple("DscKnxIpConfig", true, false),
                                                  {"FactoryResetManager", false, true},
                                                  {"dscknxipconfig", false, false},
                                                  {"DscKnxIpConfig ", false, false},
                                                  {"", false, false}}) {
        IpConfig* ip = reinterpret_cast<IpConfig*>(0x10);
        Reset* reset = reinterpret_cast<Reset*>(0x20);
        LogCapture log;
        EXPECT_EQ(factory.Create(name, &ip), ipMade) << name;
        EXPECT_EQ(factory.Create(name, &reset), resetMade) << name;
        const std::unique_ptr<IpConfig> ownedIp(ipMade ? ip : nullptr);
        const std::unique_ptr<Reset> ownedReset(resetMade ? reset : nullptr);
        EXPECT_EQ(ip == reinterpret_cast<IpConfig*>(0x10), !ipMade) << name;
        EXPECT_EQ(reset == reinterpret_cast<Reset*>(0x20), !resetMade) << name;
        const Lines create = {Debug("Create() ..."), Debug("Create(): end.")};
        EXPECT_EQ(log.Lines(), Join({create, create})) << name;
    }
    LogCapture log;
    EXPECT_FALSE(factory.Create("DscKnxIpConfig", static_cast<IpConfig**>(nullptr)));
    EXPECT_FALSE(factory.Create("FactoryResetManager", static_cast<Reset**>(nullptr)));
    const Lines refused = {Debug("Create() ..."), Error("Create(): null pointer as argument.")};
    EXPECT_EQ(log.Lines(), Join({refused, refused}));
}

} // namespace
