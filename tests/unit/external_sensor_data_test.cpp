// CExternalSensor's data intake: the Info record of every combined record, the time-stamp
// supervision that prints to standard output, the split of each record into samples of
// sensor types 1 and 2 in synchronised time, and TimeStampReport feeding the time base.
#include <gtest/gtest.h>

#include <stdint.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "ContractConstants.h"
#include "ExternalSensor.h"
#include "LoggedRecord.h"
#include "SimulatedOsal.h"
#include "SimulatedPeers.h"
#include "StdoutCapture.h"
#include "TestHost.h"

namespace {

using host::CClockSyncService;
using host::CExternalPositioningService;
using host::CPositioningClient;
using host::PieceKind;
using host::ReceivedSample;
using testing_host::HostTest;

const TiPositioningSensorType kCombined = contract::kCombinedRecord;
const char kPutDataTrace[] = "virtual TAny CSensorStore::PutData(TUint8, CSensorStore::TSensorData)";
const char kUnknownType[] = "Unknown positioning sensor type!";
const uint64_t k2To32 = 0x100000000ull;

// "Info SensorData (, 32768, 1, 2, 3, 4, 1000, )"
std::string Summary(const host::LoggedRecord& aRecord) {
  return aRecord.CategoryName() + " " + aRecord.function + " " + aRecord.Text();
}

std::string Difference(const std::string& aNew, const std::string& aLast) {
  return "ERROR: SensorData timestamp difference more than 250 ms, " + aNew + ", " + aLast + "\n";
}
std::string GoingBack(const std::string& aNew) { return "ERROR: SensorData timestamp " + aNew + " is going back\n"; }

std::string PutData(int aHandle) {
  return std::string("Interface ") + kPutDataTrace + " (Handle: " + std::to_string(aHandle) + ")";
}

class ExternalSensorDataTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    iSensor.reset(new CExternalSensor(iFeatureId, iBroker, iEventBroker));
    // The kick on availability takes the local time 10000.
    host::CSimulatedOsal::Instance().SetNow(10000);
    iClockSync.Attach(iBroker);
    iPositioning.Attach(iBroker);
    // A client of both sensors opens the store's delivery.
    iClient.Attach(iBroker);
    iClient.Subscribe(1, 0);
    iClient.Subscribe(2, 0);
    ClearRecords();
  }
  void TearDown() override {
    iSensor.reset();
    HostTest::TearDown();
  }

  // Sends one record and answers what it printed.
  std::string SendPrinting(TiPositioningSensorType aType, uint64_t aTimeStamp, const std::vector<int16_t>& aValues,
                           reflection::TErrCode* aAnswer = nullptr) {
    host::CStdoutCapture capture;
    const reflection::TErrCode answer = iPositioning.SendSensorData(aType, aTimeStamp, aValues);
    if (aAnswer != nullptr) *aAnswer = answer;
    return capture.Stop();
  }
  std::string Send(uint64_t aTimeStamp) { return SendPrinting(kCombined, aTimeStamp, {1, 2, 3, 4}); }

  std::vector<std::string> Summaries() const {
    std::vector<std::string> summaries;
    for (const host::LoggedRecord& record : ModuleRecords()) summaries.push_back(Summary(record));
    return summaries;
  }
  CSensorStore::TSensorData Last(TiPositioningSensorType aType) const {
    CSensorStore::TSensorData sample;
    memset(&sample, 0xA5, sizeof sample);
    EXPECT_EQ(1, iSensor->SensorStore()->GetLastSample(aType, sample));
    return sample;
  }
  int32_t Stored(int aHandle) const { return iSensor->SensorStore()->Sensor(aHandle).buffer->iCount; }

  CClockSyncService iClockSync;
  CExternalPositioningService iPositioning;
  CPositioningClient iClient{"2"};
  std::unique_ptr<CExternalSensor> iSensor;
};

// The Info record

