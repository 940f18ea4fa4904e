// Fault injection at both boundaries of the add-on: a full host session (Init,
// current values, every setter, a static commit, a DHCP commit, a factory
// reset) runs once for every call position into the device-stack client
// library and the connection library and each kind of fault, with the network
// interface found and with none. The session must go on, only the injected exceptions may reach the
// host, and every client must be destroyed before the host call that made it
// returns.
#include "AddonFactory.h"
#include "DscKnxIpConfig.h"
#include "FaultPlatform.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <utility>

namespace fs = std::filesystem;

namespace {

const char* const kDeviceConfig =
    R"({"Dhcp":"false","IpAddress":"192.168.1.20","SubnetMask":"255.255.255.0",)"
    R"("DefaultGateway":"192.168.1.1","NameServer":"192.168.1.1","NameServer2":"8.8.8.8"})";

// What the host saw of one session.
struct Outcome {
    int injectedExceptions = 0;
    std::string faultedStep;
    bool errorLogged = false; // in the step where the fault hit
    unsigned long currentIp = 1;
    bool dataDeleted = false;
};

using Step = std::pair<const char*, std::function<void()>>;

// Runs `step` as the host does: an injected exception is counted, any other
// fails the test; no client may be left alive afterwards.
void RunStep(const Step& step, Outcome& outcome) {
    Boundary& boundary = TheBoundary();
    const bool faultedBefore = boundary.faulted.has_value();
    LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    try {
        step.second();
    } catch (const InjectedFault&) {
        ++outcome.injectedExceptions;
    } catch (const std::exception& error) {
        ADD_FAILURE() << step.first << " let through " << error.what();
    } catch (...) {
        ADD_FAILURE() << step.first << " let through an unknown exception";
    }
    EXPECT_EQ(boundary.clientsMade, boundary.clientsDestroyed)
        << "a client outlived " << step.first;
    if (!faultedBefore && boundary.faulted) {
        outcome.faultedStep = step.first;
        outcome.errorLogged = !log.Records().empty();
    }
}

Outcome RunSession(const fs::path& data) {
    KnxStack::IIpConfigurationManager* ipObject = nullptr;
    KnxStack::IFactoryResetManager* resetObject = nullptr;
    AddonFactory& factory = *AddonFactory::Instance();
    EXPECT_TRUE(factory.Create("DscKnxIpConfig", &ipObject));
    EXPECT_TRUE(factory.Create("FactoryResetManager", &resetObject));
    const std::unique_ptr<KnxStack::IIpConfigurationManager> ip(ipObject);
    const std::unique_ptr<KnxStack::IFactoryResetManager> reset(resetObject);

    Outcome outcome;
    unsigned char mac[6];
    const Step steps[] = {
        {"Init",
         [&] {
             EXPECT_TRUE(ip->Init({{"interfaceName", "eth0"}}));
         }},
        {"current values",
         [&] {
             outcome.currentIp = ip->GetCurrentIpAddress();
             ip->GetCurrentNetmask();
             ip->GetCurrentGateway();
             ip->GetMacAddress(mac);
         }},
        {"setters",
         [&] {
             ip->SetIpAssignmentMethods(DscKnxIpConfig::MethodManual);
             ip->SetConfiguredIpAddress(0xC0A8010AUL);
             ip->SetConfiguredNetmask(0xFFFF0000UL);
             ip->SetConfiguredGateway(0xC0A80101UL);
             ip->SetDNSAddress(1, 0xC0A80101UL);
             ip->SetDNSAddress(2, 0x08080404UL);
         }},
        {"static commit", [&] { ip->CommitConfiguration(); }},
        {"DHCP commit",
         [&] {
             ip->SetIpAssignmentMethods(DscKnxIpConfig::MethodDhcp);
             ip->CommitConfiguration();
         }},
        {"factory reset",
         [&] {
             EXPECT_TRUE(reset->Init({{"applicationData", data.string()}}));
             reset->OnFactoryReset();
         }},
    };
    for (const Step& step : steps) {
        RunStep(step, outcome);
    }
    outcome.dataDeleted = !fs::exists(data);
    return outcome;
}

struct FaultCase {
    const char* name;
    FaultKind kind;
    bool noInterface;
};
void PrintTo(const FaultCase& c, std::ostream* os) {
    *os << c.name;
}

class FaultSession : public testing::TestWithParam<FaultCase> {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "dsc-faults-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_root = pattern;
    }
    void TearDown() override { fs::remove_all(m_root); }

