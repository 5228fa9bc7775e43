// CSensorStore as a sample store: construction from a sensor configuration (buffer
// sizes, the configuration copy, offering the service), buffer handles, PutData (its
// record, the whole-record copy, ring-buffer positions) and the two queries.
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
#include "StdoutCapture.h"
#include "StoreTestSupport.h"
#include "TestHost.h"

namespace {

using testing_store::MakeSample;
using testing_store::Sample;

const char kPutData[] = "virtual TAny CSensorStore::PutData(TUint8, CSensorStore::TSensorData)";
const TiPositioningSensorEntry kGyro = {1, 1, 200, 2};
const TiPositioningSensorEntry kOdometer = {2, 1, 200, 2};

::testing::AssertionResult SameSample(const Sample& aExpected, const Sample& aActual) {
  bool same = aExpected.timeStamp == aActual.timeStamp && aExpected.size == aActual.size;
  for (int i = 0; i < 10; ++i) same = same && aExpected.values[i] == aActual.values[i];
  if (same) return ::testing::AssertionSuccess();
  ::testing::AssertionResult failure = ::testing::AssertionFailure();
  failure << "expected stamp " << aExpected.timeStamp << " size " << int(aExpected.size) << ", got stamp "
          << aActual.timeStamp << " size " << int(aActual.size) << " values";
  for (int i = 0; i < 10; ++i) failure << " " << aActual.values[i];
  return failure;
}

class SensorStoreTest : public testing_host::HostTest {
 protected:
  std::unique_ptr<CSensorStore> MakeStore(std::vector<TiPositioningSensorEntry> aEntries,
                                          const std::string& aInstance = "1") {
    return testing_store::MakeStore(aEntries, iFeatureId, iBroker, aInstance);
  }
  std::unique_ptr<CSensorStore> MakeFixedStore() { return MakeStore({kGyro, kOdometer}); }

  // The store's records so far, each checked for framing, tag and source file.
  std::vector<std::string> StoreRecords() const { return testing_store::StoreRecordSummaries(ModuleRecords()); }

  static const CRingBuffer<Sample>& Buffer(const CSensorStore& aStore, int aHandle) {
    return *aStore.Sensor(aHandle).buffer;
  }

  // Writes samples aFirst to aLast into sensor aHandle.
  static void Write(CSensorStore& aStore, TUint8 aHandle, int aFirst, int aLast) {
    for (int n = aFirst; n <= aLast; ++n) aStore.PutData(aHandle, MakeSample(n));
  }
};

// Fixed configuration: handles and sizes.

TEST_F(SensorStoreTest, FixedConfigurationGivesHandles0And1AndMinusOneForAnUnknownType) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  EXPECT_EQ(0, store->GetBufferHandle(1));
  EXPECT_EQ(1, store->GetBufferHandle(2));
  EXPECT_EQ(-1, store->GetBufferHandle(3));
}

TEST_F(SensorStoreTest, FixedConfigurationGivesEachBufferACapacityOf300) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  ASSERT_EQ(2, store->SensorCount());
  EXPECT_EQ(300, Buffer(*store, 0).iCapacity);
  EXPECT_EQ(300, Buffer(*store, 1).iCapacity);
}

TEST_F(SensorStoreTest, SamplePeriodOf1000GivesCapacity60) {
  std::unique_ptr<CSensorStore> store = MakeStore({{1, 0, 1000, 2}});
  EXPECT_EQ(60, Buffer(*store, 0).iCapacity);
}

TEST_F(SensorStoreTest, SamplePeriodAbove1000GivesCapacity0) {
  std::unique_ptr<CSensorStore> store = MakeStore({{1, 0, 1001, 2}, {2, 0, 60000, 2}});
  EXPECT_EQ(0, Buffer(*store, 0).iCapacity);
  EXPECT_EQ(0, Buffer(*store, 1).iCapacity);
}