TEST_F(ExternalSensorDataTest, EachRecordIsLoggedThenItsTwoSamplesArePutSensorOneFirst) {
  Send(1000);
  EXPECT_EQ((std::vector<std::string>{"Info SensorData (, 32768, 1, 2, 3, 4, 1000, )", PutData(0), PutData(1)}),
            Summaries());
  const host::LoggedRecord record = ModuleRecords().at(0);
  EXPECT_EQ("logging::Positioning", record.module);
  EXPECT_EQ("Positioning/src/ExternalSensor.cpp", record.file);
  EXPECT_EQ("\n", record.lineEnd);
}

TEST_F(ExternalSensorDataTest, TheInfoRecordCarriesTypeValuesAndTimeStampInTheirStreamSlots) {
  SendPrinting(kCombined, 1000, {-5, 300, -32768, 32767});
  const host::LoggedRecord record = ModuleRecords().at(0);
  struct Piece {
    PieceKind kind;
    int64_t number;
    const char* text;
  };
  const std::vector<Piece> expected = {
      {PieceKind::Text, 0, "("},
      {PieceKind::Text, 0, ", "},
      {PieceKind::U16, kCombined, nullptr},
      {PieceKind::Text, 0, ", "},
      {PieceKind::U32, 4294967291, nullptr},
      {PieceKind::Text, 0, ", "},
      {PieceKind::U32, 300, nullptr},
      {PieceKind::Text, 0, ", "},
      {PieceKind::U32, 4294934528, nullptr},
      {PieceKind::Text, 0, ", "},
      {PieceKind::U32, 32767, nullptr},
      {PieceKind::Text, 0, ", "},
      {PieceKind::I32, 1000, nullptr},
      {PieceKind::Text, 0, ", "},
      {PieceKind::Text, 0, ")"},
  };
  ASSERT_EQ(expected.size(), record.pieces.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(expected[i].kind, record.pieces[i].kind);
    if (expected[i].text != nullptr) {
      EXPECT_EQ(expected[i].text, record.pieces[i].text);
    } else {
      EXPECT_EQ(expected[i].number, record.pieces[i].number);
    }
  }
}

TEST_F(ExternalSensorDataTest, TheInfoRecordShowsTheLow32BitsOfTheTimeStampAsASignedNumber) {
  SendPrinting(kCombined, 0x180000001ull, {1, 2, 3, 4});
  const host::LoggedRecord record = ModuleRecords().at(0);
  ASSERT_EQ(15u, record.pieces.size());
  EXPECT_EQ(PieceKind::I32, record.pieces[12].kind);
  EXPECT_EQ(-2147483647, record.pieces[12].number);
}

// Supervision

TEST_F(ExternalSensorDataTest, TheFirstRecordAfterConstructionIsNotSupervisedAndBothSamplesAreStored) {
  EXPECT_EQ(0u, iSensor->LastTimeStamp());
  EXPECT_EQ("", Send(123456));
  EXPECT_EQ(123456u, iSensor->LastTimeStamp());
  EXPECT_EQ(1, Stored(0));
  EXPECT_EQ(1, Stored(1));
}

TEST_F(ExternalSensorDataTest, AStepOfExactly250MsPrintsNothing) {
  Send(1000);
  EXPECT_EQ("", Send(1250));
  EXPECT_EQ(1250u, iSensor->LastTimeStamp());
}

TEST_F(ExternalSensorDataTest, AStepOf251MsPrintsOnlyTheDifferenceMessage) {
  Send(1000);
  EXPECT_EQ(Difference("1251", "1000"), Send(1251));
  EXPECT_EQ(1251u, iSensor->LastTimeStamp());
  EXPECT_EQ(2, Stored(0));
  EXPECT_EQ(2, Stored(1));
}

TEST_F(ExternalSensorDataTest, AStepBackPrintsTheDifferenceThenTheGoingBackMessageAndTheRecordIsStillStored) {
  iClockSync.SendTimeStampReport(4000);
  ASSERT_EQ(6000, iSensor->SyncTimeBase()->GetSyncTime());
  Send(1000);
  iClient.ClearSamples();
  EXPECT_EQ(Difference("900", "1000") + GoingBack("900"), Send(900));
  EXPECT_EQ(900u, iSensor->LastTimeStamp());
  EXPECT_EQ(6900u, Last(1).timeStamp);
  EXPECT_EQ(6900u, Last(2).timeStamp);
  ASSERT_EQ(2u, iClient.Samples().size());
  EXPECT_EQ(6900u, iClient.Samples()[0].timeStamp);
  EXPECT_EQ(6900u, iClient.Samples()[1].timeStamp);
}

