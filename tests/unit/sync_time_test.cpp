// CSyncTime, the synchronised time base: tick initialisation, timer registration with
// the event broker, kicks on the sync timer event, the measured-offset rules and the
// exact records each operation writes.
#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "ContractConstants.h"
#include "EventBroker.h"
#include "LoggedRecord.h"
#include "RecordFormat.h"
#include "SimulatedOsal.h"
#include "SyncTime.h"
#include "TestHost.h"

namespace {

using testing_host::Brief;
using testing_host::Describe;
using testing_host::MessageKinds;

using host::PieceKind;
using testing_host::HostTest;

const char kSetMeasuredTimeTrace[] = "virtual TAny CSyncTime::SetMeasuredTime(txdr_uint32)";
const char kKickTrace[] = "virtual TBool CSyncTime::KickSyncTime()";
const char kOnEventTrace[] = "virtual void CSyncTime::OnEvent(const TEvent&)";

// A time base whose kick is counted instead of run.
class CCountingSyncTime : public CSyncTime {
 public:
  TBool KickSyncTime() override {
    ++iKicks;
    return 0;
  }
  int iKicks = 0;
};

class SyncTimeTest : public HostTest {
 protected:
  // Every record so far is a closed, framed record of the time base's source.
  void ExpectWellFormedRecords() const {
    for (const host::LoggedRecord& record : AllRecords()) {
      EXPECT_EQ("logging::Positioning", record.module) << Brief(record);
      EXPECT_NE(std::string::npos, record.file.find("Positioning/src/SyncTime")) << record.file;
      EXPECT_TRUE(record.closed) << Brief(record);
      EXPECT_EQ("\n", record.lineEnd) << Brief(record);
      ASSERT_GE(record.pieces.size(), 2u) << Brief(record);
      EXPECT_EQ("(", record.pieces.front().text);
      EXPECT_EQ(")", record.pieces.back().text);
    }
  }

  void SetNow(uint64_t aNow) { host::CSimulatedOsal::Instance().SetNow(aNow); }
};

// --- Construction --------------------------------------------------------------------

TEST_F(SyncTimeTest, ConstructorPreparesTheTickCounterEveryTime) {
  CSyncTime first;
  EXPECT_EQ(1, host::CSimulatedOsal::Instance().InitCount());
  CSyncTime second;
  EXPECT_EQ(2, host::CSimulatedOsal::Instance().InitCount());
}

TEST_F(SyncTimeTest, ConstructorStartsUnsynchronisedWithoutBrokerAndWithoutRecords) {
  CSyncTime time;
  EXPECT_EQ(0, time.CurrentTime());
  EXPECT_EQ(0, time.GetSyncTime());
  EXPECT_EQ(nullptr, time.EventBroker());
  EXPECT_TRUE(AllRecords().empty());
  EXPECT_EQ(0u, host::CSimulatedOsal::Instance().TickCountCalls());
}

TEST_F(SyncTimeTest, GetSyncTimeAnswersZeroBeforeAnyAcceptedMeasurementAndWritesNoRecord) {
  CSyncTime time;
  SetNow(4000);
  time.KickSyncTime();
  ClearRecords();
  EXPECT_EQ(0, time.GetSyncTime());
  EXPECT_TRUE(AllRecords().empty());
}

// --- SetEventBroker ------------------------------------------------------------------

TEST_F(SyncTimeTest, SetEventBrokerLogsAndRegistersTheOneSecondSyncTimer) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  EXPECT_EQ(&iEventBroker, time.EventBroker());
  EXPECT_EQ((std::vector<std::string>{"Info|SetEventBroker|SetEventBroker"}), Briefs());
  ExpectWellFormedRecords();
  ASSERT_EQ(1u, iEventBroker.Calls().size());
  EXPECT_EQ("register 0/10/1000/1", Describe(iEventBroker.Calls()[0]));
  EXPECT_EQ(&time, iEventBroker.Calls()[0].observer);
}

TEST_F(SyncTimeTest, SecondSetEventBrokerRegistersASecondTimeWithoutUnregistering) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  time.SetEventBroker(&iEventBroker);
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1", "register 0/10/1000/1"}), EventCalls());
  EXPECT_EQ(2u, iEventBroker.Timers().size());
  EXPECT_EQ((std::vector<std::string>{"Info|SetEventBroker|SetEventBroker", "Info|SetEventBroker|SetEventBroker"}),
            Briefs());
}

