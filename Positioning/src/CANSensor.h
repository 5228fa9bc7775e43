// The sensor source for the CAN micro-controller's micro-host sensor service, and the
// kick variant that asks the micro-controller to synchronise.
#ifndef POSITIONING_CAN_SENSOR_H
#define POSITIONING_CAN_SENSOR_H

#include <stdint.h>

#include "CSensorStore.h"
#include "FeatureTypes.h"
#include "IEventBroker.h"
#include "IInterfaceBroker.h"
#include "IMicroHostSensor.h"
#include "ISensor.h"
#include "ReflectionInterface.h"
#include "SyncTime.h"

class CCANSensor : public ISensor, public CReflectionInterfaceHandler<IMicroHostSensorFemale> {
 public:
  HK_MALLOC_ALLOCATED

  // Requests the micro-host service, creates the store (instance "1") and starts the
  // time base. aFeatureId is referred to, not copied: it must outlive the source.
  CCANSensor(const TFeatureId& aFeatureId, IInterfaceBroker& aBroker, IEventBroker& aEventBroker);
  // Revokes the service, then deletes the store and the time base.
  virtual ~CCANSensor();
  // Owns its store: a copy would free or unregister it twice.
  CCANSensor(const CCANSensor&) = delete;
  CCANSensor& operator=(const CCANSensor&) = delete;

  void OnInterfaceAvailable(IMicroHostSensorMale& aPeer) override;
  void OnInterfaceUnavailable(IMicroHostSensorMale& aPeer) override;
  // The micro-controller's time for the most recent kick.
  reflection::TErrCode SyncTime(IMicroHostSensorMale& aPeer, txdr_uint32 aTime) override;
  // Ignored.
  reflection::TErrCode Identification(IMicroHostSensorMale& aPeer, TIdentificationList& aList) override;
  // Ignored.
  reflection::TErrCode Status(IMicroHostSensorMale& aPeer, TStatus aStatus) override;
  // One record: stored as a gyroscope sample (type 1) and an odometer sample (type 2).
  reflection::TErrCode SensorData(IMicroHostSensorMale& aPeer, TPosSensorData& aData) override;

  // Read access for diagnostics and tests.
  CSensorStore* SensorStore() const { return iSensorStore; }
  CSyncTime& SyncTimeBase() { return iSyncTime; }
  IMicroHostSensorMale* MicroHostSensor() const { return iMicroHostSensorMale; }
  uint8_t FirstSensorHandle() const { return iFirstSensorHandle; }
  uint8_t SecondSensorHandle() const { return iSecondSensorHandle; }

 private:
  const TFeatureId& iFeatureId;
  IInterfaceBroker& iInterfaceBroker;
  IEventBroker& iEventBroker;
  IMicroHostSensorMale* iMicroHostSensorMale;
  uint8_t iFirstSensorHandle;
  uint8_t iSecondSensorHandle;
  CSensorStore* iSensorStore;
  CSyncTime iSyncTime;
};

// A kick that asks the CAN micro-controller to synchronise and records the local time
// only when it accepted. No source uses it yet; the CAN source kicks a plain time base.
class CCanTimeSync : public CSyncTime {
 public:
  HK_MALLOC_ALLOCATED

  CCanTimeSync();
  virtual ~CCanTimeSync();
  TBool KickSyncTime() override;
};

#endif  // POSITIONING_CAN_SENSOR_H