TEST_F(ExternalSensorDataTest, AnEqualTimeStampPrintsNothingAndIsStored) {
  Send(1000);
  EXPECT_EQ("", Send(1000));
  EXPECT_EQ(2, Stored(0));
  EXPECT_EQ(2, Stored(1));
}

TEST_F(ExternalSensorDataTest, AJumpOfTwoToThe32PrintsOnlyTheDifferenceMessageWithTheLow32Bits) {
  Send(1000);
  EXPECT_EQ(Difference("1000", "1000"), Send(1000 + k2To32));
  EXPECT_EQ(1000 + k2To32, iSensor->LastTimeStamp());
  EXPECT_EQ(1000 + k2To32, Last(1).timeStamp);
}

TEST_F(ExternalSensorDataTest, AJumpFarBeyondTwoToThe32PrintsOnlyTheDifferenceMessage) {
  Send(1000);
  EXPECT_EQ(Difference("1200", "1000"), Send(5 * k2To32 + 1200));
}

TEST_F(ExternalSensorDataTest, AStepBackOfTwoToThe32PrintsBothMessages) {
  Send(k2To32 + 1000);
  EXPECT_EQ(Difference("1000", "1000") + GoingBack("1000"), Send(1000));
}

TEST_F(ExternalSensorDataTest, TheSupervisionMessagesPrintTheLow32BitsAsSignedNumbers) {
  Send(0x80000001ull);
  EXPECT_EQ(Difference("1", "-2147483647") + GoingBack("1"), Send(1));
}

TEST_F(ExternalSensorDataTest, SupervisionMessagesGoToStandardOutputAndNotToTheLog) {
  Send(1000);
  ClearRecords();
  ASSERT_NE("", Send(100));
  EXPECT_EQ((std::vector<std::string>{"Info SensorData (, 32768, 1, 2, 3, 4, 100, )", PutData(0), PutData(1)}),
            Summaries());
}

TEST_F(ExternalSensorDataTest, ATimeStampOfZeroLeavesTheNextRecordUnsupervised) {
  Send(1000);
  EXPECT_EQ(Difference("0", "1000") + GoingBack("0"), Send(0));
  EXPECT_EQ(0u, iSensor->LastTimeStamp());
  EXPECT_EQ("", Send(5000));
  EXPECT_EQ(5000u, iSensor->LastTimeStamp());
}

TEST_F(ExternalSensorDataTest, TheLastTimeStampIsKeptOverAReconnectionOfTheService) {
  Send(1000);
  iPositioning.Detach(iBroker);
  EXPECT_EQ(1000u, iSensor->LastTimeStamp());
  iPositioning.Attach(iBroker);
  EXPECT_EQ(1000u, iSensor->LastTimeStamp());
  EXPECT_EQ(Difference("2000", "1000"), Send(2000));
}

// Record types and value sequences

TEST_F(ExternalSensorDataTest, TypeOneIsAnUnknownTypeThatChangesNothing) {
  Send(1000);
  iClient.ClearSamples();
  ClearRecords();
  reflection::TErrCode answer = -1;
  EXPECT_EQ("", SendPrinting(1, 9000, {5, 6, 7, 8}, &answer));
  EXPECT_EQ(0, answer);
  EXPECT_EQ((std::vector<std::string>{"Info SensorData (, 1, 5, 6, 7, 8, 9000, )",
                                      std::string("Error SensorData (") + kUnknownType + ")"}),
            Summaries());
  EXPECT_EQ(1000u, iSensor->LastTimeStamp());
  EXPECT_EQ(1, Stored(0));
  EXPECT_EQ(1, Stored(1));
  EXPECT_TRUE(iClient.Samples().empty());
}

