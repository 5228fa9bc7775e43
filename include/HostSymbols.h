// Every symbol the daemon must define for the module. The library leaves them
// undefined and names no library that holds them: the dynamic linker takes them from
// the loading process when the module is loaded. So the daemon's executable defines
// them and exports them (CMake ENABLE_EXPORTS, or -rdynamic / -Wl,--export-dynamic);
// otherwise dlopen fails with "undefined symbol: platSleep" or the like. All of them
// are called on the thread that calls into the module, and none may throw.
//
// Exactly these eight; the module takes everything else from the C and C++ runtime.
#ifndef HOST_SYMBOLS_H
#define HOST_SYMBOLS_H

#include <stdint.h>

#include "Logging.h"
#include "OSAL.h"
#include "PlatformDevice.h"

extern "C" {
// Prepares the millisecond tick counter. Called at every feature creation (more than
// once per process); the result is not inspected.
int OSALTickInit(void);
// Milliseconds since an arbitrary start, 64 bits, never going back. The module's
// synchronised time is this tick plus the offset it measures against the sensor
// service's clock.
uint64_t OSALTickCount(void);
// Blocks the calling thread for aDuration in the platform's unit (microseconds). The
// external source holds the main unit's CLK_SYNC pulse with platSleep(50000) at each
// sync kick (every 1000 ms timer event); it must stay short against that period.
void platSleep(int aDuration);
}

namespace logging {
// The logging facility's control object, alive as long as the module is loaded. The
// module fetches it once while it is being loaded (within dlopen) and then
// asks IsEnabled(module, category) before each record; the answer is passed on to
// ILogger::Open unread, so the facility itself decides what to keep.
ILogControl& IControl();
namespace internals {
// The logging facility's log object, fetched once within dlopen as well. Open
// returns a CLogHandle whose stream receives "(", the pieces, ")" and the line end;
// the module closes the stream when the handle's flag word is 0.
ILogger& ILog();
}  // namespace internals
}  // namespace logging

// CPDDevice (PlatformDevice.h) has three members the daemon defines:
//   static CPDDevice& CPDDevice::Instance();
//     the platform device singleton, asked for at every sync kick;
//   IMainUnitIO& CPDDevice::MainUnitIO() const;
//     the main unit's I/O: IsPluggedIn() non-zero while connected, SetPin(7, level)
//     raises and lowers CLK_SYNC (external source);
//   ICanMicroIO& CPDDevice::CanMicroIO() const;
//     the CAN micro-controller's I/O: TriggerClockSync() answers 1 when the kick went
//     out (CAN source).
// The objects they return must live as long as the module is loaded.

#endif  // HOST_SYMBOLS_H
