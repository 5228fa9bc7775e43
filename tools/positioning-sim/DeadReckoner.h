// Dead reckoning in the plane from what a positioning client receives: heading from
// the gyroscope's angular rate, position from the odometer's pulses and direction.
// One step per record; the same integrator serves the simulator's reference client,
// the tests and the benchmark, so that they agree to the last bit.
#ifndef SIM_DEAD_RECKONER_H
#define SIM_DEAD_RECKONER_H

#include <stdint.h>

namespace sim {

// A pose in a local plane: x east, y north (metres); heading clockwise from north
// (degrees, so that a right turn, which the gyroscope reports positive, adds to it).
struct Pose {
  double x = 0;
  double y = 0;
  double heading = 0;
};

// The units on the wire.
const double kRateUnitDegPerSecond = 0.01;  // angular rate: 1/100 deg/s, right turns positive
const double kPulsesPerMetre = 4.0;
// Direction codes as delivered (the odometer sample's second value).
const int kDirectionUnknown = 0;
const int kDirectionForward = 1;
const int kDirectionReverse = 2;

class CDeadReckoner {
 public:
  // aNominalStepMs: the step taken for a record without a usable previous time stamp
  // (the first one, or one after a gap or a step back).
  explicit CDeadReckoner(uint32_t aNominalStepMs = 200) : iNominalStepMs(aNominalStepMs) {}
  void Reset(const Pose& aStart);
  // One record: the angular rate held over the time since the previous record (the
  // mean over that span), the distance along the heading at the middle of the turn.
  // An unknown direction keeps the last known one (forward at first).
  void Step(uint64_t aStamp, int32_t aRate, uint32_t aPulses, int aDirection);
  const Pose& Current() const { return iPose; }
  double Distance() const { return iDistance; }  // metres travelled, either way
  uint64_t Steps() const { return iSteps; }

  // Longest span between two records still taken as it stands, ms.
  static const uint64_t kLongestStepMs = 1000;

 private:
  uint32_t iNominalStepMs;
  Pose iPose;
  double iDistance = 0;
  uint64_t iLastStamp = 0;
  uint64_t iSteps = 0;
  bool iReverse = false;
};

// Heading in [0, 360).
double NormalisedHeading(double aDegrees);

}  // namespace sim

#endif  // SIM_DEAD_RECKONER_H
