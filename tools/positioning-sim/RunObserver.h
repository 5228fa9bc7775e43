// What happens in a run, as the units that watch it (sample writer, statistics, plot,
// soak check, recording) are told. Every method has an empty default.
#ifndef SIM_RUN_OBSERVER_H
#define SIM_RUN_OBSERVER_H

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "DriveSource.h"
#include "SimTime.h"
#include "SimulatedPeers.h"

namespace sim {

// A record the service sent, with its time stamp as sent (faults applied).
struct SentRecord {
  DriveRecord record;
  SimTime due;  // the local instant of its time stamp: when it was meant to go out
  SimTime now;  // when it went out
};

// A sample a client received.
struct DeliveredSample {
  size_t client;  // index, 0 for C1
  const std::string& name;
  const host::ReceivedSample& sample;
  bool replayed;  // while the client subscribed
  bool live;      // while a record was sent; then sentStamp and due are that record's
  uint64_t sentStamp;
  SimTime due;
};

class IRunObserver {
 public:
  virtual ~IRunObserver() {}
  virtual void OnRecordSent(const SentRecord& /*aRecord*/) {}
  virtual void OnRecordNotSent() {}  // the service was away
  virtual void OnSample(const DeliveredSample& /*aSample*/) {}
  virtual void OnClientAttached(size_t /*aClient*/) {}
  virtual void OnClientDetached(size_t /*aClient*/) {}
  virtual void OnSubscribing(size_t /*aClient*/) {}
  virtual void OnSubscribed(size_t /*aClient*/, TiPositioningSensorType /*aType*/, txdr_bool /*aFlag*/,
                            reflection::TErrCode /*aResult*/) {}
  // A kick the peer will answer, and the peer time it answered with.
  virtual void OnKick(SimTime /*aTime*/) {}
  virtual void OnSyncAnswered(uint32_t /*aPeerTime*/) {}
  virtual void OnClockSyncServiceLeft() {}
  // Once every simulated minute, and once when the run ends.
  virtual void OnMinute(SimTime /*aTime*/) {}
};

}  // namespace sim

#endif  // SIM_RUN_OBSERVER_H
