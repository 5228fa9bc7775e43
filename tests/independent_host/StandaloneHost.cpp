#include "StandaloneHost.h"

#include <dlfcn.h>
#include <inttypes.h>
#include <stdio.h>

#include <algorithm>
#include <deque>

namespace standalone {

namespace {

Platform gPlatform;
std::vector<Record> gRecords;
uint32_t gLastModuleNumber = 0;
uint32_t gLastCategoryNumber = 0;

// A record being written; it lands in gRecords, and Close marks it done.
class CRecordStream : public logging::internals::ILogStream {
 public:
  explicit CRecordStream(size_t aIndex) : iIndex(aIndex) {}
  void Slot3() override { Add("slot3", "", 0); }
  void Close() override { gRecords[iIndex].closed = true; }
  void Append(const bool* aValue) override { Add("bool", *aValue ? "true" : "false", *aValue); }
  void Append(const uint8_t* aValue) override { Add("u8", std::to_string(*aValue), *aValue); }
  void Append(const int16_t* aValue) override { Add("i16", std::to_string(*aValue), uint64_t(int64_t(*aValue))); }
  void Append(const uint16_t* aValue) override { Add("u16", std::to_string(*aValue), *aValue); }
  void Append(const int32_t* aValue) override { Add("i32", std::to_string(*aValue), uint64_t(int64_t(*aValue))); }
  void Append(const uint32_t* aValue) override { Add("u32", std::to_string(*aValue), *aValue); }
  void Append(const int64_t* aValue) override { Add("i64", std::to_string(*aValue), uint64_t(*aValue)); }
  void Slot12() override { Add("slot12", "", 0); }
  void Slot13() override { Add("slot13", "", 0); }
  void Slot14() override { Add("slot14", "", 0); }
  void AppendLineEnd(const char* aLineEnd) override { gRecords[iIndex].lineEnd += aLineEnd; }
  void Append(const char* aText) override { Add("text", aText, 0); }
  void Append(const void* aPointer) override {
    char text[32];
    snprintf(text, sizeof text, "0x%" PRIxPTR, reinterpret_cast<uintptr_t>(aPointer));
    Add("pointer", text, reinterpret_cast<uintptr_t>(aPointer));
  }

