// The built-in drive: a deterministic urban drive generated record by record.
#ifndef SIM_DRIVE_GENERATOR_H
#define SIM_DRIVE_GENERATOR_H

#include <stdint.h>

#include <vector>

#include "DriveSource.h"

namespace sim {

// splitmix64: the same numbers on every platform, unlike the standard distributions.
class CRandom {
 public:
  explicit CRandom(uint64_t aSeed) : iState(aSeed) {}
  uint64_t Next();
  // Uniform in [aLow, aHigh).
  double Uniform(double aLow, double aHigh);

 private:
  uint64_t iState;
};

// One stretch of a built-in drive: constant target speed and turn rate for a while.
struct DrivePhase {
  double seconds;
  double speed;     // m/s at the end of the phase; negative when reversing
  double turnRate;  // degrees per second
};

// The built-in drive's plan: the urban pattern of phases, varied by the seed, made a
// round at a time as the drive reaches it and ending once the drive's length is
// planned.
class CDrivePlan {
 public:
  // aFirst is the phase the drive starts in; it counts toward the planned length.
  CDrivePlan(uint64_t aSeed, double aSeconds, const DrivePhase& aFirst);
  // The phase after the last one handed out; false once the drive is planned to its end.
  bool Next(DrivePhase& aPhase);

 private:
  void PlanRound();

  double iSeconds;
  CRandom iRandom;
  std::vector<DrivePhase> iPlanned;  // the current round, not yet driven, last first
  double iPlannedSeconds;            // of the whole plan so far
  int iRound = 0;
};

// Where the car is in its plan and how it moves now.
struct DriveMotion {
  DrivePhase phase;
  double phaseLeft = 0;        // seconds
  double phaseStartSpeed = 0;  // m/s
  double speed = 0;            // m/s, negative when reversing
  double pulseRemainder = 0;   // pulses not yet whole
  int64_t direction = 0;       // the wire's direction code
};

// Straight stretches, turns, stops at traffic lights and a reversing manoeuvre, one
// record per 200 ms of the service's clock from aFirstPeerTime (its stamps wrap at
// 2^32 ms as the service's do). A shorter drive is the
// start of a longer one with the same seed. The plan is made a round at a time, as
// the drive reaches it.
class CDriveGenerator : public IDriveSource {
 public:
  CDriveGenerator(SourceKind aKind, uint64_t aSeed, double aSeconds, int64_t aFirstPeerTime);

  bool Next(DriveRecord& aRecord) override;
  const std::string& Error() const override { return iError; }
  uint64_t Count() const override { return iCount; }
  int64_t FirstPeerTime() const override { return iFirstPeerTime; }
  int64_t LastPeerTime() const override;
  std::string Describe() const override;
  // The true motion over the last record, before the sensors' noise and rounding
  // (m/s, negative when reversing; degrees per second, right turns positive).
  double TrueSpeed() const { return iMotion.speed; }
  double TrueTurnRate() const;

 private:
  SourceKind iKind;
  uint64_t iSeed;
  double iSeconds;
  int64_t iFirstPeerTime;
  uint64_t iCount;
  std::string iError;
  CRandom iNoise;
  CDrivePlan iPlan;
  DriveMotion iMotion;
  uint64_t iIndex = 0;
};

}  // namespace sim

#endif  // SIM_DRIVE_GENERATOR_H