TEST_F(ExternalSensorDataTest, TypeTwoIsAnUnknownTypeThatChangesNothing) {
  Send(1000);
  ClearRecords();
  reflection::TErrCode answer = -1;
  EXPECT_EQ("", SendPrinting(2, 500, {5, 6, 7, 8}, &answer));
  EXPECT_EQ(0, answer);
  EXPECT_EQ((std::vector<std::string>{"Info SensorData (, 2, 5, 6, 7, 8, 500, )",
                                      std::string("Error SensorData (") + kUnknownType + ")"}),
            Summaries());
  EXPECT_EQ(1000u, iSensor->LastTimeStamp());
  EXPECT_EQ(1, Stored(0));
}

TEST_F(ExternalSensorDataTest, AnEmptyValueSequenceTakesOverTheTimeStampButStoresNothing) {
  reflection::TErrCode answer = -1;
  EXPECT_EQ("", SendPrinting(kCombined, 1000, {}, &answer));
  EXPECT_EQ(0, answer);
  EXPECT_EQ((std::vector<std::string>{"Info SensorData (, 32768, 1000, )"}), Summaries());
  EXPECT_EQ(1000u, iSensor->LastTimeStamp());
  EXPECT_EQ(0, Stored(0));
  EXPECT_EQ(0, Stored(1));
  EXPECT_TRUE(iClient.Samples().empty());
}

TEST_F(ExternalSensorDataTest, AnEmptyValueSequenceIsStillSupervised) {
  Send(1000);
  EXPECT_EQ(Difference("2000", "1000"), SendPrinting(kCombined, 2000, {}));
  EXPECT_EQ(2000u, iSensor->LastTimeStamp());
  EXPECT_EQ(1, Stored(0));
}

TEST_F(ExternalSensorDataTest, ValuesZeroAndOneGoToTypeOneAndTwoAndThreeToTypeTwoTypeOneFirst) {
  SendPrinting(kCombined, 1000, {-32768, 32767, -1, 42});
  const std::vector<ReceivedSample> expected = {{1, 1000, {-32768, 32767}}, {2, 1000, {-1, 42}}};
  EXPECT_EQ(expected, iClient.Samples());
  const CSensorStore::TSensorData first = Last(1);
  EXPECT_EQ(2, first.size);
  EXPECT_EQ(-32768, first.values[0]);
  EXPECT_EQ(32767, first.values[1]);
  const CSensorStore::TSensorData second = Last(2);
  EXPECT_EQ(2, second.size);
  EXPECT_EQ(-1, second.values[0]);
  EXPECT_EQ(42, second.values[1]);
}

TEST_F(ExternalSensorDataTest, TheUnfilledValueSlotsOfBothSamplesAreZero) {
  SendPrinting(kCombined, 1000, {7, 8, 9, 10});
  for (TiPositioningSensorType type = 1; type <= 2; ++type) {
    SCOPED_TRACE(type);
    const CSensorStore::TSensorData sample = Last(type);
    for (int slot = 2; slot < 10; ++slot) EXPECT_EQ(0, sample.values[slot]) << "slot " << slot;
  }
}

TEST_F(ExternalSensorDataTest, MoreThanFourValuesUseTheFirstFour) {
  EXPECT_EQ("", SendPrinting(kCombined, 1000, {1, 2, 3, 4, 5, 6}));
  EXPECT_EQ((std::vector<std::string>{"Info SensorData (, 32768, 1, 2, 3, 4, 1000, )", PutData(0), PutData(1)}),
            Summaries());
  const std::vector<ReceivedSample> expected = {{1, 1000, {1, 2}}, {2, 1000, {3, 4}}};
  EXPECT_EQ(expected, iClient.Samples());
}

TEST_F(ExternalSensorDataTest, SensorDataAnswersZeroForEveryRecord) {
  reflection::TErrCode answer = -1;
  SendPrinting(kCombined, 1000, {1, 2, 3, 4}, &answer);
  EXPECT_EQ(0, answer);
  answer = -1;
  SendPrinting(kCombined, 100, {1, 2, 3, 4}, &answer);
  EXPECT_EQ(0, answer);
  answer = -1;
  SendPrinting(kCombined, 200, {1, 2}, &answer);
  EXPECT_EQ(0, answer);
}

