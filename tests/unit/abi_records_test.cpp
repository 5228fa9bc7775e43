// The value types and records that cross the boundary between the module and a daemon
// built apart from it: their widths, sizes, field offsets and alignments, on 32-bit ARM
// (the head unit) and on x86-64 (development), and how the log handle is returned.
#include <gtest/gtest.h>

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <type_traits>

#include "FeatureTypes.h"
#include "IMicroHostSensor.h"
#include "Logging.h"
#include "PositioningSensorTypes.h"

namespace {

#if defined(__arm__) && !defined(__aarch64__)
const bool kArm32 = true;
const bool kKnownTarget = true;
#elif defined(__x86_64__)
const bool kArm32 = false;
const bool kKnownTarget = true;
#else
const bool kArm32 = false;
const bool kKnownTarget = false;
#endif

// The figure of the target this test was built for.
size_t Figure(size_t aArm32, size_t aX86_64) { return kArm32 ? aArm32 : aX86_64; }

class AbiRecordsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kKnownTarget) GTEST_SKIP() << "no figures for this target";
  }
};

TEST_F(AbiRecordsTest, BuildTargetIsTheOneTheFiguresAreFor) {
  EXPECT_EQ(Figure(4, 8), sizeof(void*));
  EXPECT_EQ(Figure(8, 8), alignof(uint64_t));
  EXPECT_EQ(4u, sizeof(int));
}

TEST_F(AbiRecordsTest, ValueTypesHaveTheirFixedWidthAndSignedness) {
  EXPECT_TRUE((std::is_same<std::string, TFeatureId>::value));
  EXPECT_TRUE((std::is_same<int32_t, TBool>::value));
  EXPECT_TRUE((std::is_same<void, TAny>::value));
  EXPECT_TRUE((std::is_same<uint8_t, TUint8>::value));
  EXPECT_TRUE((std::is_same<int32_t, txdr_bool>::value));
  EXPECT_TRUE((std::is_same<uint32_t, txdr_uint32>::value));
  EXPECT_TRUE((std::is_same<int32_t, reflection::TErrCode>::value));
  EXPECT_TRUE((std::is_same<uint16_t, TiPositioningSensorType>::value));
  EXPECT_TRUE((std::is_same<uint32_t, TStatus>::value));
}

TEST_F(AbiRecordsTest, InterfaceIdentityIsASixteenBitIdentifierAndAThirtyTwoBitQualifier) {
  EXPECT_TRUE((std::is_same<uint16_t, decltype(TInterfaceIdentity::identifier)>::value));
  EXPECT_TRUE((std::is_same<uint32_t, decltype(TInterfaceIdentity::qualifier)>::value));
  EXPECT_EQ(0u, offsetof(TInterfaceIdentity, identifier));
  EXPECT_EQ(4u, offsetof(TInterfaceIdentity, qualifier));
  EXPECT_EQ(8u, sizeof(TInterfaceIdentity));
  EXPECT_EQ(4u, alignof(TInterfaceIdentity));
}

TEST_F(AbiRecordsTest, EventStartsWithClassThenId) {
  EXPECT_TRUE((std::is_same<uint32_t, decltype(TEvent::eventClass)>::value));
  EXPECT_TRUE((std::is_same<uint32_t, decltype(TEvent::eventId)>::value));
  EXPECT_EQ(0u, offsetof(TEvent, eventClass));
  EXPECT_EQ(4u, offsetof(TEvent, eventId));
  EXPECT_EQ(8u, sizeof(TEvent));
}

TEST_F(AbiRecordsTest, EventRegistrationIsFourThirtyTwoBitWords) {
  EXPECT_EQ(0u, offsetof(TEventRegistration, eventClass));
  EXPECT_EQ(4u, offsetof(TEventRegistration, eventId));
  EXPECT_EQ(8u, offsetof(TEventRegistration, period));
  EXPECT_EQ(12u, offsetof(TEventRegistration, repeat));
  EXPECT_EQ(16u, sizeof(TEventRegistration));
  EXPECT_TRUE((std::is_same<uint32_t, decltype(TEventRegistration::repeat)>::value));
}

TEST_F(AbiRecordsTest, MicroHostRecordHasItsFixedLayoutOnEveryTarget) {
  EXPECT_EQ(0u, offsetof(TPosSensorData, TimeStamp));
  EXPECT_EQ(4u, offsetof(TPosSensorData, DistancePuls));
  EXPECT_EQ(6u, offsetof(TPosSensorData, AngularRate));
  EXPECT_EQ(8u, offsetof(TPosSensorData, DrivingDirection));
  EXPECT_EQ(12u, offsetof(TPosSensorData, NrOfSamples));
  EXPECT_EQ(16u, sizeof(TPosSensorData));
  EXPECT_EQ(4u, alignof(TPosSensorData));
  EXPECT_TRUE((std::is_same<uint32_t, decltype(TPosSensorData::TimeStamp)>::value));
  EXPECT_TRUE((std::is_same<uint16_t, decltype(TPosSensorData::DistancePuls)>::value));
  EXPECT_TRUE((std::is_same<int16_t, decltype(TPosSensorData::AngularRate)>::value));
  EXPECT_TRUE((std::is_same<uint32_t, decltype(TPosSensorData::DrivingDirection)>::value));
  EXPECT_TRUE((std::is_same<uint8_t, decltype(TPosSensorData::NrOfSamples)>::value));
}

