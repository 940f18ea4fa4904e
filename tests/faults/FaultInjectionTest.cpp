// Fault injection at both boundaries of the add-on: a full host session (Init,
// current values and MAC, every setter and a static commit, a DHCP commit, a
// factory reset) runs once for every call position into either platform
// library and each kind of fault, with the network interface found and with
// none. The session must go on, only the injected exception may reach the
// host, every client must be destroyed before the host call that made it
// returns, and a refused connection is logged at ERROR.
#include "DscKnxIpConfig.h"
#include "FactoryResetManager.h"
#include "LogCapture.h"
#include "PlatformStandIn.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <tuple>

namespace {

namespace fs = std::filesystem;

class FaultSession : public testing::TestWithParam<std::tuple<FaultKind, bool>> {
protected:
    // Runs the session with the fault at `position` (none when empty) on fresh
    // application data; returns the number of injected exceptions that reached the host.
    int Session(std::optional<std::size_t> position) {
        Platform& platform = ThePlatform() = Platform();
        platform.faultAt = position;
        platform.kind = std::get<0>(GetParam());
        if (!std::get<1>(GetParam())) platform.interfaceId = 0xFFFFFFFFUL;
        platform.deviceConfig = R"({"Dhcp":"false","IpAddress":"192.168.1.20"})";
        fs::create_directories(data_ / "sub");
        std::ofstream(data_ / "sub" / "file") << "application data";
        DscKnxIpConfig ip;
        FactoryResetManager reset;
        unsigned char mac[6];
        // clang-format off
        const std::function<void()> steps[] = {
            [&] { ip.Init({{"interfaceName", "eth0"}}); }, [&] { ip.GetCurrentIpAddress(); },
            [&] { ip.GetCurrentNetmask(); }, [&] { ip.GetCurrentGateway(); },
            [&] { ip.GetMacAddress(mac); }, [&] { ip.SetIpAssignmentMethods(1); },
            [&] { ip.SetConfiguredIpAddress(0xC0A8010AUL); }, [&] { ip.SetConfiguredNetmask(0xFFFF0000UL); },
            [&] { ip.SetConfiguredGateway(0xC0A80101UL); }, [&] { ip.SetDNSAddress(1, 1); },
            [&] { ip.SetDNSAddress(2, 2); }, [&] { ip.CommitConfiguration(); },
            [&] { ip.SetIpAssignmentMethods(4); }, [&] { ip.CommitConfiguration(); },
            [&] { reset.Init({{"applicationData", data_.string()}}); }, [&] { reset.OnFactoryReset(); }};
        // clang-format on
        int injected = 0;
        for (const auto& step : steps) {
            const bool faultedBefore = platform.faulted.has_value();
            const LogCapture errors(log4cplus::ERROR_LOG_LEVEL);
            try {
                step();
            } catch (const InjectedFault&) {
                ++injected;
            }
            EXPECT_EQ(platform.clientsAlive, 0);
            const bool refused =
                platform.faulted == Call::Create || platform.faulted == Call::RegisterApplication;
            EXPECT_TRUE(faultedBefore || !refused || !errors.Records().empty() ||
                        platform.kind == FaultKind::Throw);
        }
        return injected;
    }
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "dsc-faults-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        data_ = fs::path(pattern) / "data";
    }
    void TearDown() override { fs::remove_all(data_.parent_path()); }

    fs::path data_;
};

TEST_P(FaultSession, GoesOnAfterAFaultAtEveryCallPosition) {
    const Platform& platform = ThePlatform();
    EXPECT_EQ(Session(std::nullopt), 0);
    EXPECT_FALSE(fs::exists(data_));
    // Into the client library: Init, both commits and the reset each connect
    // (14 calls); the three requests are the static settings, the DHCP flag and
    // the restart. Into the connection library: Init selects and reads the MAC,
    // the first query after it selects again, reads the MAC and the three
    // current values (7 calls).
    ASSERT_EQ(platform.calls, 21U);
    ASSERT_EQ(platform.requests.size(), 3U);

    const bool throws = std::get<0>(GetParam()) == FaultKind::Throw;
    for (std::size_t position = 0; position < 21; ++position) {
        SCOPED_TRACE("fault at call position " + std::to_string(position));
        // Only a throw from the reset's own client factory (its first call of
        // three, position 18) keeps the data.
        const bool resetCreateThrows = throws && position == 18;
        EXPECT_EQ(Session(position), throws ? 1 : 0);
        EXPECT_EQ(fs::exists(data_), resetCreateThrows);
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultSession,
                         testing::Combine(testing::Values(FaultKind::Fail, FaultKind::Throw),
                                          testing::Bool()));

} // namespace
