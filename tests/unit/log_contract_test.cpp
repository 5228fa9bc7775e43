// How the module writes a log record through the host's facility: the four steps and
// their order, what the control is asked and that its answer is passed on unread, that
// the pieces are appended whatever the control said, when the stream is closed, the
// framing of an empty message, and the stream slot each piece type uses. Also how the
// sources carry on when every broker request is refused.
#include <gtest/gtest.h>

#include <stdint.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CANSensor.h"
#include "ExternalSensor.h"
#include "InterfaceBroker.h"
#include "LogFacility.h"
#include "LogRecord.h"
#include "LoggedRecord.h"
#include "Positioning.h"
#include "TestHost.h"

namespace {

using positioning::CLogRecord;
using testing_host::HostTest;

const char kProbeFile[] = "Positioning/src/Probe.cpp";

host::CLogFacility& Facility() { return host::CLogFacility::Instance(); }

class LogContractTest : public HostTest {
 protected:
  // The one record written so far.
  const host::LoggedRecord& OnlyRecord() {
    EXPECT_EQ(1u, AllRecords().size());
    static const host::LoggedRecord kNone;
    return AllRecords().empty() ? kNone : AllRecords().front();
  }
  // The one piece between the framing brackets of the only record.
  host::LogPiece OnlyPiece() {
    const host::LoggedRecord& record = OnlyRecord();
    EXPECT_EQ(3u, record.pieces.size());
    if (record.pieces.size() != 3) return host::LogPiece{host::PieceKind::Text, 0, "", nullptr};
    return record.pieces[1];
  }
  // The calls the facility received for one record with a "hello" piece.
  std::vector<std::string> TraceOfOneRecord(positioning::TLogCategory aCategory) {
    Facility().SetTraceCalls(true);
    CLogRecord(aCategory, "Probe", kProbeFile, 12).Text("hello");
    Facility().SetTraceCalls(false);
    return Facility().Calls();
  }
};

// ---- the four steps ----

TEST_F(LogContractTest, RecordIsAskedForThenOpenedThenAppendedThenClosed) {
  EXPECT_EQ((std::vector<std::string>{
                "IsEnabled(81,4)",
                "Open(logging::categories::Info,logging::Positioning,Probe,1,Positioning/src/Probe.cpp,12)",
                "Append(text:()",
                "Append(text:hello)",
                "Append(text:))",
                "AppendLineEnd(\n)",
                "Close()",
            }),
            TraceOfOneRecord(positioning::EInfo));
}

TEST_F(LogContractTest, ControlIsAskedWithModule81AndTheCategoryNumber) {
  EXPECT_EQ("IsEnabled(81,1)", TraceOfOneRecord(positioning::EError).front());
  Facility().Reset();
  EXPECT_EQ("IsEnabled(81,4)", TraceOfOneRecord(positioning::EInfo).front());
  Facility().Reset();
  EXPECT_EQ("IsEnabled(81,8)", TraceOfOneRecord(positioning::EInfo2).front());
  Facility().Reset();
  EXPECT_EQ("IsEnabled(81,16)", TraceOfOneRecord(positioning::EInterface).front());
}

TEST_F(LogContractTest, RecordIsOpenedWithTheCategoryAndModuleTagTexts) {
  CLogRecord(positioning::EError, "Probe", kProbeFile, 1);
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 2);
  CLogRecord(positioning::EInfo2, "Probe", kProbeFile, 3);
  CLogRecord(positioning::EInterface, "Probe", kProbeFile, 4);
  const std::vector<host::LoggedRecord>& records = AllRecords();
  ASSERT_EQ(4u, records.size());
  EXPECT_EQ("logging::categories::Error", records[0].category);
  EXPECT_EQ("logging::categories::Info", records[1].category);
  EXPECT_EQ("logging::categories::Info2", records[2].category);
  EXPECT_EQ("logging::categories::Interface", records[3].category);
  for (const host::LoggedRecord& record : records) EXPECT_EQ("logging::Positioning", record.module);
}

TEST_F(LogContractTest, RecordIsOpenedWithTheFunctionFileAndLineGiven) {
  CLogRecord(positioning::EInfo, "virtual void CProbe::Run(int)", kProbeFile, 321);
  EXPECT_EQ("virtual void CProbe::Run(int)", OnlyRecord().function);
  EXPECT_EQ(kProbeFile, OnlyRecord().file);
  EXPECT_EQ(321, OnlyRecord().line);
}

TEST_F(LogContractTest, ControlAnswerZeroIsPassedToOpenUnread) {
  Facility().SetEnabledAnswer(0);
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).Text("hello");
  EXPECT_EQ(0, OnlyRecord().enabled);
}

