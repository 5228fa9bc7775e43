// A CAN feature loaded from the built library, driven end to end: the micro-host
// service coming and going, samples reaching clients in synchronised time, buffered
// replay, and the order of tear-down.
#include <gtest/gtest.h>

#include "ContractConstants.h"
#include "InterfaceBroker.h"
#include "LoadedModuleTest.h"
#include "LoggedRecord.h"
#include "ModuleLoader.h"
#include "SimulatedPeers.h"

namespace {

using host::BrokerCall;
using host::ReceivedSample;
using testing_host::LoadedModuleTest;

TPosSensorData Record(uint32_t aTime, uint16_t aPulses, int16_t aRate, uint32_t aDirection, uint8_t aSamples) {
  TPosSensorData record = {aTime, aPulses, aRate, aDirection, aSamples};
  return record;
}

class CanDriveTest : public LoadedModuleTest {
 protected:
  void SetUp() override {
    LoadedModuleTest::SetUp();
    iProperties.Set("diversity", "CAN");
  }
  // Kicks at aKick (local tick) and answers with the micro-controller's time for it.
  void Synchronise(uint64_t aKick, uint32_t aPeerTime) {
    iEventBroker.RunUntil(aKick);
    ASSERT_EQ(0, iService.SendSyncTime(aPeerTime));
  }

