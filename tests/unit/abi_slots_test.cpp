// The virtual-table position of every operation of every host interface and of every
// interface of a service pair, read from the Itanium encoding of a pointer to virtual
// member function, and that each table ends where the daemon's does: a function a
// class derived from the interface adds lands in the slot right after the last one.
#include <gtest/gtest.h>

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <type_traits>

#include "FeatureTypes.h"
#include "IArdenClockSync.h"
#include "IEventBroker.h"
#include "IFeatureModule2.h"
#include "IFeatureProperties.h"
#include "IHalvikPositioningSensor.h"
#include "IInterfaceBroker.h"
#include "IMicroHostSensor.h"
#include "IPositioningSensor.h"
#include "Logging.h"
#include "MemberSlot.h"
#include "PlatformDevice.h"
#include "ReflectionInterface.h"

namespace {

using logging::ILogControl;
using logging::internals::CLogHandle;
using logging::internals::ILogger;
using logging::internals::ILogStream;
using testing_host::SlotOf;
using testing_host::TSlot;

// Slot of a virtual member function of T taken at T itself (no `this` adjustment);
// 0 for a function that is not virtual.
template <class TMember>
size_t Slot(TMember aMember) {
  const TSlot slot = SlotOf(aMember);
  if (!slot.isVirtual || slot.adjustment != 0) return 0;
  return slot.slot;
}

// Adds one virtual function after the table of I.
template <class I>
struct TTableEnd : I {
  virtual void Next() {}
};

// Slot that the first function a derived class adds would take: one past I's table.
template <class I>
size_t NextSlot() {
  return Slot(&TTableEnd<I>::Next);
}

// An interface with a virtual destructor and nothing but a table pointer in it.
template <class I>
void ExpectPureInterface(const char* aName) {
  EXPECT_TRUE(std::has_virtual_destructor<I>::value) << aName;
  EXPECT_TRUE(std::is_polymorphic<I>::value) << aName;
  EXPECT_EQ(sizeof(void*), sizeof(I)) << aName;
}

TEST(AbiSlotHelperTest, ReadsTheSlotOfTheFirstAndALaterFunction) {
  struct CProbe {
    virtual ~CProbe() {}
    virtual void Third() {}
    virtual void Fourth() {}
    void Plain() {}
  };
  EXPECT_EQ(3u, Slot(&CProbe::Third));
  EXPECT_EQ(4u, Slot(&CProbe::Fourth));
  EXPECT_EQ(0u, Slot(&CProbe::Plain));
  EXPECT_EQ(5u, NextSlot<CProbe>());
}

// ---------------------------------------------------------------------------------
// Host interfaces

TEST(HostInterfaceSlotsTest, FeatureModuleHoldsOnlyTheDestructorPair) {
  ExpectPureInterface<IFeatureModule2>("IFeatureModule2");
  EXPECT_EQ(3u, NextSlot<IFeatureModule2>());
}

TEST(HostInterfaceSlotsTest, FeaturePropertiesGetPropertyIsThirdAndLast) {
  ExpectPureInterface<IFeatureProperties>("IFeatureProperties");
  TBool (IFeatureProperties::*get)(const TFeatureId&, const std::string&, std::string&) const =
      &IFeatureProperties::GetProperty;
  EXPECT_EQ(3u, Slot(get));
  EXPECT_EQ(4u, NextSlot<IFeatureProperties>());
}

TEST(HostInterfaceSlotsTest, InterfaceBrokerRequestsRevokesThenReservedThenShared) {
  ExpectPureInterface<IInterfaceBroker>("IInterfaceBroker");
  typedef TBool (IInterfaceBroker::*Operation)(const TFeatureId&, const std::string&, const TInterfaceIdentity&,
                                               IReflectionInterface*);
  Operation request = &IInterfaceBroker::RequestInterface;
  Operation revoke = &IInterfaceBroker::RevokeInterface;
  Operation shared = &IInterfaceBroker::RequestSharedInterface;
  EXPECT_EQ(3u, Slot(request));
  EXPECT_EQ(4u, Slot(revoke));
  EXPECT_EQ(5u, Slot(&IInterfaceBroker::Reserved5));
  EXPECT_EQ(6u, Slot(shared));
  EXPECT_EQ(7u, NextSlot<IInterfaceBroker>());
}

TEST(HostInterfaceSlotsTest, EventBrokerRegistersThirdAndUnregistersFourth) {
  ExpectPureInterface<IEventBroker>("IEventBroker");
  TBool (IEventBroker::*reg)(const TEventRegistration&, IEventObserver*) = &IEventBroker::RegisterEventObserver;
  TBool (IEventBroker::*unreg)(const TEventRegistration&, IEventObserver*) = &IEventBroker::UnregisterEventObserver;
  EXPECT_EQ(3u, Slot(reg));
  EXPECT_EQ(4u, Slot(unreg));
  EXPECT_EQ(5u, NextSlot<IEventBroker>());
}

TEST(HostInterfaceSlotsTest, EventObserverOnEventIsThirdAndLast) {
  ExpectPureInterface<IEventObserver>("IEventObserver");
  void (IEventObserver::*onEvent)(const TEvent&) = &IEventObserver::OnEvent;
  EXPECT_EQ(3u, Slot(onEvent));
  EXPECT_EQ(4u, NextSlot<IEventObserver>());
}

TEST(HostInterfaceSlotsTest, LogControlIsEnabledIsEleventhAfterEightReserved) {
  ExpectPureInterface<ILogControl>("logging::ILogControl");
  EXPECT_EQ(3u, Slot(&ILogControl::Reserved3));
  EXPECT_EQ(4u, Slot(&ILogControl::Reserved4));
  EXPECT_EQ(5u, Slot(&ILogControl::Reserved5));
  EXPECT_EQ(6u, Slot(&ILogControl::Reserved6));
  EXPECT_EQ(7u, Slot(&ILogControl::Reserved7));
  EXPECT_EQ(8u, Slot(&ILogControl::Reserved8));
  EXPECT_EQ(9u, Slot(&ILogControl::Reserved9));
  EXPECT_EQ(10u, Slot(&ILogControl::Reserved10));
  TBool (ILogControl::*isEnabled)(const uint32_t*, const uint32_t*) = &ILogControl::IsEnabled;
  EXPECT_EQ(11u, Slot(isEnabled));
  EXPECT_EQ(12u, NextSlot<ILogControl>());
}

TEST(HostInterfaceSlotsTest, LoggerOpenIsFifthAfterTwoReserved) {
  ExpectPureInterface<ILogger>("logging::internals::ILogger");
  EXPECT_EQ(3u, Slot(&ILogger::Reserved3));
  EXPECT_EQ(4u, Slot(&ILogger::Reserved4));
  CLogHandle (ILogger::*open)(const char*, const char*, const char*, TBool, const char*, int) = &ILogger::Open;
  EXPECT_EQ(5u, Slot(open));
  EXPECT_EQ(6u, NextSlot<ILogger>());
}

TEST(HostInterfaceSlotsTest, LogStreamHasOneSlotPerPieceType) {
  ExpectPureInterface<ILogStream>("logging::internals::ILogStream");
  EXPECT_EQ(3u, Slot(&ILogStream::Reserved3));
  EXPECT_EQ(4u, Slot(&ILogStream::Close));
  EXPECT_EQ(5u, Slot(static_cast<void (ILogStream::*)(const bool*)>(&ILogStream::Append)));
  EXPECT_EQ(6u, Slot(static_cast<void (ILogStream::*)(const uint8_t*)>(&ILogStream::Append)));
  EXPECT_EQ(7u, Slot(static_cast<void (ILogStream::*)(const int16_t*)>(&ILogStream::Append)));
  EXPECT_EQ(8u, Slot(static_cast<void (ILogStream::*)(const uint16_t*)>(&ILogStream::Append)));
  EXPECT_EQ(9u, Slot(static_cast<void (ILogStream::*)(const int32_t*)>(&ILogStream::Append)));
  EXPECT_EQ(10u, Slot(static_cast<void (ILogStream::*)(const uint32_t*)>(&ILogStream::Append)));
  EXPECT_EQ(11u, Slot(static_cast<void (ILogStream::*)(const int64_t*)>(&ILogStream::Append)));
  EXPECT_EQ(12u, Slot(&ILogStream::Reserved12));
  EXPECT_EQ(13u, Slot(&ILogStream::Reserved13));
  EXPECT_EQ(14u, Slot(&ILogStream::Reserved14));
  EXPECT_EQ(15u, Slot(&ILogStream::AppendLineEnd));
  EXPECT_EQ(16u, Slot(static_cast<void (ILogStream::*)(const char*)>(&ILogStream::Append)));
  EXPECT_EQ(17u, Slot(static_cast<void (ILogStream::*)(const void*)>(&ILogStream::Append)));
  EXPECT_EQ(18u, NextSlot<ILogStream>());
}

TEST(HostInterfaceSlotsTest, MainUnitIoIsPluggedInFourthAndSetPinSeventh) {
  ExpectPureInterface<IMainUnitIO>("IMainUnitIO");
  EXPECT_EQ(3u, Slot(&IMainUnitIO::Reserved3));
  EXPECT_EQ(4u, Slot(&IMainUnitIO::IsPluggedIn));
  EXPECT_EQ(5u, Slot(&IMainUnitIO::Reserved5));
  EXPECT_EQ(6u, Slot(&IMainUnitIO::Reserved6));
  TBool (IMainUnitIO::*setPin)(uint32_t, uint32_t) = &IMainUnitIO::SetPin;
  EXPECT_EQ(7u, Slot(setPin));
  EXPECT_EQ(8u, NextSlot<IMainUnitIO>());
}

TEST(HostInterfaceSlotsTest, CanMicroIoTriggerClockSyncIsSixth) {
  ExpectPureInterface<ICanMicroIO>("ICanMicroIO");
  EXPECT_EQ(3u, Slot(&ICanMicroIO::Reserved3));
  EXPECT_EQ(4u, Slot(&ICanMicroIO::Reserved4));
  EXPECT_EQ(5u, Slot(&ICanMicroIO::Reserved5));
  EXPECT_EQ(6u, Slot(&ICanMicroIO::TriggerClockSync));
  EXPECT_EQ(7u, NextSlot<ICanMicroIO>());
}

TEST(HostInterfaceSlotsTest, PlatformDeviceOperationsAreNotVirtual) {
  // Reached by symbol, not through a table: the device has no table at all.
  EXPECT_FALSE(std::is_polymorphic<CPDDevice>::value);
  EXPECT_FALSE(SlotOf(&CPDDevice::MainUnitIO).isVirtual);
  EXPECT_FALSE(SlotOf(&CPDDevice::CanMicroIO).isVirtual);
}

TEST(HostInterfaceSlotsTest, ReflectionInterfaceRegistersThirdAndUnregistersFourth) {
  ExpectPureInterface<IReflectionInterface>("IReflectionInterface");
  EXPECT_EQ(3u, Slot(&IReflectionInterface::Register));
  EXPECT_EQ(4u, Slot(&IReflectionInterface::Unregister));
  EXPECT_EQ(5u, NextSlot<IReflectionInterface>());
}

// ---------------------------------------------------------------------------------
// Interface pairs: destructor pair, the callback registration of the partner, then
// the operations.

template <class I>
void ExpectCallbackRegistrationFirst(const char* aName) {
  typedef typename I::TPartner Partner;
  ExpectPureInterface<I>(aName);
  void (I::*reg)(Partner&) = &I::_RegisterCallback;
  void (I::*unreg)(Partner&) = &I::_UnregisterCallback;
  EXPECT_EQ(3u, Slot(reg)) << aName;
  EXPECT_EQ(4u, Slot(unreg)) << aName;
}

TEST(PairInterfaceSlotsTest, MicroHostFemaleTakesSyncTimeIdentificationStatusAndSensorData) {
  typedef IMicroHostSensorFemale I;
  ExpectCallbackRegistrationFirst<I>("IMicroHostSensorFemale");
  reflection::TErrCode (I::*syncTime)(IMicroHostSensorMale&, txdr_uint32) = &I::SyncTime;
  reflection::TErrCode (I::*identification)(IMicroHostSensorMale&, TIdentificationList&) = &I::Identification;
  reflection::TErrCode (I::*status)(IMicroHostSensorMale&, TStatus) = &I::Status;
  reflection::TErrCode (I::*sensorData)(IMicroHostSensorMale&, TPosSensorData&) = &I::SensorData;
  EXPECT_EQ(5u, Slot(syncTime));
  EXPECT_EQ(6u, Slot(identification));
  EXPECT_EQ(7u, Slot(status));
  EXPECT_EQ(8u, Slot(sensorData));
  EXPECT_EQ(9u, NextSlot<I>());
}

TEST(PairInterfaceSlotsTest, MicroHostMaleHoldsOnlyTheCallbackRegistration) {
  ExpectCallbackRegistrationFirst<IMicroHostSensorMale>("IMicroHostSensorMale");
  EXPECT_EQ(5u, NextSlot<IMicroHostSensorMale>());
}

TEST(PairInterfaceSlotsTest, PositioningFemaleTakesSubscribe) {
  typedef IPositioningSensorFemale I;
  ExpectCallbackRegistrationFirst<I>("IPositioningSensorFemale");
  reflection::TErrCode (I::*subscribe)(IPositioningSensorMale&, TiPositioningSensorType, txdr_bool) = &I::Subscribe;
  EXPECT_EQ(5u, Slot(subscribe));
  EXPECT_EQ(6u, NextSlot<I>());
}

TEST(PairInterfaceSlotsTest, PositioningMaleTakesConfigurationThenSensorData) {
  typedef IPositioningSensorMale I;
  ExpectCallbackRegistrationFirst<I>("IPositioningSensorMale");
  reflection::TErrCode (I::*configuration)(IPositioningSensorFemale&, TiPositioningSensorConfiguration&) =
      &I::Configuration;
  reflection::TErrCode (I::*sensorData)(IPositioningSensorFemale&, TiPositioningSensorType, TiPositioningSensorData&) =
      &I::SensorData;
  EXPECT_EQ(5u, Slot(configuration));
  EXPECT_EQ(6u, Slot(sensorData));
  EXPECT_EQ(7u, NextSlot<I>());
}

TEST(PairInterfaceSlotsTest, HalvikFemaleTakesSubscribe) {
  typedef IHalvikPositioningSensorFemale I;
  ExpectCallbackRegistrationFirst<I>("IHalvikPositioningSensorFemale");
  reflection::TErrCode (I::*subscribe)(IHalvikPositioningSensorMale&, TiPositioningSensorType, txdr_bool) =
      &I::Subscribe;
  EXPECT_EQ(5u, Slot(subscribe));
  EXPECT_EQ(6u, NextSlot<I>());
}

TEST(PairInterfaceSlotsTest, HalvikMaleTakesConfigurationThenSensorData) {
  typedef IHalvikPositioningSensorMale I;
  ExpectCallbackRegistrationFirst<I>("IHalvikPositioningSensorMale");
  reflection::TErrCode (I::*configuration)(IHalvikPositioningSensorFemale&, TiPositioningSensorConfiguration&) =
      &I::Configuration;
  reflection::TErrCode (I::*sensorData)(IHalvikPositioningSensorFemale&, TiPositioningSensorType,
                                        TiPositioningSensorData&) = &I::SensorData;
  EXPECT_EQ(5u, Slot(configuration));
  EXPECT_EQ(6u, Slot(sensorData));
  EXPECT_EQ(7u, NextSlot<I>());
}

TEST(PairInterfaceSlotsTest, ClockSyncFemaleHoldsOnlyTheCallbackRegistration) {
  ExpectCallbackRegistrationFirst<IArdenClockSyncFemale>("IArdenClockSyncFemale");
  EXPECT_EQ(5u, NextSlot<IArdenClockSyncFemale>());
}

TEST(PairInterfaceSlotsTest, ClockSyncMaleTakesTimeStampReport) {
  typedef IArdenClockSyncMale I;
  ExpectCallbackRegistrationFirst<I>("IArdenClockSyncMale");
  reflection::TErrCode (I::*report)(IArdenClockSyncFemale&, unsigned int) = &I::TimeStampReport;
  EXPECT_EQ(5u, Slot(report));
  EXPECT_EQ(6u, NextSlot<I>());
}

TEST(PairInterfaceSlotsTest, EachInterfaceNamesItsPartnerAndIsNamedBack) {
  EXPECT_TRUE((std::is_same<IMicroHostSensorMale, IMicroHostSensorFemale::TPartner>::value));
  EXPECT_TRUE((std::is_same<IMicroHostSensorFemale, IMicroHostSensorMale::TPartner>::value));
  EXPECT_TRUE((std::is_same<IPositioningSensorMale, IPositioningSensorFemale::TPartner>::value));
  EXPECT_TRUE((std::is_same<IPositioningSensorFemale, IPositioningSensorMale::TPartner>::value));
  EXPECT_TRUE((std::is_same<IHalvikPositioningSensorMale, IHalvikPositioningSensorFemale::TPartner>::value));
  EXPECT_TRUE((std::is_same<IHalvikPositioningSensorFemale, IHalvikPositioningSensorMale::TPartner>::value));
  EXPECT_TRUE((std::is_same<IArdenClockSyncMale, IArdenClockSyncFemale::TPartner>::value));
  EXPECT_TRUE((std::is_same<IArdenClockSyncFemale, IArdenClockSyncMale::TPartner>::value));
}

}  // namespace
