// CSensorStore as the positioning-sensor service: clients connecting through the
// broker, the configuration they are sent, Subscribe with its records, the delivery
// gate, the buffered replay, clients leaving, and destruction of the store.
#include <gtest/gtest.h>

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "CSensorStore.h"
#include "ContractConstants.h"
#include "InterfaceBroker.h"
#include "LoggedRecord.h"
#include "RecordFormat.h"
#include "SimulatedPeers.h"
#include "StoreTestSupport.h"
#include "TestHost.h"

namespace {

using testing_store::MakeSample;
using testing_store::Sample;

const char kSubscribe[] =
    "virtual reflection::TErrCode CSensorStore::Subscribe(IPositioningSensorMale&, TiPositioningSensorType, "
    "txdr_bool)";
const char kAvailable[] = "virtual void CSensorStore::OnInterfaceAvailable(IPositioningSensorMale&)";
const char kUnavailable[] = "virtual void CSensorStore::OnInterfaceUnavailable(IPositioningSensorMale&)";
const char kPutData[] = "virtual TAny CSensorStore::PutData(TUint8, CSensorStore::TSensorData)";
const TiPositioningSensorEntry kGyro = {1, 1, 200, 2};
const TiPositioningSensorEntry kOdometer = {2, 1, 200, 2};

// Expected summaries of the store's records.
std::string SubscribeRecord(int aType, int aFlag) {
  return std::string("Interface 108 ") + kSubscribe + ": Type: <u16:" + std::to_string(aType) +
         ">, RequestBufferedData: <i32:" + std::to_string(aFlag) + ">";
}
const std::string kNotAll = "Info 153 Subscribe: Not all sensors are subscribed";
std::string AllRecord(bool aFlag) {
  return std::string("Info 125 Subscribe: All sensors are subscribed, aRequestBufferedData=<bool:") +
         (aFlag ? "true" : "false") + ">";
}
std::string SizeRecord(int aCount) {
  return "Info 133 Subscribe: bufferd data size=<i32:" + std::to_string(aCount) + ">";
}
std::string SendingRecord(int aType) {
  return "Info 143 Subscribe: Sending buffered SensorData for sensor type: <u16:" + std::to_string(aType) + ">";
}
const std::string kAvailableRecord = std::string("Interface 88 ") + kAvailable + ": ";
const std::string kUnavailableRecord = std::string("Interface 94 ") + kUnavailable + ": ";
const std::string kRevokeFailedRecord =
    "Info 66 ~CSensorStore: RevokeInterface interface for IPositioningSensorMale failed";

// What a client receives for sample number n of sensor type aType.
host::ReceivedSample Received(TiPositioningSensorType aType, int aNumber) {
  return host::ReceivedSample{aType,
                              100000u + static_cast<uint64_t>(aNumber),
                              {static_cast<int16_t>(aNumber * 10), static_cast<int16_t>(aNumber * 10 + 1)}};
}

std::vector<host::ReceivedSample> ReceivedRange(TiPositioningSensorType aType, int aFirst, int aLast) {
  std::vector<host::ReceivedSample> samples;
  for (int n = aFirst; n <= aLast; ++n) samples.push_back(Received(aType, n));
  return samples;
}

// The client lists' contents, head first.
std::vector<const IPositioningSensorMale*> Clients(const CSensorStore& aStore, int aHandle) {
  std::vector<const IPositioningSensorMale*> clients;
  const CHKList<CSensorStore::clientRecord>& list = aStore.Sensor(aHandle).clients;
  const CHKNode<CSensorStore::clientRecord>* previous = nullptr;
  for (const CHKNode<CSensorStore::clientRecord>* node = list.iHead; node != nullptr; node = node->iNext) {
    EXPECT_EQ(previous, node->iPrev);
    EXPECT_EQ(0u, node->iData.reserved);
    clients.push_back(node->iData.client);
    previous = node;
  }
  EXPECT_EQ(static_cast<int32_t>(clients.size()), list.iCount);
  return clients;
}

class StoreSubscriptionTest : public testing_host::HostTest {
 protected:
  void MakeStore(std::vector<TiPositioningSensorEntry> aEntries) {
    iStore = testing_store::MakeStore(aEntries, iFeatureId, iBroker);
  }
  void MakeFixedStore() { MakeStore({kGyro, kOdometer}); }

