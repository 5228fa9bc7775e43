// Loads the module's shared object the way the daemon does and creates and deletes
// features through its two exported entry points.
#ifndef HOST_MODULE_LOADER_H
#define HOST_MODULE_LOADER_H

#include <string>

#include "FeatureTypes.h"
#include "IEventBroker.h"
#include "IFeatureModule2.h"
#include "IFeatureProperties.h"
#include "IInterfaceBroker.h"

namespace host {

class CModuleLoader {
 public:
  typedef const char* (*TFeatureTypeFunction)();
  typedef IFeatureModule2* (*TFeatureCreate2Function)(const TFeatureId&, IInterfaceBroker&, IEventBroker&,
                                                      const IFeatureProperties&);

  CModuleLoader() {}
  // Unloads if still loaded.
  ~CModuleLoader();
  CModuleLoader(const CModuleLoader&) = delete;
  CModuleLoader& operator=(const CModuleLoader&) = delete;

  // dlopens aPath and looks up FeatureType and FeatureCreate2 by their plain names.
  // On failure answers false and says why in Error().
  bool Load(const std::string& aPath);
  void Unload();
  bool IsLoaded() const { return iHandle != nullptr; }
  const std::string& Error() const { return iError; }

  // The module's feature type.
  const char* FeatureType() const;
  // Creates a feature. aFeatureId must outlive it (the CAN source refers to it).
  IFeatureModule2* Create(const TFeatureId& aFeatureId, IInterfaceBroker& aBroker, IEventBroker& aEventBroker,
                          const IFeatureProperties& aProperties) const;
  // Deletes a feature as the daemon does, through IFeatureModule2.
  static void Destroy(IFeatureModule2* aFeature) { delete aFeature; }

 private:
  void* iHandle = nullptr;
  TFeatureTypeFunction iFeatureType = nullptr;
  TFeatureCreate2Function iFeatureCreate2 = nullptr;
  std::string iError;
};

}  // namespace host

#endif  // HOST_MODULE_LOADER_H