TEST_F(SyncTimeTest, SetEventBrokerWithNullLogsStoresNullAndRegistersNothing) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  time.SetEventBroker(nullptr);
  EXPECT_EQ(nullptr, time.EventBroker());
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1"}), EventCalls());
  EXPECT_EQ((std::vector<std::string>{"Info|SetEventBroker|SetEventBroker", "Info|SetEventBroker|SetEventBroker"}),
            Briefs());
}

// --- Destructor ----------------------------------------------------------------------

TEST_F(SyncTimeTest, DestructorUnregistersTheSyncTimerWhenABrokerWasSet) {
  {
    CSyncTime time;
    time.SetEventBroker(&iEventBroker);
    ClearRecords();
  }
  ASSERT_EQ(2u, iEventBroker.Calls().size());
  EXPECT_EQ("unregister 0/10/0", Describe(iEventBroker.Calls()[1]));
  EXPECT_TRUE(iEventBroker.Timers().empty());
  EXPECT_TRUE(AllRecords().empty());
}

TEST_F(SyncTimeTest, DestructorUnregistersWithItself) {
  CSyncTime* observer = nullptr;
  {
    CSyncTime time;
    observer = &time;
    time.SetEventBroker(&iEventBroker);
  }
  ASSERT_EQ(2u, iEventBroker.Calls().size());
  EXPECT_EQ(observer, iEventBroker.Calls()[1].observer);
}

TEST_F(SyncTimeTest, DestructorWithoutBrokerUnregistersNothing) {
  { CSyncTime time; }
  EXPECT_TRUE(iEventBroker.Calls().empty());
}

TEST_F(SyncTimeTest, DestructorAfterSetEventBrokerNullUnregistersNothing) {
  {
    CSyncTime time;
    time.SetEventBroker(&iEventBroker);
    time.SetEventBroker(nullptr);
  }
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1"}), EventCalls());
}

// --- OnEvent ---------------------------------------------------------------------------

TEST_F(SyncTimeTest, OnEventForTheSyncTimerEventKicksAndLogs) {
  CSyncTime time;
  SetNow(1234);
  iEventBroker.Deliver(&time, contract::kSyncEventClass, contract::kSyncEventId);
  EXPECT_EQ(1234, time.CurrentTime());
  EXPECT_EQ((std::vector<std::string>{std::string("Interface|") + kOnEventTrace + "|OnEvent",
                                      "Info|OnEvent|KickSyncTime", std::string("Interface|") + kKickTrace + "|",
                                      "Info|getDateTimeInMS|iCurrentTime = 1234"}),
            Briefs());
  ExpectWellFormedRecords();
}

TEST_F(SyncTimeTest, OnEventIgnoresClassZeroWithAnotherId) {
  CSyncTime time;
  SetNow(1234);
  for (uint32_t id : {0u, 9u, 11u, 0xFFFFFFFFu}) iEventBroker.Deliver(&time, 0, id);
  EXPECT_EQ(0, time.CurrentTime());
  EXPECT_EQ(0u, host::CSimulatedOsal::Instance().TickCountCalls());
  const std::string entry = std::string("Interface|") + kOnEventTrace + "|OnEvent";
  EXPECT_EQ((std::vector<std::string>{entry, entry, entry, entry}), Briefs());
}

TEST_F(SyncTimeTest, OnEventIgnoresIdTenWithANonZeroClass) {
  CSyncTime time;
  SetNow(1234);
  iEventBroker.Deliver(&time, 1, 10);
  iEventBroker.Deliver(&time, 0x80000000u, contract::kSyncEventId);
  EXPECT_EQ(0, time.CurrentTime());
  const std::string entry = std::string("Interface|") + kOnEventTrace + "|OnEvent";
  EXPECT_EQ((std::vector<std::string>{entry, entry}), Briefs());
}

TEST_F(SyncTimeTest, OnEventKicksThroughTheVirtualTable) {
  CCountingSyncTime time;
  iEventBroker.Deliver(&time, contract::kSyncEventClass, contract::kSyncEventId);
  EXPECT_EQ(1, time.iKicks);
  // The overriding kick ran instead of the base one: no local time was read.
  EXPECT_EQ(0u, host::CSimulatedOsal::Instance().TickCountCalls());
  EXPECT_EQ(
      (std::vector<std::string>{std::string("Interface|") + kOnEventTrace + "|OnEvent", "Info|OnEvent|KickSyncTime"}),
      Briefs());
}