TEST_F(SensorStoreTest, SamplePeriodOf3GivesCapacity19980) {
  std::unique_ptr<CSensorStore> store = MakeStore({{1, 0, 3, 2}});
  EXPECT_EQ(19980, Buffer(*store, 0).iCapacity);
}

TEST_F(SensorStoreTest, SamplesPerSecondTruncateTowardZero) {
  // 1000 / 300 is 3 samples per second, 180 a minute.
  std::unique_ptr<CSensorStore> store = MakeStore({{1, 0, 300, 2}, {2, 0, 999, 2}});
  EXPECT_EQ(180, Buffer(*store, 0).iCapacity);
  EXPECT_EQ(60, Buffer(*store, 1).iCapacity);
}

// Construction.

TEST_F(SensorStoreTest, ConstructionStartsWithEmptyBuffersAndNoSubscriptions) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  EXPECT_EQ(0, store->SubscriptionCount());
  for (int h = 0; h < 2; ++h) {
    EXPECT_EQ(nullptr, store->Sensor(h).clients.iHead);
    EXPECT_EQ(0, store->Sensor(h).clients.iCount);
    EXPECT_NE(nullptr, Buffer(*store, h).iData);
    EXPECT_EQ(0, Buffer(*store, h).iWritePos);
    EXPECT_EQ(0, Buffer(*store, h).iLastPos);
    EXPECT_EQ(0, Buffer(*store, h).iCount);
  }
}

TEST_F(SensorStoreTest, ConstructionCopiesEachConfigurationEntryInOrder) {
  std::vector<TiPositioningSensorEntry> entries = {{7, 11, 250, 3}, {9, 13, 100, 4}, {4, 17, 500, 1}};
  TiPositioningSensorConfiguration config = {static_cast<uint8_t>(entries.size()), entries.data()};
  std::unique_ptr<CSensorStore> store(new CSensorStore(config, iFeatureId, iBroker, "2"));
  entries[0] = {1, 1, 1, 1};  // the caller's array stays the caller's
  ASSERT_EQ(3, store->SensorCount());
  const TiPositioningSensorEntry expected[] = {{7, 11, 250, 3}, {9, 13, 100, 4}, {4, 17, 500, 1}};
  for (int h = 0; h < 3; ++h) {
    const TiPositioningSensorEntry& copy = store->Sensor(h).config;
    EXPECT_EQ(expected[h].sensorType, copy.sensorType) << "sensor " << h;
    EXPECT_EQ(expected[h].sensorParameter, copy.sensorParameter) << "sensor " << h;
    EXPECT_EQ(expected[h].samplePeriod, copy.samplePeriod) << "sensor " << h;
    EXPECT_EQ(expected[h].valueCount, copy.valueCount) << "sensor " << h;
  }
  EXPECT_EQ(240, Buffer(*store, 0).iCapacity);
  EXPECT_EQ(600, Buffer(*store, 1).iCapacity);
  EXPECT_EQ(120, Buffer(*store, 2).iCapacity);
}

TEST_F(SensorStoreTest, ConstructionKeepsItsOwnConfigurationCopyFieldByField) {
  std::vector<TiPositioningSensorEntry> entries = {{7, 11, 250, 3}, {9, 13, 100, 4}};
  TiPositioningSensorConfiguration config = {2, entries.data()};
  std::unique_ptr<CSensorStore> store(new CSensorStore(config, iFeatureId, iBroker, "2"));
  entries[1] = {1, 1, 1, 1};
  const TiPositioningSensorConfiguration& copy = store->PositioningSensorConfig();
  EXPECT_EQ(2, copy.size);
  ASSERT_NE(nullptr, copy.data);
  EXPECT_NE(entries.data(), copy.data);
  EXPECT_EQ(7, copy.data[0].sensorType);
  EXPECT_EQ(11, copy.data[0].sensorParameter);
  EXPECT_EQ(250, copy.data[0].samplePeriod);
  EXPECT_EQ(3, copy.data[0].valueCount);
  EXPECT_EQ(9, copy.data[1].sensorType);
  EXPECT_EQ(13, copy.data[1].sensorParameter);
  EXPECT_EQ(100, copy.data[1].samplePeriod);
  EXPECT_EQ(4, copy.data[1].valueCount);
}