    // A session with the fault at `position` (none when empty), on fresh
    // application data.
    Outcome Session(std::optional<std::size_t> position) {
        Boundary& boundary = TheBoundary();
        boundary = Boundary();
        boundary.faultAt = position;
        boundary.kind = GetParam().kind;
        boundary.noInterface = GetParam().noInterface;
        boundary.deviceConfig = kDeviceConfig;
        const fs::path data = m_root / "data";
        fs::create_directories(data / "sub");
        std::ofstream(data / "sub" / "file") << "application data";
        return RunSession(data);
    }

    fs::path m_root;
};

TEST_P(FaultSession, WithoutFaultsEveryExchangeHappens) {
    const Outcome outcome = Session(std::nullopt);
    const Boundary& boundary = TheBoundary();
    EXPECT_EQ(outcome.injectedExceptions, 0);
    EXPECT_EQ(outcome.currentIp, GetParam().noInterface ? 0 : 0xC0A8010AUL);
    EXPECT_TRUE(outcome.dataDeleted);
    // Into the client library: Init, both commits and the reset each connect
    // (14 calls); the three requests are the static settings, the DHCP flag and
    // the restart. Into the connection library: Init selects and reads the MAC,
    // the first query after it selects again, reads the MAC and the three
    // current values (7 calls).
    EXPECT_EQ(boundary.calls, 21U);
    ASSERT_EQ(boundary.requests.size(), 3U);
    EXPECT_NE(boundary.requests[0].find(R"("Dhcp" : "false")"), std::string::npos);
    EXPECT_NE(boundary.requests[1].find(R"("Dhcp" : "true")"), std::string::npos);
    EXPECT_NE(boundary.requests[2].find(R"("command":"Restart")"), std::string::npos);
}

TEST_P(FaultSession, SurvivesAFaultAtEveryCallPosition) {
    Session(std::nullopt);
    const std::size_t positions = TheBoundary().calls;
    const bool throws = GetParam().kind == FaultKind::Throw;
    for (std::size_t position = 0; position < positions; ++position) {
        SCOPED_TRACE("fault at call position " + std::to_string(position));
        const Outcome outcome = Session(position);
        const Boundary& boundary = TheBoundary();
        ASSERT_TRUE(boundary.faulted.has_value());
        SCOPED_TRACE(std::string(Name(*boundary.faulted)) + " in " + outcome.faultedStep);
        // The add-on lets the library's exception through and throws none of its own.
        EXPECT_EQ(outcome.injectedExceptions, throws ? 1 : 0);
        // The reset makes its client before it deletes the data; only a throw
        // from that very call keeps the data.
        const bool resetClientThrew = throws && outcome.faultedStep == "factory reset" &&
                                      *boundary.faulted == Operation::Create;
        EXPECT_EQ(outcome.dataDeleted, !resetClientThrew);
        const bool connectFailed = *boundary.faulted == Operation::Create ||
                                   *boundary.faulted == Operation::RegisterApplication;
        if (!throws && connectFailed) {
            EXPECT_TRUE(outcome.errorLogged);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Faults, FaultSession,
    testing::Values(FaultCase{"Fail", FaultKind::Fail, false},
                    FaultCase{"Throw", FaultKind::Throw, false},
                    FaultCase{"FailWithoutInterface", FaultKind::Fail, true},
                    FaultCase{"ThrowWithoutInterface", FaultKind::Throw, true}),
    [](const testing::TestParamInfo<FaultCase>& info) { return info.param.name; });

} // namespace
