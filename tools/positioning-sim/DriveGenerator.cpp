#include "DriveGenerator.h"

#include <stdio.h>

#include <cmath>

#include "DeadReckoner.h"
#include "TraceClock.h"

namespace sim {

namespace {

const int64_t kForward = 0x21;
const int64_t kReverse = 0x25;
const int kRawSamplesPerRecord = 10;
// Angular rate unit: 1/100 degree per second.
const double kRateScale = 100.0;
// Below this speed the car stands and does not turn, m/s.
const double kStanding = 0.05;

}  // namespace

uint64_t CRandom::Next() {
  uint64_t z = (iState += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

double CRandom::Uniform(double aLow, double aHigh) {
  return aLow + (aHigh - aLow) * (static_cast<double>(Next() >> 11) * (1.0 / 9007199254740992.0));
}

namespace {

// Parked with the engine running.
const DrivePhase kFirstPhase{5, 0, 0};

}  // namespace

CDrivePlan::CDrivePlan(uint64_t aSeed, double aSeconds, const DrivePhase& aFirst)
    : iSeconds(aSeconds), iRandom(aSeed), iPlannedSeconds(aFirst.seconds) {}

// The urban pattern, varied by the seed: pull out, straights, turns, a traffic light, a
// reversing manoeuvre into a parking space, and on again. Each draw is its own
// statement, so that every compiler draws in the same order.
void CDrivePlan::PlanRound() {
  CRandom& random = iRandom;
  auto add = [this](double aDuration, double aSpeed, double aTurn) {
    iPlanned.push_back({aDuration, aSpeed, aTurn});
    iPlannedSeconds += aDuration;
  };
  const double cruise = random.Uniform(8, 14);
  add(random.Uniform(6, 10), cruise, 0);   // accelerate
  add(random.Uniform(15, 35), cruise, 0);  // straight
  double turn = random.Uniform(12, 20);
  add(random.Uniform(5, 8), 5, turn);      // right turn
  add(random.Uniform(10, 25), cruise, 0);  // straight
  turn = -random.Uniform(12, 20);
  add(random.Uniform(5, 8), 5, turn);  // left turn
  add(random.Uniform(5, 8), 0, 0);     // brake to a stop
  add(random.Uniform(8, 20), 0, 0);    // traffic light
  if (iRound % 2 == 0) {
    add(3, -2, 0);  // reverse
    turn = random.Uniform(10, 18);
    add(random.Uniform(3, 5), -2, turn);  // reverse, steering
    add(2, 0, 0);                         // stop
  }
  ++iRound;
}

bool CDrivePlan::Next(DrivePhase& aPhase) {
  if (iPlanned.empty()) {
    if (iPlannedSeconds >= iSeconds) return false;  // the drive is planned to its end
    PlanRound();
    // Driven from the back: the round is kept reversed.
    std::vector<DrivePhase> reversed(iPlanned.rbegin(), iPlanned.rend());
    iPlanned.swap(reversed);
  }
  aPhase = iPlanned.back();
  iPlanned.pop_back();
  return true;
}

CDriveGenerator::CDriveGenerator(SourceKind aKind, uint64_t aSeed, double aSeconds, int64_t aFirstPeerTime)
    : iKind(aKind),
      iSeed(aSeed),
      iSeconds(aSeconds),
      iFirstPeerTime(aFirstPeerTime),
      iCount(static_cast<uint64_t>(std::floor(aSeconds * 1000.0 / kRecordPeriod))),
      // Plan and noise draw from streams of their own, so that a shorter drive is the
      // start of a longer one with the same seed.
      iNoise(aSeed ^ 0x5DEECE66DULL),
      iPlan(aSeed, aSeconds, kFirstPhase) {
  iMotion.phase = kFirstPhase;
  iMotion.phaseLeft = kFirstPhase.seconds;
  iMotion.direction = kForward;
}

int64_t CDriveGenerator::LastPeerTime() const {
  return iCount == 0 ? iFirstPeerTime : iFirstPeerTime + static_cast<int64_t>((iCount - 1) * kRecordPeriod);
}

double CDriveGenerator::TrueTurnRate() const {
  return std::fabs(iMotion.speed) > kStanding ? iMotion.phase.turnRate : 0.0;
}

std::string CDriveGenerator::Describe() const {
  char name[96];
  snprintf(name, sizeof name, "built-in drive, seed %llu, %.1f s", static_cast<unsigned long long>(iSeed), iSeconds);
  return name;
}

bool CDriveGenerator::Next(DriveRecord& aRecord) {
  if (iIndex >= iCount) return false;
  const double step = kRecordPeriod / 1000.0;
  DriveMotion& m = iMotion;
  while (m.phaseLeft <= 0) {
    if (!iPlan.Next(m.phase)) break;
    m.phaseStartSpeed = m.speed;
    m.phaseLeft = m.phase.seconds;
  }
  // Speed moves linearly toward the phase's target over the phase.
  const double done = 1.0 - (m.phaseLeft - step) / m.phase.seconds;
  m.speed = m.phaseStartSpeed + (m.phase.speed - m.phaseStartSpeed) * (done > 1 ? 1 : done);
  m.phaseLeft -= step;

  const double metres = std::fabs(m.speed) * step;
  const double exactPulses = metres * kPulsesPerMetre + m.pulseRemainder;
  const int64_t pulses = static_cast<int64_t>(std::floor(exactPulses));
  m.pulseRemainder = exactPulses - static_cast<double>(pulses);
  const double noise = iNoise.Uniform(-0.3, 0.3);
  const int64_t rate = static_cast<int64_t>(std::lround(TrueTurnRate() * kRateScale + noise * kRateScale / 10));
  if (m.speed < -kStanding) m.direction = kReverse;
  if (m.speed > kStanding) m.direction = kForward;

  aRecord = DriveRecord();
  aRecord.peerTime = iFirstPeerTime + static_cast<int64_t>(iIndex * kRecordPeriod);
  aRecord.stamp = WireStamp(aRecord.peerTime);
  if (iKind == SourceKind::Can) {
    aRecord.field[0] = pulses;
    aRecord.field[1] = rate;
    aRecord.field[2] = m.direction;
    aRecord.field[3] = kRawSamplesPerRecord;
  } else {
    aRecord.field[0] = kRawSamplesPerRecord;
    aRecord.field[1] = rate;
    aRecord.field[2] = pulses;
    aRecord.field[3] = m.direction == kReverse ? 2 : 1;
  }
  ++iIndex;
  return true;
}

}  // namespace sim