TEST_F(SensorStoreTest, ConstructionRequestsTheServiceWithInstanceNameIdentityAndTheStoreAsHandler) {
  std::unique_ptr<CSensorStore> store = MakeStore({kGyro, kOdometer}, "2");
  const std::vector<host::BrokerCall> calls = iBroker.Calls();
  ASSERT_EQ(1u, calls.size());
  EXPECT_EQ(host::BrokerCall::Request, calls[0].kind);
  EXPECT_EQ(iFeatureId, calls[0].feature);
  EXPECT_EQ("2", calls[0].instance);
  EXPECT_EQ(contract::kPositioningIdentity.identifier, calls[0].identifier);
  EXPECT_EQ(0u, calls[0].qualifier);
  EXPECT_EQ(static_cast<IReflectionInterface*>(store.get()), calls[0].handler);
  EXPECT_EQ(1, calls[0].result);
}

TEST_F(SensorStoreTest, ConstructionKeepsCopiesOfFeatureIdAndInstanceName) {
  std::unique_ptr<CSensorStore> store;
  {
    TFeatureId feature = "short-lived-feature";
    std::string instance = "1";
    TiPositioningSensorEntry entries[] = {kGyro, kOdometer};
    TiPositioningSensorConfiguration config = {2, entries};
    store.reset(new CSensorStore(config, feature, iBroker, instance));
    feature = "changed";
    instance = "changed";
  }
  EXPECT_EQ("1", store->InstanceName());
  store.reset();
  const std::vector<host::BrokerCall> revokes = iBroker.CallsOf(host::BrokerCall::Revoke);
  ASSERT_EQ(1u, revokes.size());
  EXPECT_EQ("short-lived-feature", revokes[0].feature);
  EXPECT_EQ("1", revokes[0].instance);
  EXPECT_EQ(1, revokes[0].result);
}

TEST_F(SensorStoreTest, CreateBuildsAStoreLikeTheConstructor) {
  TiPositioningSensorEntry entries[] = {kGyro, kOdometer};
  TiPositioningSensorConfiguration config = {2, entries};
  std::unique_ptr<CSensorStore> store(CSensorStore::Create(config, iFeatureId, iBroker, "2"));
  ASSERT_NE(nullptr, store);
  EXPECT_EQ(2, store->SensorCount());
  EXPECT_EQ(300, Buffer(*store, 1).iCapacity);
  EXPECT_EQ("2", store->InstanceName());
  EXPECT_TRUE(iBroker.IsAttached("2", contract::kPositioningIdentity, store.get()));
}

TEST_F(SensorStoreTest, SuccessfulConstructionWritesNoRecordAndNoAssertion) {
  host::CStdoutCapture capture;
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  EXPECT_EQ("", capture.Stop());
  EXPECT_TRUE(StoreRecords().empty());
}

TEST_F(SensorStoreTest, FailedRequestIsLoggedAtInfo) {
  iBroker.FailRequests(true);
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  EXPECT_EQ((std::vector<std::string>{"Info 57 CSensorStore: RequestInterface for IPositioningSensorMale failed"}),
            StoreRecords());
}

TEST_F(SensorStoreTest, StoreStaysUsableAfterAFailedRequest) {
  iBroker.FailRequests(true);
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  store->PutData(1, MakeSample(4));
  Sample last = MakeSample(0);
  EXPECT_TRUE(store->GetLastSample(2, last));
  EXPECT_TRUE(SameSample(MakeSample(4), last));
  EXPECT_EQ(1, store->GetBufferHandle(2));
}

// Buffer handles.

