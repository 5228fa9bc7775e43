// The two kick variants of the time base: CMainUnitSync, whose kick pulses the CLK_SYNC
// pin toward the main unit, and CCanTimeSync, whose kick asks the CAN micro-controller
// to synchronise. Covers creation and timer registration, the pulse sequence and its
// records, the failure paths, and the CAN trigger's effect on the kick time.
#include <gtest/gtest.h>
#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "CANSensor.h"
#include "ContractConstants.h"
#include "EventBroker.h"
#include "LogFacility.h"
#include "LoggedRecord.h"
#include "MainUnitSync.h"
#include "Platform.h"
#include "RecordFormat.h"
#include "SimulatedOsal.h"
#include "TestHost.h"

namespace {

using testing_host::Brief;
using testing_host::MessageKinds;

using host::PieceKind;
using testing_host::HostTest;

const char kMainUnitKickTrace[] = "virtual TBool CMainUnitSync::KickSyncTime()";
const char kBaseKickTrace[] = "virtual TBool CSyncTime::KickSyncTime()";
// "CLK_SYNC=1": pin and level of a SetPin call; pins other than CLK_SYNC by number.
std::string Describe(const host::PinChange& aChange) {
  const std::string pin = aChange.pin == contract::kClkSyncPin ? "CLK_SYNC" : std::to_string(aChange.pin);
  return pin + "=" + std::to_string(aChange.level);
}

// Deletes a C-heap time object through the base's virtual destructor.
struct DeleteSyncTime {
  void operator()(CSyncTime* aTime) const { delete aTime; }
};
typedef std::unique_ptr<CSyncTime, DeleteSyncTime> SyncTimePtr;

class MainUnitSyncTest : public HostTest {
 protected:
  std::vector<std::string> Pins() const {
    std::vector<std::string> pins;
    for (const host::PinChange& change : MainUnit().Pins()) pins.push_back(Describe(change));
    return pins;
  }

  static host::CMainUnitIO& MainUnit() { return host::CPlatform::Instance().MainUnit(); }
  static host::CCanMicroIO& CanMicro() { return host::CPlatform::Instance().CanMicro(); }
  static host::CSimulatedOsal& Osal() { return host::CSimulatedOsal::Instance(); }

  // The records a connected main unit's kick writes at aNow after a kick at aPrevious.
  static std::vector<std::string> PulseRecords(int64_t aPrevious, int64_t aNow) {
    return {std::string("Interface|") + kMainUnitKickTrace + "|Current Time : " + std::to_string(aPrevious),
            std::string("Interface|") + kBaseKickTrace + "|",
            "Info|getDateTimeInMS|iCurrentTime = " + std::to_string(aNow),
            "Info|KickSyncTime|Pin CLK_SYNC is set to Active", "Info|KickSyncTime|Pin CLK_SYNC is set to NotActive"};
  }
};

// --- CMainUnitSync: creation and timer ---------------------------------------------------

TEST_F(MainUnitSyncTest, CreateWithBrokerRegistersTheOneSecondSyncTimer) {
  SyncTimePtr sync(CMainUnitSync::Create(&iEventBroker));
  ASSERT_NE(nullptr, sync.get());
  EXPECT_EQ(&iEventBroker, sync->EventBroker());
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1"}), EventCalls());
  EXPECT_EQ(sync.get(), iEventBroker.Calls()[0].observer);
  EXPECT_EQ((std::vector<std::string>{"Info|SetEventBroker|SetEventBroker"}), Briefs());
}

TEST_F(MainUnitSyncTest, CreatePreparesTheTickCounterAndStartsUnsynchronised) {
  SyncTimePtr sync(CMainUnitSync::Create(&iEventBroker));
  EXPECT_EQ(1, Osal().InitCount());
  EXPECT_EQ(0, sync->CurrentTime());
  EXPECT_EQ(0, sync->GetSyncTime());
  // Creation does not kick.
  EXPECT_TRUE(MainUnit().Pins().empty());
}

TEST_F(MainUnitSyncTest, CreateWithNullBuildsTheObjectAndRegistersNothing) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  ASSERT_NE(nullptr, sync.get());
  EXPECT_EQ(nullptr, sync->EventBroker());
  EXPECT_TRUE(iEventBroker.Calls().empty());
  EXPECT_EQ((std::vector<std::string>{"Info|SetEventBroker|SetEventBroker"}), Briefs());
}

TEST_F(MainUnitSyncTest, WithoutBrokerOnlyExplicitKicksPulseThePin) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  iEventBroker.RunUntil(10000);
  EXPECT_TRUE(MainUnit().Pins().empty());
  EXPECT_EQ(1, sync->KickSyncTime());
  EXPECT_EQ((std::vector<std::string>{"CLK_SYNC=1", "CLK_SYNC=0"}), Pins());
}

