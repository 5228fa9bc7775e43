// A feature daemon in miniature, built from the installed package alone: it defines
// what the module takes from the daemon (HostSymbols.h), loads libPositioning.so with
// dlopen, creates a CAN positioning feature and drives it through a short simulated
// drive. The CAN micro-controller's sensor service and a positioning client are the
// daemon's own; the client prints every sample it receives as CSV:
//
//   sensor_type,time_stamp,values        1: gyroscope (samples;rate), 2: odometer (pulses;direction)
//
// Usage: positioning-example-daemon [--seconds N] [module file]
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <Positioning/HostSymbols.h>
#include <Positioning/IMicroHostSensor.h>
#include <Positioning/IPositioningSensor.h>
#include <Positioning/PositioningModule.h>
#include <Positioning/ReflectionInterface.h>

#ifndef POSITIONING_MODULE_FILE
#define POSITIONING_MODULE_FILE "libPositioning.so"  // from the library search path
#endif

namespace {

// ---- The daemon's side of the contract ---------------------------------------------
uint64_t gNow = 100000;     // the daemon's millisecond tick (simulated: runs as fast as it can)
bool gKickPending = false;  // the micro-controller was asked to synchronise its clock

// Log records: only errors are wanted, and printed as "module: ...".
class CStream : public logging::internals::ILogStream {
 public:
  void Reserved3() override {}
  void Close() override {
    if (iWanted) fprintf(stderr, "module: %s\n", iText.c_str());
    iText.clear();
  }
  void Append(const bool* aValue) override { iText += *aValue ? "true" : "false"; }
  void Append(const uint8_t* aValue) override { iText += std::to_string(*aValue); }
  void Append(const int16_t* aValue) override { iText += std::to_string(*aValue); }
  void Append(const uint16_t* aValue) override { iText += std::to_string(*aValue); }
  void Append(const int32_t* aValue) override { iText += std::to_string(*aValue); }
  void Append(const uint32_t* aValue) override { iText += std::to_string(*aValue); }
  void Append(const int64_t* aValue) override { iText += std::to_string(*aValue); }
  void Reserved12() override {}
  void Reserved13() override {}
  void Reserved14() override {}
  void AppendLineEnd(const char*) override {}
  void Append(const char* aText) override { iText += aText; }
  void Append(const void* aPointer) override {
    char text[32];
    snprintf(text, sizeof text, "%p", aPointer);
    iText += text;
  }
  bool iWanted = false;

 private:
  std::string iText;
} gStream;

class CLogControl : public logging::ILogControl {
 public:
  void Reserved3() override {}
  void Reserved4() override {}
  void Reserved5() override {}
  void Reserved6() override {}
  void Reserved7() override {}
  void Reserved8() override {}
  void Reserved9() override {}
  void Reserved10() override {}
  TBool IsEnabled(const uint32_t*, const uint32_t* aCategory) override {
    return *aCategory == logging::categories::Error;
  }
} gLogControl;

class CLogger : public logging::internals::ILogger {
 public:
  void Reserved3() override {}
  void Reserved4() override {}
  logging::internals::CLogHandle Open(const char*, const char*, const char*, TBool aEnabled, const char*,
                                      int) override {
    gStream.iWanted = aEnabled != 0;
    return logging::internals::CLogHandle(0, &gStream);  // flag 0: the module closes the record
  }
} gLogger;

class CMainUnit : public IMainUnitIO {  // used by the EXTERNAL source only
 public:
  void Reserved3() override {}
  TBool IsPluggedIn() override { return 1; }
  void Reserved5() override {}
  void Reserved6() override {}
  TBool SetPin(uint32_t, uint32_t) override { return 1; }
} gMainUnit;

class CCanMicro : public ICanMicroIO {
 public:
  void Reserved3() override {}
  void Reserved4() override {}
  void Reserved5() override {}
  TBool TriggerClockSync() override {
    gKickPending = true;  // the service answers with SyncTime shortly after
    return 1;
  }
} gCanMicro;

}  // namespace

// The symbols the module takes from the process (exported: see CMakeLists.txt).
extern "C" int OSALTickInit(void) { return 0; }
extern "C" uint64_t OSALTickCount(void) { return gNow; }
extern "C" void platSleep(int aDuration) { usleep(static_cast<useconds_t>(aDuration)); }
logging::ILogControl& logging::IControl() { return gLogControl; }
logging::internals::ILogger& logging::internals::ILog() { return gLogger; }
CPDDevice& CPDDevice::Instance() {
  static CPDDevice device;
  return device;
}
IMainUnitIO& CPDDevice::MainUnitIO() const { return gMainUnit; }
ICanMicroIO& CPDDevice::CanMicroIO() const { return gCanMicro; }

