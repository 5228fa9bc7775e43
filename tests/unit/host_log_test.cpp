// The simulated logging facility: what it keeps of each record, how it renders it,
// and where it sends it.
#include <gtest/gtest.h>

#include <stdio.h>

#include "LogFacility.h"
#include "LogSink.h"
#include "LoggedRecord.h"
#include "SimulatedOsal.h"
#include "TestHost.h"

namespace {

using host::CLogFacility;
using host::LoggedRecord;
using host::PieceKind;

// Writes one record the way a module does.
void WriteRecord(const char* aCategory, uint32_t aNumber, int32_t aValue) {
  const uint32_t module = 81;
  TBool enabled = logging::IControl().IsEnabled(&module, &aNumber);
  logging::internals::CLogHandle handle =
      logging::internals::ILog().Open(aCategory, "logging::Positioning", "Fn", enabled, "src/File.cpp", 12);
  handle << "("
         << "value: ";
  handle.iStream->Append(&aValue);
  handle << ")";
  handle.iStream->AppendLineEnd("\n");
}

class HostLogTest : public testing_host::HostTest {};

TEST_F(HostLogTest, RecordKeepsEverythingTheModuleGave) {
  host::CSimulatedOsal::Instance().SetNow(100080);
  WriteRecord("logging::categories::Info", 4, -7);
  ASSERT_EQ(1u, AllRecords().size());
  const LoggedRecord& record = AllRecords()[0];
  EXPECT_EQ("logging::categories::Info", record.category);
  EXPECT_EQ("logging::Positioning", record.module);
  EXPECT_EQ("Fn", record.function);
  EXPECT_EQ(1, record.enabled);
  EXPECT_EQ("src/File.cpp", record.file);
  EXPECT_EQ(12, record.line);
  EXPECT_EQ(100080u, record.time);
  EXPECT_EQ("\n", record.lineEnd);
  EXPECT_TRUE(record.closed);
  ASSERT_EQ(4u, record.pieces.size());
  EXPECT_EQ(PieceKind::I32, record.pieces[2].kind);
  EXPECT_EQ(-7, record.pieces[2].number);
  EXPECT_EQ("(value: -7)", record.Text());
  EXPECT_EQ("value: -7", record.Message());
  EXPECT_EQ("Info Positioning Fn src/File.cpp:12 (value: -7)", record.Line());
}

TEST_F(HostLogTest, PiecesRenderByTheirKind) {
  EXPECT_EQ("true", (host::LogPiece{PieceKind::Bool, 1, "", nullptr}).Render());
  EXPECT_EQ("false", (host::LogPiece{PieceKind::Bool, 0, "", nullptr}).Render());
  EXPECT_EQ("255", (host::LogPiece{PieceKind::U8, 255, "", nullptr}).Render());
  EXPECT_EQ("4294967291", (host::LogPiece{PieceKind::U32, 4294967291ll, "", nullptr}).Render());
  EXPECT_EQ("0x0", (host::LogPiece{PieceKind::Pointer, 0, "", nullptr}).Render());
  EXPECT_EQ("0x10", (host::LogPiece{PieceKind::Pointer, 0, "", reinterpret_cast<const void*>(16)}).Render());
}

TEST_F(HostLogTest, ControlAnswerIsConfigurable) {
  CLogFacility::Instance().SetEnabledAnswer(0);
  WriteRecord("logging::categories::Info", 4, 1);
  EXPECT_EQ(0, AllRecords()[0].enabled);
}

TEST_F(HostLogTest, NonZeroHandleFlagsLeaveTheRecordOpen) {
  CLogFacility::Instance().SetHandleFlags(1);
  WriteRecord("logging::categories::Info", 4, 1);
  EXPECT_TRUE(AllRecords().empty());
  EXPECT_EQ(1u, CLogFacility::Instance().OpenRecordCount());
}

TEST_F(HostLogTest, TextSinkWritesSelectedCategoriesAsLines) {
  char* text = nullptr;
  size_t size = 0;
  FILE* memory = open_memstream(&text, &size);
  host::CTextLogSink sink(memory, logging::categories::Error);
  CLogFacility::Instance().AddSink(&sink);
  host::CSimulatedOsal::Instance().SetNow(100200);
  WriteRecord("logging::categories::Info", 4, 1);
  WriteRecord("logging::categories::Error", 1, 2);
  host::CSimulatedOsal::Instance().SetNow(100400);
  WriteRecord("logging::categories::Error", 1, 3);
  CLogFacility::Instance().RemoveSink(&sink);
  fclose(memory);
  // Each line leads with the simulated time the record was written at.
  EXPECT_EQ(
      "100200 Error Positioning Fn src/File.cpp:12 (value: 2)\n"
      "100400 Error Positioning Fn src/File.cpp:12 (value: 3)\n",
      std::string(text, size));
  free(text);
}

TEST_F(HostLogTest, DiscardKeepsNothingButStillAnswersEveryCall) {
  CLogFacility::Instance().SetDiscard(true);
  WriteRecord("logging::categories::Info", 4, 1);
  EXPECT_TRUE(AllRecords().empty());
  EXPECT_EQ(0u, CLogFacility::Instance().OpenRecordCount());
}

TEST_F(HostLogTest, CallTraceListsEveryCallInOrder) {
  CLogFacility::Instance().SetTraceCalls(true);
  WriteRecord("logging::categories::Info2", 8, 3);
  EXPECT_EQ(
      (std::vector<std::string>{
          "IsEnabled(81,8)", "Open(logging::categories::Info2,logging::Positioning,Fn,1,src/File.cpp,12)",
          "Append(text:()", "Append(text:value: )", "Append(i32:3)", "Append(text:))", "AppendLineEnd(\n)", "Close()"}),
      CLogFacility::Instance().Calls());
}

TEST_F(HostLogTest, CategoryNumbersFollowTheirNames) {
  EXPECT_EQ(1u, host::CategoryNumber("logging::categories::Error"));
  EXPECT_EQ(4u, host::CategoryNumber("logging::categories::Info"));
  EXPECT_EQ(8u, host::CategoryNumber("logging::categories::Info2"));
  EXPECT_EQ(16u, host::CategoryNumber("logging::categories::Interface"));
  EXPECT_EQ(0u, host::CategoryNumber("logging::categories::Other"));
}

// A sink that counts what reaches it and writes the categories it was given.
class CCountingSink : public host::ILogSink {
 public:
  explicit CCountingSink(uint32_t aCategories) : iCategories(aCategories) {}
  void OnRecord(const LoggedRecord&) override { ++iRecords; }
  uint32_t Categories() const override { return iCategories; }
  int iRecords = 0;