  // The fixed store with client A connected through the store's handler.
  void MakeStoreWithClientA() {
    MakeFixedStore();
    iA.Attach(iBroker);
    ASSERT_TRUE(iA.IsConnected());
  }

  void Write(TUint8 aHandle, int aFirst, int aLast) {
    for (int n = aFirst; n <= aLast; ++n) iStore->PutData(aHandle, MakeSample(n));
  }

  // The store's records so far, PutData traces left out, each checked for framing.
  std::vector<std::string> StoreRecords() const {
    return testing_store::StoreRecordSummaries(ModuleRecords(), kPutData);
  }

  static std::vector<std::string> Repeat(const std::string& aRecord, int aTimes) {
    return std::vector<std::string>(static_cast<size_t>(aTimes), aRecord);
  }
  static std::vector<std::string> Join(std::vector<std::string> aFirst, const std::vector<std::string>& aSecond) {
    aFirst.insert(aFirst.end(), aSecond.begin(), aSecond.end());
    return aFirst;
  }

  IPositioningSensorFemale* Service() const { return iStore.get(); }

  // Declared before the store, so that the store goes first.
  host::CPositioningClient iA{"1", "A"};
  host::CPositioningClient iB{"1", "B"};
  host::CPositioningClient iC{"1", "C"};
  std::unique_ptr<CSensorStore> iStore;
};

// Connecting.

TEST_F(StoreSubscriptionTest, OnInterfaceAvailableSendsTheConfigurationCopyAndDoesNotSubscribe) {
  MakeFixedStore();
  iA.Attach(iBroker);
  ASSERT_TRUE(iA.IsConnected());
  ASSERT_EQ(1u, iA.Configurations().size());
  const std::vector<TiPositioningSensorEntry>& entries = iA.Configurations()[0];
  ASSERT_EQ(2u, entries.size());
  EXPECT_EQ(1, entries[0].sensorType);
  EXPECT_EQ(1, entries[0].sensorParameter);
  EXPECT_EQ(200, entries[0].samplePeriod);
  EXPECT_EQ(2, entries[0].valueCount);
  EXPECT_EQ(2, entries[1].sensorType);
  EXPECT_EQ(1, entries[1].sensorParameter);
  EXPECT_EQ(200, entries[1].samplePeriod);
  EXPECT_EQ(2, entries[1].valueCount);
  EXPECT_EQ(Service(), iA.LastSender());
  EXPECT_EQ(0, iStore->SubscriptionCount());
  EXPECT_TRUE(Clients(*iStore, 0).empty());
  EXPECT_TRUE(Clients(*iStore, 1).empty());
}

// Remembers the configuration record it was handed.
class CConfigurationSpy : public host::CPositioningClient {
 public:
  CConfigurationSpy() : CPositioningClient("1", "spy") {}
  reflection::TErrCode Configuration(IPositioningSensorFemale& aPartner,
                                     TiPositioningSensorConfiguration& aConfig) override {
    iSize = aConfig.size;
    iData = aConfig.data;
    return CPositioningClient::Configuration(aPartner, aConfig);
  }
  uint8_t iSize = 0;
  const TiPositioningSensorEntry* iData = nullptr;
};

TEST_F(StoreSubscriptionTest, OnInterfaceAvailableHandsOverTheStoresOwnConfigurationRecord) {
  CConfigurationSpy spy;
  spy.Attach(iBroker);
  MakeFixedStore();
  ASSERT_TRUE(spy.IsConnected());
  EXPECT_EQ(2, spy.iSize);
  EXPECT_EQ(iStore->PositioningSensorConfig().data, spy.iData);
  iStore.reset();
}

TEST_F(StoreSubscriptionTest, OnInterfaceAvailableWritesAnEmptyInterfaceTrace) {
  MakeFixedStore();
  iA.Attach(iBroker);
  EXPECT_EQ((std::vector<std::string>{kAvailableRecord}), StoreRecords());
  ASSERT_EQ(1u, ModuleRecords().size());
  EXPECT_EQ("()", ModuleRecords()[0].Text());
}

TEST_F(StoreSubscriptionTest, AClientAttachedBeforeTheStoreIsConnectedWhenTheStoreIsMade) {
  iA.Attach(iBroker);
  MakeFixedStore();
  EXPECT_TRUE(iA.IsConnected());
  EXPECT_EQ(1u, iA.Configurations().size());
  EXPECT_EQ((std::vector<std::string>{kAvailableRecord}), StoreRecords());
}

TEST_F(StoreSubscriptionTest, ALaterClientConnectsItsOwnEndAndIsSentNoConfiguration) {
  MakeStoreWithClientA();
  iB.Attach(iBroker);
  ASSERT_TRUE(iB.IsConnected());
  EXPECT_EQ(Service(), iB.Connected());
  EXPECT_TRUE(iB.Configurations().empty());
  EXPECT_EQ((std::vector<std::string>{kAvailableRecord}), StoreRecords());
  EXPECT_EQ(0, iB.Subscribe(1, 0));
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iB}), Clients(*iStore, 0));
}

