// The time base's timer requests as the broker receives them, field by field, and the
// rule for a peer time equal to the kick's local time. A broker must not read an
// unregistration's repeat word; the module still hands it a defined 0, never stack
// contents, and these tests hold it to that.
#include <gtest/gtest.h>
#include <stdint.h>

#include <vector>

#include "ContractConstants.h"
#include "SimulatedOsal.h"
#include "SyncTime.h"
#include "TestHost.h"

namespace {

// An event broker that keeps every request it is given, whole.
class CKeepingEventBroker : public IEventBroker {
 public:
  struct TCall {
    bool registration;
    TEventRegistration fields;
    IEventObserver* observer;
  };
  TBool RegisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) override {
    iCalls.push_back({true, aRegistration, aObserver});
    return 1;
  }
  TBool UnregisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) override {
    iCalls.push_back({false, aRegistration, aObserver});
    return 1;
  }
  std::vector<TCall> iCalls;
};

// The sync timer's class and id, with the period and repeat word given.
::testing::AssertionResult SyncTimerFields(const TEventRegistration& aActual, uint32_t aPeriod, uint32_t aRepeat) {
  if (aActual.eventClass == contract::kSyncEventClass && aActual.eventId == contract::kSyncEventId &&
      aActual.period == aPeriod && aActual.repeat == aRepeat)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "class " << aActual.eventClass << " id " << aActual.eventId << " period "
                                       << aActual.period << " repeat " << aActual.repeat;
}

class SyncTimeTimerTest : public testing_host::HostTest {
 protected:
  void SetNow(uint64_t aNow) { host::CSimulatedOsal::Instance().SetNow(aNow); }
  CKeepingEventBroker iKeeping;
};

TEST_F(SyncTimeTimerTest, TheUnregistrationAtDestructionCarriesClass0Id10AndZeroPeriodAndRepeat) {
  CSyncTime* observer = nullptr;
  {
    CSyncTime time;
    observer = &time;
    time.SetEventBroker(&iKeeping);
  }
  ASSERT_EQ(2u, iKeeping.iCalls.size());
  EXPECT_TRUE(iKeeping.iCalls[0].registration);
  EXPECT_TRUE(SyncTimerFields(iKeeping.iCalls[0].fields, 1000, 1));
  EXPECT_FALSE(iKeeping.iCalls[1].registration);
  EXPECT_TRUE(SyncTimerFields(iKeeping.iCalls[1].fields, 0, 0));
  EXPECT_EQ(observer, iKeeping.iCalls[1].observer);
}

TEST_F(SyncTimeTimerTest, TheFirstMeasurementSwapsTheOneSecondTimerForA30SecondOneWithTheSameZeroedUnregistration) {
  CSyncTime time;
  time.SetEventBroker(&iKeeping);
  SetNow(5000);
  time.KickSyncTime();
  time.SetMeasuredTime(4000);
  ASSERT_EQ(3u, iKeeping.iCalls.size());
  EXPECT_FALSE(iKeeping.iCalls[1].registration);
  EXPECT_TRUE(SyncTimerFields(iKeeping.iCalls[1].fields, 0, 0));
  EXPECT_TRUE(iKeeping.iCalls[2].registration);
  EXPECT_TRUE(SyncTimerFields(iKeeping.iCalls[2].fields, 30000, 1));
  EXPECT_EQ(1000, time.GetSyncTime());
}

TEST_F(SyncTimeTimerTest, APeerTimeEqualToTheKicksLocalTimeKeepsTheOffsetMeasuredBefore) {
  CSyncTime time;
  SetNow(5000);
  time.KickSyncTime();
  time.SetMeasuredTime(4950);
  ASSERT_EQ(50, time.GetSyncTime());
  SetNow(9000);
  time.KickSyncTime();
  time.SetMeasuredTime(9000);
  EXPECT_EQ(50, time.GetSyncTime());
}

TEST_F(SyncTimeTimerTest, APeerTimeEqualToTheKicksLocalTimeLeavesAnUnsynchronisedBaseAtZero) {
  CSyncTime time;
  time.SetEventBroker(&iKeeping);
  SetNow(7000);
  time.KickSyncTime();
  time.SetMeasuredTime(7000);
  EXPECT_EQ(0, time.GetSyncTime());
  // Still unsynchronised: the next measurement restarts the slow timer again.
  time.SetMeasuredTime(6990);
  EXPECT_EQ(10, time.GetSyncTime());
  EXPECT_EQ(5u, iKeeping.iCalls.size());
}

}  // namespace
