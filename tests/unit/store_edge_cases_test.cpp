// The sample store at its edges: the fixed configuration it fills, a replay of a buffer
// holding exactly one sample, stores of one sensor and of none, and the newest-sample
// query of buffers that never received a record or have no slots at all.
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "CSensorStore.h"
#include "RecordFormat.h"
#include "TestHost.h"

namespace {

using Sample = CSensorStore::TSensorData;

const TiPositioningSensorEntry kGyro = {1, 1, 200, 2};
const TiPositioningSensorEntry kOdometer = {2, 1, 200, 2};

// A client that keeps every sample it receives.
class CRecordingClient : public IPositioningSensorMale {
 public:
  struct TReceived {
    TiPositioningSensorType type;
    uint64_t timeStamp;
    std::vector<int16_t> values;
  };
  void _RegisterCallback(IPositioningSensorFemale&) override {}
  void _UnregisterCallback(IPositioningSensorFemale&) override {}
  reflection::TErrCode Configuration(IPositioningSensorFemale&, TiPositioningSensorConfiguration&) override {
    return 0;
  }
  reflection::TErrCode SensorData(IPositioningSensorFemale&, TiPositioningSensorType aType,
                                  TiPositioningSensorData& aData) override {
    iReceived.push_back(
        {aType, aData.timeStamp, std::vector<int16_t>(aData.values.data, aData.values.data + aData.values.size)});
    return 0;
  }
  std::vector<TReceived> iReceived;
};

Sample MakeSample(int aNumber) {
  Sample sample = {};
  sample.timeStamp = 100000u + static_cast<uint64_t>(aNumber);
  sample.size = 2;
  for (int i = 0; i < 10; ++i) sample.values[i] = static_cast<int16_t>(aNumber * 10 + i);
  return sample;
}

// A sample whose every byte is set, to see what a query overwrites.
Sample Filled() {
  Sample sample;
  memset(&sample, 0x5A, sizeof sample);
  return sample;
}

::testing::AssertionResult IsZeroSample(const Sample& aSample) {
  bool zero = aSample.timeStamp == 0 && aSample.size == 0;
  for (int i = 0; i < 10; ++i) zero = zero && aSample.values[i] == 0;
  if (zero) return ::testing::AssertionSuccess();
  ::testing::AssertionResult failure = ::testing::AssertionFailure();
  failure << "stamp " << aSample.timeStamp << " size " << int(aSample.size) << " values";
  for (int i = 0; i < 10; ++i) failure << " " << aSample.values[i];
  return failure;
}

class StoreEdgeCasesTest : public testing_host::HostTest {
 protected:
  std::unique_ptr<CSensorStore> MakeStore(std::vector<TiPositioningSensorEntry> aEntries) {
    iEntries = aEntries;
    TiPositioningSensorConfiguration config;
    config.size = static_cast<uint8_t>(iEntries.size());
    // A store without sensors is still handed an array, which it must not read.
    config.data = iEntries.empty() ? &iUnused : iEntries.data();
    return std::unique_ptr<CSensorStore>(new CSensorStore(config, iFeatureId, iBroker, "1"));
  }

  // Messages of the store's Info records.
  std::vector<std::string> InfoMessages() const {
    std::vector<std::string> messages;
    for (const host::LoggedRecord& record : ModuleRecords()) {
      const std::string summary = testing_host::TypedSummary(record);
      if (summary.compare(0, 5, "Info ") == 0) messages.push_back(summary);
    }
    return messages;
  }

  std::vector<TiPositioningSensorEntry> iEntries;
  TiPositioningSensorEntry iUnused = {7, 7, 7, 7};
  CRecordingClient iClient;
};

TEST_F(StoreEdgeCasesTest, TheFixedConfigurationFillsExactlyTwoEntriesAndNothingAfterThem) {
  TiPositioningSensorEntry entries[3];
  memset(entries, 0xEE, sizeof entries);
  TiPositioningSensorEntry untouched;
  memset(&untouched, 0xEE, sizeof untouched);
  CSensorStore::FillFixedConfiguration(entries);
  EXPECT_EQ(1, entries[0].sensorType);
  EXPECT_EQ(2, entries[1].sensorType);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(1, entries[i].sensorParameter) << i;
    EXPECT_EQ(200, entries[i].samplePeriod) << i;
    EXPECT_EQ(2, entries[i].valueCount) << i;
  }
  EXPECT_EQ(0, memcmp(&untouched, &entries[2], sizeof untouched)) << "the third entry was written";
}

