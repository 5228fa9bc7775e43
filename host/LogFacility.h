// The simulated head unit's logging facility: the control, the logger and the record
// streams behind logging::IControl() and logging::internals::ILog(), and how tests and
// tools steer them.
//
// Every record is kept with its typed pieces (for tests), and can also be handed to
// sinks that write it somewhere (a readable text file, DLT).
#ifndef HOST_LOG_FACILITY_H
#define HOST_LOG_FACILITY_H

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "LogSink.h"
#include "LoggedRecord.h"
#include "Logging.h"

namespace host {

class CLogFacility : public logging::ILogControl, public logging::internals::ILogger {
 public:
  // The facility behind logging::IControl() and logging::internals::ILog().
  static CLogFacility& Instance();

  // Forgets records and calls and restores the defaults (keep records, answer 1).
  void Reset();

  // What IsEnabled answers.
  void SetEnabledAnswer(TBool aAnswer) { iEnabledAnswer = aAnswer; }
  // The flag word Open returns; 0 makes the handle close the stream.
  void SetHandleFlags(uint32_t aFlags) { iHandleFlags = aFlags; }
  // Keep records in memory (default) or not.
  void SetKeepRecords(bool aKeep) { iKeepRecords = aKeep; }
  // Discards everything as cheaply as possible: no record is built, sinks see nothing.
  void SetDiscard(bool aDiscard) { iDiscard = aDiscard; }
  // Keep a readable trace of every call into the facility (for call-order tests).
  void SetTraceCalls(bool aTrace) { iTraceCalls = aTrace; }

  void AddSink(ILogSink* aSink);
  void RemoveSink(ILogSink* aSink);

  const std::vector<LoggedRecord>& Records() const { return iRecords; }
  // Records whose message contains aText.
  std::vector<LoggedRecord> RecordsContaining(const std::string& aText) const;
  // Records written under aModule ("logging::Positioning").
  std::vector<LoggedRecord> RecordsOf(const std::string& aModule) const;
  void ClearRecords() { iRecords.clear(); }
  // Calls traced since SetTraceCalls(true): "IsEnabled(81,4)", "Open(...)", "Append(text:()" ...
  const std::vector<std::string>& Calls() const { return iCalls; }
  uint64_t RecordCount() const { return iRecordCount; }
  // Records currently open (opened, not yet closed).
  size_t OpenRecordCount() const;

  // logging::ILogControl
  void Reserved3() override {}
  void Reserved4() override {}
  void Reserved5() override {}
  void Reserved6() override {}
  void Reserved7() override {}
  void Reserved8() override {}
  void Reserved9() override {}
  void Reserved10() override {}
  // Answers at once unless calls are traced: a no-op logger costs the module no more
  // than a real one that logs nothing.
  TBool IsEnabled(const uint32_t* aModule, const uint32_t* aCategory) override {
    if (iTraceCalls) return TraceIsEnabled(aModule, aCategory);
    return iEnabledAnswer;
  }

  // logging::internals::ILogger
  // Discarding hands out the null stream at once; every later call still reaches it.
  // Recording is marked the unlikely path so that discarding needs no stack frame:
  // recording costs far more than the branch anyway.
  logging::internals::CLogHandle Open(const char* aCategory, const char* aModule, const char* aFunction, TBool aEnabled,
                                      const char* aFile, int aLine) override {
    if (__builtin_expect(!iDiscard, 0)) return OpenRecord(aCategory, aModule, aFunction, aEnabled, aFile, aLine);
    return logging::internals::CLogHandle(iHandleFlags, iNullStream.get());
  }

  class CStream;

 private:
  CLogFacility();
  TBool TraceIsEnabled(const uint32_t* aModule, const uint32_t* aCategory);
  logging::internals::CLogHandle OpenRecord(const char* aCategory, const char* aModule, const char* aFunction,
                                            TBool aEnabled, const char* aFile, int aLine);
  void Commit(CStream& aStream);
  void Trace(const std::string& aCall);
  // Whether a record of aCategory would reach anything: memory, the call trace or a sink.
  bool Wanted(const char* aCategory) const;

  friend class CStream;
  TBool iEnabledAnswer = 1;
  uint32_t iHandleFlags = 0;
  bool iKeepRecords = true;
  bool iDiscard = false;
  bool iTraceCalls = false;
  uint64_t iRecordCount = 0;
  std::vector<LoggedRecord> iRecords;
  std::vector<std::string> iCalls;
  std::vector<ILogSink*> iSinks;
  uint32_t iSinkCategories = 0;                    // the categories any sink writes
  std::vector<std::unique_ptr<CStream>> iStreams;  // reused; one per open record
  std::unique_ptr<logging::internals::ILogStream> iNullStream;
};

}  // namespace host

#endif  // HOST_LOG_FACILITY_H