// Subscribe.

TEST_F(StoreSubscriptionTest, FirstOfTwoSubscriptionsLogsNotAllSensorsAreSubscribed) {
  MakeStoreWithClientA();
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ((std::vector<std::string>{SubscribeRecord(1, 0), kNotAll}), StoreRecords());
  EXPECT_EQ(1, iStore->SubscriptionCount());
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iA}), Clients(*iStore, 0));
  EXPECT_TRUE(Clients(*iStore, 1).empty());
}

TEST_F(StoreSubscriptionTest, CompletingTheSetWithReplaySendsTheFirstSensorsRecordsOldestFirst) {
  MakeStoreWithClientA();
  Write(0, 1, 5);
  Write(1, 11, 13);
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(0, iA.Subscribe(2, 1));
  EXPECT_EQ(Join({SubscribeRecord(1, 0), kNotAll, SubscribeRecord(2, 1), AllRecord(true), SizeRecord(5)},
                 Repeat(SendingRecord(1), 5)),
            StoreRecords());
  EXPECT_EQ(ReceivedRange(1, 1, 5), iA.Samples());
  EXPECT_EQ(Service(), iA.LastSender());
  EXPECT_EQ(2, iStore->SubscriptionCount());
}

TEST_F(StoreSubscriptionTest, CompletingTheSetWithoutReplayRequestSendsNothingButOpensDelivery) {
  MakeStoreWithClientA();
  Write(0, 1, 5);
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(0, iA.Subscribe(2, 0));
  EXPECT_EQ((std::vector<std::string>{SubscribeRecord(1, 0), kNotAll, SubscribeRecord(2, 0), AllRecord(false)}),
            StoreRecords());
  EXPECT_TRUE(iA.Samples().empty());
  iStore->PutData(0, MakeSample(6));
  iStore->PutData(1, MakeSample(7));
  EXPECT_EQ((std::vector<host::ReceivedSample>{Received(1, 6), Received(2, 7)}), iA.Samples());
}

TEST_F(StoreSubscriptionTest, ReplayAfterTheBufferWrappedSendsExactly300StartingAtTheWritePosition) {
  MakeStoreWithClientA();
  Write(0, 1, 450);
  const CRingBuffer<Sample>& buffer = *iStore->Sensor(0).buffer;
  ASSERT_EQ(150, buffer.iWritePos);
  const uint64_t oldestStamp = buffer.iData[buffer.iWritePos].timeStamp;
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(0, iA.Subscribe(2, 1));
  ASSERT_EQ(300u, iA.Samples().size());
  EXPECT_EQ(oldestStamp, iA.Samples().front().timeStamp);
  EXPECT_EQ(ReceivedRange(1, 151, 450), iA.Samples());
  EXPECT_EQ(Join({SubscribeRecord(1, 0), kNotAll, SubscribeRecord(2, 1), AllRecord(true), SizeRecord(300)},
                 Repeat(SendingRecord(1), 300)),
            StoreRecords());
}

TEST_F(StoreSubscriptionTest, ReplayOfAnEmptyFirstBufferSendsNothingAndReturns0) {
  MakeStoreWithClientA();
  iA.SetSensorDataResult(9);
  Write(1, 1, 3);
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(0, iA.Subscribe(2, 1));
  EXPECT_EQ(
      (std::vector<std::string>{SubscribeRecord(1, 0), kNotAll, SubscribeRecord(2, 1), AllRecord(true), SizeRecord(0)}),
      StoreRecords());
  EXPECT_TRUE(iA.Samples().empty());
}

