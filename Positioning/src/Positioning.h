// The positioning feature: picks the sensor source named by the "diversity" property,
// owns it and deletes it with the feature.
#ifndef POSITIONING_POSITIONING_H
#define POSITIONING_POSITIONING_H

#include "FeatureTypes.h"
#include "IEventBroker.h"
#include "IFeatureModule2.h"
#include "IFeatureProperties.h"
#include "IInterfaceBroker.h"
#include "ISensor.h"
#include "ReflectionInterface.h"

class CPositioning : public IFeatureModule2 {
 public:
  HK_MALLOC_ALLOCATED

  // "diversity" absent or "CAN" creates the CAN source, "EXTERNAL" the external one;
  // "USB" and any other value leave the feature without a source.
  CPositioning(const TFeatureId& aFeatureId, IInterfaceBroker& aInterfaceBroker, IEventBroker& aEventBroker,
               const IFeatureProperties& aProperties);
  virtual ~CPositioning();
  // Owns its source: a copy would free or unregister it twice.
  CPositioning(const CPositioning&) = delete;
  CPositioning& operator=(const CPositioning&) = delete;

  // The source created, or null.
  ISensor* Sensor() const { return iSensor; }

 private:
  ISensor* iSensor;
};

extern "C" {
// The feature type this module provides: "positioning".
__attribute__((visibility("default"))) const char* FeatureType();
// Creates the feature; the daemon deletes it through IFeatureModule2.
__attribute__((visibility("default"))) IFeatureModule2* FeatureCreate2(const TFeatureId& aFeatureId,
                                                                       IInterfaceBroker& aInterfaceBroker,
                                                                       IEventBroker& aEventBroker,
                                                                       const IFeatureProperties& aProperties);
}

#endif  // POSITIONING_POSITIONING_H
