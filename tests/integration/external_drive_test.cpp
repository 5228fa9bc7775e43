// An EXTERNAL feature loaded from the built library, driven end to end: clock-sync and
// external services coming and going, configuration and subscription, combined records
// reaching clients in synchronised time, and the order of tear-down.
#include <gtest/gtest.h>

#include "ContractConstants.h"
#include "InterfaceBroker.h"
#include "LoadedModuleTest.h"
#include "ModuleLoader.h"
#include "Platform.h"
#include "SimulatedOsal.h"
#include "SimulatedPeers.h"
#include "StdoutCapture.h"

namespace {

using host::BrokerCall;
using host::ReceivedSample;
using testing_host::LoadedModuleTest;

const TiPositioningSensorType kCombined = contract::kCombinedRecord;

class ExternalDriveTest : public LoadedModuleTest {
 protected:
  void SetUp() override {
    LoadedModuleTest::SetUp();
    iProperties.Set("diversity", "EXTERNAL");
  }
  // Everything present, the service configured and subscribed, one client per sensor.
  void StartAll() {
    iClockSync.Attach(iBroker);
    iSensorService.Attach(iBroker);
    iClientA.Attach(iBroker);
    iClientB.Attach(iBroker);
    Create();
    ASSERT_EQ(0, iSensorService.SendConfiguration({{kCombined, 1, 200, 4}}));
    ASSERT_EQ(0, iClientA.Subscribe(1, 0));
    ASSERT_EQ(0, iClientB.Subscribe(2, 0));
  }