TEST_F(LogContractTest, ControlAnswerSevenIsPassedToOpenUnread) {
  Facility().SetEnabledAnswer(7);
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).Text("hello");
  EXPECT_EQ(7, OnlyRecord().enabled);
}

TEST_F(LogContractTest, AppendsAndCloseStillHappenWhenTheControlSaysNo) {
  Facility().SetEnabledAnswer(0);
  EXPECT_EQ((std::vector<std::string>{
                "IsEnabled(81,4)",
                "Open(logging::categories::Info,logging::Positioning,Probe,0,Positioning/src/Probe.cpp,12)",
                "Append(text:()",
                "Append(text:hello)",
                "Append(text:))",
                "AppendLineEnd(\n)",
                "Close()",
            }),
            TraceOfOneRecord(positioning::EInfo));
  EXPECT_TRUE(OnlyRecord().closed);
  EXPECT_EQ("hello", OnlyRecord().Message());
}

TEST_F(LogContractTest, RecordIsClosedWhenTheHandleFlagWordIsZero) {
  Facility().SetHandleFlags(0);
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).Text("hello");
  EXPECT_TRUE(OnlyRecord().closed);
  EXPECT_EQ(0u, Facility().OpenRecordCount());
}

TEST_F(LogContractTest, RecordIsNotClosedWhenTheHandleFlagWordIsSet) {
  Facility().SetHandleFlags(1);
  Facility().SetTraceCalls(true);
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).Text("hello");
  const std::vector<std::string>& calls = Facility().Calls();
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ("AppendLineEnd(\n)", calls.back());
  EXPECT_EQ(0, std::count(calls.begin(), calls.end(), "Close()"));
  EXPECT_TRUE(AllRecords().empty());
  EXPECT_EQ(1u, Facility().OpenRecordCount());
}

TEST_F(LogContractTest, AnyNonZeroFlagWordKeepsTheRecordOpen) {
  Facility().SetHandleFlags(0x80000000u);
  CLogRecord(positioning::EError, "Probe", kProbeFile, 12);
  EXPECT_TRUE(AllRecords().empty());
  EXPECT_EQ(1u, Facility().OpenRecordCount());
}

// ---- framing ----

TEST_F(LogContractTest, EmptyMessageIsWrittenAsBracketsThenTheLineEnd) {
  Facility().SetTraceCalls(true);
  CLogRecord(positioning::EInterface, "CProbe::CProbe()", kProbeFile, 12);
  const host::LoggedRecord& record = OnlyRecord();
  ASSERT_EQ(2u, record.pieces.size());
  EXPECT_EQ(host::PieceKind::Text, record.pieces[0].kind);
  EXPECT_EQ("(", record.pieces[0].text);
  EXPECT_EQ(host::PieceKind::Text, record.pieces[1].kind);
  EXPECT_EQ(")", record.pieces[1].text);
  EXPECT_EQ("()", record.Text());
  EXPECT_EQ("\n", record.lineEnd);
  const std::vector<std::string>& calls = Facility().Calls();
  ASSERT_EQ(6u, calls.size());
  EXPECT_EQ("Append(text:()", calls[2]);
  EXPECT_EQ("Append(text:))", calls[3]);
  EXPECT_EQ("AppendLineEnd(\n)", calls[4]);
}

TEST_F(LogContractTest, PiecesAreAppendedInTheOrderWrittenBetweenTheBrackets) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).Text("a=").I32(-1).Text(", b=").U8(2);
  const host::LoggedRecord& record = OnlyRecord();
  ASSERT_EQ(6u, record.pieces.size());
  EXPECT_EQ("(", record.pieces.front().text);
  EXPECT_EQ(")", record.pieces.back().text);
  EXPECT_EQ("(a=-1, b=2)", record.Text());
  EXPECT_EQ("\n", record.lineEnd);
}

// ---- stream slots ----

TEST_F(LogContractTest, TruthValueLandsOnTheBoolSlot) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).Bool(true);
  EXPECT_EQ(host::PieceKind::Bool, OnlyPiece().kind);
  EXPECT_EQ(1, OnlyPiece().number);
}

TEST_F(LogContractTest, FalseLandsOnTheBoolSlotAsFalse) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).Bool(false);
  EXPECT_EQ(host::PieceKind::Bool, OnlyPiece().kind);
  EXPECT_EQ(0, OnlyPiece().number);
}

TEST_F(LogContractTest, Unsigned8BitNumberLandsOnTheU8Slot) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).U8(200);
  EXPECT_EQ(host::PieceKind::U8, OnlyPiece().kind);
  EXPECT_EQ(200, OnlyPiece().number);
}

TEST_F(LogContractTest, Signed16BitNumberLandsOnTheI16Slot) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).I16(-32768);
  EXPECT_EQ(host::PieceKind::I16, OnlyPiece().kind);
  EXPECT_EQ(-32768, OnlyPiece().number);
}