TEST_F(StoreSubscriptionTest, SubscribingType1TwiceOpensTheGateWithAReplay) {
  MakeStoreWithClientA();
  Write(0, 1, 2);
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(0, iA.Subscribe(1, 1));
  EXPECT_EQ(Join({SubscribeRecord(1, 0), kNotAll, SubscribeRecord(1, 1), AllRecord(true), SizeRecord(2)},
                 Repeat(SendingRecord(1), 2)),
            StoreRecords());
  EXPECT_EQ(2, iStore->SubscriptionCount());
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iA, &iA}), Clients(*iStore, 0));
  EXPECT_EQ(ReceivedRange(1, 1, 2), iA.Samples());
}

TEST_F(StoreSubscriptionTest, AClientSubscribedToType1TwiceGetsEveryType1SampleTwice) {
  MakeStoreWithClientA();
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  iStore->PutData(0, MakeSample(3));
  iStore->PutData(1, MakeSample(4));
  iStore->PutData(0, MakeSample(5));
  EXPECT_EQ((std::vector<host::ReceivedSample>{Received(1, 3), Received(1, 3), Received(1, 5), Received(1, 5)}),
            iA.Samples());
}

TEST_F(StoreSubscriptionTest, ASubscriptionPastTheSensorCountClosesTheGateForGood) {
  MakeStoreWithClientA();
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(2, 0));
  EXPECT_EQ(3, iStore->SubscriptionCount());
  EXPECT_EQ((std::vector<std::string>{SubscribeRecord(2, 0), kNotAll}), StoreRecords());
  Write(0, 1, 2);
  Write(1, 3, 4);
  EXPECT_TRUE(iA.Samples().empty());
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(2, 1));
  EXPECT_EQ(0, iA.Subscribe(7, 1));
  EXPECT_EQ((std::vector<std::string>{SubscribeRecord(2, 1), kNotAll, SubscribeRecord(7, 1), kNotAll}), StoreRecords());
  Write(0, 5, 6);
  Write(1, 7, 8);
  EXPECT_TRUE(iA.Samples().empty());
}

TEST_F(StoreSubscriptionTest, AClientThatLeavesAndSubscribesAgainRaisesTheCountTo4AndStopsDelivery) {
  MakeStoreWithClientA();
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ(0, iA.Subscribe(2, 0));
  iA.Detach(iBroker);
  EXPECT_EQ(2, iStore->SubscriptionCount());
  EXPECT_TRUE(Clients(*iStore, 0).empty());
  EXPECT_TRUE(Clients(*iStore, 1).empty());
  iA.Attach(iBroker);
  ASSERT_TRUE(iA.IsConnected());
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(0, iA.Subscribe(2, 1));
  EXPECT_EQ(4, iStore->SubscriptionCount());
  EXPECT_EQ((std::vector<std::string>{SubscribeRecord(1, 0), kNotAll, SubscribeRecord(2, 1), kNotAll}), StoreRecords());
  Write(0, 1, 2);
  Write(1, 3, 4);
  EXPECT_TRUE(iA.Samples().empty());
}

TEST_F(StoreSubscriptionTest, RemainingClientsKeepReceivingAfterAClientLeaves) {
  MakeStoreWithClientA();
  iB.Attach(iBroker);
  ASSERT_EQ(0, iA.Subscribe(2, 0));
  ASSERT_EQ(0, iB.Subscribe(1, 0));
  iStore->PutData(0, MakeSample(1));
  iStore->PutData(1, MakeSample(2));
  iA.Detach(iBroker);
  iStore->PutData(0, MakeSample(3));
  iStore->PutData(1, MakeSample(4));
  EXPECT_EQ(2, iStore->SubscriptionCount());
  EXPECT_EQ((std::vector<host::ReceivedSample>{Received(2, 2)}), iA.Samples());
  EXPECT_EQ((std::vector<host::ReceivedSample>{Received(1, 1), Received(1, 3)}), iB.Samples());
}

TEST_F(StoreSubscriptionTest, AReturningClientsSubscriptionStopsDeliveryToEveryClient) {
  MakeStoreWithClientA();
  iB.Attach(iBroker);
  ASSERT_EQ(0, iA.Subscribe(2, 0));
  ASSERT_EQ(0, iB.Subscribe(1, 0));
  iA.Detach(iBroker);
  iA.Attach(iBroker);
  ASSERT_TRUE(iA.IsConnected());
  EXPECT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(3, iStore->SubscriptionCount());
  iStore->PutData(0, MakeSample(1));
  iStore->PutData(1, MakeSample(2));
  EXPECT_TRUE(iA.Samples().empty());
  EXPECT_TRUE(iB.Samples().empty());
}

