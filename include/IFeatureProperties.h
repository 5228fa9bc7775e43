// A feature's configuration properties, as the daemon hands them to FeatureCreate2.
#ifndef I_FEATURE_PROPERTIES_H
#define I_FEATURE_PROPERTIES_H

#include <string>

#include "FeatureTypes.h"

class HK_INTERFACE IFeatureProperties {
 public:
  virtual ~IFeatureProperties() {}
  // Fills aValue and answers true when the feature has the property aName.
  virtual TBool GetProperty(const TFeatureId& aFeature, const std::string& aName,
                            std::string& aValue) const = 0;
};

#endif  // I_FEATURE_PROPERTIES_H