namespace {

// ---- Brokers ------------------------------------------------------------------------
// Connects a module's handler with the daemon's end of the same pair and instance.
class CInterfaceBroker : public IInterfaceBroker {
 public:
  void Offer(const std::string& aInstance, const TInterfaceIdentity& aIdentity, IReflectionInterface* aEnd) {
    iEnds[Key(aInstance, aIdentity)] = aEnd;
  }
  TBool RequestInterface(const TFeatureId&, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                         IReflectionInterface* aHandler) override {
    auto end = iEnds.find(Key(aInstance, aIdentity));
    if (end != iEnds.end()) aHandler->Register(end->second);
    return 1;
  }
  TBool RevokeInterface(const TFeatureId&, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                        IReflectionInterface* aHandler) override {
    auto end = iEnds.find(Key(aInstance, aIdentity));
    if (end != iEnds.end()) aHandler->Unregister(end->second);
    return 1;
  }
  void Reserved5() override {}
  TBool RequestSharedInterface(const TFeatureId& aFeature, const std::string& aInstance,
                               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) override {
    return RequestInterface(aFeature, aInstance, aIdentity, aHandler);
  }

 private:
  typedef std::pair<std::string, std::pair<uint16_t, uint32_t> > TKey;
  static TKey Key(const std::string& aInstance, const TInterfaceIdentity& aIdentity) {
    return TKey(aInstance, std::make_pair(aIdentity.identifier, aIdentity.qualifier));
  }
  std::map<TKey, IReflectionInterface*> iEnds;
};

// Periodic timers on the daemon's tick.
class CEventBroker : public IEventBroker {
 public:
  TBool RegisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) override {
    UnregisterEventObserver(aRegistration, aObserver);
    iTimers.push_back(Timer{aRegistration, aObserver, gNow + aRegistration.period});
    return 1;
  }
  TBool UnregisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) override {
    for (size_t i = 0; i < iTimers.size(); ++i)
      if (iTimers[i].observer == aObserver && iTimers[i].registration.eventId == aRegistration.eventId) {
        iTimers.erase(iTimers.begin() + static_cast<long>(i));
        return 1;
      }
    return 0;
  }
  void Fire() {
    for (size_t i = 0; i < iTimers.size(); ++i) {
      if (iTimers[i].due > gNow) continue;
      iTimers[i].due += iTimers[i].registration.period;
      TEvent event = {iTimers[i].registration.eventClass, iTimers[i].registration.eventId};
      iTimers[i].observer->OnEvent(event);  // may register or unregister timers
    }
  }

 private:
  struct Timer {
    TEventRegistration registration;
    IEventObserver* observer;
    uint64_t due;
  };
  std::vector<Timer> iTimers;
};

class CProperties : public IFeatureProperties {
 public:
  TBool GetProperty(const TFeatureId&, const std::string& aName, std::string& aValue) const override {
    if (aName != "diversity") return 0;
    aValue = "CAN";
    return 1;
  }
};

// ---- The daemon's services and client -----------------------------------------------
using positioning_feature::kGyroscope;
using positioning_feature::kOdometer;

// The CAN micro-controller's sensor service; its clock runs 2.5 s behind the tick.
class CMicroHostService : public CReflectionInterfaceHandler<IMicroHostSensorMale> {
 public:
  void OnInterfaceAvailable(IMicroHostSensorFemale& aModule) override { iModule = &aModule; }
  void OnInterfaceUnavailable(IMicroHostSensorFemale&) override { iModule = nullptr; }
  uint32_t Clock() const { return static_cast<uint32_t>(gNow - 2500); }
  void SyncTime() {
    if (iModule != nullptr) iModule->SyncTime(*this, Clock());
  }
  void Record(uint16_t aPulses, int16_t aRate, bool aForward) {
    TPosSensorData record = {Clock(), aPulses, aRate, aForward ? 0x21u : 0x25u, 10};
    if (iModule != nullptr) iModule->SensorData(*this, record);
  }

 private:
  IMicroHostSensorFemale* iModule = nullptr;
};

// A positioning client: subscribes to both sensor types and prints what it gets.
class CClient : public CReflectionInterfaceHandler<IPositioningSensorMale> {
 public:
  void OnInterfaceAvailable(IPositioningSensorFemale& aStore) override { iStore = &aStore; }
  void OnInterfaceUnavailable(IPositioningSensorFemale&) override { iStore = nullptr; }
  bool Subscribe() {
    return iStore != nullptr && iStore->Subscribe(*this, kGyroscope, 0) == 0 &&
           iStore->Subscribe(*this, kOdometer, 0) == 0;
  }
  reflection::TErrCode Configuration(IPositioningSensorFemale&, TiPositioningSensorConfiguration&) override {
    return 0;
  }
  reflection::TErrCode SensorData(IPositioningSensorFemale&, TiPositioningSensorType aType,
                                  TiPositioningSensorData& aData) override {
    printf("%u,%llu,", unsigned(aType), static_cast<unsigned long long>(aData.timeStamp));
    for (int i = 0; i < aData.values.size; ++i) printf("%s%d", i > 0 ? ";" : "", aData.values.data[i]);
    printf("\n");
    ++received[aType];
    // Stamped in synchronised time: the service's time plus the measured offset.
    if (aData.timeStamp + 100 < gNow || aData.timeStamp > gNow) ++offTime;
    return 0;
  }
  std::map<TiPositioningSensorType, int> received;
  int offTime = 0;

