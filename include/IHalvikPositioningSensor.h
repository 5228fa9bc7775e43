// The external positioning-sensor service pair.
#ifndef I_HALVIK_POSITIONING_SENSOR_H
#define I_HALVIK_POSITIONING_SENSOR_H

#include "FeatureTypes.h"
#include "PositioningSensorTypes.h"

class IHalvikPositioningSensorMale;

// The external service; its subscriber asks for a sensor type here.
class HK_INTERFACE IHalvikPositioningSensorFemale {
 public:
  typedef IHalvikPositioningSensorMale TPartner;
  virtual ~IHalvikPositioningSensorFemale() {}
  virtual void _RegisterCallback(IHalvikPositioningSensorMale& aPartner) = 0;
  virtual void _UnregisterCallback(IHalvikPositioningSensorMale& aPartner) = 0;
  virtual reflection::TErrCode Subscribe(IHalvikPositioningSensorMale& aPartner, TiPositioningSensorType aType,
                                         txdr_bool aFlag) = 0;
};

// Callbacks of the external service, implemented by the module.
class HK_INTERFACE IHalvikPositioningSensorMale {
 public:
  typedef IHalvikPositioningSensorFemale TPartner;
  virtual ~IHalvikPositioningSensorMale() {}
  virtual void _RegisterCallback(IHalvikPositioningSensorFemale& aPartner) = 0;
  virtual void _UnregisterCallback(IHalvikPositioningSensorFemale& aPartner) = 0;
  virtual reflection::TErrCode Configuration(IHalvikPositioningSensorFemale& aPartner,
                                             TiPositioningSensorConfiguration& aConfig) = 0;
  virtual reflection::TErrCode SensorData(IHalvikPositioningSensorFemale& aPartner, TiPositioningSensorType aType,
                                          TiPositioningSensorData& aData) = 0;
};

#endif  // I_HALVIK_POSITIONING_SENSOR_H
