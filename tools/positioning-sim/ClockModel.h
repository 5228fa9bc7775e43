// The peer's clock against the local tick: anchored at one instant, with a drift. Peer
// times are continuous (a 32-bit service clock's wraps are the wire's business).
#ifndef SIM_CLOCK_MODEL_H
#define SIM_CLOCK_MODEL_H

#include <stdint.h>

namespace sim {

class CClockModel {
 public:
  CClockModel(uint64_t aLocalAnchor, int64_t aPeerAnchor, double aDriftPpm);
  int64_t PeerAt(uint64_t aLocal) const;
  // The local instant at which the peer's clock reads aPeer; negative before the tick began.
  int64_t LocalAt(int64_t aPeer) const;
  uint64_t LocalAnchor() const { return static_cast<uint64_t>(iLocalAnchor); }
  int64_t PeerAnchor() const { return iPeerAnchor; }
  double DriftPpm() const { return iDriftPpm; }

 private:
  int64_t iLocalAnchor;
  int64_t iPeerAnchor;
  double iDriftPpm;
  double iRate;
};

}  // namespace sim

#endif  // SIM_CLOCK_MODEL_H