TEST_F(SensorStoreTest, GetBufferHandleReturnsTheFirstMatchingSensor) {
  std::unique_ptr<CSensorStore> store = MakeStore({{5, 0, 200, 2}, {3, 0, 200, 2}, {5, 0, 100, 2}});
  EXPECT_EQ(0, store->GetBufferHandle(5));
  EXPECT_EQ(1, store->GetBufferHandle(3));
}

TEST_F(SensorStoreTest, GetBufferHandleAnswersMinusOneWithoutSensors) {
  std::unique_ptr<CSensorStore> store = MakeStore({});
  EXPECT_EQ(0, store->SensorCount());
  EXPECT_EQ(-1, store->GetBufferHandle(0));
  EXPECT_EQ(-1, store->GetBufferHandle(1));
}

TEST_F(SensorStoreTest, GetBufferHandleTruncatesPositionsToSignedEightBits) {
  std::vector<TiPositioningSensorEntry> entries(130, TiPositioningSensorEntry{1, 0, 1000, 2});
  entries[129].sensorType = 77;
  std::unique_ptr<CSensorStore> store = MakeStore(entries);
  EXPECT_EQ(-127, store->GetBufferHandle(77));
}

// PutData.

TEST_F(SensorStoreTest, PutDataLogsTheHandleAtInterface) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  store->PutData(1, MakeSample(1));
  store->PutData(0, MakeSample(2));
  EXPECT_EQ((std::vector<std::string>{std::string("Interface 169 ") + kPutData + ": Handle: <u8:1>",
                                      std::string("Interface 169 ") + kPutData + ": Handle: <u8:0>"}),
            StoreRecords());
}

TEST_F(SensorStoreTest, PutDataStoresIntoTheHandlesBufferOnly) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  store->PutData(1, MakeSample(8));
  EXPECT_EQ(0, Buffer(*store, 0).iCount);
  EXPECT_EQ(1, Buffer(*store, 1).iCount);
  EXPECT_TRUE(SameSample(MakeSample(8), Buffer(*store, 1).iData[0]));
}

TEST_F(SensorStoreTest, PutDataCopiesAllTenValuesWhateverTheSize) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Sample sample = MakeSample(3, 1);
  sample.values[9] = -32768;
  store->PutData(0, sample);
  const Sample& stored = Buffer(*store, 0).iData[0];
  EXPECT_EQ(100003u, stored.timeStamp);
  EXPECT_EQ(1, stored.size);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(30 + i, stored.values[i]) << "value " << i;
  EXPECT_EQ(-32768, stored.values[9]);
}

TEST_F(SensorStoreTest, PutDataBeforeAnySubscriptionStoresTheRecordAndCallsNoClient) {
  host::CPositioningClient client("1");
  client.Attach(iBroker);
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  ASSERT_TRUE(client.IsConnected());
  store->PutData(0, MakeSample(1));
  store->PutData(1, MakeSample(2));
  EXPECT_TRUE(client.Samples().empty());
  EXPECT_EQ(1, Buffer(*store, 0).iCount);
  EXPECT_EQ(1, Buffer(*store, 1).iCount);
}

TEST_F(SensorStoreTest, PutDataWhileNotAllSensorsAreSubscribedDeliversAndLogsNothing) {
  host::CPositioningClient client("1");
  client.Attach(iBroker);
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  ASSERT_EQ(0, client.Subscribe(1, 0));
  ClearRecords();
  store->PutData(0, MakeSample(1));
  EXPECT_TRUE(client.Samples().empty());
  EXPECT_EQ((std::vector<std::string>{std::string("Interface 169 ") + kPutData + ": Handle: <u8:0>"}), StoreRecords());
}