TEST_F(StoreSubscriptionTest, TwoClientsSubscribingBothTypesOpenAndThenCloseTheGate) {
  MakeStoreWithClientA();
  iB.Attach(iBroker);
  Write(0, 1, 2);
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(0, iA.Subscribe(2, 1));
  EXPECT_EQ(ReceivedRange(1, 1, 2), iA.Samples());
  iStore->PutData(0, MakeSample(3));
  EXPECT_EQ(ReceivedRange(1, 1, 3), iA.Samples());
  EXPECT_EQ(0, iB.Subscribe(1, 0));
  EXPECT_EQ(3, iStore->SubscriptionCount());
  EXPECT_EQ(0, iB.Subscribe(2, 1));
  EXPECT_EQ(4, iStore->SubscriptionCount());
  iStore->PutData(0, MakeSample(4));
  iStore->PutData(1, MakeSample(5));
  EXPECT_EQ(ReceivedRange(1, 1, 3), iA.Samples());
  EXPECT_TRUE(iB.Samples().empty());
  EXPECT_EQ(Join(Join({SubscribeRecord(1, 0), kNotAll, SubscribeRecord(2, 1), AllRecord(true), SizeRecord(2)},
                      Repeat(SendingRecord(1), 2)),
                 {SubscribeRecord(1, 0), kNotAll, SubscribeRecord(2, 1), kNotAll}),
            StoreRecords());
}

TEST_F(StoreSubscriptionTest, OnceOpenASubscriptionToAnUnknownTypeWithReplayReplaysAgain) {
  MakeStoreWithClientA();
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ(0, iA.Subscribe(2, 0));
  Write(0, 1, 3);
  ASSERT_EQ(ReceivedRange(1, 1, 3), iA.Samples());
  iA.ClearSamples();
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(7, 1));
  EXPECT_EQ(Join({SubscribeRecord(7, 1), AllRecord(true), SizeRecord(3)}, Repeat(SendingRecord(1), 3)), StoreRecords());
  EXPECT_EQ(ReceivedRange(1, 1, 3), iA.Samples());
  EXPECT_EQ(2, iStore->SubscriptionCount());
}

TEST_F(StoreSubscriptionTest, AnUnknownTypeBeforeTheGateOpensAddsNothingAndLogsNotAll) {
  MakeStoreWithClientA();
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(7, 1));
  EXPECT_EQ((std::vector<std::string>{SubscribeRecord(7, 1), kNotAll}), StoreRecords());
  EXPECT_EQ(0, iStore->SubscriptionCount());
  EXPECT_TRUE(Clients(*iStore, 0).empty());
  EXPECT_TRUE(Clients(*iStore, 1).empty());
}

TEST_F(StoreSubscriptionTest, SubscribeAddsTheClientToEverySensorOfTheType) {
  MakeStore({kGyro, kGyro});
  iA.Attach(iBroker);
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(2, iStore->SubscriptionCount());
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iA}), Clients(*iStore, 0));
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iA}), Clients(*iStore, 1));
  EXPECT_EQ((std::vector<std::string>{SubscribeRecord(1, 0), AllRecord(false)}), StoreRecords());
}

TEST_F(StoreSubscriptionTest, NewSubscribersGoToTheHeadOfTheSensorsList) {
  MakeStoreWithClientA();
  iB.Attach(iBroker);
  ASSERT_EQ(0, iA.Subscribe(2, 0));
  ASSERT_EQ(0, iB.Subscribe(2, 0));
  ASSERT_EQ(0, iA.Subscribe(2, 0));
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iA, &iB, &iA}), Clients(*iStore, 1));
  EXPECT_TRUE(Clients(*iStore, 0).empty());
  EXPECT_EQ(3, iStore->SubscriptionCount());
}

TEST_F(StoreSubscriptionTest, TheAllSubscribedRecordShowsTheFlagsLowByteAsABoolean) {
  MakeStoreWithClientA();
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(2, 256));
  EXPECT_EQ((std::vector<std::string>{SubscribeRecord(2, 256), AllRecord(false)}), StoreRecords());
}