TEST_F(MainUnitSyncTest, WithoutBrokerDestructionUnregistersNothing) {
  { SyncTimePtr sync(CMainUnitSync::Create(nullptr)); }
  EXPECT_TRUE(iEventBroker.Calls().empty());
}

TEST_F(MainUnitSyncTest, DeletionThroughTheBaseUnregistersTheSyncTimer) {
  CSyncTime* observer = nullptr;
  {
    SyncTimePtr sync(CMainUnitSync::Create(&iEventBroker));
    observer = sync.get();
  }
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1", "unregister 0/10/0"}), EventCalls());
  EXPECT_EQ(observer, iEventBroker.Calls()[1].observer);
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

TEST_F(MainUnitSyncTest, TheTimerEventRunsThePulsingKick) {
  SyncTimePtr sync(CMainUnitSync::Create(&iEventBroker));
  iEventBroker.RunUntil(2000);
  EXPECT_EQ((std::vector<std::string>{"CLK_SYNC=1", "CLK_SYNC=0", "CLK_SYNC=1", "CLK_SYNC=0"}), Pins());
  EXPECT_EQ(2000, sync->CurrentTime());
}

TEST_F(MainUnitSyncTest, OnEventForTheSyncTimerEventPulsesThePin) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  ClearRecords();
  Osal().SetNow(300);
  iEventBroker.Deliver(sync.get(), contract::kSyncEventClass, contract::kSyncEventId);
  EXPECT_EQ((std::vector<std::string>{"CLK_SYNC=1", "CLK_SYNC=0"}), Pins());
  std::vector<std::string> expected{"Interface|virtual void CSyncTime::OnEvent(const TEvent&)|OnEvent",
                                    "Info|OnEvent|KickSyncTime"};
  for (const std::string& record : PulseRecords(0, 300)) expected.push_back(record);
  EXPECT_EQ(expected, Briefs());
}

TEST_F(MainUnitSyncTest, MeasurementSwitchesTheMainUnitTimerToThirtySeconds) {
  SyncTimePtr sync(CMainUnitSync::Create(&iEventBroker));
  iEventBroker.RunUntil(1000);
  sync->SetMeasuredTime(250);
  EXPECT_EQ(750, sync->GetSyncTime());
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1", "unregister 0/10/0", "register 0/10/30000/1"}),
            EventCalls());
}

// --- CMainUnitSync: the pulse ------------------------------------------------------------

TEST_F(MainUnitSyncTest, KickPulsesClkSyncActiveSleepsThenNotActive) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  Osal().SetNow(1000);
  EXPECT_EQ(1, sync->KickSyncTime());
  EXPECT_EQ((std::vector<std::string>{"CLK_SYNC=1", "CLK_SYNC=0"}), Pins());
  EXPECT_EQ((std::vector<int>{50000}), Osal().Sleeps());
  EXPECT_EQ(0u, MainUnit().Level(contract::kClkSyncPin));
}

TEST_F(MainUnitSyncTest, ThePulseSleepsBetweenTheTwoPinChanges) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  Osal().SetSleepAdvancesClock(true);  // 50000 microseconds move the clock by 50 ms
  Osal().SetNow(1000);
  sync->KickSyncTime();
  ASSERT_EQ(2u, MainUnit().Pins().size());
  EXPECT_EQ(1000u, MainUnit().Pins()[0].tick);
  EXPECT_EQ(1050u, MainUnit().Pins()[1].tick);
  // The kick time was taken before the pin rose.
  EXPECT_EQ(1000, sync->CurrentTime());
}

TEST_F(MainUnitSyncTest, KickWritesTheTraceTheBaseKickAndOneRecordPerPinChange) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  ClearRecords();
  Osal().SetNow(1000);
  sync->KickSyncTime();
  EXPECT_EQ(PulseRecords(0, 1000), Briefs());
  const std::vector<host::LoggedRecord> records = ModuleRecords();
  ASSERT_EQ(5u, records.size());
  EXPECT_EQ((std::vector<PieceKind>{PieceKind::Text, PieceKind::I64}), MessageKinds(records[0]));
  EXPECT_EQ("Current Time : ", records[0].pieces[1].text);
  for (size_t i : {0u, 3u, 4u}) {
    EXPECT_NE(std::string::npos, records[i].file.find("Positioning/src/MainUnitSync")) << records[i].file;
  }
  for (size_t i : {1u, 2u}) {
    EXPECT_NE(std::string::npos, records[i].file.find("Positioning/src/SyncTime")) << records[i].file;
  }
  for (const host::LoggedRecord& record : records) {
    EXPECT_EQ("logging::Positioning", record.module);
    EXPECT_TRUE(record.closed);
    EXPECT_EQ("\n", record.lineEnd);
  }
}