TEST_F(SensorStoreTest, PutDataOnceAllSensorsAreSubscribedGoesToTheSensorsClients) {
  host::CPositioningClient client("1");
  client.Attach(iBroker);
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  ASSERT_EQ(0, client.Subscribe(1, 0));
  ASSERT_EQ(0, client.Subscribe(2, 0));
  ClearRecords();
  store->PutData(1, MakeSample(5));
  ASSERT_EQ(1u, client.Samples().size());
  EXPECT_EQ(2, client.Samples()[0].type);
  EXPECT_EQ(100005u, client.Samples()[0].timeStamp);
  EXPECT_EQ((std::vector<int16_t>{50, 51}), client.Samples()[0].values);
  EXPECT_EQ(static_cast<IPositioningSensorFemale*>(store.get()), client.LastSender());
  EXPECT_EQ(1, Buffer(*store, 1).iCount);
  // Delivery itself writes no record.
  EXPECT_EQ((std::vector<std::string>{std::string("Interface 169 ") + kPutData + ": Handle: <u8:1>"}), StoreRecords());
}

TEST_F(SensorStoreTest, PutDataDeliversOnlyTheFirstSizeValues) {
  host::CPositioningClient client("1");
  client.Attach(iBroker);
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  ASSERT_EQ(0, client.Subscribe(1, 0));
  ASSERT_EQ(0, client.Subscribe(2, 0));
  store->PutData(0, MakeSample(6, 10));
  store->PutData(0, MakeSample(7, 3));
  ASSERT_EQ(2u, client.Samples().size());
  EXPECT_EQ((std::vector<int16_t>{60, 61, 62, 63, 64, 65, 66, 67, 68, 69}), client.Samples()[0].values);
  EXPECT_EQ((std::vector<int16_t>{70, 71, 72}), client.Samples()[1].values);
}

TEST_F(SensorStoreTest, RecordOfSizeZeroIsStoredAndDeliveredWithEmptyValues) {
  host::CPositioningClient client("1");
  client.Attach(iBroker);
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  ASSERT_EQ(0, client.Subscribe(1, 0));
  ASSERT_EQ(0, client.Subscribe(2, 0));
  store->PutData(0, MakeSample(9, 0));
  EXPECT_EQ(1, Buffer(*store, 0).iCount);
  EXPECT_TRUE(SameSample(MakeSample(9, 0), Buffer(*store, 0).iData[0]));
  ASSERT_EQ(1u, client.Samples().size());
  EXPECT_EQ(1, client.Samples()[0].type);
  EXPECT_EQ(100009u, client.Samples()[0].timeStamp);
  EXPECT_TRUE(client.Samples()[0].values.empty());
}

// Ring-buffer positions through PutData.

TEST_F(SensorStoreTest, After301WritesSlot0HoldsThe301stRecord) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 301);
  const CRingBuffer<Sample>& buffer = Buffer(*store, 0);
  EXPECT_EQ(300, buffer.iCount);
  EXPECT_EQ(1, buffer.iWritePos);
  EXPECT_EQ(0, buffer.iLastPos);
  EXPECT_TRUE(SameSample(MakeSample(301), buffer.iData[0]));
  EXPECT_TRUE(SameSample(MakeSample(2), buffer.iData[1]));
  Sample last = MakeSample(0);
  EXPECT_TRUE(store->GetLastSample(1, last));
  EXPECT_TRUE(SameSample(MakeSample(301), last));
}

TEST_F(SensorStoreTest, AfterExactly300WritesTheWritePositionIsZero) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 300);
  EXPECT_EQ(0, Buffer(*store, 0).iWritePos);
  EXPECT_EQ(299, Buffer(*store, 0).iLastPos);
  EXPECT_EQ(300, Buffer(*store, 0).iCount);
}

TEST_F(SensorStoreTest, AfterExactly300WritesGetLastSampleReturnsSlot299) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 300);
  Sample last = MakeSample(0);
  EXPECT_TRUE(store->GetLastSample(1, last));
  EXPECT_TRUE(SameSample(MakeSample(300), last));
}