 private:
  void Add(const char* aKind, const std::string& aText, uint64_t aRaw) {
    gRecords[iIndex].pieces.push_back(Piece{aKind, aText, aRaw});
  }
  size_t iIndex;
};

std::deque<CRecordStream>& Streams() {
  static std::deque<CRecordStream> streams;
  return streams;
}

class CLogControl : public logging::ILogControl {
 public:
  void Slot3() override {}
  void Slot4() override {}
  void Slot5() override {}
  void Slot6() override {}
  void Slot7() override {}
  void Slot8() override {}
  void Slot9() override {}
  void Slot10() override {}
  // Answers a value of its own per category: the module must hand it on unread.
  TBool IsEnabled(const uint32_t* aModule, const uint32_t* aCategory) override {
    gLastModuleNumber = *aModule;
    gLastCategoryNumber = *aCategory;
    return static_cast<TBool>(100 + *aCategory);
  }
};

class CLogger : public logging::internals::ILogger {
 public:
  void Slot3() override {}
  void Slot4() override {}
  logging::internals::CLogHandle Open(const char* aCategory, const char* aModule, const char* aFunction, TBool aEnabled,
                                      const char* aFile, int aLine) override {
    Record record;
    record.category = aCategory;
    record.module = aModule;
    record.function = aFunction;
    record.enabled = aEnabled;
    record.file = aFile;
    record.line = aLine;
    record.moduleNumber = gLastModuleNumber;
    record.categoryNumber = gLastCategoryNumber;
    gLastModuleNumber = gLastCategoryNumber = 0;
    gRecords.push_back(record);
    Streams().emplace_back(gRecords.size() - 1);
    return logging::internals::CLogHandle(0, &Streams().back());
  }
};

class CMainUnit : public IMainUnitIO {
 public:
  void Slot3() override {}
  TBool IsPluggedIn() override { return gPlatform.plugged ? 1 : 0; }
  void Slot5() override {}
  void Slot6() override {}
  TBool SetPin(uint32_t aPin, uint32_t aLevel) override {
    gPlatform.pins.push_back(Pin{gPlatform.now, aPin, aLevel});
    if (aPin == 7 && aLevel == 1 && gPlatform.listener != nullptr) gPlatform.listener->OnPulse(gPlatform.now);
    return 1;
  }
};

class CCanMicro : public ICanMicroIO {
 public:
  void Slot3() override {}
  void Slot4() override {}
  void Slot5() override {}
  TBool TriggerClockSync() override {
    ++gPlatform.clockSyncTriggers;
    return 1;
  }
};

CLogControl gControl;
CLogger gLogger;
CMainUnit gMainUnit;
CCanMicro gCanMicro;

}  // namespace

std::string Record::Message() const {
  std::string message;
  for (size_t i = 1; i + 1 < pieces.size(); ++i) message += pieces[i].text;
  return message;
}

std::string Record::Kinds() const {
  std::string kinds;
  for (size_t i = 1; i + 1 < pieces.size(); ++i) kinds += (kinds.empty() ? "" : " ") + pieces[i].kind;
  return kinds;
}

std::vector<Record>& Records() { return gRecords; }

std::vector<Record> RecordsOf(const std::string& aFunction) {
  std::vector<Record> records;
  for (const Record& record : gRecords)
    if (record.function == aFunction) records.push_back(record);
  return records;
}

Platform& ThePlatform() { return gPlatform; }

void Reset() {
  gPlatform = Platform();
  gRecords.clear();
  Streams().clear();
}

// ---------------------------------------------------------------------------------

TBool CProperties::GetProperty(const TFeatureId& aFeature, const std::string& aName, std::string& aValue) const {
  asked.push_back(aFeature + "/" + aName);
  auto it = values.find(aName);
  if (it == values.end()) return 0;
  aValue = it->second;
  return 1;
}

TBool CInterfaceBroker::Attach(const char* aOperation, const TFeatureId& aFeature, const std::string& aInstance,
                               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) {
  calls.push_back(BrokerCall{aOperation, aFeature, aInstance, aIdentity.identifier, aIdentity.qualifier, aHandler});
  Point& point = iPoints[std::make_pair(aInstance, aIdentity.identifier)];
  if (point.handler != nullptr) return 0;
  point.handler = aHandler;
  if (point.peer != nullptr) aHandler->Register(point.peer);
  return 1;
}

TBool CInterfaceBroker::RequestInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                         const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) {
  return Attach("RequestInterface", aFeature, aInstance, aIdentity, aHandler);
}

TBool CInterfaceBroker::RequestSharedInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) {
  return Attach("RequestSharedInterface", aFeature, aInstance, aIdentity, aHandler);
}

TBool CInterfaceBroker::RevokeInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                        const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) {
  calls.push_back(
      BrokerCall{"RevokeInterface", aFeature, aInstance, aIdentity.identifier, aIdentity.qualifier, aHandler});
  Point& point = iPoints[std::make_pair(aInstance, aIdentity.identifier)];
  if (point.handler != aHandler) return 0;
  if (point.peer != nullptr) aHandler->Unregister(point.peer);
  point.handler = nullptr;
  return 1;
}

TBool CInterfaceBroker::Slot5(const TFeatureId& aFeature) {
  misuse.push_back(aFeature);
  return 0;
}

void CInterfaceBroker::AttachPeer(const std::string& aInstance, uint16_t aIdentifier, IReflectionInterface* aPeer) {
  Point& point = iPoints[std::make_pair(aInstance, aIdentifier)];
  point.peer = aPeer;
  if (point.handler != nullptr) point.handler->Register(aPeer);
}

void CInterfaceBroker::DetachPeer(const std::string& aInstance, uint16_t aIdentifier) {
  Point& point = iPoints[std::make_pair(aInstance, aIdentifier)];
  if (point.handler != nullptr && point.peer != nullptr) point.handler->Unregister(point.peer);
  point.peer = nullptr;
}

// ---------------------------------------------------------------------------------

TBool CEventBroker::RegisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) {
  calls.push_back(EventCall{"Register", aRegistration, aObserver});
  iTimers.push_back(Timer{aObserver, aRegistration.eventClass, aRegistration.eventId, aRegistration.period,
                          ThePlatform().now + aRegistration.period});
  return 1;
}

