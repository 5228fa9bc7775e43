#include "LogFacility.h"

#include <string.h>

#include <algorithm>

#include "LogSink.h"
#include "LoggedRecord.h"
#include "SimulatedOsal.h"

namespace host {

namespace {

// The number of a category's text ("logging::categories::Info"), 0 for any other text.
// Compared in place, and the first letters pick the one name to compare: the module
// opens several records per sample, most of which no sink wants.
uint32_t CategoryNumber(const char* aCategory) {
  static const char kPrefix[] = "logging::categories::";
  if (strncmp(aCategory, kPrefix, sizeof kPrefix - 1) != 0) return 0;
  const char* name = aCategory + sizeof kPrefix - 1;
  if (name[0] == 'E') return strcmp(name, "Error") == 0 ? logging::categories::Error : 0;
  if (name[0] != 'I' || name[1] != 'n') return 0;
  if (name[2] == 't') return strcmp(name, "Interface") == 0 ? logging::categories::Interface : 0;
  if (strncmp(name, "Info", 4) != 0) return 0;
  if (name[4] == '\0') return logging::categories::Info;
  return strcmp(name + 4, "2") == 0 ? logging::categories::Info2 : 0;
}

// Discards everything; used when the facility is told to discard.
class CNullStream : public logging::internals::ILogStream {
 public:
  void Reserved3() override {}
  void Close() override {}
  void Append(const bool*) override {}
  void Append(const uint8_t*) override {}
  void Append(const int16_t*) override {}
  void Append(const uint16_t*) override {}
  void Append(const int32_t*) override {}
  void Append(const uint32_t*) override {}
  void Append(const int64_t*) override {}
  void Reserved12() override {}
  void Reserved13() override {}
  void Reserved14() override {}
  void AppendLineEnd(const char*) override {}
  void Append(const char*) override {}
  void Append(const void*) override {}
};

}  // namespace

// The stream of one open record.
class CLogFacility::CStream : public logging::internals::ILogStream {
 public:
  explicit CStream(CLogFacility& aFacility) : iFacility(aFacility) {}

  void Reserved3() override {}
  void Close() override {
    iFacility.Trace("Close()");
    iFacility.Commit(*this);
  }
  void Append(const bool* aValue) override { Add(PieceKind::Bool, *aValue ? 1 : 0); }
  void Append(const uint8_t* aValue) override { Add(PieceKind::U8, *aValue); }
  void Append(const int16_t* aValue) override { Add(PieceKind::I16, *aValue); }
  void Append(const uint16_t* aValue) override { Add(PieceKind::U16, *aValue); }
  void Append(const int32_t* aValue) override { Add(PieceKind::I32, *aValue); }
  void Append(const uint32_t* aValue) override { Add(PieceKind::U32, *aValue); }
  void Append(const int64_t* aValue) override { Add(PieceKind::I64, *aValue); }
  void Reserved12() override {}
  void Reserved13() override {}
  void Reserved14() override {}
  void AppendLineEnd(const char* aLineEnd) override {
    iFacility.Trace(std::string("AppendLineEnd(") + (aLineEnd != nullptr ? aLineEnd : "") + ")");
    iRecord.lineEnd = aLineEnd != nullptr ? aLineEnd : "";
  }
  void Append(const char* aText) override {
    LogPiece piece{PieceKind::Text, 0, aText != nullptr ? aText : "", nullptr};
    iFacility.Trace("Append(text:" + piece.text + ")");
    iRecord.pieces.push_back(piece);
  }
  void Append(const void* aPointer) override {
    LogPiece piece{PieceKind::Pointer, 0, std::string(), aPointer};
    iFacility.Trace("Append(ptr:" + piece.Render() + ")");
    iRecord.pieces.push_back(piece);
  }

  LoggedRecord iRecord;
  bool iOpen = false;

 private:
  void Add(PieceKind aKind, int64_t aNumber) {
    LogPiece piece{aKind, aNumber, std::string(), nullptr};
    iFacility.Trace(std::string("Append(") + KindName(aKind) + ":" + piece.Render() + ")");
    iRecord.pieces.push_back(piece);
  }

