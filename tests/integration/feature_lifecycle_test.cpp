// Features created and deleted through the loaded library's entry points, for every
// kind of "diversity" value.
#include <gtest/gtest.h>

#include "ContractConstants.h"
#include "InterfaceBroker.h"
#include "LoadedModuleTest.h"
#include "ModuleLoader.h"

namespace {

using host::BrokerCall;
using testing_host::LoadedModuleTest;

class FeatureLifecycleTest : public LoadedModuleTest {
 protected:
  // Requests and revokes made by the module, as "kind instance identifier".
  std::vector<std::string> ModuleBrokerCalls() const {
    std::vector<std::string> calls;
    for (const BrokerCall& call : iBroker.Calls()) {
      if (call.kind == BrokerCall::AttachPeer || call.kind == BrokerCall::DetachPeer) continue;
      const char* kind = call.kind == BrokerCall::Request  ? "Request"
                         : call.kind == BrokerCall::Revoke ? "Revoke"
                                                           : "RequestShared";
      calls.push_back(std::string(kind) + " " + call.instance + " " + std::to_string(call.identifier) + "/" +
                      std::to_string(call.qualifier));
    }
    return calls;
  }
};

TEST_F(FeatureLifecycleTest, FeatureTypeAnswersPositioningEveryTime) {
  EXPECT_STREQ(contract::kFeatureType, iLoader.FeatureType());
  EXPECT_STREQ(contract::kFeatureType, iLoader.FeatureType());
}

TEST_F(FeatureLifecycleTest, WithoutDiversityTheFeatureRequestsTheMicroHostServiceAndOffersInstanceOne) {
  IFeatureModule2* feature = NewFeature();
  ASSERT_NE(nullptr, feature);
  EXPECT_EQ((std::vector<std::string>{"RequestShared 0 56/0", "Request 1 34/0"}), ModuleBrokerCalls());
  ASSERT_EQ(1u, iEventBroker.Timers().size());
  EXPECT_EQ(1000u, iEventBroker.Timers()[0].period);
  host::CModuleLoader::Destroy(feature);
  EXPECT_EQ((std::vector<std::string>{"RequestShared 0 56/0", "Request 1 34/0", "Revoke 0 56/0", "Revoke 1 34/0"}),
            ModuleBrokerCalls());
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

TEST_F(FeatureLifecycleTest, CanDiversityBuildsTheSameCanFeature) {
  iProperties.Set("diversity", "CAN");
  IFeatureModule2* feature = NewFeature();
  EXPECT_EQ((std::vector<std::string>{"RequestShared 0 56/0", "Request 1 34/0"}), ModuleBrokerCalls());
  host::CModuleLoader::Destroy(feature);
}

TEST_F(FeatureLifecycleTest, ExternalDiversityRequestsClockSyncAndExternalServiceAndOffersInstanceTwo) {
  iProperties.Set("diversity", "EXTERNAL");
  IFeatureModule2* feature = NewFeature();
  EXPECT_EQ((std::vector<std::string>{"Request 0 32866/1", "Request 0 32802/1", "Request 2 34/0"}),
            ModuleBrokerCalls());
  // No time object until the clock-sync service comes.
  EXPECT_TRUE(iEventBroker.Timers().empty());
  host::CModuleLoader::Destroy(feature);
  EXPECT_EQ((std::vector<std::string>{"Request 0 32866/1", "Request 0 32802/1", "Request 2 34/0", "Revoke 0 32866/1",
                                      "Revoke 0 32802/1", "Revoke 2 34/0"}),
            ModuleBrokerCalls());
}

TEST_F(FeatureLifecycleTest, UsbDiversityGivesAFeatureThatProvidesNothing) {
  iProperties.Set("diversity", "USB");
  IFeatureModule2* feature = NewFeature();
  ASSERT_NE(nullptr, feature);
  EXPECT_TRUE(ModuleBrokerCalls().empty());
  EXPECT_TRUE(iEventBroker.Calls().empty());
  EXPECT_EQ((std::vector<std::string>{"", "Diversity: USB", "USBSensor is not supported"}), ModuleMessages());
  host::CModuleLoader::Destroy(feature);
  EXPECT_TRUE(ModuleBrokerCalls().empty());
  EXPECT_EQ("virtual CPositioning::~CPositioning()", ModuleRecords().back().function);
}

TEST_F(FeatureLifecycleTest, UnknownDiversityGivesAFeatureThatProvidesNothing) {
  for (const char* value : {"can", "External", "", "GPS"}) {
    ClearRecords();
    iProperties.Set("diversity", value);
    IFeatureModule2* feature = NewFeature();
    ASSERT_NE(nullptr, feature) << value;
    EXPECT_EQ((std::vector<std::string>{"", std::string("Diversity: ") + value}), ModuleMessages()) << value;
    host::CModuleLoader::Destroy(feature);
  }
  EXPECT_TRUE(ModuleBrokerCalls().empty());
  EXPECT_TRUE(iEventBroker.Calls().empty());
}

TEST_F(FeatureLifecycleTest, FeaturesOfEveryKindCanBeCreatedAndDeletedRepeatedly) {
  for (int round = 0; round < 3; ++round) {
    for (const char* value : {"CAN", "EXTERNAL", "USB"}) {
      iProperties.Set("diversity", value);
      IFeatureModule2* feature = NewFeature();
      ASSERT_NE(nullptr, feature);
      host::CModuleLoader::Destroy(feature);
      EXPECT_EQ(0u, iBroker.ModuleHandlerCount()) << value;
      EXPECT_TRUE(iEventBroker.Timers().empty()) << value;
    }
  }
}

}  // namespace
