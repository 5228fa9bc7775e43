// The fixture of the tests that watch what the module does with the heap (HeapWatch):
// a host whose logging keeps nothing, a store configuration of two sensors, a client
// that keeps what it receives without allocating, and after every test the watch
// disarmed and no block found written past its end.
#ifndef TESTS_SUPPORT_HEAP_TEST_H
#define TESTS_SUPPORT_HEAP_TEST_H

#include <gtest/gtest.h>
#include <stdint.h>

#include "HeapWatch.h"
#include "IPositioningSensor.h"
#include "LogFacility.h"
#include "TestHost.h"

namespace testing_heap {

// The two sensors of the fixture's configuration: a gyroscope and an odometer.
const TiPositioningSensorEntry kGyro = {1, 1, 200, 2};
const TiPositioningSensorEntry kOdometer = {2, 1, 200, 2};
// Short enough for the strings' own buffers: copies of it allocate nothing.
const TFeatureId kFeature = "f";

// A client that keeps the last sample it received without allocating.
class CKeepingClient : public IPositioningSensorMale {
 public:
  void _RegisterCallback(IPositioningSensorFemale&) override {}
  void _UnregisterCallback(IPositioningSensorFemale&) override {}
  reflection::TErrCode Configuration(IPositioningSensorFemale&, TiPositioningSensorConfiguration&) override {
    return 0;
  }
  reflection::TErrCode SensorData(IPositioningSensorFemale&, TiPositioningSensorType aType,
                                  TiPositioningSensorData& aData) override {
    ++iReceived;
    iLastType = aType;
    iLastTime = aData.timeStamp;
    iLastSize = aData.values.size;
    for (uint32_t i = 0; i < aData.values.size && i < 10; ++i) iLastValues[i] = aData.values.data[i];
    return 0;
  }
  int iReceived = 0;
  TiPositioningSensorType iLastType = 0;
  uint64_t iLastTime = 0;
  uint32_t iLastSize = 0;
  int16_t iLastValues[10] = {};
};

// A fresh host per test, as HostTest, set up for watching the heap.
class HeapTest : public testing_host::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    // No record is kept, so that logging leaves nothing on the heap.
    host::CLogFacility::Instance().SetDiscard(true);
    testing_support::ForgetBrokenGuards();
    iEntries[0] = kGyro;
    iEntries[1] = kOdometer;
    iConfig.size = 2;
    iConfig.data = iEntries;
  }
  void TearDown() override {
    testing_support::DisarmHeapWatch();
    EXPECT_EQ(0, testing_support::BrokenGuards()) << "a block was written past its end";
    HostTest::TearDown();
  }

  TiPositioningSensorEntry iEntries[2];
  // A store configuration of kGyro and kOdometer, in iEntries.
  TiPositioningSensorConfiguration iConfig;
  CKeepingClient iClient;
};

}  // namespace testing_heap

#endif  // TESTS_SUPPORT_HEAP_TEST_H
