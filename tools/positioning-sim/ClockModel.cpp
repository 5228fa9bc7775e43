#include "ClockModel.h"

#include <cmath>

namespace sim {

CClockModel::CClockModel(uint64_t aLocalAnchor, int64_t aPeerAnchor, double aDriftPpm)
    : iLocalAnchor(static_cast<int64_t>(aLocalAnchor)),
      iPeerAnchor(aPeerAnchor),
      iDriftPpm(aDriftPpm),
      iRate(1.0 + aDriftPpm / 1e6) {}

int64_t CClockModel::PeerAt(uint64_t aLocal) const {
  const double elapsed = static_cast<double>(static_cast<int64_t>(aLocal) - iLocalAnchor);
  return iPeerAnchor + std::llround(elapsed * iRate);
}

int64_t CClockModel::LocalAt(int64_t aPeer) const {
  const double elapsed = static_cast<double>(aPeer - iPeerAnchor);
  return iLocalAnchor + std::llround(elapsed / iRate);
}

}  // namespace sim
