#include "EventBroker.h"

#include <algorithm>

#include "SimulatedOsal.h"

namespace host {

void CEventBroker::Reset() {
  iTimers.clear();
  iCalls.clear();
  iOnFired = nullptr;
  iNextId = 1;
  iFired = 0;
}

TBool CEventBroker::RegisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) {
  const uint64_t now = CSimulatedOsal::Instance().Now();
  iCalls.push_back({true, aRegistration.eventClass, aRegistration.eventId, aRegistration.period, aRegistration.repeat,
                    aObserver, now});
  if (aObserver == nullptr) return 0;
  if (aRegistration.period > 0) {
    iTimers.push_back({iNextId++, aObserver, aRegistration.eventClass, aRegistration.eventId, aRegistration.period,
                       aRegistration.repeat == 1, now + aRegistration.period});
  }
  return 1;
}

TBool CEventBroker::UnregisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) {
  iCalls.push_back({false, aRegistration.eventClass, aRegistration.eventId, aRegistration.period, 0, aObserver,
                    CSimulatedOsal::Instance().Now()});
  const size_t before = iTimers.size();
  iTimers.erase(std::remove_if(iTimers.begin(), iTimers.end(),
                               [&](const Timer& aTimer) {
                                 return aTimer.observer == aObserver && aTimer.eventClass == aRegistration.eventClass &&
                                        aTimer.eventId == aRegistration.eventId;
                               }),
                iTimers.end());
  return iTimers.size() != before ? 1 : 0;
}

uint64_t CEventBroker::NextDue() const {
  uint64_t next = UINT64_MAX;
  for (const Timer& timer : iTimers) next = std::min(next, timer.due);
  return next;
}

void CEventBroker::RunUntil(uint64_t aTime) {
  CSimulatedOsal& osal = CSimulatedOsal::Instance();
  for (;;) {
    // Earliest due timer; the earlier registration first on a tie.
    const Timer* next = nullptr;
    for (const Timer& timer : iTimers) {
      if (timer.due <= aTime && (next == nullptr || timer.due < next->due)) next = &timer;
    }
    if (next == nullptr) break;
    Timer fired = *next;
    if (fired.due > osal.Now()) osal.SetNow(fired.due);
    // Rescheduled (or removed) before delivery: the observer may re-register inside.
    for (auto it = iTimers.begin(); it != iTimers.end(); ++it) {
      if (it->id != fired.id) continue;
      if (it->repeat) {
        it->due += it->period;
      } else {
        iTimers.erase(it);
      }
      break;
    }
    ++iFired;
    TEvent event{fired.eventClass, fired.eventId};
    fired.observer->OnEvent(event);
    if (iOnFired) iOnFired(fired);
  }
  if (aTime > osal.Now()) osal.SetNow(aTime);
}

void CEventBroker::Advance(uint64_t aMilliseconds) { RunUntil(CSimulatedOsal::Instance().Now() + aMilliseconds); }

void CEventBroker::Deliver(IEventObserver* aObserver, uint32_t aClass, uint32_t aId) {
  TEvent event{aClass, aId};
  aObserver->OnEvent(event);
}

}  // namespace host