// A sequence of 1 to 3 values is not a combined record: it is supervised, then dropped
// with an Error record, and nothing behind its last value is read.
class ExternalSensorShortRecordTest : public ExternalSensorDataTest, public ::testing::WithParamInterface<int> {};

TEST_P(ExternalSensorShortRecordTest, IsSupervisedThenDroppedWithAnErrorAndNothingBeyondItsSizeIsRead) {
  const uint8_t size = static_cast<uint8_t>(GetParam());
  Send(1000);
  iClient.ClearSamples();
  ClearRecords();
  // The slots behind the sequence hold a value that must not turn up anywhere.
  const int16_t kBehind = 0x5A5A;
  int16_t values[4] = {kBehind, kBehind, kBehind, kBehind};
  for (uint8_t i = 0; i < size; ++i) values[i] = static_cast<int16_t>(11 * (i + 1));
  TiPositioningSensorData data;
  data.timeStamp = 2000;
  data.values.size = size;
  data.values.data = values;

  host::CStdoutCapture capture;
  const reflection::TErrCode answer = iPositioning.SendRawSensorData(kCombined, data);
  EXPECT_EQ(Difference("2000", "1000"), capture.Stop());
  EXPECT_EQ(0, answer);

  std::string shown;
  for (uint8_t i = 0; i < size; ++i) shown += ", " + std::to_string(11 * (i + 1));
  EXPECT_EQ((std::vector<std::string>{
                "Info SensorData (, 32768" + shown + ", 2000, )",
                "Error SensorData (Combined record dropped, values expected 4, received: " + std::to_string(size) + ")",
            }),
            Summaries());
  const host::LoggedRecord error = ModuleRecords().at(1);
  ASSERT_EQ(4u, error.pieces.size());
  EXPECT_EQ(PieceKind::U8, error.pieces[2].kind);
  for (const host::LoggedRecord& record : ModuleRecords()) {
    for (const host::LogPiece& piece : record.pieces) EXPECT_NE(kBehind, piece.number);
  }
  EXPECT_EQ(2000u, iSensor->LastTimeStamp());
  EXPECT_EQ(1, Stored(0));
  EXPECT_EQ(1, Stored(1));
  EXPECT_TRUE(iClient.Samples().empty());
}

// The service's own copy holds exactly the values announced, so a read behind them is
// a read outside the sequence (which a sanitizer build reports).
TEST_P(ExternalSensorShortRecordTest, ASequenceHeldInExactlyItsOwnSizeIsDroppedTheSameWay) {
  const size_t size = static_cast<size_t>(GetParam());
  const std::vector<int16_t> values(size, 9);
  reflection::TErrCode answer = -1;
  EXPECT_EQ("", SendPrinting(kCombined, 3000, values, &answer));
  EXPECT_EQ(0, answer);
  const std::vector<std::string> summaries = Summaries();
  ASSERT_EQ(2u, summaries.size());
  EXPECT_EQ("Error SensorData (Combined record dropped, values expected 4, received: " + std::to_string(size) + ")",
            summaries[1]);
  EXPECT_EQ(3000u, iSensor->LastTimeStamp());
  EXPECT_EQ(0, Stored(0));
  EXPECT_EQ(0, Stored(1));
}

INSTANTIATE_TEST_SUITE_P(SizesOneToThree, ExternalSensorShortRecordTest, ::testing::Values(1, 2, 3));

// Synchronised time

TEST_F(ExternalSensorDataTest, SamplesCarryTheirTimeStampWhileTheTimeBaseIsUnmeasured) {
  ASSERT_EQ(0, iSensor->SyncTimeBase()->GetSyncTime());
  Send(4100);
  EXPECT_EQ(4100u, Last(1).timeStamp);
  EXPECT_EQ(4100u, Last(2).timeStamp);
}