TEST_F(SyncTimeTest, OnEventDoesNotKickTheSubclassForOtherEvents) {
  CCountingSyncTime time;
  iEventBroker.Deliver(&time, 0, 11);
  iEventBroker.Deliver(&time, 2, 10);
  EXPECT_EQ(0, time.iKicks);
}

TEST_F(SyncTimeTest, RegisteredTimerKicksEverySecond) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  iEventBroker.RunUntil(2500);
  EXPECT_EQ(2u, iEventBroker.FiredCount());
  EXPECT_EQ(2000, time.CurrentTime());
  iEventBroker.RunUntil(3000);
  EXPECT_EQ(3000, time.CurrentTime());
}

// --- KickSyncTime and getDateTimeInMS --------------------------------------------------

TEST_F(SyncTimeTest, KickSyncTimeReadsTheTickAnswersTrueAndLogs) {
  CSyncTime time;
  SetNow(777);
  EXPECT_EQ(1, time.KickSyncTime());
  EXPECT_EQ(777, time.CurrentTime());
  EXPECT_EQ(1u, host::CSimulatedOsal::Instance().TickCountCalls());
  EXPECT_EQ((std::vector<std::string>{std::string("Interface|") + kKickTrace + "|",
                                      "Info|getDateTimeInMS|iCurrentTime = 777"}),
            Briefs());
  ExpectWellFormedRecords();
  // The entry trace is exactly the framing brackets.
  EXPECT_EQ("()", ModuleRecords()[0].Text());
}

TEST_F(SyncTimeTest, GetDateTimeInMSSetsAndReturnsTheTickWithSpacedEqualsSign) {
  CSyncTime time;
  SetNow(0x123456789ULL);
  EXPECT_EQ(0x123456789LL, time.getDateTimeInMS());
  EXPECT_EQ(0x123456789LL, time.CurrentTime());
  const std::vector<host::LoggedRecord> records = ModuleRecords();
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ("Info|getDateTimeInMS|iCurrentTime = 4886718345", Brief(records[0]));
  EXPECT_EQ((std::vector<PieceKind>{PieceKind::Text, PieceKind::I64}), MessageKinds(records[0]));
  EXPECT_EQ("iCurrentTime = ", records[0].pieces[1].text);
  ExpectWellFormedRecords();
}

// --- SetMeasuredTime -------------------------------------------------------------------

TEST_F(SyncTimeTest, FirstMeasurementWritesEntrySwitchAndOffsetRecordsWithoutSpaces) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  SetNow(5000);
  time.KickSyncTime();
  ClearRecords();
  time.SetMeasuredTime(1000);
  const std::vector<host::LoggedRecord> records = ModuleRecords();
  ASSERT_EQ(3u, records.size());
  EXPECT_EQ(std::string("Interface|") + kSetMeasuredTimeTrace + "|iCurrentTime=5000 aTime=1000", Brief(records[0]));
  EXPECT_EQ("Info2|SetMeasuredTime|iCurrentTime=5000 aTime=1000", Brief(records[1]));
  EXPECT_EQ("Info2|SetMeasuredTime|iSyncedTime=4000", Brief(records[2]));
  const std::vector<PieceKind> measured{PieceKind::Text, PieceKind::I64, PieceKind::Text, PieceKind::U32};
  EXPECT_EQ(measured, MessageKinds(records[0]));
  EXPECT_EQ(measured, MessageKinds(records[1]));
  EXPECT_EQ((std::vector<PieceKind>{PieceKind::Text, PieceKind::I64}), MessageKinds(records[2]));
  EXPECT_EQ("iCurrentTime=", records[0].pieces[1].text);
  EXPECT_EQ(" aTime=", records[0].pieces[3].text);
  EXPECT_EQ("iSyncedTime=", records[2].pieces[1].text);
  ExpectWellFormedRecords();
  EXPECT_EQ(4000, time.GetSyncTime());
}