TEST_F(SensorStoreTest, AfterExactly300WritesGetLastValidSamplesFailsForEveryCount) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 300);
  std::vector<Sample> out(300, MakeSample(0));
  for (unsigned int count : {0u, 1u, 2u, 150u, 299u, 300u}) {
    EXPECT_FALSE(store->GetLastValidSamples(1, out.data(), count)) << "count " << count;
  }
  for (const Sample& sample : out) ASSERT_TRUE(SameSample(MakeSample(0), sample));
}

TEST_F(SensorStoreTest, AfterAWrapOnlySamplesWrittenSinceAreValid) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 305);
  Sample out[5] = {MakeSample(0), MakeSample(0), MakeSample(0), MakeSample(0), MakeSample(0)};
  EXPECT_FALSE(store->GetLastValidSamples(1, out, 5));
  EXPECT_TRUE(SameSample(MakeSample(0), out[0]));
  ASSERT_TRUE(store->GetLastValidSamples(1, out, 4));
  EXPECT_TRUE(SameSample(MakeSample(305), out[0]));
  EXPECT_TRUE(SameSample(MakeSample(302), out[3]));
}

TEST_F(SensorStoreTest, RingBufferInvariantsHoldOverManyWrites) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  const CRingBuffer<Sample>& buffer = Buffer(*store, 0);
  for (int n = 1; n <= 1000; ++n) {
    store->PutData(0, MakeSample(n));
    ASSERT_GE(buffer.iWritePos, 0) << "write " << n;
    ASSERT_LT(buffer.iWritePos, 300) << "write " << n;
    ASSERT_LE(buffer.iCount, 300) << "write " << n;
    ASSERT_TRUE(SameSample(MakeSample(n), buffer.iData[buffer.iLastPos])) << "write " << n;
    if (n < 300) {
      ASSERT_EQ(n, buffer.iCount);
      ASSERT_EQ(buffer.iCount, buffer.iWritePos);
    } else {
      ASSERT_EQ(300, buffer.iCount);
      ASSERT_TRUE(SameSample(MakeSample(n - 299), buffer.iData[buffer.iWritePos])) << "oldest after write " << n;
    }
    Sample last = MakeSample(0);
    ASSERT_TRUE(store->GetLastSample(1, last));
    ASSERT_TRUE(SameSample(MakeSample(n), last)) << "write " << n;
  }
  EXPECT_EQ(0, Buffer(*store, 1).iCount);
}

// Queries.

TEST_F(SensorStoreTest, GetLastSampleOnABufferThatNeverReceivedARecordAnswersTrue) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Sample last = MakeSample(0);
  EXPECT_TRUE(store->GetLastSample(2, last));
}

TEST_F(SensorStoreTest, GetLastSampleOfAnUnknownTypeAnswersFalseAndLeavesTheSampleAlone) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 3);
  Sample last = MakeSample(42);
  EXPECT_FALSE(store->GetLastSample(3, last));
  EXPECT_TRUE(SameSample(MakeSample(42), last));
}

TEST_F(SensorStoreTest, GetLastSampleReturnsTheNewestRecordOfItsType) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 3);
  Write(*store, 1, 11, 12);
  Sample last = MakeSample(0);
  ASSERT_TRUE(store->GetLastSample(1, last));
  EXPECT_TRUE(SameSample(MakeSample(3), last));
  ASSERT_TRUE(store->GetLastSample(2, last));
  EXPECT_TRUE(SameSample(MakeSample(12), last));
}

TEST_F(SensorStoreTest, GetLastSampleCopiesAllTenValues) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Sample sample = MakeSample(5, 0);
  store->PutData(0, sample);
  Sample last = MakeSample(0);
  ASSERT_TRUE(store->GetLastSample(1, last));
  EXPECT_TRUE(SameSample(sample, last));
}

// Finds sensors through the table, as the queries must.
class CRedirectingStore : public CSensorStore {
 public:
  using CSensorStore::CSensorStore;
  int8_t GetBufferHandle(TiPositioningSensorType aType) override {
    return aType == 42 ? 1 : CSensorStore::GetBufferHandle(aType);
  }
};

