#include "FeatureProperties.h"

namespace host {

TBool CFeatureProperties::GetProperty(const TFeatureId&, const std::string& aName, std::string& aValue) const {
  ++iQueries;
  auto it = iValues.find(aName);
  if (it == iValues.end()) return 0;
  aValue = it->second;
  return 1;
}

}  // namespace host
