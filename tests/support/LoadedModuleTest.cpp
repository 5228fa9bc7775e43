#include "LoadedModuleTest.h"

#include <gtest/gtest.h>

#include "ModuleLoader.h"

namespace testing_host {

void LoadedModuleTest::SetUp() {
  HostTest::SetUp();
  ASSERT_TRUE(iLoader.Load(ModulePath())) << iLoader.Error();
}

void LoadedModuleTest::TearDown() {
  Destroy();
  HostTest::TearDown();
}

IFeatureModule2* LoadedModuleTest::NewFeature() {
  return iLoader.Create(iFeatureId, iBroker, iEventBroker, iProperties);
}

void LoadedModuleTest::Create() {
  iFeature = NewFeature();
  ASSERT_NE(nullptr, iFeature) << iLoader.Error();
}

void LoadedModuleTest::Destroy() {
  if (iFeature != nullptr) host::CModuleLoader::Destroy(iFeature);
  iFeature = nullptr;
}

}  // namespace testing_host