TEST_F(LogContractTest, Unsigned16BitNumberLandsOnTheU16Slot) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).U16(65535);
  EXPECT_EQ(host::PieceKind::U16, OnlyPiece().kind);
  EXPECT_EQ(65535, OnlyPiece().number);
}

TEST_F(LogContractTest, Signed32BitNumberLandsOnTheI32Slot) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).I32(INT32_MIN);
  EXPECT_EQ(host::PieceKind::I32, OnlyPiece().kind);
  EXPECT_EQ(INT32_MIN, OnlyPiece().number);
}

TEST_F(LogContractTest, Unsigned32BitNumberLandsOnTheU32Slot) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).U32(4000000000u);
  EXPECT_EQ(host::PieceKind::U32, OnlyPiece().kind);
  EXPECT_EQ(4000000000, OnlyPiece().number);
}

TEST_F(LogContractTest, SignWidenedSampleValueArrivesAsItsUnsigned32BitEquivalent) {
  const int16_t sample = -3;
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).U32(static_cast<uint32_t>(static_cast<int32_t>(sample)));
  EXPECT_EQ(host::PieceKind::U32, OnlyPiece().kind);
  EXPECT_EQ(4294967293, OnlyPiece().number);
}

TEST_F(LogContractTest, Signed64BitNumberLandsOnTheI64Slot) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).I64(-5000000000);
  EXPECT_EQ(host::PieceKind::I64, OnlyPiece().kind);
  EXPECT_EQ(-5000000000, OnlyPiece().number);
}

TEST_F(LogContractTest, TextLandsOnTheTextSlot) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).Text("Diversity: ");
  EXPECT_EQ(host::PieceKind::Text, OnlyPiece().kind);
  EXPECT_EQ("Diversity: ", OnlyPiece().text);
}

TEST_F(LogContractTest, PointerLandsOnThePointerSlotWithItsValue) {
  int target = 0;
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).Pointer(&target);
  EXPECT_EQ(host::PieceKind::Pointer, OnlyPiece().kind);
  EXPECT_EQ(static_cast<const void*>(&target), OnlyPiece().pointer);
}

TEST_F(LogContractTest, NullPointerLandsOnThePointerSlot) {
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12).Pointer(nullptr);
  EXPECT_EQ(host::PieceKind::Pointer, OnlyPiece().kind);
  EXPECT_EQ(nullptr, OnlyPiece().pointer);
}

TEST_F(LogContractTest, EachPieceTypeIsTracedOnItsOwnSlot) {
  Facility().SetTraceCalls(true);
  CLogRecord(positioning::EInfo, "Probe", kProbeFile, 12)
      .Bool(true)
      .U8(1)
      .I16(-2)
      .U16(3)
      .I32(-4)
      .U32(5)
      .I64(-6)
      .Text("t")
      .Pointer(nullptr);
  const std::vector<std::string>& calls = Facility().Calls();
  ASSERT_EQ(15u, calls.size());
  EXPECT_EQ((std::vector<std::string>{"Append(bool:true)", "Append(u8:1)", "Append(i16:-2)", "Append(u16:3)",
                                      "Append(i32:-4)", "Append(u32:5)", "Append(i64:-6)", "Append(text:t)",
                                      "Append(ptr:0x0)"}),
            std::vector<std::string>(calls.begin() + 3, calls.begin() + 12));
}

// ---- a broker that refuses every request ----

// "Category function file | message" of the records whose message reports a failure.
std::vector<std::string> FailureRecords() {
  std::vector<std::string> found;
  for (const host::LoggedRecord& record : Facility().RecordsOf("logging::Positioning")) {
    const std::string message = record.Message();
    if (message.find("failed") == std::string::npos && message.find("Failed") == std::string::npos) continue;
    found.push_back(record.CategoryName() + " " + record.function + " " + record.file + " | " + message);
  }
  return found;
}

class RefusingBrokerTest : public HostTest {
 protected:
  CPositioning* Create(const std::string& aDiversity) {
    iProperties.Set("diversity", aDiversity);
    return new CPositioning(iFeatureId, iBroker, iEventBroker, iProperties);
  }
  size_t Count(const std::string& aMessage) { return Facility().RecordsContaining(aMessage).size(); }
};

TEST_F(RefusingBrokerTest, CanFeatureLogsEachRefusedRequestOnce) {
  iBroker.FailRequests(true);
  CPositioning* feature = Create("CAN");
  EXPECT_EQ(
      (std::vector<std::string>{
          "Info CCANSensor Positioning/src/CANSensor.cpp | RequestSharedInterface for IMicroHostSensorMale failed",
          "Info CSensorStore Positioning/src/CSensorStore.cpp | RequestInterface for IPositioningSensorMale failed",
      }),
      FailureRecords());
  EXPECT_EQ(1u, Count("RequestSharedInterface for IMicroHostSensorMale failed"));
  EXPECT_EQ(1u, Count("RequestInterface for IPositioningSensorMale failed"));
  EXPECT_EQ(57, Facility().RecordsContaining("RequestInterface for IPositioningSensorMale failed").front().line);
  iBroker.FailRequests(false);
  delete feature;
}

