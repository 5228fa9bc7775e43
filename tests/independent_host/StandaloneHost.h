// A small daemon of its own: logging facility, platform device, tick counter,
// interface and event brokers, feature properties, the services a positioning feature
// talks to and a positioning client, all built on HostContract.h only. It loads a
// feature module with dlopen, as the unit's daemon does.
#ifndef INDEPENDENT_HOST_STANDALONE_HOST_H
#define INDEPENDENT_HOST_STANDALONE_HOST_H

#include <stdint.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "HostContract.h"

namespace standalone {

// ---------------------------------------------------------------------------------
// Logging

// One piece of a record, with the stream slot it came through.
struct Piece {
  std::string kind;  // "bool", "u8", "i16", "u16", "i32", "u32", "i64", "text", "pointer"
  std::string text;  // decimal numbers, "true"/"false", pointers as 0x...
  uint64_t raw;      // the number or pointer value
};

struct Record {
  std::string category;
  std::string module;
  std::string function;
  std::string file;
  int line = 0;
  TBool enabled = 0;
  uint32_t moduleNumber = 0;  // what IsEnabled was given just before Open
  uint32_t categoryNumber = 0;
  std::vector<Piece> pieces;
  std::string lineEnd;
  bool closed = false;

  // The pieces between the enclosing "(" and ")", joined.
  std::string Message() const;
  // Kinds of those pieces, joined by blanks.
  std::string Kinds() const;
};

// Every record the module wrote, in order of opening.
std::vector<Record>& Records();
// The records of one function text.
std::vector<Record> RecordsOf(const std::string& aFunction);

// ---------------------------------------------------------------------------------
// Clock, OSAL, platform

struct Pin {
  uint64_t at;
  uint32_t pin;
  uint32_t level;
};

struct Platform {
  uint64_t now = 100000;  // what OSALTickCount answers
  int tickInits = 0;
  std::vector<int> sleeps;
  bool plugged = true;
  std::vector<Pin> pins;
  int clockSyncTriggers = 0;
  // Told of a rising CLK_SYNC edge (the main unit's clock-sync service listens).
  class IPulseListener* listener = nullptr;
};

class IPulseListener {
 public:
  virtual ~IPulseListener() {}
  virtual void OnPulse(uint64_t aLocalTime) = 0;
};

Platform& ThePlatform();
// Fresh logging, platform and clock for a test.
void Reset();

// ---------------------------------------------------------------------------------
// Brokers and properties

class CProperties : public IFeatureProperties {
 public:
  TBool GetProperty(const TFeatureId& aFeature, const std::string& aName, std::string& aValue) const override;
  std::map<std::string, std::string> values;
  mutable std::vector<std::string> asked;  // "feature/name"
};

struct BrokerCall {
  std::string operation;  // "RequestInterface", "RevokeInterface", "RequestSharedInterface"
  TFeatureId feature;
  std::string instance;
  uint16_t identifier;
  uint32_t qualifier;
  IReflectionInterface* handler;
};

// Connects a module's handler with the peer attached under the same instance name and
// identifier, by calling Register(peer) on the module's handler.
class CInterfaceBroker : public IInterfaceBroker {
 public:
  TBool RequestInterface(const TFeatureId& aFeature, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                         IReflectionInterface* aHandler) override;
  TBool RevokeInterface(const TFeatureId& aFeature, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                        IReflectionInterface* aHandler) override;
  TBool Slot5(const TFeatureId& aFeature) override;
  TBool RequestSharedInterface(const TFeatureId& aFeature, const std::string& aInstance,
                               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) override;

  // A service or client of the daemon's side comes (goes).
  void AttachPeer(const std::string& aInstance, uint16_t aIdentifier, IReflectionInterface* aPeer);
  void DetachPeer(const std::string& aInstance, uint16_t aIdentifier);

  std::vector<BrokerCall> calls;
  std::vector<std::string> misuse;  // calls of the daemon's own slot 5

 private:
  struct Point {
    IReflectionInterface* handler = nullptr;
    IReflectionInterface* peer = nullptr;
  };
  TBool Attach(const char* aOperation, const TFeatureId& aFeature, const std::string& aInstance,
               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler);
  std::map<std::pair<std::string, uint16_t>, Point> iPoints;
};

struct EventCall {
  std::string operation;  // "Register", "Unregister"
  TEventRegistration registration;
  IEventObserver* observer;
};

// Periodic timers on the simulated clock.
class CEventBroker : public IEventBroker {
 public:
  TBool RegisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) override;
  TBool UnregisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) override;
  // Moves the clock on to aTime, firing every timer that falls due on the way.
  void RunUntil(uint64_t aTime);

  std::vector<EventCall> calls;
  uint32_t fired = 0;

 private:
  struct Timer {
    IEventObserver* observer;
    uint32_t eventClass;
    uint32_t eventId;
    uint32_t period;
    uint64_t due;
  };
  std::vector<Timer> iTimers;
};

// ---------------------------------------------------------------------------------
// The daemon's ends of the interface pairs

