#include "BenchHost.h"

#include <stdlib.h>

#include "CSensorStore.h"
#include "ContractConstants.h"
#include "Globals.h"
#include "InterfaceBroker.h"
#include "LogFacility.h"
#include "LogSink.h"
#include "ModuleLoader.h"
#include "SimulatedOsal.h"

namespace bench {

namespace {

const uint64_t kLocalStart = 100000;  // the unit has been up a while when the feature comes

}  // namespace

const char* LoggerName(Logger aLogger) { return aLogger == Logger::Noop ? "noop" : "text"; }

bool ParseLogger(const std::string& aName, Logger& aLogger) {
  if (aName == "noop") {
    aLogger = Logger::Noop;
    return true;
  }
  if (aName == "text") {
    aLogger = Logger::Text;
    return true;
  }
  return false;
}

CLoggerSetup::CLoggerSetup(Logger aLogger) {
  host::CLogFacility& facility = host::CLogFacility::Instance();
  if (aLogger == Logger::Noop) {
    facility.SetDiscard(true);
    return;
  }
  iFile = fopen("/dev/null", "w");
  if (iFile == nullptr) {
    fprintf(stderr, "bench: cannot open /dev/null for the text logger\n");
    abort();
  }
  iSink.reset(new host::CTextLogSink(iFile));
  facility.SetKeepRecords(false);
  facility.AddSink(iSink.get());
}

CLoggerSetup::~CLoggerSetup() {
  host::CLogFacility& facility = host::CLogFacility::Instance();
  facility.SetDiscard(false);
  if (iSink) facility.RemoveSink(iSink.get());
  facility.SetKeepRecords(true);
  if (iFile != nullptr) fclose(iFile);
}

const char* SourceName(Source aSource) { return aSource == Source::Can ? "CAN" : "EXTERNAL"; }

CLeanClient::CLeanClient(const std::string& aInstance) : iInstance(aInstance) {}

TBool CLeanClient::Attach(host::CInterfaceBroker& aBroker) {
  return aBroker.AttachPeer(iInstance, contract::kPositioningIdentity, this);
}

reflection::TErrCode CLeanClient::Subscribe(TiPositioningSensorType aType, txdr_bool aRequestBufferedData) {
  if (iService == nullptr) return host::kNotConnected;
  return iService->Subscribe(*this, aType, aRequestBufferedData);
}

TBool CLeanClient::Register(IReflectionInterface* aPeer) {
  if (iPeerHandle != nullptr) return 0;
  IPositioningSensorFemale* service = dynamic_cast<IPositioningSensorFemale*>(aPeer);
  if (service == nullptr) return 0;
  iPeerHandle = aPeer;
  iService = service;
  aPeer->Register(this);
  return 1;
}

TBool CLeanClient::Unregister(IReflectionInterface* aPeer) {
  if (iPeerHandle == nullptr) return 0;
  if (aPeer == nullptr) return 1;
  if (aPeer != iPeerHandle) return 0;
  iPeerHandle = nullptr;
  iService = nullptr;
  aPeer->Unregister(this);
  return 1;
}

reflection::TErrCode CLeanClient::Configuration(IPositioningSensorFemale& aPartner, TiPositioningSensorConfiguration&) {
  iService = &aPartner;
  return 0;
}

std::string ModulePath() {
  const char* path = getenv("POSITIONING_MODULE");
  return path != nullptr && path[0] != '\0' ? path : POSITIONING_BENCH_MODULE;
}

CBench::CBench(Source aSource, Logger aLogger) : iSource(aSource), iClient(aSource == Source::Can ? "1" : "2") {
  // Resetting the globals also resets the logging facility: the logger comes after.
  host::ResetGlobals();
  iLog.reset(new CLoggerSetup(aLogger));
  host::CSimulatedOsal::Instance().SetNow(kLocalStart);
  if (aSource == Source::External) iProperties.Set("diversity", "EXTERNAL");
  iCanRecord.TimeStamp = kPeerStart;
  iCanRecord.DistancePuls = 3;
  iCanRecord.AngularRate = -12;
  iCanRecord.DrivingDirection = 0x21;
  iCanRecord.NrOfSamples = 10;
  iExternalValues[0] = 10;
  iExternalValues[1] = -12;
  iExternalValues[2] = 3;
  iExternalValues[3] = 1;
  iExternalRecord.timeStamp = kPeerStart;
  iExternalRecord.values.size = 4;
  iExternalRecord.values.data = iExternalValues;
  if (!iLoader.Load(ModulePath())) {
    fprintf(stderr, "bench: cannot load the module: %s\n", iLoader.Error().c_str());
    abort();
  }
  AttachServices();
}

CBench::~CBench() {
  Destroy();
  iLoader.Unload();
}

void CBench::AttachServices() {
  if (iSource == Source::Can) {
    iMicroHost.Attach(iBroker);
  } else {
    iClockSync.Attach(iBroker);
    iExternal.Attach(iBroker);
  }
}

void CBench::Create() {
  iFeature = iLoader.Create(iFeatureId, iBroker, iEventBroker, iProperties);
  iCanPeer = iMicroHost.Connected();
  iExternalPeer = iExternal.Connected();
}

void CBench::Destroy() {
  if (iFeature == nullptr) return;
  host::CModuleLoader::Destroy(iFeature);
  iFeature = nullptr;
}

void CBench::ResetBroker() {
  iBroker.Reset();
  iEventBroker.Reset();
  // The feature is gone and has disconnected the services; they attach afresh.
  AttachServices();
}

void CBench::Configure() {
  if (iSource != Source::External) return;
  iExternal.SendConfiguration({TiPositioningSensorEntry{contract::kCombinedRecord, 1, kRecordPeriod, 4}});
  // The clock-sync service's time for the kick made when it became available.
  iClockSync.SendTimeStampReport(kPeerStart);
}

void CBench::ConnectClient() { iClient.Attach(iBroker); }

void CBench::SendRecord() {
  if (iSource == Source::Can) {
    SendCanRecord();
  } else {
    SendExternalRecord();
  }
}

CSensorStore& CBench::Store() {
  IPositioningSensorFemale* service = iClient.Service();
  if (service == nullptr) {
    fprintf(stderr, "bench: no store: the client is not connected\n");
    abort();
  }
  // The service end is a base of the store; its complete object is the store.
  return *static_cast<CSensorStore*>(dynamic_cast<void*>(service));
}

}  // namespace bench
