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
  double TrueSpeed() const { return iSpeed; }
  double TrueTurnRate() const;

 private:
  // One stretch of the drive: constant target speed and turn rate for a while.
  struct Phase {
    double seconds;
    double speed;     // m/s at the end of the phase; negative when reversing
    double turnRate;  // degrees per second
  };
  void PlanRound();
  bool NextPhase();

  SourceKind iKind;
  uint64_t iSeed;
  double iSeconds;
  int64_t iFirstPeerTime;
  uint64_t iCount;
  std::string iError;
  CRandom iPlanRandom;
  CRandom iNoise;
  std::vector<Phase> iPlanned;  // the current round, not yet driven
  double iPlannedSeconds = 0;   // of the whole plan so far
  int iRound = 0;
  Phase iPhase;
  double iPhaseLeft = 0;
  double iPhaseStartSpeed = 0;
  double iSpeed = 0;
  double iPulseRemainder = 0;
  int64_t iDirection;
  uint64_t iIndex = 0;
};

}  // namespace sim

#endif  // SIM_DRIVE_GENERATOR_H
