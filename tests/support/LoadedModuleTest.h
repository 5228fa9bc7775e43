// The fixture of the tests that drive the built libPositioning.so: a fresh simulated
// head unit with the library loaded as the daemon loads it, and the feature the test
// creates, deleted after the test unless the test deleted it.
#ifndef TESTS_LOADED_MODULE_TEST_H
#define TESTS_LOADED_MODULE_TEST_H

#include "IFeatureModule2.h"
#include "ModuleLoader.h"
#include "TestHost.h"

namespace testing_host {

class LoadedModuleTest : public HostTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // A new feature on the fixture's brokers with the properties set so far; the caller
  // deletes it (nullptr when the library gives none).
  IFeatureModule2* NewFeature();
  // Creates iFeature; the test fails when none comes.
  void Create();
  // Deletes iFeature now, through IFeatureModule2 as the daemon does.
  void Destroy();

  host::CModuleLoader iLoader;
  IFeatureModule2* iFeature = nullptr;
};

}  // namespace testing_host

#endif  // TESTS_LOADED_MODULE_TEST_H
