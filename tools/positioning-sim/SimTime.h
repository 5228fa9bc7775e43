// Simulated time: the head unit's local millisecond tick, and where a run starts on it.
// The start is the run's own: a recording whose service clock reads hours makes the
// head unit start later on its tick, as a unit that has been up longer would.
#ifndef SIM_SIM_TIME_H
#define SIM_SIM_TIME_H

#include <stdint.h>

#include <cmath>

namespace sim {

// A local tick in milliseconds (the value OSALTickCount answers).
using SimTime = uint64_t;

// Local tick at which the feature is created unless the drive's clock asks for a later
// one: the unit has been up for a while.
const SimTime kDefaultLocalStart = 100000;
// The first record is sent this long after the feature is created.
const SimTime kFirstRecordDelay = 100;
// After the last event, the run goes on this long before the feature is deleted.
const SimTime kTearDownDelay = 1000;

namespace detail {
inline SimTime& LocalStartStorage() {
  static SimTime start = kDefaultLocalStart;
  return start;
}
}  // namespace detail

// Local tick at which the feature is created: set once, before the run is laid out.
inline SimTime LocalStart() { return detail::LocalStartStorage(); }
inline void SetLocalStart(SimTime aStart) { detail::LocalStartStorage() = aStart; }

// The instant aSeconds after the feature was created.
inline SimTime AtSeconds(double aSeconds) {
  return LocalStart() + static_cast<SimTime>(std::llround(aSeconds * 1000.0));
}
// Seconds since the feature was created (negative before).
inline double SecondsAt(SimTime aTime) {
  return static_cast<double>(static_cast<int64_t>(aTime - LocalStart())) / 1000.0;
}

}  // namespace sim

#endif  // SIM_SIM_TIME_H
