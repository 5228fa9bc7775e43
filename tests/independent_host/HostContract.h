// The feature daemon's side of the contract with a feature module, declared here from
// the binary-interface facts alone: value types, records, host interfaces, interface
// pairs and the module's entry points. Nothing of the module's own headers is used,
// as a daemon built apart from the module would not have them. Where the daemon has
// operations the module never calls, this file names them after their slot.
#ifndef INDEPENDENT_HOST_CONTRACT_H
#define INDEPENDENT_HOST_CONTRACT_H

#if defined(FEATURE_TYPES_H) || defined(LOGGING_H) || defined(REFLECTION_INTERFACE_H)
#error "the independent host must not see the module's headers"
#endif

#include <stdint.h>

#include <string>

// ---------------------------------------------------------------------------------
// Value types and records

typedef std::string TFeatureId;
typedef int32_t TBool;
typedef uint8_t TUint8;
typedef int32_t txdr_bool;
typedef uint32_t txdr_uint32;
namespace reflection {
typedef int32_t TErrCode;
}
typedef uint16_t TiPositioningSensorType;
typedef uint32_t TStatus;

struct TInterfaceIdentity {
  uint16_t identifier;
  uint32_t qualifier;
};

// The daemon's event record carries more than the module reads.
struct TEvent {
  uint32_t eventClass;
  uint32_t eventId;
  uint32_t sequence;  // the daemon's own
  uint64_t firedAt;   // the daemon's own
};

struct TEventRegistration {
  uint32_t eventClass;
  uint32_t eventId;
  uint32_t period;
  uint32_t repeat;
};

// The micro-host service's own list; the module passes it on by reference only.
struct TIdentificationList {
  uint32_t count;
  uint32_t parts[4];
};

struct TPosSensorData {
  uint32_t TimeStamp;
  uint16_t DistancePuls;
  int16_t AngularRate;
  uint32_t DrivingDirection;
  uint8_t NrOfSamples;
};

struct TiPositioningSensorEntry {
  TiPositioningSensorType sensorType;
  uint16_t sensorParameter;
  uint16_t samplePeriod;
  uint8_t valueCount;
};

struct TiPositioningSensorConfiguration {
  uint8_t size;
  TiPositioningSensorEntry* data;
};

struct TSensorValues {
  uint8_t size;
  int16_t* data;
};

struct TiPositioningSensorData {
  uint64_t timeStamp;
  TSensorValues values;
};

// ---------------------------------------------------------------------------------
// Host interfaces

class IReflectionInterface;

class IFeatureModule2 {
 public:
  virtual ~IFeatureModule2() {}
};

class IFeatureProperties {
 public:
  virtual ~IFeatureProperties() {}
  virtual TBool GetProperty(const TFeatureId& aFeature, const std::string& aName, std::string& aValue) const = 0;
};

class IInterfaceBroker {
 public:
  virtual ~IInterfaceBroker() {}
  virtual TBool RequestInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                 const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) = 0;
  virtual TBool RevokeInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) = 0;
  virtual TBool Slot5(const TFeatureId& aFeature) = 0;
  virtual TBool RequestSharedInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                       const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) = 0;
};

class IEventObserver {
 public:
  virtual ~IEventObserver() {}
  virtual void OnEvent(const TEvent& aEvent) = 0;
};

class IEventBroker {
 public:
  virtual ~IEventBroker() {}
  virtual TBool RegisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) = 0;
  virtual TBool UnregisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) = 0;
};

namespace logging {

class ILogControl {
 public:
  virtual ~ILogControl() {}
  virtual void Slot3() = 0;
  virtual void Slot4() = 0;
  virtual void Slot5() = 0;
  virtual void Slot6() = 0;
  virtual void Slot7() = 0;
  virtual void Slot8() = 0;
  virtual void Slot9() = 0;
  virtual void Slot10() = 0;
  virtual TBool IsEnabled(const uint32_t* aModule, const uint32_t* aCategory) = 0;
};

ILogControl& IControl();

namespace internals {

class ILogStream {
 public:
  virtual ~ILogStream() {}
  virtual void Slot3() = 0;
  virtual void Close() = 0;
  virtual void Append(const bool* aValue) = 0;
  virtual void Append(const uint8_t* aValue) = 0;
  virtual void Append(const int16_t* aValue) = 0;
  virtual void Append(const uint16_t* aValue) = 0;
  virtual void Append(const int32_t* aValue) = 0;
  virtual void Append(const uint32_t* aValue) = 0;
  virtual void Append(const int64_t* aValue) = 0;
  virtual void Slot12() = 0;
  virtual void Slot13() = 0;
  virtual void Slot14() = 0;
  virtual void AppendLineEnd(const char* aLineEnd) = 0;
  virtual void Append(const char* aText) = 0;
  virtual void Append(const void* aPointer) = 0;
};

// Returned by value; the user-provided destructor makes both sides pass it through a
// hidden result pointer.
class CLogHandle {
 public:
  CLogHandle(uint32_t aFlags, ILogStream* aStream) : iFlags(aFlags), iStream(aStream) {}
  CLogHandle(const CLogHandle&) = delete;
  CLogHandle& operator=(const CLogHandle&) = delete;
  ~CLogHandle() {
    if (iFlags == 0) iStream->Close();
  }
  uint32_t iFlags;
  ILogStream* iStream;
};

class ILogger {
 public:
  virtual ~ILogger() {}
  virtual void Slot3() = 0;
  virtual void Slot4() = 0;
  virtual CLogHandle Open(const char* aCategory, const char* aModule, const char* aFunction, TBool aEnabled,
                          const char* aFile, int aLine) = 0;
};

ILogger& ILog();

}  // namespace internals
}  // namespace logging