TEST_F(ExternalSensorDataTest, AfterAClockSyncMeasurementSamplesCarryTheTimeStampPlusTheOffset) {
  iClockSync.SendTimeStampReport(4000);
  Send(4100);
  EXPECT_EQ(10100u, Last(1).timeStamp);
  EXPECT_EQ(10100u, Last(2).timeStamp);
  const std::vector<ReceivedSample> expected = {{1, 10100, {1, 2}}, {2, 10100, {3, 4}}};
  EXPECT_EQ(expected, iClient.Samples());
  // Supervision works on the service's own time stamps.
  EXPECT_EQ(4100u, iSensor->LastTimeStamp());
}

TEST_F(ExternalSensorDataTest, TheOffsetIsAddedIn64Bits) {
  host::CSimulatedOsal::Instance().SetNow(3 * k2To32);
  iSensor->SyncTimeBase()->KickSyncTime();
  iClockSync.SendTimeStampReport(1000);
  Send(k2To32 + 2000);
  EXPECT_EQ(4 * k2To32 + 1000, Last(1).timeStamp);
}

TEST_F(ExternalSensorDataTest, WithoutATimeBaseSamplesUseAnOffsetOfZero) {
  iClockSync.SendTimeStampReport(4000);
  iClockSync.Detach(iBroker);
  ASSERT_EQ(nullptr, iSensor->SyncTimeBase());
  ClearRecords();
  EXPECT_EQ("", Send(4100));
  EXPECT_EQ(4100u, Last(1).timeStamp);
  EXPECT_EQ(4100u, Last(2).timeStamp);
  EXPECT_EQ((std::vector<std::string>{"Info SensorData (, 32768, 1, 2, 3, 4, 4100, )", PutData(0), PutData(1)}),
            Summaries());
}

TEST_F(ExternalSensorDataTest, TimeStampReportLogsTheValueAndSetsTheMeasuredTime) {
  EXPECT_EQ(0, iClockSync.SendTimeStampReport(4000));
  EXPECT_EQ((std::vector<std::string>{
                "Info TimeStampReport (TimeStampReport: 4000)",
                "Interface virtual TAny CSyncTime::SetMeasuredTime(txdr_uint32) (iCurrentTime=10000 aTime=4000)",
                "Info2 SetMeasuredTime (iCurrentTime=10000 aTime=4000)",
                "Info2 SetMeasuredTime (iSyncedTime=6000)",
            }),
            Summaries());
  const host::LoggedRecord report = ModuleRecords().at(0);
  ASSERT_EQ(4u, report.pieces.size());
  EXPECT_EQ(PieceKind::U32, report.pieces[2].kind);
  EXPECT_EQ("Positioning/src/ExternalSensor.cpp", report.file);
  EXPECT_EQ(6000, iSensor->SyncTimeBase()->GetSyncTime());
  ASSERT_EQ(1u, iEventBroker.Timers().size());
  EXPECT_EQ(30000u, iEventBroker.Timers()[0].period);
}

TEST_F(ExternalSensorDataTest, TimeStampReportLogsValuesAboveTheSigned32BitRangeUnsigned) {
  iClockSync.SendTimeStampReport(4000000000u);
  EXPECT_EQ("Info TimeStampReport (TimeStampReport: 4000000000)", Summary(ModuleRecords().at(0)));
}

TEST_F(ExternalSensorDataTest, TimeStampReportWithoutATimeBaseIsLoggedAndDropped) {
  iClockSync.Detach(iBroker);
  ASSERT_EQ(nullptr, iSensor->SyncTimeBase());
  const size_t eventCalls = iEventBroker.Calls().size();
  ClearRecords();
  EXPECT_EQ(0, iSensor->TimeStampReport(iClockSync, 4000));
  EXPECT_EQ((std::vector<std::string>{"Info TimeStampReport (TimeStampReport: 4000)"}), Summaries());
  EXPECT_EQ(eventCalls, iEventBroker.Calls().size());
  EXPECT_EQ(nullptr, iSensor->SyncTimeBase());
}

}  // namespace