 private:
  IPositioningSensorFemale* iStore = nullptr;
};

int Usage(FILE* aTo, int aStatus) {
  fprintf(aTo,
          "usage: positioning-example-daemon [--seconds N] [MODULE]\n"
          "Loads the positioning module (default %s), drives a CAN feature for N simulated\n"
          "seconds (default 30, one record per 200 ms) and prints the samples its client\n"
          "receives as CSV on standard output. Exits 1 when the module cannot be loaded or\n"
          "delivers nothing, 2 on bad arguments.\n",
          POSITIONING_MODULE_FILE);
  return aStatus;
}

}  // namespace

int main(int argc, char** argv) {
  const char* path = POSITIONING_MODULE_FILE;
  int seconds = 30;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--help") == 0) return Usage(stdout, 0);
    if (strcmp(argv[i], "--seconds") == 0 && i + 1 < argc) {
      char* end = nullptr;
      long value = strtol(argv[++i], &end, 10);
      if (*end != '\0' || value < 1 || value > 86400) {
        fprintf(stderr, "--seconds wants 1 to 86400, not '%s'\n", argv[i]);
        return 2;
      }
      seconds = static_cast<int>(value);
    } else if (argv[i][0] == '-') {
      fprintf(stderr, "unknown option '%s'\n", argv[i]);
      return Usage(stderr, 2);
    } else {
      path = argv[i];
    }
  }

  // RTLD_NOW: a missing host symbol shows here, not in the middle of the drive.
  void* module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    fprintf(stderr, "cannot load the module: %s\n", dlerror());
    return 1;
  }
  TFeatureTypeFunction featureType = reinterpret_cast<TFeatureTypeFunction>(dlsym(module, kFeatureTypeSymbol));
  TFeatureCreate2Function featureCreate2 =
      reinterpret_cast<TFeatureCreate2Function>(dlsym(module, kFeatureCreate2Symbol));
  if (featureType == nullptr || featureCreate2 == nullptr) {
    fprintf(stderr, "%s has no %s/%s\n", path, kFeatureTypeSymbol, kFeatureCreate2Symbol);
    return 1;
  }
  fprintf(stderr, "loaded %s: feature type \"%s\"\n", path, featureType());

  CInterfaceBroker broker;
  CEventBroker events;
  CProperties properties;
  CMicroHostService service;
  CClient client;
  // The CAN source's service, and the client where a CAN feature offers its service.
  broker.Offer(positioning_feature::kServiceInstance, positioning_feature::kMicroHostSensorIdentity, &service);
  broker.Offer(positioning_feature::kCanClientInstance, positioning_feature::kPositioningSensorIdentity, &client);
  IFeatureModule2* feature = featureCreate2("positioning", broker, events, properties);
  if (feature == nullptr || !client.Subscribe()) {
    fprintf(stderr, "the feature did not come up\n");
    return 1;
  }
  service.SyncTime();  // the service answers its first synchronisation on connecting

  // The drive: away from a stop, a left turn, straight on, slowing down.
  printf("sensor_type,time_stamp,values\n");
  int records = 0;
  for (uint64_t end = gNow + 1000ull * static_cast<uint64_t>(seconds); gNow < end;) {
    gNow += 20;
    if (gKickPending) {  // answered 20 ms after the kick
      gKickPending = false;
      service.SyncTime();
    }
    events.Fire();
    if (gNow % 200 != 0) continue;
    double t = (records * 200) / 1000.0;
    int pulses = t < 5 ? static_cast<int>(t * 4) : (t > seconds - 5 ? static_cast<int>((seconds - t) * 4) : 20);
    int rate = (t >= 8 && t < 12) ? -150 : 0;  // hundredths of a degree per second
    service.Record(static_cast<uint16_t>(pulses), static_cast<int16_t>(rate), true);
    ++records;
  }

  delete feature;  // through IFeatureModule2: revokes the interfaces, stops the timer
  dlclose(module);
  const int gyroscope = client.received[kGyroscope], odometer = client.received[kOdometer];
  fprintf(stderr, "%d records sent, %d gyroscope and %d odometer samples received, %d off the synchronised time\n",
          records, gyroscope, odometer, client.offTime);
  return gyroscope > 0 && gyroscope == odometer && client.offTime == 0 ? 0 : 1;
}
