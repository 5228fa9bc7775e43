// --start, --end and --loop: a window of a trace by its service clock (seconds from
// its first record), replayed as often as asked. Each loop follows the last on the
// same clocks, one record period after it, so its stamps go on as the service's
// clock would (wrapping at 2^32 ms).
#ifndef SIM_REPLAY_WINDOW_H
#define SIM_REPLAY_WINDOW_H

#include <stdint.h>

#include <string>

#include "TraceFile.h"

namespace sim {

class CReplayWindow : public IDriveSource {
 public:
  // aEnd < 0: to the end of the trace.
  CReplayWindow(CTraceReader& aTrace, double aStart, double aEnd, uint32_t aLoops);
  // Finds the window with one pass over the trace; false with the reason when it
  // holds no record.
  bool Open(std::string& aError);

  bool Next(DriveRecord& aRecord) override;
  const std::string& Error() const override { return iTrace.Error(); }
  uint64_t Count() const override { return iCount * iLoops; }
  int64_t FirstPeerTime() const override { return iFirst; }
  int64_t LastPeerTime() const override { return iLast + static_cast<int64_t>(iLoops - 1) * iSpan; }
  std::string Describe() const override;

 private:
  bool Inside(int64_t aPeerTime) const { return aPeerTime >= iFrom && (iTo < 0 || aPeerTime <= iTo); }

  CTraceReader& iTrace;
  double iStart;
  double iEnd;
  uint32_t iLoops;
  int64_t iFrom = 0;
  int64_t iTo = -1;
  uint64_t iCount = 0;  // records in the window
  int64_t iFirst = 0;
  int64_t iLast = 0;
  int64_t iSpan = 0;  // from a loop's first record to the next loop's
  uint32_t iLoop = 0;
};

}  // namespace sim

#endif  // SIM_REPLAY_WINDOW_H