TBool CEventBroker::UnregisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) {
  // Only class and id identify the timer; the other words are not filled in.
  TEventRegistration seen = {aRegistration.eventClass, aRegistration.eventId, aRegistration.period, 0};
  calls.push_back(EventCall{"Unregister", seen, aObserver});
  iTimers.erase(std::remove_if(iTimers.begin(), iTimers.end(),
                               [&](const Timer& aTimer) {
                                 return aTimer.observer == aObserver && aTimer.eventClass == aRegistration.eventClass &&
                                        aTimer.eventId == aRegistration.eventId;
                               }),
                iTimers.end());
  return 1;
}

void CEventBroker::RunUntil(uint64_t aTime) {
  for (;;) {
    auto next = std::min_element(iTimers.begin(), iTimers.end(),
                                 [](const Timer& aLeft, const Timer& aRight) { return aLeft.due < aRight.due; });
    if (next == iTimers.end() || next->due > aTime) break;
    Timer timer = *next;
    next->due += timer.period;
    ThePlatform().now = timer.due;
    TEvent event = {timer.eventClass, timer.eventId, ++fired, timer.due};
    timer.observer->OnEvent(event);
  }
  ThePlatform().now = aTime;
}

// ---------------------------------------------------------------------------------

reflection::TErrCode CExternalService::Subscribe(IHalvikPositioningSensorMale& aPartner, TiPositioningSensorType aType,
                                                 txdr_bool aFlag) {
  subscriptions.push_back(Subscription{&aPartner, aType, aFlag});
  return 0;
}

reflection::TErrCode CExternalService::SendSensorData(TiPositioningSensorType aType, uint64_t aTime,
                                                      std::vector<int16_t> aValues) {
  TiPositioningSensorData data;
  data.timeStamp = aTime;
  data.values.size = static_cast<uint8_t>(aValues.size());
  data.values.data = aValues.data();
  return iPartner->SensorData(*this, aType, data);
}

reflection::TErrCode CPositioningClient::Configuration(IPositioningSensorFemale& aPartner,
                                                       TiPositioningSensorConfiguration& aConfig) {
  fromPartner = fromPartner && &aPartner == iPartner;
  ++configurations;
  configuration.assign(aConfig.data, aConfig.data + aConfig.size);
  return 0;
}

reflection::TErrCode CPositioningClient::SensorData(IPositioningSensorFemale& aPartner, TiPositioningSensorType aType,
                                                    TiPositioningSensorData& aData) {
  fromPartner = fromPartner && &aPartner == iPartner;
  samples.push_back(
      Sample{aType, aData.timeStamp, std::vector<int16_t>(aData.values.data, aData.values.data + aData.values.size)});
  return 0;
}

// ---------------------------------------------------------------------------------

CLoadedModule::CLoadedModule(const std::string& aPath) {
  // Every host symbol must resolve now, from this process.
  iHandle = dlopen(aPath.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (iHandle == nullptr) {
    iError = dlerror();
    return;
  }
  iFeatureType = reinterpret_cast<TFeatureTypeFunction>(dlsym(iHandle, "FeatureType"));
  iFeatureCreate2 = reinterpret_cast<TFeatureCreate2Function>(dlsym(iHandle, "FeatureCreate2"));
  if (!Loaded()) iError = "entry points missing";
}

CLoadedModule::~CLoadedModule() {
  if (iHandle != nullptr) dlclose(iHandle);
}

}  // namespace standalone

// ---------------------------------------------------------------------------------
// The symbols the module takes from the process.

namespace logging {
ILogControl& IControl() { return standalone::gControl; }
namespace internals {
ILogger& ILog() { return standalone::gLogger; }
}  // namespace internals
}  // namespace logging

CPDDevice& CPDDevice::Instance() {
  static CPDDevice device;
  return device;
}

IMainUnitIO& CPDDevice::MainUnitIO() const { return standalone::gMainUnit; }

ICanMicroIO& CPDDevice::CanMicroIO() const { return standalone::gCanMicro; }

extern "C" {
int OSALTickInit(void) {
  ++standalone::ThePlatform().tickInits;
  return 0;
}
uint64_t OSALTickCount(void) { return standalone::ThePlatform().now; }
void platSleep(int aDuration) { standalone::ThePlatform().sleeps.push_back(aDuration); }
}