TEST_F(SensorStoreTest, QueriesFindTheBufferThroughTheVirtualHandleLookup) {
  TiPositioningSensorEntry entries[] = {kGyro, kOdometer};
  TiPositioningSensorConfiguration config = {2, entries};
  CRedirectingStore store(config, iFeatureId, iBroker, "1");
  Write(store, 1, 1, 3);
  Sample last = MakeSample(0);
  ASSERT_TRUE(store.GetLastSample(42, last));
  EXPECT_TRUE(SameSample(MakeSample(3), last));
  Sample out[2] = {MakeSample(0), MakeSample(0)};
  ASSERT_TRUE(store.GetLastValidSamples(42, out, 2));
  EXPECT_TRUE(SameSample(MakeSample(3), out[0]));
  EXPECT_TRUE(SameSample(MakeSample(2), out[1]));
}

TEST_F(SensorStoreTest, WithFiveRecordsGetLastValidSamplesSucceedsForCounts0To4) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 5);
  for (unsigned int count = 0; count <= 4; ++count) {
    std::vector<Sample> out(5, MakeSample(0));
    EXPECT_TRUE(store->GetLastValidSamples(1, out.data(), count)) << "count " << count;
  }
}

TEST_F(SensorStoreTest, WithFiveRecordsFourValidSamplesAreRecords5To2NewestFirst) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 5);
  Sample out[5] = {MakeSample(0), MakeSample(0), MakeSample(0), MakeSample(0), MakeSample(0)};
  ASSERT_TRUE(store->GetLastValidSamples(1, out, 4));
  EXPECT_TRUE(SameSample(MakeSample(5), out[0]));
  EXPECT_TRUE(SameSample(MakeSample(4), out[1]));
  EXPECT_TRUE(SameSample(MakeSample(3), out[2]));
  EXPECT_TRUE(SameSample(MakeSample(2), out[3]));
  EXPECT_TRUE(SameSample(MakeSample(0), out[4]));  // nothing written past aCount
}

TEST_F(SensorStoreTest, WithFiveRecordsFiveValidSamplesFailWithoutCopying) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 5);
  Sample out[5] = {MakeSample(0), MakeSample(0), MakeSample(0), MakeSample(0), MakeSample(0)};
  EXPECT_FALSE(store->GetLastValidSamples(1, out, 5));
  for (const Sample& sample : out) EXPECT_TRUE(SameSample(MakeSample(0), sample));
}

TEST_F(SensorStoreTest, ZeroValidSamplesSucceedWithoutCopying) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 5);
  Sample out = MakeSample(0);
  EXPECT_TRUE(store->GetLastValidSamples(1, &out, 0));
  EXPECT_TRUE(SameSample(MakeSample(0), out));
}

TEST_F(SensorStoreTest, GetLastValidSamplesOfAnEmptyBufferFails) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Sample out = MakeSample(0);
  EXPECT_FALSE(store->GetLastValidSamples(1, &out, 0));
}

TEST_F(SensorStoreTest, GetLastValidSamplesOfAnUnknownTypeFails) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 0, 1, 5);
  Sample out = MakeSample(0);
  EXPECT_FALSE(store->GetLastValidSamples(3, &out, 1));
  EXPECT_TRUE(SameSample(MakeSample(0), out));
}

TEST_F(SensorStoreTest, GetLastValidSamplesCopiesAllTenValues) {
  std::unique_ptr<CSensorStore> store = MakeFixedStore();
  Write(*store, 1, 1, 2);
  store->PutData(1, MakeSample(3, 0));
  Sample out[2] = {MakeSample(0), MakeSample(0)};
  ASSERT_TRUE(store->GetLastValidSamples(2, out, 2));
  EXPECT_TRUE(SameSample(MakeSample(3, 0), out[0]));
  EXPECT_TRUE(SameSample(MakeSample(2), out[1]));
}

}  // namespace