TEST_F(SyncTimeTest, FirstMeasurementUnregistersThenRegistersTheThirtySecondTimer) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  SetNow(5000);
  time.KickSyncTime();
  time.SetMeasuredTime(1000);
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1", "unregister 0/10/0", "register 0/10/30000/1"}),
            EventCalls());
  EXPECT_EQ(&time, iEventBroker.Calls()[1].observer);
  EXPECT_EQ(&time, iEventBroker.Calls()[2].observer);
  ASSERT_EQ(1u, iEventBroker.Timers().size());
  EXPECT_EQ(30000u, iEventBroker.Timers()[0].period);
}

TEST_F(SyncTimeTest, AfterTheSwitchTheTimerKicksEveryThirtySeconds) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  iEventBroker.RunUntil(1000);  // kick at 1000
  time.SetMeasuredTime(400);
  EXPECT_EQ(600, time.GetSyncTime());
  iEventBroker.RunUntil(30999);
  EXPECT_EQ(1000, time.CurrentTime());
  iEventBroker.RunUntil(31000);
  EXPECT_EQ(31000, time.CurrentTime());
  iEventBroker.RunUntil(61000);
  EXPECT_EQ(61000, time.CurrentTime());
  EXPECT_EQ(3u, iEventBroker.FiredCount());
}

TEST_F(SyncTimeTest, MeasurementWithoutBrokerSkipsTheSwitchButSetsTheOffset) {
  CSyncTime time;
  SetNow(5000);
  time.KickSyncTime();
  ClearRecords();
  time.SetMeasuredTime(1000);
  EXPECT_EQ(4000, time.GetSyncTime());
  EXPECT_EQ(
      (std::vector<std::string>{std::string("Interface|") + kSetMeasuredTimeTrace + "|iCurrentTime=5000 aTime=1000",
                                "Info2|SetMeasuredTime|iSyncedTime=4000"}),
      Briefs());
  EXPECT_TRUE(iEventBroker.Calls().empty());
}

TEST_F(SyncTimeTest, MeasurementBeforeAnyKickIsRejectedButStillSwitchesTheTimer) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  ClearRecords();
  time.SetMeasuredTime(0);
  EXPECT_EQ(0, time.GetSyncTime());
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1", "unregister 0/10/0", "register 0/10/30000/1"}),
            EventCalls());
  EXPECT_EQ(
      (std::vector<std::string>{std::string("Interface|") + kSetMeasuredTimeTrace + "|iCurrentTime=0 aTime=0",
                                "Info2|SetMeasuredTime|iCurrentTime=0 aTime=0", "Info2|SetMeasuredTime|iSyncedTime=0"}),
      Briefs());
}

TEST_F(SyncTimeTest, MeasurementEqualToTheKickTimeIsRejected) {
  CSyncTime time;
  SetNow(5000);
  time.KickSyncTime();
  time.SetMeasuredTime(5000);
  EXPECT_EQ(0, time.GetSyncTime());
  EXPECT_EQ("iSyncedTime=0", ModuleRecords().back().Message());
}

TEST_F(SyncTimeTest, MeasurementOneBelowTheKickTimeGivesOffsetOne) {
  CSyncTime time;
  SetNow(5000);
  time.KickSyncTime();
  time.SetMeasuredTime(4999);
  EXPECT_EQ(1, time.GetSyncTime());
  EXPECT_EQ("iSyncedTime=1", ModuleRecords().back().Message());
}

TEST_F(SyncTimeTest, MeasurementNewerThanTheKickKeepsThePreviousOffset) {
  CSyncTime time;
  SetNow(5000);
  time.KickSyncTime();
  time.SetMeasuredTime(3000);
  ASSERT_EQ(2000, time.GetSyncTime());
  time.SetMeasuredTime(6000);
  EXPECT_EQ(2000, time.GetSyncTime());
  EXPECT_EQ("iSyncedTime=2000", ModuleRecords().back().Message());
}

TEST_F(SyncTimeTest, KickTimeAboveThirtyTwoBitsGivesAnOffsetWiderThanThirtyTwoBits) {
  CSyncTime time;
  SetNow((1ULL << 32) + 500);
  time.KickSyncTime();
  time.SetMeasuredTime(100);
  EXPECT_EQ(static_cast<int64_t>((1ULL << 32) + 400), time.GetSyncTime());
  EXPECT_EQ("iSyncedTime=4294967696", ModuleRecords().back().Message());
}

