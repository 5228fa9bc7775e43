// The host's copy of the contract's numbers. Host, tests and tools all take them from
// ContractConstants.h, so a slip there would go unnoticed everywhere else: the values
// are written out here once, as the daemon and its services know them.
#include <gtest/gtest.h>

#include "ContractConstants.h"

namespace {

void ExpectIdentity(const TInterfaceIdentity& aIdentity, uint16_t aIdentifier, uint32_t aQualifier) {
  EXPECT_EQ(aIdentifier, aIdentity.identifier);
  EXPECT_EQ(aQualifier, aIdentity.qualifier);
}

TEST(ContractConstantsTest, InterfaceIdentitiesAreThoseOfTheServicesAndTheClients) {
  ExpectIdentity(contract::kMicroHostSensorIdentity, 0x0038, 0);
  ExpectIdentity(contract::kExternalSensorIdentity, 0x8022, 1);
  ExpectIdentity(contract::kClockSyncIdentity, 0x8062, 1);
  ExpectIdentity(contract::kPositioningIdentity, 34, 0);
  EXPECT_STREQ("0", contract::kServiceInstance);
  EXPECT_STREQ("positioning", contract::kFeatureType);
}

TEST(ContractConstantsTest, ClockSyncUsesPinSevenAndTheTimerEventZeroTen) {
  EXPECT_EQ(7u, contract::kClkSyncPin);
  EXPECT_EQ(0u, contract::kSyncEventClass);
  EXPECT_EQ(10u, contract::kSyncEventId);
}

TEST(ContractConstantsTest, SensorTypes) {
  EXPECT_EQ(1, contract::kGyroscope);
  EXPECT_EQ(2, contract::kOdometer);
  EXPECT_EQ(0x8000, contract::kCombinedRecord);
}

TEST(ContractConstantsTest, EachLogLevelAddsOneCategory) {
  EXPECT_EQ(1u, contract::kLogMaskError);
  EXPECT_EQ(1u | 4u, contract::kLogMaskInfo);
  EXPECT_EQ(1u | 4u | 8u, contract::kLogMaskInfo2);
  EXPECT_EQ(1u | 4u | 8u | 16u, contract::kLogMaskAll);
}

}  // namespace
