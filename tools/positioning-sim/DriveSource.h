// What a drive is made of: the records a sensor service sends, one at a time, from a
// source that streams them (so that a drive of any length runs in the same memory).
#ifndef SIM_DRIVE_SOURCE_H
#define SIM_DRIVE_SOURCE_H

#include <stdint.h>

#include <string>

namespace sim {

enum class SourceKind { Can, External };

// One service-side record. For the CAN source the fields are DistancePuls,
// AngularRate, DrivingDirection, NrOfSamples; for the external source value0 to value3.
struct DriveRecord {
  uint64_t stamp = 0;    // the service's own time stamp as on the wire: 32-bit ms
  int64_t peerTime = 0;  // the service's clock then, continuous (no wraps, no faults), ms
  int64_t field[4] = {0, 0, 0, 0};
  int line = 0;  // line in the trace file it came from, 0 when generated
};

// Milliseconds between two records of the built-in drive.
const uint64_t kRecordPeriod = 200;

// The header row of a kind's trace.
const char* TraceHeader(SourceKind aKind);
const char* SourceName(SourceKind aKind);  // "CAN" or "EXTERNAL"

// A drive read front to back. What it holds as a whole (count, first and latest peer
// time) is known before the first record, so that the run can be laid out.
class IDriveSource {
 public:
  virtual ~IDriveSource() {}
  // The next record; false at the end or on a read error (then Error() says why).
  virtual bool Next(DriveRecord& aRecord) = 0;
  virtual const std::string& Error() const = 0;
  virtual uint64_t Count() const = 0;
  virtual int64_t FirstPeerTime() const = 0;
  virtual int64_t LastPeerTime() const = 0;  // the latest of all
  // For the summary, e.g. "built-in drive, seed 1, 300.0 s".
  virtual std::string Describe() const = 0;
};

}  // namespace sim

#endif  // SIM_DRIVE_SOURCE_H