TEST_F(AbiRecordsTest, SensorEntryIsEightBytesOnEveryTarget) {
  EXPECT_EQ(0u, offsetof(TiPositioningSensorEntry, sensorType));
  EXPECT_EQ(2u, offsetof(TiPositioningSensorEntry, sensorParameter));
  EXPECT_EQ(4u, offsetof(TiPositioningSensorEntry, samplePeriod));
  EXPECT_EQ(6u, offsetof(TiPositioningSensorEntry, valueCount));
  EXPECT_EQ(8u, sizeof(TiPositioningSensorEntry));
  EXPECT_TRUE((std::is_same<uint8_t, decltype(TiPositioningSensorEntry::valueCount)>::value));
}

TEST_F(AbiRecordsTest, SensorConfigurationIsACountThenAPointerToTheEntries) {
  EXPECT_EQ(0u, offsetof(TiPositioningSensorConfiguration, size));
  EXPECT_EQ(Figure(4, 8), offsetof(TiPositioningSensorConfiguration, data));
  EXPECT_EQ(Figure(8, 16), sizeof(TiPositioningSensorConfiguration));
  EXPECT_TRUE((std::is_same<uint8_t, decltype(TiPositioningSensorConfiguration::size)>::value));
  EXPECT_TRUE((std::is_same<TiPositioningSensorEntry*, decltype(TiPositioningSensorConfiguration::data)>::value));
}

TEST_F(AbiRecordsTest, SensorDataIsASixtyFourBitTimeThenTheValueSequence) {
  EXPECT_EQ(0u, offsetof(TiPositioningSensorData, timeStamp));
  EXPECT_EQ(8u, offsetof(TiPositioningSensorData, values));
  EXPECT_EQ(8u, offsetof(TiPositioningSensorData, values) + offsetof(TiPositioningSensorValues, size));
  EXPECT_EQ(Figure(12, 16), offsetof(TiPositioningSensorData, values) + offsetof(TiPositioningSensorValues, data));
  EXPECT_EQ(Figure(16, 24), sizeof(TiPositioningSensorData));
  EXPECT_EQ(8u, alignof(TiPositioningSensorData));
  EXPECT_TRUE((std::is_same<uint64_t, decltype(TiPositioningSensorData::timeStamp)>::value));
  EXPECT_TRUE((std::is_same<uint8_t, decltype(TiPositioningSensorValues::size)>::value));
  EXPECT_TRUE((std::is_same<int16_t*, decltype(TiPositioningSensorValues::data)>::value));
}

TEST_F(AbiRecordsTest, LogHandleIsAFlagWordThenTheStreamPointer) {
  typedef logging::internals::CLogHandle Handle;
  EXPECT_EQ(0u, offsetof(Handle, iFlags));
  EXPECT_EQ(Figure(4, 8), offsetof(Handle, iStream));
  EXPECT_EQ(Figure(8, 16), sizeof(Handle));
  EXPECT_TRUE((std::is_same<uint32_t, decltype(Handle::iFlags)>::value));
}

TEST_F(AbiRecordsTest, LogHandleIsReturnedThroughAHiddenResultPointer) {
  // A user-provided destructor makes the type non-trivial for calls: both sides then
  // return it in memory the caller provides, never in registers.
  typedef logging::internals::CLogHandle Handle;
  EXPECT_FALSE(std::is_trivially_destructible<Handle>::value);
  EXPECT_FALSE(std::is_trivially_copyable<Handle>::value);
}

TEST_F(AbiRecordsTest, TagAndCategoryNumbersAreThirtyTwoBitConstants) {
  // They go to IsEnabled by address: their type is part of the contract.
  EXPECT_TRUE((std::is_same<const uint32_t, decltype(logging::Positioning)>::value));
  EXPECT_EQ(81u, logging::Positioning);
  EXPECT_EQ(3u, logging::FeatureFw);
  EXPECT_EQ(1u, logging::categories::Error);
  EXPECT_EQ(4u, logging::categories::Info);
  EXPECT_EQ(8u, logging::categories::Info2);
  EXPECT_EQ(16u, logging::categories::Interface);
}

}  // namespace