  CLogFacility& iFacility;
};

CLogFacility& CLogFacility::Instance() {
  static CLogFacility facility;
  return facility;
}

CLogFacility::CLogFacility() : iNullStream(new CNullStream) {}

void CLogFacility::Reset() {
  iEnabledAnswer = 1;
  iHandleFlags = 0;
  iKeepRecords = true;
  iDiscard = false;
  iTraceCalls = false;
  iRecordCount = 0;
  iRecords.clear();
  iCalls.clear();
  iSinks.clear();
  iSinkCategories = 0;
  for (const auto& stream : iStreams) stream->iOpen = false;
}

void CLogFacility::AddSink(ILogSink* aSink) {
  iSinks.push_back(aSink);
  iSinkCategories |= aSink->Categories();
}

void CLogFacility::RemoveSink(ILogSink* aSink) {
  iSinks.erase(std::remove(iSinks.begin(), iSinks.end(), aSink), iSinks.end());
  iSinkCategories = 0;
  for (const ILogSink* sink : iSinks) iSinkCategories |= sink->Categories();
}

bool CLogFacility::Wanted(const char* aCategory) const {
  if (iKeepRecords || iTraceCalls) return true;
  const uint32_t number = aCategory != nullptr ? CategoryNumber(aCategory) : 0;
  return number == 0 || (number & iSinkCategories) != 0;
}

std::vector<LoggedRecord> CLogFacility::RecordsContaining(const std::string& aText) const {
  std::vector<LoggedRecord> found;
  for (const LoggedRecord& record : iRecords) {
    if (record.Message().find(aText) != std::string::npos) found.push_back(record);
  }
  return found;
}

std::vector<LoggedRecord> CLogFacility::RecordsOf(const std::string& aModule) const {
  std::vector<LoggedRecord> found;
  for (const LoggedRecord& record : iRecords) {
    if (record.module == aModule) found.push_back(record);
  }
  return found;
}

size_t CLogFacility::OpenRecordCount() const {
  size_t open = 0;
  for (const auto& stream : iStreams) open += stream->iOpen ? 1 : 0;
  return open;
}

void CLogFacility::Trace(const std::string& aCall) {
  if (iTraceCalls) iCalls.push_back(aCall);
}

TBool CLogFacility::TraceIsEnabled(const uint32_t* aModule, const uint32_t* aCategory) {
  Trace("IsEnabled(" + std::to_string(aModule != nullptr ? *aModule : 0) + "," +
        std::to_string(aCategory != nullptr ? *aCategory : 0) + ")");
  return iEnabledAnswer;
}

logging::internals::CLogHandle CLogFacility::OpenRecord(const char* aCategory, const char* aModule,
                                                        const char* aFunction, TBool aEnabled, const char* aFile,
                                                        int aLine) {
  if (iTraceCalls) {
    Trace(std::string("Open(") + aCategory + "," + aModule + "," + aFunction + "," + std::to_string(aEnabled) + "," +
          aFile + "," + std::to_string(aLine) + ")");
  }
  if (!Wanted(aCategory)) return logging::internals::CLogHandle(iHandleFlags, iNullStream.get());
  CStream* stream = nullptr;
  for (auto& candidate : iStreams) {
    if (!candidate->iOpen) {
      stream = candidate.get();
      break;
    }
  }
  if (stream == nullptr) {
    iStreams.emplace_back(new CStream(*this));
    stream = iStreams.back().get();
  }
  stream->iOpen = true;
  stream->iRecord = LoggedRecord();
  stream->iRecord.category = aCategory;
  stream->iRecord.module = aModule;
  stream->iRecord.function = aFunction;
  stream->iRecord.enabled = aEnabled;
  stream->iRecord.file = aFile;
  stream->iRecord.line = aLine;
  stream->iRecord.time = CSimulatedOsal::Instance().Now();
  return logging::internals::CLogHandle(iHandleFlags, stream);
}

void CLogFacility::Commit(CStream& aStream) {
  if (!aStream.iOpen) return;
  aStream.iOpen = false;
  aStream.iRecord.closed = true;
  ++iRecordCount;
  for (ILogSink* sink : iSinks) sink->OnRecord(aStream.iRecord);
  if (iKeepRecords) iRecords.push_back(std::move(aStream.iRecord));
}

}  // namespace host

namespace logging {
ILogControl& IControl() { return host::CLogFacility::Instance(); }
namespace internals {
ILogger& ILog() { return host::CLogFacility::Instance(); }
}  // namespace internals
}  // namespace logging
