#include "SimulatedOsal.h"

#include "OSAL.h"

#include <unistd.h>

namespace host {

CSimulatedOsal& CSimulatedOsal::Instance() {
  static CSimulatedOsal osal;
  return osal;
}

void CSimulatedOsal::Reset() {
  iNow = 0;
  iRealSleep = false;
  iSleepAdvancesClock = false;
  iInitCount = 0;
  iTickCountCalls = 0;
  iSleeps.clear();
}

int CSimulatedOsal::Init() { return ++iInitCount, 0; }

uint64_t CSimulatedOsal::TickCount() {
  ++iTickCountCalls;
  return iNow;
}

void CSimulatedOsal::Sleep(int aDuration) {
  iSleeps.push_back(aDuration);
  if (iRealSleep && aDuration > 0) usleep(static_cast<useconds_t>(aDuration));
  // The platform's unit is the microsecond.
  if (iSleepAdvancesClock && aDuration > 0) iNow += static_cast<uint64_t>(aDuration) / 1000;
}

}  // namespace host

extern "C" {
int OSALTickInit(void) { return host::CSimulatedOsal::Instance().Init(); }
uint64_t OSALTickCount(void) { return host::CSimulatedOsal::Instance().TickCount(); }
void platSleep(int aDuration) { host::CSimulatedOsal::Instance().Sleep(aDuration); }
}
