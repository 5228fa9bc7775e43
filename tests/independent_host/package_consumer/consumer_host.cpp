// A minimal daemon built from the installed contract headers alone. It provides the
// host symbols, loads the module (dlopen, or linked with POSITIONING_CONSUMER_LINKED),
// creates a CAN feature, destroys it, and checks what the feature asked of it.
// Usage: host [module file]; exits 0 when everything was as expected.
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "IEventBroker.h"
#include "IFeatureModule2.h"
#include "IFeatureProperties.h"
#include "IInterfaceBroker.h"
#include "Logging.h"
#include "OSAL.h"
#include "PlatformDevice.h"
#include "ReflectionInterface.h"

namespace {

int gOpened = 0;
int gClosed = 0;

class CStream : public logging::internals::ILogStream {
 public:
  void Reserved3() override {}
  void Close() override { ++gClosed; }
  void Append(const bool*) override {}
  void Append(const uint8_t*) override {}
  void Append(const int16_t*) override {}
  void Append(const uint16_t*) override {}
  void Append(const int32_t*) override {}
  void Append(const uint32_t*) override {}
  void Append(const int64_t*) override {}
  void Reserved12() override {}
  void Reserved13() override {}
  void Reserved14() override {}
  void AppendLineEnd(const char*) override {}
  void Append(const char*) override {}
  void Append(const void*) override {}
} gStream;

class CControl : public logging::ILogControl {
 public:
  void Reserved3() override {}
  void Reserved4() override {}
  void Reserved5() override {}
  void Reserved6() override {}
  void Reserved7() override {}
  void Reserved8() override {}
  void Reserved9() override {}
  void Reserved10() override {}
  TBool IsEnabled(const uint32_t*, const uint32_t*) override { return 1; }
} gControl;

class CLogger : public logging::internals::ILogger {
 public:
  void Reserved3() override {}
  void Reserved4() override {}
  logging::internals::CLogHandle Open(const char*, const char*, const char*, TBool, const char*, int) override {
    ++gOpened;
    return logging::internals::CLogHandle(0, &gStream);
  }
} gLogger;

class CMainUnit : public IMainUnitIO {
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
  TBool TriggerClockSync() override { return 1; }
} gCanMicro;

std::vector<std::string> gCalls;

class CBroker : public IInterfaceBroker {
 public:
  TBool RequestInterface(const TFeatureId&, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                         IReflectionInterface*) override {
    return Note("RequestInterface", aInstance, aIdentity);
  }
  TBool RevokeInterface(const TFeatureId&, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                        IReflectionInterface*) override {
    return Note("RevokeInterface", aInstance, aIdentity);
  }
  void Reserved5() override { gCalls.push_back("Reserved5"); }
  TBool RequestSharedInterface(const TFeatureId&, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                               IReflectionInterface*) override {
    return Note("RequestSharedInterface", aInstance, aIdentity);
  }

 private:
  TBool Note(const char* aOperation, const std::string& aInstance, const TInterfaceIdentity& aIdentity) {
    gCalls.push_back(std::string(aOperation) + " " + aInstance + " " + std::to_string(aIdentity.identifier));
    return 1;
  }
};

class CEvents : public IEventBroker {
 public:
  TBool RegisterEventObserver(const TEventRegistration& aRegistration, IEventObserver*) override {
    gCalls.push_back("Register " + std::to_string(aRegistration.eventId) + " " + std::to_string(aRegistration.period));
    return 1;
  }
  TBool UnregisterEventObserver(const TEventRegistration& aRegistration, IEventObserver*) override {
    gCalls.push_back("Unregister " + std::to_string(aRegistration.eventId));
    return 1;
  }
};

class CProperties : public IFeatureProperties {
 public:
  TBool GetProperty(const TFeatureId&, const std::string& aName, std::string& aValue) const override {
    if (aName != "diversity") return 0;
    aValue = "CAN";
    return 1;
  }
};

typedef const char* (*TFeatureType)();
typedef IFeatureModule2* (*TFeatureCreate2)(const TFeatureId&, IInterfaceBroker&, IEventBroker&,
                                            const IFeatureProperties&);

int gFailures = 0;

void Expect(bool aCondition, const std::string& aWhat) {
  printf("%s: %s\n", aCondition ? "ok" : "FAILED", aWhat.c_str());
  if (!aCondition) ++gFailures;
}

std::string Joined(const std::vector<std::string>& aCalls) {
  std::string text;
  for (const std::string& call : aCalls) text += (text.empty() ? "" : ", ") + call;
  return text;
}

}  // namespace

#ifdef POSITIONING_CONSUMER_LINKED
extern "C" const char* FeatureType();
extern "C" IFeatureModule2* FeatureCreate2(const TFeatureId&, IInterfaceBroker&, IEventBroker&,
                                           const IFeatureProperties&);
#endif

namespace logging {
ILogControl& IControl() { return gControl; }
namespace internals {
ILogger& ILog() { return gLogger; }
}  // namespace internals
}  // namespace logging

CPDDevice& CPDDevice::Instance() {
  static CPDDevice device;
  return device;
}
IMainUnitIO& CPDDevice::MainUnitIO() const { return gMainUnit; }
ICanMicroIO& CPDDevice::CanMicroIO() const { return gCanMicro; }

extern "C" {
int OSALTickInit(void) { return 0; }
uint64_t OSALTickCount(void) { return 100000; }
void platSleep(int) {}
}

int main(int argc, char** argv) {
#ifdef POSITIONING_CONSUMER_LINKED
  (void)argc;
  (void)argv;
  TFeatureType featureType = &FeatureType;
  TFeatureCreate2 featureCreate2 = &FeatureCreate2;
  printf("module linked\n");
#else
  const char* path = argc > 1 ? argv[1] : POSITIONING_MODULE_FILE;
  void* module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    printf("FAILED: dlopen %s: %s\n", path, dlerror());
    return 1;
  }
  TFeatureType featureType = reinterpret_cast<TFeatureType>(dlsym(module, "FeatureType"));
  TFeatureCreate2 featureCreate2 = reinterpret_cast<TFeatureCreate2>(dlsym(module, "FeatureCreate2"));
  if (featureType == nullptr || featureCreate2 == nullptr) {
    printf("FAILED: entry points missing in %s\n", path);
    return 1;
  }
  printf("module loaded from %s\n", path);
#endif
  Expect(strcmp(featureType(), "positioning") == 0, std::string("FeatureType answers ") + featureType());

  TFeatureId feature = "positioning";
  CBroker broker;
  CEvents events;
  CProperties properties;
  IFeatureModule2* positioning = featureCreate2(feature, broker, events, properties);
  Expect(positioning != nullptr, "FeatureCreate2 made a feature");
  Expect(Joined(gCalls) == "RequestSharedInterface 0 56, RequestInterface 1 34, Register 10 1000",
         "CAN feature requested its interfaces and the sync timer: " + Joined(gCalls));
  gCalls.clear();
  delete positioning;
  Expect(Joined(gCalls) == "RevokeInterface 0 56, RevokeInterface 1 34, Unregister 10",
         "feature revoked its interfaces and stopped the timer: " + Joined(gCalls));
  Expect(gOpened > 0 && gOpened == gClosed,
         "every log record opened was closed (" + std::to_string(gOpened) + ", " + std::to_string(gClosed) + ")");
#ifndef POSITIONING_CONSUMER_LINKED
  dlclose(module);
#endif
  return gFailures == 0 ? 0 : 1;
}
