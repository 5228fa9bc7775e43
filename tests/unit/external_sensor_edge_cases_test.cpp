// The external source at its edges: the clock-sync service leaving when it never came,
// and records that repeat the previous time stamp.
#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "ExternalSensor.h"
#include "StdoutCapture.h"
#include "TestHost.h"

namespace {

const TiPositioningSensorType kCombined = 0x8000;

class CSilentClockSync : public IArdenClockSyncFemale {
 public:
  void _RegisterCallback(IArdenClockSyncMale&) override {}
  void _UnregisterCallback(IArdenClockSyncMale&) override {}
};

class CSilentService : public IHalvikPositioningSensorFemale {
 public:
  void _RegisterCallback(IHalvikPositioningSensorMale&) override {}
  void _UnregisterCallback(IHalvikPositioningSensorMale&) override {}
  reflection::TErrCode Subscribe(IHalvikPositioningSensorMale&, TiPositioningSensorType, txdr_bool) override {
    return 0;
  }
};

class ExternalSensorEdgeCasesTest : public testing_host::HostTest {
 protected:
  // Feeds one combined record stamped aTime.
  void Feed(CExternalSensor& aSensor, uint64_t aTime, int16_t aFirst) {
    int16_t values[4] = {aFirst, 2, 3, 1};
    TiPositioningSensorData data;
    data.timeStamp = aTime;
    data.values.size = 4;
    data.values.data = values;
    aSensor.SensorData(iService, kCombined, data);
  }

  CSilentClockSync iClockSync;
  CSilentService iService;
};

TEST_F(ExternalSensorEdgeCasesTest, TheClockSyncServiceLeavingBeforeItCameLeavesTheSourceWithoutATimeBase) {
  CExternalSensor sensor(iFeatureId, iBroker, iEventBroker);
  ASSERT_EQ(nullptr, sensor.SyncTimeBase());
  ClearRecords();
  sensor.OnInterfaceUnavailable(iClockSync);
  EXPECT_EQ(nullptr, sensor.SyncTimeBase());
  // Only the entry trace; no timer is touched.
  ASSERT_EQ(1u, ModuleRecords().size());
  EXPECT_EQ(std::string::npos, testing_host::Describe(ModuleRecords()[0]).find("Error"));
  EXPECT_TRUE(iEventBroker.Calls().empty());
  // Samples keep the service's own time.
  Feed(sensor, 5000, 7);
  CSensorStore::TSensorData newest = {};
  ASSERT_EQ(1, sensor.SensorStore()->GetLastSample(1, newest));
  EXPECT_EQ(5000u, newest.timeStamp);
  EXPECT_EQ(7, newest.values[0]);
}

TEST_F(ExternalSensorEdgeCasesTest, RecordsRepeatingThePreviousTimeStampAreStoredWithoutAMessage) {
  CExternalSensor sensor(iFeatureId, iBroker, iEventBroker);
  host::CStdoutCapture capture;
  Feed(sensor, 5000, 1);
  Feed(sensor, 5000, 2);
  Feed(sensor, 5000, 3);
  EXPECT_EQ("", capture.Stop());
  EXPECT_EQ(3, sensor.SensorStore()->Sensor(0).buffer->iCount);
  EXPECT_EQ(5000u, sensor.LastTimeStamp());
  CSensorStore::TSensorData newest = {};
  ASSERT_EQ(1, sensor.SensorStore()->GetLastSample(1, newest));
  EXPECT_EQ(3, newest.values[0]);
}

}  // namespace
