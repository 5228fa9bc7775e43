#include "ModuleLoader.h"

#include <dlfcn.h>

namespace host {

CModuleLoader::~CModuleLoader() { Unload(); }

bool CModuleLoader::Load(const std::string& aPath) {
  Unload();
  iError.clear();
  // Host symbols resolve from this process; the module's own stay local to it.
  iHandle = dlopen(aPath.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (iHandle == nullptr) {
    const char* error = dlerror();
    iError = error != nullptr ? error : "dlopen failed";
    return false;
  }
  iFeatureType = reinterpret_cast<TFeatureTypeFunction>(dlsym(iHandle, "FeatureType"));
  iFeatureCreate2 = reinterpret_cast<TFeatureCreate2Function>(dlsym(iHandle, "FeatureCreate2"));
  if (iFeatureType == nullptr || iFeatureCreate2 == nullptr) {
    iError = aPath + ": FeatureType or FeatureCreate2 not exported";
    Unload();
    return false;
  }
  return true;
}

void CModuleLoader::Unload() {
  if (iHandle != nullptr) dlclose(iHandle);
  iHandle = nullptr;
  iFeatureType = nullptr;
  iFeatureCreate2 = nullptr;
}

const char* CModuleLoader::FeatureType() const { return iFeatureType != nullptr ? iFeatureType() : nullptr; }

IFeatureModule2* CModuleLoader::Create(const TFeatureId& aFeatureId, IInterfaceBroker& aBroker,
                                       IEventBroker& aEventBroker, const IFeatureProperties& aProperties) const {
  if (iFeatureCreate2 == nullptr) return nullptr;
  return iFeatureCreate2(aFeatureId, aBroker, aEventBroker, aProperties);
}

}  // namespace host