TEST_F(SyncTimeTest, MeasuredTimeIsWidenedWithoutSign) {
  CSyncTime time;
  SetNow(5000000000ULL);
  time.KickSyncTime();
  time.SetMeasuredTime(0xFFFFFFF0u);
  EXPECT_EQ(5000000000LL - 0xFFFFFFF0LL, time.GetSyncTime());
  EXPECT_EQ(std::string("iCurrentTime=5000000000 aTime=4294967280"),
            ModuleRecords()[ModuleRecords().size() - 2].Message());
}

TEST_F(SyncTimeTest, MeasuredTimeAboveAThirtyTwoBitKickTimeIsRejected) {
  CSyncTime time;
  SetNow(0x7FFFFFFF);
  time.KickSyncTime();
  time.SetMeasuredTime(0x80000000u);
  EXPECT_EQ(0, time.GetSyncTime());
}

TEST_F(SyncTimeTest, SecondMeasurementForOneKickOverwritesTheOffsetWithoutSwitchingAgain) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  SetNow(5000);
  time.KickSyncTime();
  time.SetMeasuredTime(1000);
  ClearRecords();
  time.SetMeasuredTime(2000);
  EXPECT_EQ(3000, time.GetSyncTime());
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1", "unregister 0/10/0", "register 0/10/30000/1"}),
            EventCalls());
  EXPECT_EQ(
      (std::vector<std::string>{std::string("Interface|") + kSetMeasuredTimeTrace + "|iCurrentTime=5000 aTime=2000",
                                "Info2|SetMeasuredTime|iSyncedTime=3000"}),
      Briefs());
}

TEST_F(SyncTimeTest, WhileTheOffsetStaysZeroEveryMeasurementRegistersTheSlowTimerAgain) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  SetNow(5000);
  time.KickSyncTime();
  time.SetMeasuredTime(6000);  // rejected: the offset stays 0
  time.SetMeasuredTime(7000);  // rejected again
  EXPECT_EQ(0, time.GetSyncTime());
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1", "unregister 0/10/0", "register 0/10/30000/1",
                                      "unregister 0/10/0", "register 0/10/30000/1"}),
            EventCalls());
  EXPECT_EQ(1u, iEventBroker.Timers().size());
  // Each re-registration logs the switch again.
  size_t switches = 0;
  for (const host::LoggedRecord& record : ModuleRecords()) {
    if (record.CategoryName() == "Info2" && record.Message().find("aTime=") != std::string::npos) ++switches;
  }
  EXPECT_EQ(2u, switches);
}

TEST_F(SyncTimeTest, ReRegistrationWhileUnsynchronisedRestartsTheSlowPeriod) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  SetNow(1000);
  time.SetMeasuredTime(2000);  // rejected; slow timer due at 31000
  SetNow(20000);
  time.SetMeasuredTime(25000);  // rejected; slow timer restarted, due at 50000
  ASSERT_EQ(1u, iEventBroker.Timers().size());
  EXPECT_EQ(50000u, iEventBroker.Timers()[0].due);
  iEventBroker.RunUntil(49999);
  EXPECT_EQ(0u, iEventBroker.FiredCount());
  iEventBroker.RunUntil(50000);
  EXPECT_EQ(1u, iEventBroker.FiredCount());
}

TEST_F(SyncTimeTest, AcceptedMeasurementAfterRejectedOnesStopsTheReRegistration) {
  CSyncTime time;
  time.SetEventBroker(&iEventBroker);
  SetNow(5000);
  time.KickSyncTime();
  time.SetMeasuredTime(6000);  // rejected, switches
  time.SetMeasuredTime(4000);  // accepted, switches again because the offset was 0
  time.SetMeasuredTime(3000);  // offset set: no switch
  EXPECT_EQ(2000, time.GetSyncTime());
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1", "unregister 0/10/0", "register 0/10/30000/1",
                                      "unregister 0/10/0", "register 0/10/30000/1"}),
            EventCalls());
}

TEST_F(SyncTimeTest, DestructorAfterTheSwitchUnregistersTheSlowTimer) {
  {
    CSyncTime time;
    time.SetEventBroker(&iEventBroker);
    SetNow(5000);
    time.KickSyncTime();
    time.SetMeasuredTime(1000);
  }
  EXPECT_EQ("unregister 0/10/0", Describe(iEventBroker.Calls().back()));
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

}  // namespace
