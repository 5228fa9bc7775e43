// A feature's configuration properties, as the simulated daemon hands them over.
#ifndef HOST_FEATURE_PROPERTIES_H
#define HOST_FEATURE_PROPERTIES_H

#include <map>
#include <string>

#include "IFeatureProperties.h"

namespace host {

class CFeatureProperties : public IFeatureProperties {
 public:
  void Set(const std::string& aName, const std::string& aValue) { iValues[aName] = aValue; }
  void Unset(const std::string& aName) { iValues.erase(aName); }
  // How often GetProperty was asked.
  int Queries() const { return iQueries; }

  TBool GetProperty(const TFeatureId& aFeature, const std::string& aName, std::string& aValue) const override;

 private:
  std::map<std::string, std::string> iValues;
  mutable int iQueries = 0;
};

}  // namespace host

#endif  // HOST_FEATURE_PROPERTIES_H