  host::CClockSyncService iClockSync;
  host::CExternalPositioningService iSensorService;
  host::CPositioningClient iClientA{"2", "A"};
  host::CPositioningClient iClientB{"2", "B"};
};

TEST_F(ExternalDriveTest, ConfigurationFromTheServiceLeadsToASubscriptionOfTheCombinedRecord) {
  iSensorService.Attach(iBroker);
  Create();
  ASSERT_TRUE(iSensorService.IsConnected());
  EXPECT_TRUE(iSensorService.Subscriptions().empty());
  EXPECT_EQ(0, iSensorService.SendConfiguration({{1, 1, 200, 2}, {2, 1, 200, 2}}));
  ASSERT_EQ(1u, iSensorService.Subscriptions().size());
  EXPECT_EQ(kCombined, iSensorService.Subscriptions()[0].type);
  EXPECT_EQ(1, iSensorService.Subscriptions()[0].flag);
}

TEST_F(ExternalDriveTest, ClockSyncServiceArrivalPulsesTheClockSyncPin) {
  Create();
  host::CSimulatedOsal::Instance().SetNow(2000);
  iClockSync.Attach(iBroker);
  const std::vector<host::PinChange>& pins = host::CPlatform::Instance().MainUnit().Pins();
  ASSERT_EQ(2u, pins.size());
  EXPECT_EQ(contract::kClkSyncPin, pins[0].pin);
  EXPECT_EQ(1u, pins[0].level);
  EXPECT_EQ(7u, pins[1].pin);
  EXPECT_EQ(0u, pins[1].level);
  EXPECT_EQ((std::vector<int>{50000}), host::CSimulatedOsal::Instance().Sleeps());
  ASSERT_EQ(1u, iEventBroker.Timers().size());
  EXPECT_EQ(1000u, iEventBroker.Timers()[0].period);
}

TEST_F(ExternalDriveTest, CombinedRecordsReachTwoClientsInSynchronisedTime) {
  host::CSimulatedOsal::Instance().SetNow(10000);
  StartAll();                                          // the clock-sync arrival kicked at 10000
  ASSERT_EQ(0, iClockSync.SendTimeStampReport(7000));  // offset 3000
  ASSERT_EQ(0, iSensorService.SendSensorData(kCombined, 7100, {11, -12, 13, 2}));
  ASSERT_EQ(0, iSensorService.SendSensorData(kCombined, 7300, {21, -22, 23, 1}));
  EXPECT_EQ((std::vector<ReceivedSample>{{1, 10100, {11, -12}}, {1, 10300, {21, -22}}}), iClientA.Samples());
  EXPECT_EQ((std::vector<ReceivedSample>{{2, 10100, {13, 2}}, {2, 10300, {23, 1}}}), iClientB.Samples());
}

TEST_F(ExternalDriveTest, TimerKicksPulseThePinAndNewReportsMoveTheOffset) {
  host::CSimulatedOsal::Instance().SetNow(10000);
  StartAll();
  iClockSync.SendTimeStampReport(7000);
  iEventBroker.RunUntil(40000);  // slow kick at 40000
  EXPECT_EQ(4u, host::CPlatform::Instance().MainUnit().Pins().size());
  iClockSync.SendTimeStampReport(36500);  // offset 3500
  iSensorService.SendSensorData(kCombined, 36600, {1, 2, 3, 4});
  ASSERT_EQ(1u, iClientA.Samples().size());
  EXPECT_EQ(40100u, iClientA.Samples()[0].timeStamp);
}

TEST_F(ExternalDriveTest, LosingTheClockSyncServiceKeepsSamplesFlowingInTheServicesTime) {
  host::CSimulatedOsal::Instance().SetNow(10000);
  StartAll();
  iClockSync.SendTimeStampReport(7000);
  iClockSync.Detach(iBroker);
  EXPECT_TRUE(iEventBroker.Timers().empty());
  iSensorService.SendSensorData(kCombined, 7100, {1, 2, 3, 4});
  ASSERT_EQ(1u, iClientA.Samples().size());
  EXPECT_EQ(7100u, iClientA.Samples()[0].timeStamp);
  // The detached service reaches nobody; coming back makes a fresh time object.
  EXPECT_EQ(host::kNotConnected, iClockSync.SendTimeStampReport(7200));
  iClockSync.Attach(iBroker);
  EXPECT_EQ(1u, iEventBroker.Timers().size());
}

TEST_F(ExternalDriveTest, ExternalServiceThatLeavesAndComesBackResubscribesOnItsNextConfiguration) {
  StartAll();
  iSensorService.SendSensorData(kCombined, 1000, {1, 2, 3, 4});
  iSensorService.Detach(iBroker);
  iSensorService.Attach(iBroker);
  iSensorService.SendConfiguration({{kCombined, 1, 200, 4}});
  EXPECT_EQ(2u, iSensorService.Subscriptions().size());
  iSensorService.SendSensorData(kCombined, 1200, {1, 2, 3, 4});
  EXPECT_EQ(2u, iClientA.Samples().size());
}

TEST_F(ExternalDriveTest, TimeStampJumpsArePrintedAndTheRecordsStillStored) {
  StartAll();
  host::CStdoutCapture capture;
  iSensorService.SendSensorData(kCombined, 1000, {1, 2, 3, 4});
  iSensorService.SendSensorData(kCombined, 900, {1, 2, 3, 4});
  const std::string printed = capture.Stop();
  EXPECT_EQ(
      "ERROR: SensorData timestamp difference more than 250 ms, 900, 1000\n"
      "ERROR: SensorData timestamp 900 is going back\n",
      printed);
  EXPECT_EQ(2u, iClientA.Samples().size());
}

TEST_F(ExternalDriveTest, SubscriptionWithReplayGetsTheBufferedGyroscopeSamples) {
  iSensorService.Attach(iBroker);
  iClientA.Attach(iBroker);
  Create();
  iSensorService.SendConfiguration({{kCombined, 1, 200, 4}});
  for (uint64_t i = 1; i <= 5; ++i) iSensorService.SendSensorData(kCombined, 200 * i, {int16_t(i), 0, 0, 0});
  iClientA.Subscribe(1, 0);
  iClientA.Subscribe(2, 1);
  ASSERT_EQ(5u, iClientA.Samples().size());
  EXPECT_EQ(200u, iClientA.Samples().front().timeStamp);
  EXPECT_EQ(1000u, iClientA.Samples().back().timeStamp);
  EXPECT_EQ(1u, iClientA.Samples().back().type);
}

TEST_F(ExternalDriveTest, DestructionRevokesClockSyncThenExternalServiceThenTheStore) {
  StartAll();
  const size_t callsBefore = iBroker.Calls().size();
  Destroy();
  std::vector<BrokerCall> calls(iBroker.Calls().begin() + callsBefore, iBroker.Calls().end());
  ASSERT_EQ(3u, calls.size());
  EXPECT_EQ(contract::kClockSyncIdentity.identifier, calls[0].identifier);
  EXPECT_EQ(contract::kExternalSensorIdentity.identifier, calls[1].identifier);
  EXPECT_EQ(contract::kPositioningIdentity.identifier, calls[2].identifier);
  EXPECT_EQ("2", calls[2].instance);
  for (const BrokerCall& call : calls) EXPECT_EQ(BrokerCall::Revoke, call.kind);
  EXPECT_FALSE(iClockSync.IsConnected());
  EXPECT_FALSE(iSensorService.IsConnected());
  EXPECT_FALSE(iClientA.IsConnected());
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

}  // namespace
