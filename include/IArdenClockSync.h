// The clock-sync service pair of the main unit.
#ifndef I_ARDEN_CLOCK_SYNC_H
#define I_ARDEN_CLOCK_SYNC_H

#include "FeatureTypes.h"

class IArdenClockSyncMale;

// The clock-sync service; the module calls none of its operations.
class HK_INTERFACE IArdenClockSyncFemale {
 public:
  typedef IArdenClockSyncMale TPartner;
  virtual ~IArdenClockSyncFemale() {}
  virtual void _RegisterCallback(IArdenClockSyncMale& aPartner) = 0;
  virtual void _UnregisterCallback(IArdenClockSyncMale& aPartner) = 0;
};

// Callbacks of the clock-sync service, implemented by the module.
class HK_INTERFACE IArdenClockSyncMale {
 public:
  typedef IArdenClockSyncFemale TPartner;
  virtual ~IArdenClockSyncMale() {}
  virtual void _RegisterCallback(IArdenClockSyncFemale& aPartner) = 0;
  virtual void _UnregisterCallback(IArdenClockSyncFemale& aPartner) = 0;
  // The main unit's time for the most recent CLK_SYNC pulse, in milliseconds.
  virtual reflection::TErrCode TimeStampReport(IArdenClockSyncFemale& aPartner, unsigned int aTimeStamp) = 0;
};

#endif  // I_ARDEN_CLOCK_SYNC_H