// One end as the daemon's framework builds it: the handshake part and the interface.
template <class Own, class Partner>
class CPeerEnd : public IReflectionInterface, public Own {
 public:
  TBool Register(IReflectionInterface* aPeer) override {
    if (iPeer != nullptr) return 0;
    Partner* partner = dynamic_cast<Partner*>(aPeer);  // across the two binaries
    if (partner == nullptr) return 0;
    iPeer = aPeer;
    iPartner = partner;
    aPeer->Register(this);
    return 1;
  }
  TBool Unregister(IReflectionInterface* aPeer) override {
    if (iPeer == nullptr || aPeer != iPeer) return 0;
    iPeer = nullptr;
    iPartner = nullptr;
    aPeer->Unregister(this);
    return 1;
  }
  void _RegisterCallback(Partner&) override {}
  void _UnregisterCallback(Partner&) override {}

  IReflectionInterface* Handshake() { return this; }
  Partner* partner() const { return iPartner; }

 protected:
  IReflectionInterface* iPeer = nullptr;
  Partner* iPartner = nullptr;
};

// The CAN micro-controller's micro-host sensor service.
class CMicroHostService : public CPeerEnd<IMicroHostSensorMale, IMicroHostSensorFemale> {
 public:
  reflection::TErrCode SendSensorData(TPosSensorData aData) { return iPartner->SensorData(*this, aData); }
  reflection::TErrCode SendSyncTime(txdr_uint32 aTime) { return iPartner->SyncTime(*this, aTime); }
  reflection::TErrCode SendStatus(TStatus aStatus) { return iPartner->Status(*this, aStatus); }
  reflection::TErrCode SendIdentification(TIdentificationList& aList) { return iPartner->Identification(*this, aList); }
};

// The external positioning-sensor service.
class CExternalService : public CPeerEnd<IHalvikPositioningSensorFemale, IHalvikPositioningSensorMale> {
 public:
  reflection::TErrCode Subscribe(IHalvikPositioningSensorMale& aPartner, TiPositioningSensorType aType,
                                 txdr_bool aFlag) override;
  reflection::TErrCode SendConfiguration(TiPositioningSensorConfiguration& aConfig) {
    return iPartner->Configuration(*this, aConfig);
  }
  reflection::TErrCode SendSensorData(TiPositioningSensorType aType, uint64_t aTime, std::vector<int16_t> aValues);

  struct Subscription {
    IHalvikPositioningSensorMale* subscriber;
    TiPositioningSensorType type;
    txdr_bool flag;
  };
  std::vector<Subscription> subscriptions;
};

// The main unit's clock-sync service: stamps each CLK_SYNC pulse in the main unit's
// clock, aOffset milliseconds behind the local tick, and reports it on request.
class CClockSyncService : public CPeerEnd<IArdenClockSyncFemale, IArdenClockSyncMale>, public IPulseListener {
 public:
  explicit CClockSyncService(uint64_t aOffset) : iOffset(aOffset) {}
  void OnPulse(uint64_t aLocalTime) override { pulses.push_back(static_cast<unsigned int>(aLocalTime - iOffset)); }
  reflection::TErrCode ReportLastPulse() { return iPartner->TimeStampReport(*this, pulses.back()); }
  void SetOffset(uint64_t aOffset) { iOffset = aOffset; }

  std::vector<unsigned int> pulses;  // main-unit time of each rising edge

 private:
  uint64_t iOffset;
};

struct Sample {
  TiPositioningSensorType type;
  uint64_t timeStamp;
  std::vector<int16_t> values;
};

// A positioning client of the feature's positioning-sensor service.
class CPositioningClient : public CPeerEnd<IPositioningSensorMale, IPositioningSensorFemale> {
 public:
  reflection::TErrCode Configuration(IPositioningSensorFemale& aPartner,
                                     TiPositioningSensorConfiguration& aConfig) override;
  reflection::TErrCode SensorData(IPositioningSensorFemale& aPartner, TiPositioningSensorType aType,
                                  TiPositioningSensorData& aData) override;
  reflection::TErrCode Subscribe(TiPositioningSensorType aType, txdr_bool aReplay) {
    return iPartner->Subscribe(*this, aType, aReplay);
  }

  std::vector<TiPositioningSensorEntry> configuration;
  int configurations = 0;
  std::vector<Sample> samples;
  bool fromPartner = true;  // every call came from the connected partner
};

// ---------------------------------------------------------------------------------
// Loading

// The module as a daemon holds it: the shared object and its two entry points.
class CLoadedModule {
 public:
  explicit CLoadedModule(const std::string& aPath);
  ~CLoadedModule();
  bool Loaded() const { return iFeatureType != nullptr && iFeatureCreate2 != nullptr; }
  const std::string& Error() const { return iError; }
  const char* FeatureType() const { return iFeatureType(); }
  IFeatureModule2* Create(const TFeatureId& aFeature, IInterfaceBroker& aBroker, IEventBroker& aEvents,
                          const IFeatureProperties& aProperties) const {
    return iFeatureCreate2(aFeature, aBroker, aEvents, aProperties);
  }

 private:
  void* iHandle = nullptr;
  TFeatureTypeFunction iFeatureType = nullptr;
  TFeatureCreate2Function iFeatureCreate2 = nullptr;
  std::string iError;
};

}  // namespace standalone

#endif  // INDEPENDENT_HOST_STANDALONE_HOST_H
