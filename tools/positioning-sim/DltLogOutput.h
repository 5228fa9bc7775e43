// The module's log records as DLT messages: into a .dlt file of the run's own (no
// daemon, no libdlt needed; ECU id SIMU) or through libdlt to a running DLT daemon.
//
// Application PSIM; context POSI for the module's own records, FFW for the framework
// adapters', SIM for the simulator's notes about the time base. One message per record,
// its verbose arguments typed as the module appended them; the message's time stamp is
// the record's simulated time in 0.1 ms units. That stamp is 32 bits and wraps every
// 429496.7296 s (about 4.97 days); each wrap is marked by a SIM message.
#ifndef SIM_DLT_LOG_OUTPUT_H
#define SIM_DLT_LOG_OUTPUT_H

#include <stdint.h>
#include <stdio.h>

#include <memory>
#include <string>

#include "LogOutput.h"

namespace sim {

// The --log value that names a DLT file: "dlt:FILE".
extern const char kDltFilePrefix[];
// The file of a "dlt:FILE" log target, empty for any other target.
std::string DltFileOf(const std::string& aLogTarget);

// DLT messages into aFile, opened by the caller (so truncated: a rerun leaves no stale
// tail) from aPath; the output closes it.
std::unique_ptr<ILogOutput> DltFileLog(FILE* aFile, const std::string& aPath, uint32_t aMask, std::string& aError);
// DLT messages to the daemon whose pipe is in $DLT_PIPE_DIR (default /tmp). Null with
// the reason when no daemon is reachable or this build has no DLT. Every record is
// handed over: when the daemon falls behind, the run waits for it.
std::unique_ptr<ILogOutput> DltDaemonLog(uint32_t aMask, std::string& aError);

// The DLT time stamp of a simulated time in milliseconds (0.1 ms units, modulo 2^32),
// and how often it has wrapped.
uint32_t DltStamp(uint64_t aMilliseconds);
uint32_t DltStampWraps(uint64_t aMilliseconds);

}  // namespace sim

#endif  // SIM_DLT_LOG_OUTPUT_H
