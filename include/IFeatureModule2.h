// Base class of every feature object the daemon creates and deletes.
#ifndef I_FEATURE_MODULE2_H
#define I_FEATURE_MODULE2_H

#include "FeatureTypes.h"

class HK_INTERFACE IFeatureModule2 {
 public:
  // The daemon destroys a feature by deleting it through this base.
  virtual ~IFeatureModule2() {}
};

#endif  // I_FEATURE_MODULE2_H
