// The host's side of the OS abstraction declared in OSAL.h: a settable millisecond tick
// (the simulated clock) and a platSleep that is recorded rather than slept, unless told
// otherwise.
#ifndef HOST_SIMULATED_OSAL_H
#define HOST_SIMULATED_OSAL_H

#include <stdint.h>

#include <vector>

namespace host {

class CSimulatedOsal {
 public:
  static CSimulatedOsal& Instance();

  // Back to tick 0, no calls recorded, sleeps not slept.
  void Reset();

  // The simulated clock that OSALTickCount answers, in milliseconds.
  uint64_t Now() const { return iNow; }
  void SetNow(uint64_t aNow) { iNow = aNow; }
  void Advance(uint64_t aMilliseconds) { iNow += aMilliseconds; }

  // Whether platSleep really blocks (real-time runs) or only records.
  void SetRealSleep(bool aReal) { iRealSleep = aReal; }
  // Whether platSleep also moves the simulated clock by the time slept (off by default).
  void SetSleepAdvancesClock(bool aAdvance) { iSleepAdvancesClock = aAdvance; }

  int InitCount() const { return iInitCount; }
  uint64_t TickCountCalls() const { return iTickCountCalls; }
  const std::vector<int>& Sleeps() const { return iSleeps; }

  // Called by the C entry points.
  int Init();
  uint64_t TickCount();
  void Sleep(int aDuration);

 private:
  CSimulatedOsal() {}
  uint64_t iNow = 0;
  bool iRealSleep = false;
  bool iSleepAdvancesClock = false;
  int iInitCount = 0;
  uint64_t iTickCountCalls = 0;
  std::vector<int> iSleeps;
};

}  // namespace host

#endif  // HOST_SIMULATED_OSAL_H