TEST_F(StoreSubscriptionTest, OnlyAFlagOfExactly1Replays) {
  MakeStoreWithClientA();
  Write(0, 1, 2);
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(2, 2));
  EXPECT_EQ(0, iA.Subscribe(9, 257));
  EXPECT_EQ(0, iA.Subscribe(9, -1));
  EXPECT_EQ((std::vector<std::string>{SubscribeRecord(2, 2), AllRecord(true), SubscribeRecord(9, 257), AllRecord(true),
                                      SubscribeRecord(9, -1), AllRecord(true)}),
            StoreRecords());
  EXPECT_TRUE(iA.Samples().empty());
}

// Replay target and result.

TEST_F(StoreSubscriptionTest, ReplayGoesToTheNewestSubscriberOfTheFirstSensorNotTheCaller) {
  MakeStore({kGyro, kOdometer, {3, 1, 200, 2}});
  iA.Attach(iBroker);
  iB.Attach(iBroker);
  Write(0, 1, 2);
  Write(1, 3, 4);
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ(0, iB.Subscribe(1, 0));
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(3, 1));
  EXPECT_TRUE(iA.Samples().empty());
  EXPECT_EQ(ReceivedRange(1, 1, 2), iB.Samples());
  EXPECT_EQ(Join({SubscribeRecord(3, 1), AllRecord(true), SizeRecord(2)}, Repeat(SendingRecord(1), 2)), StoreRecords());
}

TEST_F(StoreSubscriptionTest, ReplayFromAnotherSensorsSubscriptionGoesToTheFirstSensorsSubscriber) {
  MakeStoreWithClientA();
  iB.Attach(iBroker);
  Write(0, 1, 3);
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(0, iB.Subscribe(2, 1));
  EXPECT_EQ(ReceivedRange(1, 1, 3), iA.Samples());
  EXPECT_TRUE(iB.Samples().empty());
}

TEST_F(StoreSubscriptionTest, ReplayTakesTheFirstSensorWhateverItsType) {
  MakeStore({kOdometer, kGyro});
  iA.Attach(iBroker);
  Write(0, 1, 2);
  Write(1, 3, 4);
  ASSERT_EQ(0, iA.Subscribe(2, 0));
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(1, 1));
  EXPECT_EQ(ReceivedRange(2, 1, 2), iA.Samples());
  EXPECT_EQ(Join({SubscribeRecord(1, 1), AllRecord(true), SizeRecord(2)}, Repeat(SendingRecord(2), 2)), StoreRecords());
}

TEST_F(StoreSubscriptionTest, ReplayReturnsTheResultOfTheLastSensorDataCall) {
  MakeStoreWithClientA();
  // Each call answers ten times the number of samples received so far.
  iA.SetOnSample([this](const host::ReceivedSample&) {
    iA.SetSensorDataResult(static_cast<reflection::TErrCode>(iA.Samples().size() * 10));
  });
  Write(0, 1, 3);
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  EXPECT_EQ(30, iA.Subscribe(2, 1));
  EXPECT_EQ(3u, iA.Samples().size());
}

TEST_F(StoreSubscriptionTest, SubscribeReturns0WhenNothingIsReplayed) {
  MakeStoreWithClientA();
  iA.SetSensorDataResult(9);
  Write(0, 1, 3);
  EXPECT_EQ(0, iA.Subscribe(1, 1));  // not all subscribed
  EXPECT_EQ(0, iA.Subscribe(2, 0));  // all subscribed, no replay asked
  EXPECT_TRUE(iA.Samples().empty());
  EXPECT_EQ(9, iA.Subscribe(7, 1));  // replays, so the client's answer comes back
}

