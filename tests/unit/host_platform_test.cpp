// The simulated platform device, OSAL tick, properties and standard-output capture.
#include <gtest/gtest.h>

#include <stdio.h>

#include "OSAL.h"
#include "Platform.h"
#include "SimulatedOsal.h"
#include "StdoutCapture.h"
#include "TestHost.h"

namespace {

using host::CPlatform;
using host::CSimulatedOsal;

class HostPlatformTest : public testing_host::HostTest {};

TEST_F(HostPlatformTest, PlatformDeviceReachesTheSimulatedIo) {
  EXPECT_EQ(&CPlatform::Instance().MainUnit(), &CPDDevice::Instance().MainUnitIO());
  EXPECT_EQ(&CPlatform::Instance().CanMicro(), &CPDDevice::Instance().CanMicroIO());
}

TEST_F(HostPlatformTest, PinsAreRecordedWithTheClockAndAnsweredAsConfigured) {
  CSimulatedOsal::Instance().SetNow(77);
  CPlatform::Instance().MainUnit().SetPinResult(1, 0);
  EXPECT_EQ(0, CPDDevice::Instance().MainUnitIO().SetPin(7, 1));
  EXPECT_EQ(1, CPDDevice::Instance().MainUnitIO().SetPin(7, 0));
  const std::vector<host::PinChange>& pins = CPlatform::Instance().MainUnit().Pins();
  ASSERT_EQ(2u, pins.size());
  EXPECT_EQ(77u, pins[0].tick);
  EXPECT_EQ(0, pins[0].result);
  EXPECT_EQ(0u, CPlatform::Instance().MainUnit().Level(7));
}

TEST_F(HostPlatformTest, PinObserverSeesEveryChange) {
  int seen = 0;
  CPlatform::Instance().MainUnit().SetOnPin([&](const host::PinChange& aChange) { seen += int(aChange.level) + 1; });
  CPDDevice::Instance().MainUnitIO().SetPin(7, 1);
  CPDDevice::Instance().MainUnitIO().SetPin(7, 0);
  EXPECT_EQ(3, seen);
}

TEST_F(HostPlatformTest, PlugStateAndTriggerAnswerAsConfigured) {
  EXPECT_EQ(1, CPDDevice::Instance().MainUnitIO().IsPluggedIn());
  CPlatform::Instance().MainUnit().SetPluggedIn(false);
  EXPECT_EQ(0, CPDDevice::Instance().MainUnitIO().IsPluggedIn());
  CPlatform::Instance().CanMicro().SetTriggerResult(2);
  EXPECT_EQ(2, CPDDevice::Instance().CanMicroIO().TriggerClockSync());
  EXPECT_EQ(1, CPlatform::Instance().CanMicro().Triggers());
}

TEST_F(HostPlatformTest, OsalTickIsTheSimulatedClockAndSleepsAreRecorded) {
  EXPECT_EQ(0, OSALTickInit());
  CSimulatedOsal::Instance().SetNow(1234);
  EXPECT_EQ(1234u, OSALTickCount());
  platSleep(50000);
  EXPECT_EQ(1234u, OSALTickCount());
  EXPECT_EQ((std::vector<int>{50000}), CSimulatedOsal::Instance().Sleeps());
  EXPECT_EQ(1, CSimulatedOsal::Instance().InitCount());
}

TEST_F(HostPlatformTest, SleepCanMoveTheClock) {
  CSimulatedOsal::Instance().SetSleepAdvancesClock(true);
  platSleep(50000);
  EXPECT_EQ(50u, OSALTickCount());
}

TEST_F(HostPlatformTest, PropertiesAnswerOnlyWhatIsSet) {
  std::string value = "untouched";
  EXPECT_EQ(0, iProperties.GetProperty(iFeatureId, "diversity", value));
  EXPECT_EQ("untouched", value);
  iProperties.Set("diversity", "CAN");
  EXPECT_EQ(1, iProperties.GetProperty(iFeatureId, "diversity", value));
  EXPECT_EQ("CAN", value);
  iProperties.Unset("diversity");
  EXPECT_EQ(0, iProperties.GetProperty(iFeatureId, "diversity", value));
  EXPECT_EQ(3, iProperties.Queries());
}

TEST_F(HostPlatformTest, StdoutCaptureCollectsPrintfOutputUntilStopped) {
  host::CStdoutCapture capture;
  printf("first %d\n", 1);
  EXPECT_EQ("first 1\n", capture.Text());
  printf("second\n");
  EXPECT_EQ("first 1\nsecond\n", capture.Stop());
  EXPECT_EQ("", capture.Stop());
}

}  // namespace