TEST_F(MainUnitSyncTest, EachPinRecordFollowsItsPinChange) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  ClearRecords();
  std::vector<size_t> recordsAtPin;
  MainUnit().SetOnPin([&](const host::PinChange&) { recordsAtPin.push_back(ModuleRecords().size()); });
  sync->KickSyncTime();
  // Active is set after the kick's three records, NotActive after the Active record.
  EXPECT_EQ((std::vector<size_t>{3, 4}), recordsAtPin);
}

TEST_F(MainUnitSyncTest, FirstKickTracesCurrentTimeZero) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  ClearRecords();
  Osal().SetNow(1500);
  sync->KickSyncTime();
  ASSERT_FALSE(ModuleRecords().empty());
  EXPECT_EQ(std::string("Interface|") + kMainUnitKickTrace + "|Current Time : 0", Brief(ModuleRecords()[0]));
}

TEST_F(MainUnitSyncTest, SecondKickTracesThePreviousKicksTime) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  Osal().SetNow(1500);
  sync->KickSyncTime();
  ClearRecords();
  Osal().SetNow(2500);
  sync->KickSyncTime();
  EXPECT_EQ(PulseRecords(1500, 2500), Briefs());
  EXPECT_EQ(2500, sync->CurrentTime());
}

TEST_F(MainUnitSyncTest, MainUnitNotPluggedInSendsNoPulseButStillRefreshesTheTime) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  MainUnit().SetPluggedIn(false);
  ClearRecords();
  Osal().SetNow(4200);
  EXPECT_EQ(1, sync->KickSyncTime());
  EXPECT_TRUE(MainUnit().Pins().empty());
  EXPECT_TRUE(Osal().Sleeps().empty());
  EXPECT_EQ(4200, sync->CurrentTime());
  EXPECT_EQ(1, MainUnit().PluggedInQueries());
  EXPECT_EQ((std::vector<std::string>{std::string("Interface|") + kMainUnitKickTrace + "|Current Time : 0",
                                      std::string("Interface|") + kBaseKickTrace + "|",
                                      "Info|getDateTimeInMS|iCurrentTime = 4200",
                                      "Error|KickSyncTime|Main Unit not plugged in..."}),
            Briefs());
}

TEST_F(MainUnitSyncTest, MainUnitNotPluggedInLogsOneErrorPerKick) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  MainUnit().SetPluggedIn(false);
  sync->KickSyncTime();
  sync->KickSyncTime();
  EXPECT_EQ(2u, host::CLogFacility::Instance().RecordsContaining("Main Unit not plugged in...").size());
  EXPECT_TRUE(MainUnit().Pins().empty());
}

TEST_F(MainUnitSyncTest, FailedActiveStillSleepsAndReleasesThePin) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  MainUnit().SetPinResult(1, 0);
  ClearRecords();
  Osal().SetNow(100);
  EXPECT_EQ(1, sync->KickSyncTime());
  EXPECT_EQ((std::vector<std::string>{"CLK_SYNC=1", "CLK_SYNC=0"}), Pins());
  EXPECT_EQ((std::vector<int>{50000}), Osal().Sleeps());
  std::vector<std::string> expected = PulseRecords(0, 100);
  expected[3] = "Error|KickSyncTime|Failed to set CLK_SYNC pin to Active";
  EXPECT_EQ(expected, Briefs());
}

TEST_F(MainUnitSyncTest, FailedNotActiveLogsAnErrorAndStillAnswersTrue) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  MainUnit().SetPinResult(0, 0);
  ClearRecords();
  Osal().SetNow(100);
  EXPECT_EQ(1, sync->KickSyncTime());
  EXPECT_EQ((std::vector<std::string>{"CLK_SYNC=1", "CLK_SYNC=0"}), Pins());
  std::vector<std::string> expected = PulseRecords(0, 100);
  expected[4] = "Error|KickSyncTime|Failed to set CLK_SYNC pin to NotActive";
  EXPECT_EQ(expected, Briefs());
}

TEST_F(MainUnitSyncTest, PinAnswersOtherThanOneAreFailures) {
  SyncTimePtr sync(CMainUnitSync::Create(nullptr));
  MainUnit().SetPinResult(1, 2);
  MainUnit().SetPinResult(0, -1);
  ClearRecords();
  Osal().SetNow(100);
  EXPECT_EQ(1, sync->KickSyncTime());
  std::vector<std::string> expected = PulseRecords(0, 100);
  expected[3] = "Error|KickSyncTime|Failed to set CLK_SYNC pin to Active";
  expected[4] = "Error|KickSyncTime|Failed to set CLK_SYNC pin to NotActive";
  EXPECT_EQ(expected, Briefs());
  EXPECT_EQ((std::vector<int>{50000}), Osal().Sleeps());
}

