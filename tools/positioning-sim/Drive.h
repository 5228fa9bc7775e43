// Drives: the records a sensor service sends, generated or read from a trace file.
#ifndef SIM_DRIVE_H
#define SIM_DRIVE_H

#include <stdint.h>

#include <string>
#include <vector>

namespace sim {

enum class SourceKind { Can, External };

// One service-side record. For the CAN source the fields are DistancePuls,
// AngularRate, DrivingDirection, NrOfSamples; for the external source value0 to value3.
struct DriveRecord {
  uint64_t stamp = 0;  // the service's own time stamp, ms
  int64_t field[4] = {0, 0, 0, 0};
  int line = 0;  // line in the trace file it came from, 0 when generated
};

// Milliseconds between two records.
const uint64_t kRecordPeriod = 200;

// A deterministic urban drive: straight stretches, turns, stops and starts and one
// reversing manoeuvre; one record per 200 ms of the service's clock from aFirstStamp.
std::vector<DriveRecord> GenerateDrive(SourceKind aKind, uint64_t aSeed, double aSeconds, uint64_t aFirstStamp);

// Reads a whole trace: header row, then one record per row; '#' lines and blank lines
// are skipped. Every row is checked before anything is returned. On failure answers
// false with "FILE:LINE: what is wrong" in aError.
bool ReadTrace(const std::string& aPath, SourceKind& aKind, std::vector<DriveRecord>& aRecords, std::string& aError);

// Writes records as a trace ReadTrace accepts.
bool WriteTrace(const std::string& aPath, SourceKind aKind, const std::vector<DriveRecord>& aRecords,
                std::string& aError);

// The header row of a kind's trace.
const char* TraceHeader(SourceKind aKind);

}  // namespace sim

#endif  // SIM_DRIVE_H