TEST_F(StoreSubscriptionTest, ReplayWithoutAnySubscriberOfTheFirstSensorSendsNothing) {
  MakeStoreWithClientA();
  iA.SetSensorDataResult(9);
  Write(0, 1, 4);
  ClearRecords();
  EXPECT_EQ(0, iA.Subscribe(2, 0));
  EXPECT_EQ(0, iA.Subscribe(2, 1));
  EXPECT_EQ(2, iStore->SubscriptionCount());
  EXPECT_TRUE(Clients(*iStore, 0).empty());
  EXPECT_TRUE(iA.Samples().empty());
  const std::vector<std::string> records = StoreRecords();
  const std::vector<std::string> expectedStart = {SubscribeRecord(2, 0), kNotAll, SubscribeRecord(2, 1),
                                                  AllRecord(true), SizeRecord(4)};
  ASSERT_GE(records.size(), expectedStart.size());
  EXPECT_EQ(expectedStart, std::vector<std::string>(records.begin(), records.begin() + 5));
  // The store goes on working.
  iStore->PutData(1, MakeSample(5));
  EXPECT_EQ((std::vector<host::ReceivedSample>{Received(2, 5), Received(2, 5)}), iA.Samples());
}

// Delivery.

TEST_F(StoreSubscriptionTest, DeliveryGoesToTheNewestSubscriberFirst) {
  MakeStore({kGyro, kOdometer, {3, 1, 200, 2}});
  iA.Attach(iBroker);
  iB.Attach(iBroker);
  iC.Attach(iBroker);
  std::vector<std::string> order;
  iA.SetOnSample([&order](const host::ReceivedSample&) { order.push_back("A"); });
  iB.SetOnSample([&order](const host::ReceivedSample&) { order.push_back("B"); });
  iC.SetOnSample([&order](const host::ReceivedSample&) { order.push_back("C"); });
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ(0, iB.Subscribe(1, 0));
  ASSERT_EQ(0, iC.Subscribe(1, 0));
  iStore->PutData(0, MakeSample(1));
  EXPECT_EQ((std::vector<std::string>{"C", "B", "A"}), order);
  EXPECT_EQ((std::vector<host::ReceivedSample>{Received(1, 1)}), iB.Samples());
}

// Leaving.

TEST_F(StoreSubscriptionTest, OnInterfaceUnavailableWritesAnEmptyInterfaceTrace) {
  MakeStoreWithClientA();
  ClearRecords();
  iA.Detach(iBroker);
  EXPECT_EQ(1, iA.UnavailableCount());
  EXPECT_EQ((std::vector<std::string>{kUnavailableRecord}), StoreRecords());
  ASSERT_EQ(1u, ModuleRecords().size());
  EXPECT_EQ("()", ModuleRecords()[0].Text());
}

TEST_F(StoreSubscriptionTest, OnInterfaceUnavailableRemovesOnlyTheNewerOfTwoNodes) {
  MakeStoreWithClientA();
  iB.Attach(iBroker);
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ(0, iB.Subscribe(1, 0));
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ((std::vector<const IPositioningSensorMale*>{&iA, &iB, &iA}), Clients(*iStore, 0));
  iA.Detach(iBroker);
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iB, &iA}), Clients(*iStore, 0));
  EXPECT_EQ(3, iStore->SubscriptionCount());
}

TEST_F(StoreSubscriptionTest, OnInterfaceUnavailableRemovesOneNodePerSensor) {
  MakeStoreWithClientA();
  iB.Attach(iBroker);
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ(0, iB.Subscribe(2, 0));
  ASSERT_EQ(0, iA.Subscribe(2, 0));
  iA.Detach(iBroker);
  EXPECT_TRUE(Clients(*iStore, 0).empty());
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iB}), Clients(*iStore, 1));
  EXPECT_EQ(3, iStore->SubscriptionCount());
}

TEST_F(StoreSubscriptionTest, OnInterfaceUnavailableUnlinksAMiddleOrTailNode) {
  MakeStoreWithClientA();
  iB.Attach(iBroker);
  ASSERT_EQ(0, iB.Subscribe(1, 0));
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ(0, iB.Subscribe(1, 0));
  ASSERT_EQ(0, iA.Subscribe(2, 0));
  ASSERT_EQ(0, iB.Subscribe(2, 0));
  iA.Detach(iBroker);
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iB, &iB}), Clients(*iStore, 0));
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iB}), Clients(*iStore, 1));
}

TEST_F(StoreSubscriptionTest, OnInterfaceUnavailableForAnUnsubscribedClientChangesNothing) {
  MakeStoreWithClientA();
  iB.Attach(iBroker);
  ASSERT_EQ(0, iB.Subscribe(1, 0));
  iA.Detach(iBroker);
  EXPECT_EQ((std::vector<const IPositioningSensorMale*>{&iB}), Clients(*iStore, 0));
  EXPECT_EQ(1, iStore->SubscriptionCount());
}