class IMainUnitIO {
 public:
  virtual ~IMainUnitIO() {}
  virtual void Slot3() = 0;
  virtual TBool IsPluggedIn() = 0;
  virtual void Slot5() = 0;
  virtual void Slot6() = 0;
  virtual TBool SetPin(uint32_t aPin, uint32_t aLevel) = 0;
};

class ICanMicroIO {
 public:
  virtual ~ICanMicroIO() {}
  virtual void Slot3() = 0;
  virtual void Slot4() = 0;
  virtual void Slot5() = 0;
  virtual TBool TriggerClockSync() = 0;
};

class CPDDevice {
 public:
  static CPDDevice& Instance();
  IMainUnitIO& MainUnitIO() const;
  ICanMicroIO& CanMicroIO() const;
};

extern "C" {
int OSALTickInit(void);
uint64_t OSALTickCount(void);
void platSleep(int aDuration);
}

// ---------------------------------------------------------------------------------
// Connection of interface pairs

class IReflectionInterface {
 public:
  virtual ~IReflectionInterface() {}
  virtual TBool Register(IReflectionInterface* aPeer) = 0;
  virtual TBool Unregister(IReflectionInterface* aPeer) = 0;
};

class IMicroHostSensorMale;
class IPositioningSensorMale;
class IHalvikPositioningSensorMale;
class IArdenClockSyncMale;

class IMicroHostSensorFemale {
 public:
  virtual ~IMicroHostSensorFemale() {}
  virtual void _RegisterCallback(IMicroHostSensorMale& aPartner) = 0;
  virtual void _UnregisterCallback(IMicroHostSensorMale& aPartner) = 0;
  virtual reflection::TErrCode SyncTime(IMicroHostSensorMale& aPartner, txdr_uint32 aTime) = 0;
  virtual reflection::TErrCode Identification(IMicroHostSensorMale& aPartner, TIdentificationList& aList) = 0;
  virtual reflection::TErrCode Status(IMicroHostSensorMale& aPartner, TStatus aStatus) = 0;
  virtual reflection::TErrCode SensorData(IMicroHostSensorMale& aPartner, TPosSensorData& aData) = 0;
};

class IMicroHostSensorMale {
 public:
  virtual ~IMicroHostSensorMale() {}
  virtual void _RegisterCallback(IMicroHostSensorFemale& aPartner) = 0;
  virtual void _UnregisterCallback(IMicroHostSensorFemale& aPartner) = 0;
};

class IPositioningSensorFemale {
 public:
  virtual ~IPositioningSensorFemale() {}
  virtual void _RegisterCallback(IPositioningSensorMale& aPartner) = 0;
  virtual void _UnregisterCallback(IPositioningSensorMale& aPartner) = 0;
  virtual reflection::TErrCode Subscribe(IPositioningSensorMale& aPartner, TiPositioningSensorType aType,
                                         txdr_bool aRequestBufferedData) = 0;
};

class IPositioningSensorMale {
 public:
  virtual ~IPositioningSensorMale() {}
  virtual void _RegisterCallback(IPositioningSensorFemale& aPartner) = 0;
  virtual void _UnregisterCallback(IPositioningSensorFemale& aPartner) = 0;
  virtual reflection::TErrCode Configuration(IPositioningSensorFemale& aPartner,
                                             TiPositioningSensorConfiguration& aConfig) = 0;
  virtual reflection::TErrCode SensorData(IPositioningSensorFemale& aPartner, TiPositioningSensorType aType,
                                          TiPositioningSensorData& aData) = 0;
};

class IHalvikPositioningSensorFemale {
 public:
  virtual ~IHalvikPositioningSensorFemale() {}
  virtual void _RegisterCallback(IHalvikPositioningSensorMale& aPartner) = 0;
  virtual void _UnregisterCallback(IHalvikPositioningSensorMale& aPartner) = 0;
  virtual reflection::TErrCode Subscribe(IHalvikPositioningSensorMale& aPartner, TiPositioningSensorType aType,
                                         txdr_bool aFlag) = 0;
};

class IHalvikPositioningSensorMale {
 public:
  virtual ~IHalvikPositioningSensorMale() {}
  virtual void _RegisterCallback(IHalvikPositioningSensorFemale& aPartner) = 0;
  virtual void _UnregisterCallback(IHalvikPositioningSensorFemale& aPartner) = 0;
  virtual reflection::TErrCode Configuration(IHalvikPositioningSensorFemale& aPartner,
                                             TiPositioningSensorConfiguration& aConfig) = 0;
  virtual reflection::TErrCode SensorData(IHalvikPositioningSensorFemale& aPartner, TiPositioningSensorType aType,
                                          TiPositioningSensorData& aData) = 0;
};

class IArdenClockSyncFemale {
 public:
  virtual ~IArdenClockSyncFemale() {}
  virtual void _RegisterCallback(IArdenClockSyncMale& aPartner) = 0;
  virtual void _UnregisterCallback(IArdenClockSyncMale& aPartner) = 0;
};

class IArdenClockSyncMale {
 public:
  virtual ~IArdenClockSyncMale() {}
  virtual void _RegisterCallback(IArdenClockSyncFemale& aPartner) = 0;
  virtual void _UnregisterCallback(IArdenClockSyncFemale& aPartner) = 0;
  virtual reflection::TErrCode TimeStampReport(IArdenClockSyncFemale& aPartner, unsigned int aTimeStamp) = 0;
};

// ---------------------------------------------------------------------------------
// The module's entry points, found by name.

typedef const char* (*TFeatureTypeFunction)();
typedef IFeatureModule2* (*TFeatureCreate2Function)(const TFeatureId&, IInterfaceBroker&, IEventBroker&,
                                                    const IFeatureProperties&);

#endif  // INDEPENDENT_HOST_CONTRACT_H
