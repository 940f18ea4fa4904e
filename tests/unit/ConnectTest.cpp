#include "DeviceFixture.h"

#include <stdexcept>

using testing::InSequence;
using testing::Return;

namespace {

class ConnectTest : public DeviceTest {};

const Lines kNoClientLines = {Debug("Connect(): starting..."),
                              Error("Connect(): Create device stack client failed."),
                              Debug("Connect(): end.")};

} // namespace

TEST_F(ConnectTest, FactoryWithoutClientStopsAfterThreeLines) {
    EXPECT_CALL(factory, Create()).WillOnce(NoClient);
    EXPECT_EQ(config.Connect(nullptr), nullptr);
    EXPECT_EQ(log.Lines(), kNoClientLines);
}

TEST_F(ConnectTest, RefusedRegistrationDestroysClientBeforeTheError) {
    InSequence order;
    MockDeviceStackClient& client = ExpectCreated(factory);
    EXPECT_CALL(client, RegisterApplication("DscKnxIpConfig", "field", "KNX"))
        .WillOnce(Return(false));
    std::size_t recordsAtDestruction = 0;
    EXPECT_CALL(client, Destroyed()).WillOnce([&] { recordsAtDestruction = log.Records().size(); });

    EXPECT_EQ(config.Connect(nullptr), nullptr);
    EXPECT_EQ(recordsAtDestruction, 2U);
    EXPECT_EQ(log.Lines(), (Lines{Debug("Connect(): starting..."),
                                  Debug("Connect(): calling RegisterApplication DscKnxIpConfig..."),
                                  Error("Connect(): RegisterApplication failed."),
                                  Debug("Connect(): end RegisterApplication DscKnxIpConfig."),
                                  Debug("Connect(): end.")}));
}

TEST_F(ConnectTest, SuccessReturnsTheClientTheFactoryMade) {
    InSequence order;
    MockDeviceStackClient& client = ExpectRegistered(factory);
    EXPECT_CALL(client, Destroyed());

    ClientPtr idsc = config.Connect(nullptr);
    EXPECT_EQ(idsc.get(), &client);
    EXPECT_EQ(log.Lines(), kConnectLines);
}

TEST_F(ConnectTest, OnlyANullTextUsesTheFactoryWithoutArguments) {
    char empty[] = "";
    char named[] = "service:0";
    InSequence order;
    EXPECT_CALL(factory, Create()).WillOnce(NoClient);
    EXPECT_CALL(factory, CreateWith("")).WillOnce(NoClient);
    EXPECT_CALL(factory, CreateWith("service:0")).WillOnce(NoClient);

    EXPECT_EQ(config.Connect(nullptr), nullptr);
    EXPECT_EQ(config.Connect(empty), nullptr);
    EXPECT_EQ(config.Connect(named), nullptr);
    EXPECT_EQ(log.Lines(), Join({kNoClientLines, kNoClientLines, kNoClientLines}));
}

TEST_F(ConnectTest, RegistrationExceptionReachesCallerAndDestroysClientOnce) {
    InSequence order;
    MockDeviceStackClient& client = ExpectCreated(factory);
    EXPECT_CALL(client, RegisterApplication("DscKnxIpConfig", "field", "KNX"))
        .WillOnce(testing::Throw(std::runtime_error("service gone")));
    EXPECT_CALL(client, Destroyed());

    EXPECT_THAT([&] { config.Connect(nullptr); },
                testing::ThrowsMessage<std::runtime_error>(testing::StrEq("service gone")));
    EXPECT_EQ(log.Lines(),
              (Lines{Debug("Connect(): starting..."),
                     Debug("Connect(): calling RegisterApplication DscKnxIpConfig...")}));
}

TEST_F(ConnectTest, LogsNothingAtFatalAndBehavesTheSame) {
    LogCapture quiet(log4cplus::FATAL_LOG_LEVEL);
    InSequence order;
    EXPECT_CALL(factory, Create()).WillOnce(NoClient);
    MockDeviceStackClient& refused = ExpectCreated(factory);
    EXPECT_CALL(refused, RegisterApplication("DscKnxIpConfig", "field", "KNX"))
        .WillOnce(Return(false));
    EXPECT_CALL(refused, Destroyed());
    MockDeviceStackClient& accepted = ExpectRegistered(factory);
    EXPECT_CALL(accepted, Destroyed());

    EXPECT_EQ(config.Connect(nullptr), nullptr);
    EXPECT_EQ(config.Connect(nullptr), nullptr);
    EXPECT_EQ(config.Connect(nullptr).get(), &accepted);
    EXPECT_TRUE(quiet.Records().empty());
    EXPECT_TRUE(log.Records().empty());
}
