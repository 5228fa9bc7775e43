// The micro-host sensor service pair: the CAN micro-controller's dead-reckoning data.
#ifndef I_MICRO_HOST_SENSOR_H
#define I_MICRO_HOST_SENSOR_H

#include <stddef.h>
#include <stdint.h>

#include "FeatureTypes.h"

// One dead-reckoning record of the micro-controller (little-endian).
struct TPosSensorData {
  uint32_t TimeStamp;         // milliseconds of the micro-controller's clock
  uint16_t DistancePuls;      // odometer pulses
  int16_t AngularRate;        // gyroscope angular rate
  uint32_t DrivingDirection;  // 0x21 forward, 0x25 reverse, anything else unknown
  uint8_t NrOfSamples;        // raw samples aggregated in this record
};

static_assert(sizeof(TPosSensorData) == 16, "TPosSensorData layout");
static_assert(offsetof(TPosSensorData, DistancePuls) == 4, "TPosSensorData layout");
static_assert(offsetof(TPosSensorData, AngularRate) == 6, "TPosSensorData layout");
static_assert(offsetof(TPosSensorData, DrivingDirection) == 8, "TPosSensorData layout");
static_assert(offsetof(TPosSensorData, NrOfSamples) == 12, "TPosSensorData layout");

// Status word of the micro-host service.
typedef uint32_t TStatus;

// Identification of the micro-controller's software parts; the module only passes
// its reference on.
struct TIdentificationList {
  uint8_t size;
  uint32_t* data;
};

class IMicroHostSensorMale;

// Callbacks of the micro-host service, implemented by the module.
class HK_INTERFACE IMicroHostSensorFemale {
 public:
  typedef IMicroHostSensorMale TPartner;
  virtual ~IMicroHostSensorFemale() {}
  virtual void _RegisterCallback(IMicroHostSensorMale& aPartner) = 0;
  virtual void _UnregisterCallback(IMicroHostSensorMale& aPartner) = 0;
  // The micro-controller's time for the most recent synchronisation kick.
  virtual reflection::TErrCode SyncTime(IMicroHostSensorMale& aPartner, txdr_uint32 aTime) = 0;
  virtual reflection::TErrCode Identification(IMicroHostSensorMale& aPartner,
                                              TIdentificationList& aList) = 0;
  virtual reflection::TErrCode Status(IMicroHostSensorMale& aPartner, TStatus aStatus) = 0;
  // One dead-reckoning record.
  virtual reflection::TErrCode SensorData(IMicroHostSensorMale& aPartner, TPosSensorData& aData) = 0;
};

// The micro-host service itself; the module calls none of its operations.
class HK_INTERFACE IMicroHostSensorMale {
 public:
  typedef IMicroHostSensorFemale TPartner;
  virtual ~IMicroHostSensorMale() {}
  virtual void _RegisterCallback(IMicroHostSensorFemale& aPartner) = 0;
  virtual void _UnregisterCallback(IMicroHostSensorFemale& aPartner) = 0;
};

#endif  // I_MICRO_HOST_SENSOR_H
