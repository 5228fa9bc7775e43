#include "DeadReckoner.h"

#include <cmath>

namespace sim {

namespace {

const double kRadiansPerDegree = M_PI / 180.0;

}  // namespace

double NormalisedHeading(double aDegrees) {
  const double wrapped = std::fmod(aDegrees, 360.0);
  return wrapped < 0 ? wrapped + 360.0 : wrapped;
}

void CDeadReckoner::Reset(const Pose& aStart) {
  iPose = aStart;
  iDistance = 0;
  iLastStamp = 0;
  iSteps = 0;
  iReverse = false;
}

void CDeadReckoner::Step(uint64_t aStamp, int32_t aRate, uint32_t aPulses, int aDirection) {
  uint64_t span = iNominalStepMs;
  if (iSteps > 0 && aStamp > iLastStamp && aStamp - iLastStamp <= kLongestStepMs) span = aStamp - iLastStamp;
  iLastStamp = aStamp;
  ++iSteps;
  if (aDirection == kDirectionForward) iReverse = false;
  if (aDirection == kDirectionReverse) iReverse = true;
  const double turn = static_cast<double>(aRate) * kRateUnitDegPerSecond * static_cast<double>(span) / 1000.0;
  const double metres = static_cast<double>(aPulses) / kPulsesPerMetre;
  const double along = (iPose.heading + turn / 2) * kRadiansPerDegree;
  const double signedMetres = iReverse ? -metres : metres;
  iPose.x += signedMetres * std::sin(along);
  iPose.y += signedMetres * std::cos(along);
  iPose.heading = NormalisedHeading(iPose.heading + turn);
  iDistance += metres;
}

}  // namespace sim
