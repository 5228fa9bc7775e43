// The sensor source for the external positioning-sensor service, with its time base
// kept against the main unit's clock-sync service.
#ifndef POSITIONING_EXTERNAL_SENSOR_H
#define POSITIONING_EXTERNAL_SENSOR_H

#include <stdint.h>

#include "CSensorStore.h"
#include "FeatureTypes.h"
#include "IArdenClockSync.h"
#include "IEventBroker.h"
#include "IHalvikPositioningSensor.h"
#include "IInterfaceBroker.h"
#include "ISensor.h"
#include "ReflectionInterface.h"
#include "SyncTime.h"

class CExternalSensor : public ISensor,
                        public CReflectionInterfaceHandler<IArdenClockSyncMale>,
                        public CReflectionInterfaceHandler<IHalvikPositioningSensorMale> {
 public:
  HK_MALLOC_ALLOCATED

  // Requests the clock-sync and external services and creates the store (instance "2").
  CExternalSensor(const TFeatureId& aFeatureId, IInterfaceBroker& aInterfaceBroker, IEventBroker& aEventBroker);
  // Revokes both services, then deletes the store and the time base.
  virtual ~CExternalSensor();
  // Owns its store and time base: a copy would free or unregister it twice.
  CExternalSensor(const CExternalSensor&) = delete;
  CExternalSensor& operator=(const CExternalSensor&) = delete;

  // The clock-sync service came: a time base is made if there is none, and kicked.
  void OnInterfaceAvailable(IArdenClockSyncFemale& aFemale) override;
  // The clock-sync service went: the time base is deleted.
  void OnInterfaceUnavailable(IArdenClockSyncFemale& aFemale) override;
  void OnInterfaceAvailable(IHalvikPositioningSensorFemale& aFemale) override;
  // The store, its samples and the last time stamp are kept.
  void OnInterfaceUnavailable(IHalvikPositioningSensorFemale& aFemale) override;
  // The main unit's time for the most recent CLK_SYNC pulse.
  reflection::TErrCode TimeStampReport(IArdenClockSyncFemale& aFemale, unsigned int aTimeStamp) override;
  // Logs the service's sensors and subscribes to its combined record (0x8000).
  reflection::TErrCode Configuration(IHalvikPositioningSensorFemale& aFemale,
                                     TiPositioningSensorConfiguration& aConfig) override;
  // One combined record: supervised, then stored as sensor 1 (values 0, 1) and sensor 2
  // (values 2, 3).
  reflection::TErrCode SensorData(IHalvikPositioningSensorFemale& aFemale, TiPositioningSensorType aType,
                                  TiPositioningSensorData& aData) override;

  // Read access for diagnostics and tests.
  CSensorStore* SensorStore() const { return iSensorStore; }
  CSyncTime* SyncTimeBase() const { return iSyncTime; }
  IArdenClockSyncFemale* ClockSync() const { return iClockSyncFemale; }
  int32_t ClockSyncAvailable() const { return iClockSyncAvailable; }
  IHalvikPositioningSensorFemale* PositioningSensor() const { return iHalvikPositioningSensorFemale; }
  int32_t PositioningSensorAvailable() const { return iPositioningSensorAvailable; }
  uint64_t LastTimeStamp() const { return iLastTimeStamp; }
  uint8_t FirstSensorHandle() const { return iFirstSensorHandle; }
  uint8_t SecondSensorHandle() const { return iSecondSensorHandle; }
  IReflectionInterface* ClockSyncHandler() { return static_cast<CReflectionInterfaceHandler<IArdenClockSyncMale>*>(this); }
  IReflectionInterface* PositioningSensorHandler() {
    return static_cast<CReflectionInterfaceHandler<IHalvikPositioningSensorMale>*>(this);
  }

 private:
  TFeatureId iFeatureId;
  IInterfaceBroker* iInterfaceBroker;
  IEventBroker* iEventBroker;
  IArdenClockSyncFemale* iClockSyncFemale;
  int32_t iClockSyncAvailable;
  int32_t iPositioningSensorAvailable;
  IHalvikPositioningSensorFemale* iHalvikPositioningSensorFemale;
  CSyncTime* iSyncTime;  // a CMainUnitSync while the clock-sync service is present
  CSensorStore* iSensorStore;
  uint8_t iFirstSensorHandle;
  uint8_t iSecondSensorHandle;
  uint64_t iLastTimeStamp;  // previous record's time stamp; 0 when there is none
};

#endif  // POSITIONING_EXTERNAL_SENSOR_H
