// The OS abstraction's millisecond tick and sleep, provided by the daemon.
#ifndef OSAL_H
#define OSAL_H

#include <stdint.h>

extern "C" {
// Prepares the tick counter; may be called more than once.
int OSALTickInit(void);
// Milliseconds since an arbitrary start.
uint64_t OSALTickCount(void);
// Blocks the calling thread; the unit of the argument is the platform's (microseconds).
void platSleep(int aDuration);
}

#endif  // OSAL_H
