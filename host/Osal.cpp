#include "Osal.h"

#include <unistd.h>

namespace host {

COsal& COsal::Instance() {
  static COsal osal;
  return osal;
}

void COsal::Reset() {
  iNow = 0;
  iRealSleep = false;
  iSleepAdvancesClock = false;
  iInitCount = 0;
  iTickCountCalls = 0;
  iSleeps.clear();
}

int COsal::Init() { return ++iInitCount, 0; }

uint64_t COsal::TickCount() {
  ++iTickCountCalls;
  return iNow;
}

void COsal::Sleep(int aDuration) {
  iSleeps.push_back(aDuration);
  if (iRealSleep && aDuration > 0) usleep(static_cast<useconds_t>(aDuration));
  // The platform's unit is the microsecond.
  if (iSleepAdvancesClock && aDuration > 0) iNow += static_cast<uint64_t>(aDuration) / 1000;
}

}  // namespace host

extern "C" {
int OSALTickInit(void) { return host::COsal::Instance().Init(); }
uint64_t OSALTickCount(void) { return host::COsal::Instance().TickCount(); }
void platSleep(int aDuration) { host::COsal::Instance().Sleep(aDuration); }
}
