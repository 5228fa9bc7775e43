// The simulated daemon's event broker: periodic timers on the simulated clock.
//
// Time moves only when told (RunUntil / Advance); due timers fire in order of their
// due time, the clock standing at each due time while its observer runs.
#ifndef HOST_EVENT_BROKER_H
#define HOST_EVENT_BROKER_H

#include <stdint.h>

#include <functional>
#include <utility>
#include <vector>

#include "IEventBroker.h"

namespace host {

// One call made to the event broker.
struct EventCall {
  bool registering;  // RegisterEventObserver, else UnregisterEventObserver
  uint32_t eventClass;
  uint32_t eventId;
  uint32_t period;
  uint32_t repeat;  // as given; meaningless for an unregistration
  IEventObserver* observer;
  uint64_t tick;  // simulated clock at the call
};

// A registered timer.
struct Timer {
  uint64_t id;
  IEventObserver* observer;
  uint32_t eventClass;
  uint32_t eventId;
  uint32_t period;
  bool repeat;
  uint64_t due;
};

class CEventBroker : public IEventBroker {
 public:
  // Forgets timers and calls.
  void Reset();

  // Fires every timer due up to aTime, then leaves the clock at aTime.
  void RunUntil(uint64_t aTime);
  // RunUntil(now + aMilliseconds).
  void Advance(uint64_t aMilliseconds);
  // Due time of the next timer, or UINT64_MAX when none is registered.
  uint64_t NextDue() const;
  // Delivers an event to an observer at once, as the daemon would for other events.
  void Deliver(IEventObserver* aObserver, uint32_t aClass, uint32_t aId);
  // Called after each timer event has been delivered (the simulator watches kicks).
  void SetOnFired(std::function<void(const Timer&)> aObserver) { iOnFired = std::move(aObserver); }

  const std::vector<Timer>& Timers() const { return iTimers; }
  const std::vector<EventCall>& Calls() const { return iCalls; }
  uint64_t FiredCount() const { return iFired; }

  TBool RegisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) override;
  // Stops every timer of aObserver with the same class and id; the repeat word is not read.
  TBool UnregisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) override;

 private:
  std::vector<Timer> iTimers;
  std::vector<EventCall> iCalls;
  std::function<void(const Timer&)> iOnFired;
  uint64_t iNextId = 1;
  uint64_t iFired = 0;
};

}  // namespace host

#endif  // HOST_EVENT_BROKER_H
