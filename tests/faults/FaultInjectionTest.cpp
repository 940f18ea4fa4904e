// Fault injection at both boundaries of the add-on: a full host session (Init,
// current values and MAC, every setter and a static commit, a DHCP commit, a
// factory reset) runs once for every call position into either platform
// library and each kind of fault, with the network interface found and with
// none. The session must go on, only the injected exceptions may reach the
// host, and every client must be destroyed before the host call that made it
// returns.
#include "DscKnxIpConfig.h"
#include "FactoryResetManager.h"
#include "LogCapture.h"
#include "PlatformStandIn.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <tuple>

namespace fs = std::filesystem;

namespace {

// What the host saw of one session.
struct Outcome {
    int injectedExceptions = 0;
    std::string faultedStep;
    bool errorLogged = false; // in the step where the fault hit
    bool dataDeleted = false;
};

// The kind of fault, and whether the connection library finds an interface.
class FaultSession : public testing::TestWithParam<std::tuple<FaultKind, bool>> {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "dsc-faults-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_data = fs::path(pattern) / "data";
    }
    void TearDown() override { fs::remove_all(m_data.parent_path()); }

    // A session with the fault at `position` (none when empty), on fresh
    // application data.
    Outcome Session(std::optional<std::size_t> position) {
        Platform& platform = ThePlatform();
        platform = Platform();
        platform.faultAt = position;
        platform.kind = std::get<0>(GetParam());
        if (!std::get<1>(GetParam())) platform.interfaceId = 0xFFFFFFFFUL;
        platform.deviceConfig = R"({"Dhcp":"false","IpAddress":"192.168.1.20"})";
        fs::create_directories(m_data / "sub");
        std::ofstream(m_data / "sub" / "file") << "application data";

        const auto ip = std::make_unique<DscKnxIpConfig>();
        const auto reset = std::make_unique<FactoryResetManager>();
        const ConfigPropertyMap ipProperties = {{"interfaceName", "eth0"}};
        const ConfigPropertyMap resetProperties = {{"applicationData", m_data.string()}};
        Outcome outcome;
        unsigned char mac[6];
        const std::pair<const char*, std::function<void()>> steps[] = {
            {"Init", [&] { ip->Init(ipProperties); }},
            {"GetCurrentIpAddress", [&] { ip->GetCurrentIpAddress(); }},
            {"GetCurrentNetmask", [&] { ip->GetCurrentNetmask(); }},
            {"GetCurrentGateway", [&] { ip->GetCurrentGateway(); }},
            {"GetMacAddress", [&] { ip->GetMacAddress(mac); }},
            {"SetIpAssignmentMethods", [&] { ip->SetIpAssignmentMethods(1); }},
            {"SetConfiguredIpAddress", [&] { ip->SetConfiguredIpAddress(0xC0A8010AUL); }},
            {"SetConfiguredNetmask", [&] { ip->SetConfiguredNetmask(0xFFFF0000UL); }},
            {"SetConfiguredGateway", [&] { ip->SetConfiguredGateway(0xC0A80101UL); }},
            {"SetDNSAddress", [&] { ip->SetDNSAddress(1, 0xC0A80101UL); }},
            {"SetDNSAddress", [&] { ip->SetDNSAddress(2, 0x08080404UL); }},
            {"CommitConfiguration", [&] { ip->CommitConfiguration(); }},
            {"SetIpAssignmentMethods", [&] { ip->SetIpAssignmentMethods(4); }},
            {"CommitConfiguration", [&] { ip->CommitConfiguration(); }},
            {"Init", [&] { reset->Init(resetProperties); }},
            {"OnFactoryReset", [&] { reset->OnFactoryReset(); }},
        };
        // Each call as the host makes it: an injected exception is counted, any
        // other fails the test; no client may be left alive afterwards.
        for (const auto& [name, step] : steps) {
            const bool faultedBefore = platform.faulted.has_value();
            const LogCapture log(log4cplus::ERROR_LOG_LEVEL);
            try {
                step();
            } catch (const InjectedFault&) {
                ++outcome.injectedExceptions;
            } catch (...) {
                ADD_FAILURE() << name << " let through an exception of its own";
            }
            EXPECT_EQ(platform.clientsMade, platform.clientsDestroyed) << "after " << name;
            if (!faultedBefore && platform.faulted) {
                outcome.faultedStep = name;
                outcome.errorLogged = !log.Records().empty();
            }
        }
        outcome.dataDeleted = !fs::exists(m_data);
        return outcome;
    }

    fs::path m_data;
};

TEST_P(FaultSession, GoesOnAfterAFaultAtEveryCallPosition) {
    const Outcome clean = Session(std::nullopt);
    const Platform& platform = ThePlatform();
    EXPECT_EQ(clean.injectedExceptions, 0);
    EXPECT_TRUE(clean.dataDeleted);
    // Into the client library: Init, both commits and the reset each connect
    // (14 calls); the three requests are the static settings, the DHCP flag and
    // the restart. Into the connection library: Init selects and reads the MAC,
    // the first query after it selects again, reads the MAC and the three
    // current values (7 calls).
    ASSERT_EQ(platform.calls, 21U);
    ASSERT_EQ(platform.requests.size(), 3U);
    EXPECT_NE(platform.requests[0].find(R"("Dhcp" : "false")"), std::string::npos);
    EXPECT_NE(platform.requests[1].find(R"("Dhcp" : "true")"), std::string::npos);
    EXPECT_NE(platform.requests[2].find(R"("command":"Restart")"), std::string::npos);

    const bool throws = std::get<0>(GetParam()) == FaultKind::Throw;
    for (std::size_t position = 0; position < 21; ++position) {
        const Outcome outcome = Session(position);
        SCOPED_TRACE("fault at call position " + std::to_string(position) + " in " +
                     outcome.faultedStep);
        ASSERT_TRUE(platform.faulted.has_value());
        // The add-on lets the library's exception through and throws none of its own.
        EXPECT_EQ(outcome.injectedExceptions, throws ? 1 : 0);
        // The reset makes its client before it deletes the data; only a throw
        // from that very call keeps the data.
        const bool resetClientThrew =
            throws && outcome.faultedStep == "OnFactoryReset" && *platform.faulted == Call::Create;
        EXPECT_EQ(outcome.dataDeleted, !resetClientThrew);
        const bool connectFailed =
            *platform.faulted == Call::Create || *platform.faulted == Call::RegisterApplication;
        if (!throws && connectFailed) {
            EXPECT_TRUE(outcome.errorLogged);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultSession,
                         testing::Combine(testing::Values(FaultKind::Fail, FaultKind::Throw),
                                          testing::Bool()));

} // namespace