// Destruction.

// Looks at the store while the broker disconnects it.
class CDisconnectWitness : public host::CPositioningClient {
 public:
  CDisconnectWitness() : CPositioningClient("1", "witness") {}
  const CSensorStore* iStore = nullptr;
  int iBufferedAtDisconnect = -1;
  int iClientsAtDisconnect = -1;

 protected:
  void OnUnavailable(IPositioningSensorFemale&) override {
    if (iStore == nullptr) return;
    iBufferedAtDisconnect = iStore->Sensor(0).buffer->iCount;
    iClientsAtDisconnect = iStore->Sensor(0).clients.iCount;
  }
};

TEST_F(StoreSubscriptionTest, DestructionRevokesTheServiceBeforeFreeingAnything) {
  CDisconnectWitness witness;
  MakeFixedStore();
  witness.iStore = iStore.get();
  witness.Attach(iBroker);
  ASSERT_TRUE(witness.IsConnected());
  iB.Attach(iBroker);
  ASSERT_EQ(0, iB.Subscribe(1, 0));
  Write(0, 1, 4);
  const IReflectionInterface* handler = iStore.get();
  ClearRecords();
  iStore.reset();

  EXPECT_EQ(4, witness.iBufferedAtDisconnect);
  EXPECT_EQ(1, witness.iClientsAtDisconnect);
  const host::BrokerCall& last = iBroker.Calls().back();
  EXPECT_EQ(host::BrokerCall::Revoke, last.kind);
  EXPECT_EQ(iFeatureId, last.feature);
  EXPECT_EQ("1", last.instance);
  EXPECT_EQ(contract::kPositioningIdentity.identifier, last.identifier);
  EXPECT_EQ(0u, last.qualifier);
  EXPECT_EQ(handler, last.handler);
  EXPECT_EQ(1, last.result);
  EXPECT_EQ(0u, iBroker.ModuleHandlerCount());
  EXPECT_EQ((std::vector<std::string>{kUnavailableRecord}), StoreRecords());
}

TEST_F(StoreSubscriptionTest, DestructionWithoutClientsWritesNoRecord) {
  MakeFixedStore();
  Write(0, 1, 2);
  ClearRecords();
  iStore.reset();
  EXPECT_TRUE(StoreRecords().empty());
  EXPECT_EQ(1u, iBroker.CallsOf(host::BrokerCall::Revoke).size());
}

TEST_F(StoreSubscriptionTest, FailedRevokeIsLoggedAtInfo) {
  MakeFixedStore();
  iBroker.FailRevokes(true);
  ClearRecords();
  iStore.reset();
  EXPECT_EQ((std::vector<std::string>{kRevokeFailedRecord}), StoreRecords());
}

TEST_F(StoreSubscriptionTest, FailedRevokeIsLoggedAfterTheClientWasDisconnected) {
  MakeStoreWithClientA();
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  iBroker.FailRevokes(true);
  ClearRecords();
  iStore.reset();
  EXPECT_EQ((std::vector<std::string>{kUnavailableRecord, kRevokeFailedRecord}), StoreRecords());
  const std::vector<host::BrokerCall> revokes = iBroker.CallsOf(host::BrokerCall::Revoke);
  ASSERT_EQ(1u, revokes.size());
  EXPECT_EQ(0, revokes[0].result);
}

TEST_F(StoreSubscriptionTest, ClientsAreNotToldByTheStoreThatItGoesAway) {
  MakeStoreWithClientA();
  // C reaches the store without the broker, so only the store itself could tell it.
  ASSERT_EQ(0, iStore->Subscribe(iC, 1, 0));
  ASSERT_EQ(0, iA.Subscribe(2, 0));
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  Write(0, 1, 2);
  const size_t aSamples = iA.Samples().size();
  iStore.reset();
  EXPECT_EQ(0, iC.UnavailableCount());
  EXPECT_TRUE(iC.Samples().empty());
  EXPECT_TRUE(iC.Configurations().empty());
  EXPECT_EQ(aSamples, iA.Samples().size());
  EXPECT_EQ(1u, iA.Configurations().size());
  // The clients live on and are merely unconnected.
  EXPECT_FALSE(iA.IsConnected());
  EXPECT_EQ(host::kNotConnected, iA.Subscribe(1, 0));
}

}  // namespace
