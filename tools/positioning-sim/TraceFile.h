// Trace files: a recorded drive as CSV (header row, one record per row, '#' comments;
// a clock line and stamp-shift lines say what shaped a recording, see TraceClock.h).
// The reader checks the whole file first, then streams it (as often as asked); the
// writer streams the records the service sent, so that what was written is a valid
// trace at any moment.
#ifndef SIM_TRACE_FILE_H
#define SIM_TRACE_FILE_H

#include <stdio.h>

#include <istream>
#include <memory>
#include <string>
#include <vector>

#include "ClockModel.h"
#include "DriveSource.h"
#include "RunObserver.h"
#include "TraceClock.h"

namespace sim {

// What the check found in the whole trace.
struct TraceContents {
  uint64_t count = 0;
  int64_t firstPeerTime = 0;
  int64_t lastPeerTime = 0;  // the latest
  uint64_t wraps = 0;        // times the service's 32-bit clock wrapped
  bool hasClock = false;
  ClockLine clock;
  std::vector<std::string> warnings;  // stamps that go back or repeat, with their lines
};

class CTraceReader : public IDriveSource {
 public:
  // aStampShift (0 to 2^32-1 ms) is added to every stamp, and to the recorded clock.
  explicit CTraceReader(uint64_t aStampShift = 0) : iStampShift(aStampShift) {}
  ~CTraceReader() override;
  // Reads the file ("-": standard input) once, checking every row. On failure answers
  // false with "FILE:LINE: what is wrong" in aError; nothing has been read then.
  bool Open(const std::string& aPath, std::string& aError);
  // The same from a stream; aName stands for it in messages.
  bool Open(const std::string& aName, std::unique_ptr<std::istream> aStream, std::string& aError);
  // Streams again from the first record.
  bool Rewind();
  SourceKind Kind() const { return iKind; }
  const TraceContents& Contents() const { return iContents; }

  bool Next(DriveRecord& aRecord) override;
  const std::string& Error() const override { return iError; }
  uint64_t Count() const override { return iContents.count; }
  int64_t FirstPeerTime() const override { return iContents.firstPeerTime; }
  int64_t LastPeerTime() const override { return iContents.lastPeerTime; }
  std::string Describe() const override;

 private:
  // Where the reading stands; reset for every pass.
  struct Position {
    int line = 0;
    bool headerSeen = false;
    int64_t recordedShift = 0;  // of the stamps against the service's clock
    CStampFollower follower;
    bool checking = false;  // the first pass, which gathers the contents
    bool haveStamp = false;
    uint64_t lastStamp = 0;
  };
  bool Check();
  bool ReadRow(DriveRecord& aRecord);
  bool ReadComment(const std::string& aLine, const std::string& aWhere);
  bool ReadFields(const std::string& aLine, const std::string& aWhere, DriveRecord& aRecord);
  void NoteStampOrder(const DriveRecord& aRecord);
  void StartPass(bool aChecking);

  uint64_t iStampShift;
  std::string iPath;
  std::unique_ptr<std::istream> iStream;
  SourceKind iKind = SourceKind::Can;
  TraceContents iContents;
  Position iPos;
  std::string iError;
  std::vector<int> iBackLines, iRepeatLines;  // the check's first few of each
  uint64_t iBack = 0, iRepeat = 0;
};

// The recording (--record): every record the service sent, as it is sent, after a
// clock line; a stamp-shift line wherever the sent stamps leave the service's clock.
class CTraceWriter : public IRunObserver {
 public:
  // aFile stays open until Close; the header is written at once.
  CTraceWriter(FILE* aFile, SourceKind aKind, const ClockLine& aClock);
  // Without a clock line: a drive that no simulation shaped (an import); its replay
  // takes the service's clock from the stamps.
  CTraceWriter(FILE* aFile, SourceKind aKind, std::nullptr_t);
  void OnRecordSent(const SentRecord& aRecord) override { Write(aRecord.record); }
  void Write(const DriveRecord& aRecord);
  // Flushes and closes; false when anything could not be written.
  bool Close();

 private:
  FILE* iFile;
  int64_t iShift = 0;
};

}  // namespace sim

#endif  // SIM_TRACE_FILE_H