  host::CMicroHostSensorService iService;
  host::CPositioningClient iClientA{"1", "A"};
  host::CPositioningClient iClientB{"1", "B"};
};

TEST_F(CanDriveTest, ServiceThatArrivesLaterIsConnectedAndItsRecordsAreStored) {
  Create();
  EXPECT_FALSE(iService.IsConnected());
  iService.Attach(iBroker);
  ASSERT_TRUE(iService.IsConnected());
  iClientA.Attach(iBroker);
  iClientA.Subscribe(1, 0);
  iClientA.Subscribe(2, 0);
  EXPECT_EQ(0, iService.SendSensorData(Record(100, 3, 9, 0x21, 1)));
  EXPECT_EQ(2u, iClientA.Samples().size());
}

TEST_F(CanDriveTest, ServiceThatLeavesAndComesBackDeliversAgain) {
  iService.Attach(iBroker);
  iClientA.Attach(iBroker);
  Create();
  iClientA.Subscribe(1, 0);
  iClientA.Subscribe(2, 0);
  iService.SendSensorData(Record(100, 1, 1, 0x21, 1));
  iService.Detach(iBroker);
  EXPECT_FALSE(iService.IsConnected());
  EXPECT_EQ(host::kNotConnected, iService.SendSensorData(Record(300, 1, 1, 0x21, 1)));
  iService.Attach(iBroker);
  EXPECT_TRUE(iService.IsConnected());
  iService.SendSensorData(Record(500, 2, 2, 0x21, 1));
  ASSERT_EQ(4u, iClientA.Samples().size());
  EXPECT_EQ(100u, iClientA.Samples()[0].timeStamp);
  EXPECT_EQ(500u, iClientA.Samples()[2].timeStamp);
  EXPECT_EQ(1, iService.UnavailableCount());
  EXPECT_EQ(2, iService.AvailableCount());
}

TEST_F(CanDriveTest, SamplesReachTwoClientsInSynchronisedTime) {
  iService.Attach(iBroker);
  iClientA.Attach(iBroker);
  iClientB.Attach(iBroker);
  Create();
  ASSERT_TRUE(iClientA.IsConnected());
  ASSERT_TRUE(iClientB.IsConnected());
  // One client per sensor: the set of sensors is complete with two subscriptions.
  EXPECT_EQ(0, iClientA.Subscribe(1, 0));
  EXPECT_EQ(0, iClientB.Subscribe(2, 0));

  Synchronise(1000, 400);  // offset 600
  iService.SendSensorData(Record(450, 12, -40, 0x25, 3));
  iService.SendSensorData(Record(650, 0, 0, 0x33, 2));

  EXPECT_EQ((std::vector<ReceivedSample>{{1, 1050, {3, -40}}, {1, 1250, {2, 0}}}), iClientA.Samples());
  EXPECT_EQ((std::vector<ReceivedSample>{{2, 1050, {12, 2}}, {2, 1250, {0, 0}}}), iClientB.Samples());
}

TEST_F(CanDriveTest, OffsetFollowsEveryNewMeasurement) {
  iService.Attach(iBroker);
  iClientA.Attach(iBroker);
  Create();
  iClientA.Subscribe(1, 0);
  iClientA.Subscribe(2, 0);
  Synchronise(1000, 400);
  iService.SendSensorData(Record(500, 1, 1, 0x21, 1));
  // After the first measurement the kick comes every 30 seconds.
  Synchronise(31000, 30300);
  iService.SendSensorData(Record(30500, 1, 1, 0x21, 1));
  ASSERT_EQ(4u, iClientA.Samples().size());
  EXPECT_EQ(1100u, iClientA.Samples()[0].timeStamp);
  EXPECT_EQ(31200u, iClientA.Samples()[2].timeStamp);
}

TEST_F(CanDriveTest, SubscriptionThatCompletesTheSetReplaysTheFirstSensorsBuffer) {
  iService.Attach(iBroker);
  iClientA.Attach(iBroker);
  Create();
  for (uint32_t i = 0; i < 10; ++i) iService.SendSensorData(Record(200 * i, uint16_t(i), int16_t(-i), 0x21, 1));
  EXPECT_TRUE(iClientA.Samples().empty());
  iClientA.Subscribe(1, 0);
  iClientA.Subscribe(2, 1);
  std::vector<ReceivedSample> replay = iClientA.Samples();
  ASSERT_EQ(10u, replay.size());
  for (uint32_t i = 0; i < 10; ++i) {
    EXPECT_EQ(1u, replay[i].type);
    EXPECT_EQ(200u * i, replay[i].timeStamp);
    EXPECT_EQ((std::vector<int16_t>{1, int16_t(-i)}), replay[i].values);
  }
  iService.SendSensorData(Record(2000, 5, 5, 0x25, 1));
  EXPECT_EQ(12u, iClientA.Samples().size());
}

TEST_F(CanDriveTest, ReplayGoesToTheFirstSensorsNewestSubscriberNotTheCaller) {
  iService.Attach(iBroker);
  iClientA.Attach(iBroker);
  iClientB.Attach(iBroker);
  Create();
  for (uint32_t i = 0; i < 4; ++i) iService.SendSensorData(Record(200 * i, 1, 1, 0x21, 1));
  iClientA.Subscribe(1, 0);
  iClientB.Subscribe(2, 1);
  EXPECT_EQ(4u, iClientA.SamplesOf(1).size());
  EXPECT_TRUE(iClientB.Samples().empty());
}

TEST_F(CanDriveTest, ReplayKeepsOneMinuteOfTheFirstSensor) {
  iService.Attach(iBroker);
  iClientA.Attach(iBroker);
  Create();
  for (uint32_t i = 0; i < 450; ++i) iService.SendSensorData(Record(200 * i, 1, int16_t(i), 0x21, 1));
  iClientA.Subscribe(1, 0);
  iClientA.Subscribe(2, 1);
  ASSERT_EQ(300u, iClientA.Samples().size());
  EXPECT_EQ(200u * 150, iClientA.Samples().front().timeStamp);
  EXPECT_EQ(200u * 449, iClientA.Samples().back().timeStamp);
}

TEST_F(CanDriveTest, SecondClientsSubscriptionsCloseTheDeliveryGateForGood) {
  iService.Attach(iBroker);
  iClientA.Attach(iBroker);
  iClientB.Attach(iBroker);
  Create();
  iClientA.Subscribe(1, 0);
  iClientA.Subscribe(2, 0);
  iService.SendSensorData(Record(100, 1, 1, 0x21, 1));
  iClientB.Subscribe(1, 0);
  iClientB.Subscribe(2, 0);
  iService.SendSensorData(Record(300, 1, 1, 0x21, 1));
  EXPECT_EQ(2u, iClientA.Samples().size());
  EXPECT_TRUE(iClientB.Samples().empty());
}

TEST_F(CanDriveTest, ClientThatLeavesStopsReceivingWhileTheOtherGoesOn) {
  iService.Attach(iBroker);
  iClientA.Attach(iBroker);
  iClientB.Attach(iBroker);
  Create();
  iClientB.Subscribe(1, 0);
  iClientA.Subscribe(2, 0);
  iService.SendSensorData(Record(100, 1, 1, 0x21, 1));
  // A is the store's connected client: its leaving drops its subscriptions.
  iClientA.Detach(iBroker);
  iService.SendSensorData(Record(300, 1, 1, 0x21, 1));
  EXPECT_EQ(1u, iClientA.Samples().size());
  EXPECT_EQ(2u, iClientB.Samples().size());
}

TEST_F(CanDriveTest, DestructionRevokesTheServiceThenTheStoreThenStopsTheTimer) {
  iService.Attach(iBroker);
  iClientA.Attach(iBroker);
  Create();
  const size_t callsBefore = iBroker.Calls().size();
  const size_t eventCallsBefore = iEventBroker.Calls().size();
  ClearRecords();
  Destroy();

  std::vector<BrokerCall> calls(iBroker.Calls().begin() + callsBefore, iBroker.Calls().end());
  ASSERT_EQ(2u, calls.size());
  EXPECT_EQ(BrokerCall::Revoke, calls[0].kind);
  EXPECT_EQ("0", calls[0].instance);
  EXPECT_EQ(contract::kMicroHostSensorIdentity.identifier, calls[0].identifier);
  EXPECT_EQ(BrokerCall::Revoke, calls[1].kind);
  EXPECT_EQ("1", calls[1].instance);
  EXPECT_EQ(contract::kPositioningIdentity.identifier, calls[1].identifier);
  ASSERT_EQ(eventCallsBefore + 1, iEventBroker.Calls().size());
  EXPECT_FALSE(iEventBroker.Calls().back().registering);
  EXPECT_FALSE(iService.IsConnected());
  EXPECT_FALSE(iClientA.IsConnected());

  const std::vector<host::LoggedRecord> records = ModuleRecords();
  ASSERT_FALSE(records.empty());
  EXPECT_EQ("virtual CPositioning::~CPositioning()", records.front().function);
  EXPECT_EQ("virtual void CCANSensor::OnInterfaceUnavailable(IMicroHostSensorMale&)", records[1].function);
  EXPECT_EQ("virtual void CSensorStore::OnInterfaceUnavailable(IPositioningSensorMale&)", records[2].function);
}

TEST_F(CanDriveTest, KicksEverySecondUntilTheFirstMeasurementThenEveryThirtySeconds) {
  iService.Attach(iBroker);
  Create();
  iEventBroker.RunUntil(5000);
  EXPECT_EQ(5u, iEventBroker.FiredCount());
  iService.SendSyncTime(100);
  iEventBroker.RunUntil(5000 + 60000);
  EXPECT_EQ(7u, iEventBroker.FiredCount());
}

}  // namespace
