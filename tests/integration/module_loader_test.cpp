// The loader the simulated daemon uses: what it does with a library that is not there
// or does not export the entry points.
#include <gtest/gtest.h>

#include "ContractConstants.h"
#include "ModuleLoader.h"
#include "TestHost.h"

namespace {

TEST(ModuleLoaderTest, MissingLibraryIsReportedNotLoaded) {
  host::CModuleLoader loader;
  EXPECT_FALSE(loader.Load("/nonexistent/libPositioning.so"));
  EXPECT_FALSE(loader.IsLoaded());
  EXPECT_NE(std::string::npos, loader.Error().find("/nonexistent/libPositioning.so"));
  EXPECT_EQ(nullptr, loader.FeatureType());
}

TEST(ModuleLoaderTest, LibraryWithoutEntryPointsIsRefused) {
  host::CModuleLoader loader;
  EXPECT_FALSE(loader.Load("libm.so.6"));
  EXPECT_NE(std::string::npos, loader.Error().find("FeatureType or FeatureCreate2 not exported"));
  EXPECT_FALSE(loader.IsLoaded());
}

TEST(ModuleLoaderTest, TheModuleLoadsAndUnloads) {
  host::CModuleLoader loader;
  ASSERT_TRUE(loader.Load(testing_host::ModulePath())) << loader.Error();
  EXPECT_STREQ(contract::kFeatureType, loader.FeatureType());
  loader.Unload();
  EXPECT_FALSE(loader.IsLoaded());
}

}  // namespace