 private:
  uint32_t iCategories;
};

TEST_F(HostLogTest, ARecordInNoSinksCategoriesIsNotBuiltWhenRecordsAreNotKept) {
  CLogFacility& facility = CLogFacility::Instance();
  CCountingSink errors(contract::kLogMaskError);
  facility.SetKeepRecords(false);
  facility.AddSink(&errors);
  const uint64_t before = facility.RecordCount();
  WriteRecord("logging::categories::Info", 4, 1);
  WriteRecord("logging::categories::Error", 1, 2);
  EXPECT_EQ(before + 1, facility.RecordCount());
  EXPECT_EQ(1, errors.iRecords);
  EXPECT_EQ(0u, facility.OpenRecordCount());
  facility.RemoveSink(&errors);
}

TEST_F(HostLogTest, ARecordInAnySinksCategoriesReachesEverySink) {
  CLogFacility& facility = CLogFacility::Instance();
  CCountingSink errors(contract::kLogMaskError);
  CCountingSink all(contract::kLogMaskAll);
  facility.SetKeepRecords(false);
  facility.AddSink(&errors);
  facility.AddSink(&all);
  WriteRecord("logging::categories::Info2", 8, 1);
  EXPECT_EQ(1, all.iRecords);
  EXPECT_EQ(1, errors.iRecords);  // the sink itself filters what it writes
  facility.RemoveSink(&all);
  WriteRecord("logging::categories::Info2", 8, 1);
  EXPECT_EQ(1, errors.iRecords);
  facility.RemoveSink(&errors);
}

TEST_F(HostLogTest, KeptRecordsAreBuiltWhateverTheSinksWrite) {
  CLogFacility& facility = CLogFacility::Instance();
  CCountingSink errors(contract::kLogMaskError);
  facility.AddSink(&errors);
  WriteRecord("logging::categories::Interface", 2, 1);
  EXPECT_EQ(1u, AllRecords().size());
  facility.RemoveSink(&errors);
}

}  // namespace