TEST_F(StoreEdgeCasesTest, AReplayOfABufferHoldingExactlyOneSampleSendsThatSample) {
  std::unique_ptr<CSensorStore> store = MakeStore({kGyro, kOdometer});
  store->PutData(0, MakeSample(1));
  ASSERT_EQ(0, store->Subscribe(iClient, 1, 0));
  ClearRecords();
  ASSERT_EQ(0, store->Subscribe(iClient, 2, 1));
  ASSERT_EQ(1u, iClient.iReceived.size());
  EXPECT_EQ(1, iClient.iReceived[0].type);
  EXPECT_EQ(100001u, iClient.iReceived[0].timeStamp);
  EXPECT_EQ((std::vector<int16_t>{10, 11}), iClient.iReceived[0].values);
  EXPECT_EQ((std::vector<std::string>{
                "Info 125 Subscribe: All sensors are subscribed, aRequestBufferedData=<bool:true>",
                "Info 133 Subscribe: bufferd data size=<i32:1>",
                "Info 143 Subscribe: Sending buffered SensorData for sensor type: <u16:1>",
            }),
            InfoMessages());
}

TEST_F(StoreEdgeCasesTest, AReplayOfABufferThatHasJustWrappedSendsTheWholeMinuteOldestFirst) {
  std::unique_ptr<CSensorStore> store = MakeStore({kGyro, kOdometer});
  for (int n = 0; n < 300; ++n) store->PutData(0, MakeSample(n));
  ASSERT_EQ(0, store->Sensor(0).buffer->iWritePos);
  ASSERT_EQ(0, store->Subscribe(iClient, 1, 0));
  ASSERT_EQ(0, store->Subscribe(iClient, 2, 1));
  ASSERT_EQ(300u, iClient.iReceived.size());
  for (int n = 0; n < 300; ++n) EXPECT_EQ(100000u + n, iClient.iReceived[n].timeStamp) << n;
}

TEST_F(StoreEdgeCasesTest, AStoreOfOneSensorReplaysItsBufferWhenItsTypeIsSubscribed) {
  std::unique_ptr<CSensorStore> store = MakeStore({kOdometer});
  for (int n = 1; n <= 3; ++n) store->PutData(0, MakeSample(n));
  ASSERT_EQ(0, store->Subscribe(iClient, 2, 1));
  ASSERT_EQ(3u, iClient.iReceived.size());
  for (int n = 1; n <= 3; ++n) {
    EXPECT_EQ(2, iClient.iReceived[n - 1].type);
    EXPECT_EQ(100000u + n, iClient.iReceived[n - 1].timeStamp);
  }
}

TEST_F(StoreEdgeCasesTest, AStoreWithoutSensorsCompletesTheSetAtOnceAndReplaysNothing) {
  std::unique_ptr<CSensorStore> store = MakeStore({});
  ClearRecords();
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 1));
  EXPECT_TRUE(iClient.iReceived.empty());
  EXPECT_EQ(0, store->SubscriptionCount());
  // Nothing to replay: no size record, no sending record.
  EXPECT_EQ(
      std::vector<std::string>{"Info 125 Subscribe: All sensors are subscribed, aRequestBufferedData=<bool:true>"},
      InfoMessages());
}

TEST_F(StoreEdgeCasesTest, TheNewestSampleOfABufferThatNeverReceivedARecordIsAllZero) {
  std::unique_ptr<CSensorStore> store = MakeStore({kGyro, kOdometer});
  for (TiPositioningSensorType type : {TiPositioningSensorType{1}, TiPositioningSensorType{2}}) {
    Sample sample = Filled();
    EXPECT_EQ(1, store->GetLastSample(type, sample));
    EXPECT_TRUE(IsZeroSample(sample)) << "type " << type;
  }
}

TEST_F(StoreEdgeCasesTest, ABufferWithoutSlotsKeepsNothingAndItsNewestSampleIsAllZero) {
  // A sample every 2 s: no whole sample per second, so no slot for the minute.
  std::unique_ptr<CSensorStore> store = MakeStore({{1, 1, 2000, 2}, kOdometer});
  ASSERT_EQ(0, store->Sensor(0).buffer->iCapacity);
  store->PutData(0, MakeSample(4));
  EXPECT_EQ(0, store->Sensor(0).buffer->iCount);
  Sample sample = Filled();
  EXPECT_EQ(1, store->GetLastSample(1, sample));
  EXPECT_TRUE(IsZeroSample(sample));
  Sample samples[1] = {Filled()};
  EXPECT_EQ(0, store->GetLastValidSamples(1, samples, 0));
}

}  // namespace
