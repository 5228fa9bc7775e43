// The built library loaded as the daemon loads it.
#include <gtest/gtest.h>

#include "TestHost.h"

namespace {

using testing_host::HostTest;

class FeatureLifecycleTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    ASSERT_TRUE(iLoader.Load(testing_host::ModulePath())) << iLoader.Error();
  }
  host::CModuleLoader iLoader;
};

TEST_F(FeatureLifecycleTest, FeatureTypeAnswersPositioning) {
  EXPECT_STREQ("positioning", iLoader.FeatureType());
  EXPECT_STREQ("positioning", iLoader.FeatureType());
}

TEST_F(FeatureLifecycleTest, CanFeatureDeliversSamplesWithSynchronisedTime) {
  host::CMicroHostSensorService service;
  host::CPositioningClient client("1");
  service.Attach(iBroker);
  client.Attach(iBroker);
  IFeatureModule2* feature = iLoader.Create(iFeatureId, iBroker, iEventBroker, iProperties);
  ASSERT_NE(nullptr, feature);
  ASSERT_TRUE(service.IsConnected());
  ASSERT_TRUE(client.IsConnected());
  ASSERT_EQ(1u, client.Configurations().size());
  EXPECT_EQ(0, client.Subscribe(1, 0));
  EXPECT_EQ(0, client.Subscribe(2, 0));

  host::COsal::Instance().SetNow(5000);
  iEventBroker.RunUntil(6000);  // a kick at 6000
  EXPECT_EQ(0, service.SendSyncTime(1000));
  TPosSensorData record = {1200, 7, -3, 0x21, 4};
  EXPECT_EQ(0, service.SendSensorData(record));
  ASSERT_EQ(2u, client.Samples().size());
  EXPECT_EQ(1u, client.Samples()[0].type);
  EXPECT_EQ(6200u, client.Samples()[0].timeStamp);
  EXPECT_EQ((std::vector<int16_t>{4, -3}), client.Samples()[0].values);
  EXPECT_EQ(2u, client.Samples()[1].type);
  EXPECT_EQ((std::vector<int16_t>{7, 1}), client.Samples()[1].values);

  host::CModuleLoader::Destroy(feature);
  EXPECT_FALSE(service.IsConnected());
  EXPECT_FALSE(client.IsConnected());
  EXPECT_EQ(0u, iBroker.ModuleHandlerCount());
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

}  // namespace
