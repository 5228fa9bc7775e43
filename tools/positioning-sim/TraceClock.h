// The service's clock as a drive shows it. The services count milliseconds in 32 bits
// and wrap after 49.7 days; a drive's stamps are read as that wrapping count and
// followed as one continuous peer time, which the clock model maps onto the local tick.
// A recording names the clock it was made on in a line of its own, so that it replays
// on that clock:
//   # clock: local-start-ms=100000 local-anchor-ms=100100 peer-anchor-ms=97600 drift-ppm=40 sync-latency-ms=20
#ifndef SIM_TRACE_CLOCK_H
#define SIM_TRACE_CLOCK_H

#include <stdint.h>

#include <string>

namespace sim {

// Values a service's 32-bit stamp can take.
const uint64_t kStampRange = 1ULL << 32;
const uint64_t kLargestStamp = kStampRange - 1;

// A continuous peer time as the service puts it on the wire.
inline uint64_t WireStamp(int64_t aPeerTime) { return static_cast<uint64_t>(aPeerTime) & kLargestStamp; }
// aStamp minus aEarlier on the 32-bit count: positive forward (across a wrap too),
// negative when the stamp went back.
int64_t StampStep(uint64_t aEarlier, uint64_t aStamp);
// The continuous time that aStamp stands for nearest to aReference.
int64_t NearestPeerTime(uint64_t aStamp, int64_t aReference);

// Follows a stream of 32-bit stamps as one continuous peer time.
class CStampFollower {
 public:
  // The continuous time of the next stamp: the first is the stamp itself, or the time
  // it stands for nearest to the reference when one is set.
  int64_t Follow(uint64_t aStamp);
  void SetReference(int64_t aReference) {
    iReference = aReference;
    iHasReference = true;
  }
  uint64_t Wraps() const { return iWraps; }

 private:
  bool iStarted = false;
  uint64_t iLast = 0;
  int64_t iTime = 0;
  int64_t iReference = 0;
  bool iHasReference = false;
  uint64_t iWraps = 0;
};

// What a recording says of the clocks it was made on.
struct ClockLine {
  uint64_t localStart = 0;   // local tick when the feature was created
  uint64_t localAnchor = 0;  // a local instant ...
  int64_t peerAnchor = 0;    // ... and the continuous peer time then
  double driftPpm = 0;
  uint32_t syncLatency = 0;  // ms between a kick and the peer's answer
};

std::string FormatClockLine(const ClockLine& aClock);
// Whether aComment (a '#' line) is a clock line; false without a word when it is not
// one, false with the reason in aError when it is one but broken.
bool ParseClockLine(const std::string& aComment, ClockLine& aClock, bool& aIsClockLine, std::string& aError);

// The stamps from a shift line on differ from the service's clock by the shift (a
// recorded time jump): "# stamp-shift-ms: -500".
std::string FormatShiftLine(int64_t aShift);
bool ParseShiftLine(const std::string& aComment, int64_t& aShift, bool& aIsShiftLine, std::string& aError);

}  // namespace sim

#endif  // SIM_TRACE_CLOCK_H
