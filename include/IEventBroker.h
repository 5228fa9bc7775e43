// The daemon's event bus: timers and other events delivered to observers.
#ifndef I_EVENT_BROKER_H
#define I_EVENT_BROKER_H

#include "FeatureTypes.h"

class HK_INTERFACE IEventObserver {
 public:
  virtual ~IEventObserver() {}
  // Called each time a registered event fires.
  virtual void OnEvent(const TEvent& aEvent) = 0;
};

class HK_INTERFACE IEventBroker {
 public:
  virtual ~IEventBroker() {}
  // Starts delivering the event described by aRegistration to aObserver.
  virtual TBool RegisterEventObserver(const TEventRegistration& aRegistration,
                                      IEventObserver* aObserver) = 0;
  // Stops it again. Only eventClass and eventId of aRegistration are meaningful.
  virtual TBool UnregisterEventObserver(const TEventRegistration& aRegistration,
                                        IEventObserver* aObserver) = 0;
};

#endif  // I_EVENT_BROKER_H
