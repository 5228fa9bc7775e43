// The synchronised time base: the offset between the local tick and a peer's clock.
//
// A kick records the local tick; the peer later reports its own time for that kick
// and the offset becomes local minus peer. A periodic timer event repeats the kick,
// every second until the first measurement, then every 30 seconds.
#ifndef POSITIONING_SYNC_TIME_H
#define POSITIONING_SYNC_TIME_H

#include <stdint.h>

#include "FeatureTypes.h"
#include "IEventBroker.h"

class CSyncTime : public IEventObserver {
 public:
  CSyncTime();
  // Unregisters the timer event if a broker was ever set.
  virtual ~CSyncTime();
  // Its timer registration names this object: a copy would free or unregister it twice.
  CSyncTime(const CSyncTime&) = delete;
  CSyncTime& operator=(const CSyncTime&) = delete;

  // Kicks on the sync timer event (class 0, id 10); ignores every other event.
  void OnEvent(const TEvent& aEvent) override;
  // Keeps aBroker and, when it is not null, registers the one-second timer. A second
  // call registers a second time.
  virtual void SetEventBroker(IEventBroker* aBroker);
  // Records the local time of this kick. Always true.
  virtual TBool KickSyncTime();
  // Local minus peer milliseconds; 0 while unsynchronised. No time base reads it
  // differently, so the sources' per-sample reads bind directly.
  virtual int64_t GetSyncTime() final { return iSyncedTime; }
  // The peer's time for the most recent kick. A time not older than the kick is
  // dropped; the first measurement slows the timer to 30 seconds.
  virtual TAny SetMeasuredTime(txdr_uint32 aTime);

  // Reads the local tick into the current kick time and returns it.
  int64_t getDateTimeInMS();

  // Read access for diagnostics and tests.
  int64_t CurrentTime() const { return iCurrentTime; }
  IEventBroker* EventBroker() const { return iEventBroker; }

 protected:
  int64_t iCurrentTime;  // local tick at the last kick
  int64_t iSyncedTime;   // local minus peer; 0 means not synchronised
  IEventBroker* iEventBroker;
};

#endif  // POSITIONING_SYNC_TIME_H
