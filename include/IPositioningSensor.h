// The positioning-sensor service pair that the module offers to positioning clients.
#ifndef I_POSITIONING_SENSOR_H
#define I_POSITIONING_SENSOR_H

#include "FeatureTypes.h"
#include "PositioningSensorTypes.h"

class IPositioningSensorMale;

// The service side: clients subscribe per sensor type.
class HK_INTERFACE IPositioningSensorFemale {
 public:
  typedef IPositioningSensorMale TPartner;
  virtual ~IPositioningSensorFemale() {}
  virtual void _RegisterCallback(IPositioningSensorMale& aPartner) = 0;
  virtual void _UnregisterCallback(IPositioningSensorMale& aPartner) = 0;
  // Subscribes aPartner to samples of aType; aRequestBufferedData asks for a replay.
  virtual reflection::TErrCode Subscribe(IPositioningSensorMale& aPartner, TiPositioningSensorType aType,
                                         txdr_bool aRequestBufferedData) = 0;
};

// The client side: receives the configuration and the samples.
class HK_INTERFACE IPositioningSensorMale {
 public:
  typedef IPositioningSensorFemale TPartner;
  virtual ~IPositioningSensorMale() {}
  virtual void _RegisterCallback(IPositioningSensorFemale& aPartner) = 0;
  virtual void _UnregisterCallback(IPositioningSensorFemale& aPartner) = 0;
  virtual reflection::TErrCode Configuration(IPositioningSensorFemale& aPartner,
                                             TiPositioningSensorConfiguration& aConfig) = 0;
  virtual reflection::TErrCode SensorData(IPositioningSensorFemale& aPartner, TiPositioningSensorType aType,
                                          TiPositioningSensorData& aData) = 0;
};

#endif  // I_POSITIONING_SENSOR_H