TEST_F(RefusingBrokerTest, CanFeatureCarriesOnWithoutRetryingAfterRefusals) {
  iBroker.FailRequests(true);
  CPositioning* feature = Create("CAN");
  EXPECT_EQ(1u, iBroker.CallsOf(host::BrokerCall::RequestShared).size());
  EXPECT_EQ(1u, iBroker.CallsOf(host::BrokerCall::Request).size());
  CCANSensor* sensor = dynamic_cast<CCANSensor*>(feature->Sensor());
  ASSERT_NE(nullptr, sensor);
  ASSERT_NE(nullptr, sensor->SensorStore());
  EXPECT_EQ(0, sensor->FirstSensorHandle());
  EXPECT_EQ(1, sensor->SecondSensorHandle());
  // The time base was still set up after the refusals.
  EXPECT_EQ(1u, iEventBroker.Timers().size());
  delete feature;
}

TEST_F(RefusingBrokerTest, ExternalFeatureLogsEachRefusedRequestOnce) {
  iBroker.FailRequests(true);
  CPositioning* feature = Create("EXTERNAL");
  EXPECT_EQ(
      (std::vector<std::string>{
          "Error CExternalSensor Positioning/src/ExternalSensor.cpp | Failed to request IArdenClockSyncFemale instance",
          "Error CExternalSensor Positioning/src/ExternalSensor.cpp | Failed to request IHalvikPositioningFemale "
          "instance",
          "Info CSensorStore Positioning/src/CSensorStore.cpp | RequestInterface for IPositioningSensorMale failed",
      }),
      FailureRecords());
  EXPECT_EQ(1u, Count("Failed to request IArdenClockSyncFemale instance"));
  EXPECT_EQ(1u, Count("Failed to request IHalvikPositioningFemale instance"));
  EXPECT_EQ(1u, Count("RequestInterface for IPositioningSensorMale failed"));
  iBroker.FailRequests(false);
  delete feature;
}

TEST_F(RefusingBrokerTest, ExternalFeatureCarriesOnWithoutRetryingAfterRefusals) {
  iBroker.FailRequests(true);
  CPositioning* feature = Create("EXTERNAL");
  EXPECT_EQ(3u, iBroker.CallsOf(host::BrokerCall::Request).size());
  EXPECT_EQ(0u, Count("IArdenClockSync received"));
  EXPECT_EQ(0u, Count("IHalvikPositioningSensorFemale received"));
  CExternalSensor* sensor = dynamic_cast<CExternalSensor*>(feature->Sensor());
  ASSERT_NE(nullptr, sensor);
  ASSERT_NE(nullptr, sensor->SensorStore());
  EXPECT_EQ(0, sensor->FirstSensorHandle());
  EXPECT_EQ(1, sensor->SecondSensorHandle());
  delete feature;
}

TEST_F(RefusingBrokerTest, CanFeatureLogsEachRefusedRevokeOnce) {
  CPositioning* feature = Create("CAN");
  iBroker.FailRevokes(true);
  ClearRecords();
  delete feature;
  EXPECT_EQ(
      (std::vector<std::string>{
          "Info ~CCANSensor Positioning/src/CANSensor.cpp | RequestSharedInterface for IMicroHostSensorMale failed",
          "Info ~CSensorStore Positioning/src/CSensorStore.cpp | RevokeInterface interface for "
          "IPositioningSensorMale failed",
      }),
      FailureRecords());
  EXPECT_EQ(2u, iBroker.CallsOf(host::BrokerCall::Revoke).size());
}

TEST_F(RefusingBrokerTest, ExternalFeatureLogsEachRefusedRevokeOnce) {
  CPositioning* feature = Create("EXTERNAL");
  iBroker.FailRevokes(true);
  ClearRecords();
  delete feature;
  EXPECT_EQ(
      (std::vector<std::string>{
          "Error ~CExternalSensor Positioning/src/ExternalSensor.cpp | Failed to revoke IArdenClockSyncFemale instance",
          "Error ~CExternalSensor Positioning/src/ExternalSensor.cpp | Failed to revoke IHalvikPositioningFemale "
          "instance",
          "Info ~CSensorStore Positioning/src/CSensorStore.cpp | RevokeInterface interface for IPositioningSensorMale "
          "failed",
      }),
      FailureRecords());
  EXPECT_EQ(3u, iBroker.CallsOf(host::BrokerCall::Revoke).size());
}

}  // namespace
