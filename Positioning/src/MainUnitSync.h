// The synchronised time base whose kick also pulses the CLK_SYNC pin toward the main
// unit; the main unit's clock-sync service answers with its time for the pulse.
#ifndef POSITIONING_MAIN_UNIT_SYNC_H
#define POSITIONING_MAIN_UNIT_SYNC_H

#include "ReflectionInterface.h"
#include "SyncTime.h"

class CMainUnitSync : public CSyncTime {
 public:
  HK_MALLOC_ALLOCATED

  // Allocates one from the C heap; the owner deletes it.
  static CMainUnitSync* Create(IEventBroker* aBroker);
  // With a broker, starts the one-second kick timer.
  explicit CMainUnitSync(IEventBroker* aBroker);
  virtual ~CMainUnitSync();

  // Records the local time, then pulses CLK_SYNC for 50 ms when the main unit is
  // plugged in. Always true.
  TBool KickSyncTime() override;
};

#endif  // POSITIONING_MAIN_UNIT_SYNC_H