// --- CCanTimeSync ------------------------------------------------------------------------

class CanTimeSyncTest : public MainUnitSyncTest {};

TEST_F(CanTimeSyncTest, ConstructionSetsNoBrokerAndWritesNothing) {
  SyncTimePtr sync(new CCanTimeSync());
  EXPECT_EQ(1, Osal().InitCount());
  EXPECT_EQ(nullptr, sync->EventBroker());
  EXPECT_EQ(0, sync->CurrentTime());
  EXPECT_TRUE(AllRecords().empty());
  EXPECT_EQ(0, CanMicro().Triggers());
}

TEST_F(CanTimeSyncTest, AcceptedTriggerRefreshesTheKickTime) {
  SyncTimePtr sync(new CCanTimeSync());
  Osal().SetNow(8000);
  EXPECT_EQ(1, sync->KickSyncTime());
  EXPECT_EQ(1, CanMicro().Triggers());
  EXPECT_EQ(8000, sync->CurrentTime());
}

TEST_F(CanTimeSyncTest, AcceptedTriggerWritesOnlyTheTimeRecord) {
  SyncTimePtr sync(new CCanTimeSync());
  Osal().SetNow(8000);
  sync->KickSyncTime();
  EXPECT_EQ((std::vector<std::string>{"Info|getDateTimeInMS|iCurrentTime = 8000"}), Briefs());
  EXPECT_TRUE(MainUnit().Pins().empty());
}

TEST_F(CanTimeSyncTest, RefusedTriggerLeavesTheKickTimeAndAnswersTrue) {
  SyncTimePtr sync(new CCanTimeSync());
  Osal().SetNow(8000);
  sync->KickSyncTime();
  ClearRecords();
  CanMicro().SetTriggerResult(0);
  Osal().SetNow(9000);
  EXPECT_EQ(1, sync->KickSyncTime());
  EXPECT_EQ(2, CanMicro().Triggers());
  EXPECT_EQ(8000, sync->CurrentTime());
  EXPECT_TRUE(AllRecords().empty());
}

TEST_F(CanTimeSyncTest, TriggerAnsweringTwoLeavesTheKickTimeAndAnswersTrue) {
  SyncTimePtr sync(new CCanTimeSync());
  CanMicro().SetTriggerResult(2);
  Osal().SetNow(9000);
  EXPECT_EQ(1, sync->KickSyncTime());
  EXPECT_EQ(1, CanMicro().Triggers());
  EXPECT_EQ(0, sync->CurrentTime());
  EXPECT_EQ(0u, Osal().TickCountCalls());
  EXPECT_TRUE(AllRecords().empty());
}

TEST_F(CanTimeSyncTest, OnEventRunsTheTriggeringKick) {
  SyncTimePtr sync(new CCanTimeSync());
  Osal().SetNow(700);
  iEventBroker.Deliver(sync.get(), contract::kSyncEventClass, contract::kSyncEventId);
  EXPECT_EQ(1, CanMicro().Triggers());
  EXPECT_EQ(700, sync->CurrentTime());
  EXPECT_EQ((std::vector<std::string>{"Interface|virtual void CSyncTime::OnEvent(const TEvent&)|OnEvent",
                                      "Info|OnEvent|KickSyncTime", "Info|getDateTimeInMS|iCurrentTime = 700"}),
            Briefs());
}

TEST_F(CanTimeSyncTest, WithABrokerTheTimerTriggersAndDeletionUnregisters) {
  CSyncTime* observer = nullptr;
  {
    SyncTimePtr sync(new CCanTimeSync());
    observer = sync.get();
    sync->SetEventBroker(&iEventBroker);
    iEventBroker.RunUntil(3000);
    EXPECT_EQ(3, CanMicro().Triggers());
    EXPECT_EQ(3000, sync->CurrentTime());
  }
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1", "unregister 0/10/0"}), EventCalls());
  EXPECT_EQ(observer, iEventBroker.Calls()[1].observer);
}

TEST_F(CanTimeSyncTest, MeasurementAgainstAnAcceptedTriggerSetsTheOffset) {
  SyncTimePtr sync(new CCanTimeSync());
  Osal().SetNow(8000);
  sync->KickSyncTime();
  sync->SetMeasuredTime(3000);
  EXPECT_EQ(5000, sync->GetSyncTime());
}

}  // namespace
