// What the benchmarks, the instruction counts and the heap counts share: the module
// loaded from libPositioning.so as the daemon loads it, its services on the simulated
// broker, one lean positioning client, and the host's two loggers.
#ifndef BENCH_BENCH_HOST_H
#define BENCH_BENCH_HOST_H

#include <stdint.h>
#include <stdio.h>

#include <memory>
#include <string>

#include "ContractConstants.h"
#include "EventBroker.h"
#include "FeatureProperties.h"
#include "InterfaceBroker.h"
#include "LogSink.h"
#include "ModuleLoader.h"
#include "SimulatedPeers.h"

class CSensorStore;

namespace bench {

// The host logger a run measures against: the no-op one (records discarded, every
// call still made), or the readable text logger that positioning-sim --log FILE uses.
enum class Logger { Noop, Text };

const char* LoggerName(Logger aLogger);
// "noop" or "text"; false for anything else.
bool ParseLogger(const std::string& aName, Logger& aLogger);

// Sets the logging facility up for one logger and restores it when destroyed. The
// text logger writes its lines to /dev/null: formatting costs, the disk does not.
class CLoggerSetup {
 public:
  explicit CLoggerSetup(Logger aLogger);
  ~CLoggerSetup();
  CLoggerSetup(const CLoggerSetup&) = delete;
  CLoggerSetup& operator=(const CLoggerSetup&) = delete;

 private:
  FILE* iFile = nullptr;
  std::unique_ptr<host::CTextLogSink> iSink;
};

enum class Source { Can, External };

const char* SourceName(Source aSource);

// A positioning client that keeps nothing: it counts the samples and folds their time
// stamps into a checksum, so that deliveries cannot be optimised away while its own
// cost stays a few instructions per sample. It connects through the broker like any
// client; its callback interface comes first among its bases, so the store calls it
// without an adjusting thunk.
class CLeanClient : public IPositioningSensorMale, public IReflectionInterface {
 public:
  explicit CLeanClient(const std::string& aInstance);

  TBool Attach(host::CInterfaceBroker& aBroker);
  reflection::TErrCode Subscribe(TiPositioningSensorType aType, txdr_bool aRequestBufferedData);

  // IReflectionInterface: the handshake with the store's end.
  TBool Register(IReflectionInterface* aPeer) override;
  TBool Unregister(IReflectionInterface* aPeer) override;

  // IPositioningSensorMale
  void _RegisterCallback(IPositioningSensorFemale&) override {}
  void _UnregisterCallback(IPositioningSensorFemale&) override {}
  reflection::TErrCode Configuration(IPositioningSensorFemale& aPartner,
                                     TiPositioningSensorConfiguration& aConfig) override;
  reflection::TErrCode SensorData(IPositioningSensorFemale&, TiPositioningSensorType,
                                  TiPositioningSensorData& aData) override {
    ++iSamples;
    iChecksum ^= aData.timeStamp;
    return 0;
  }

  uint64_t Samples() const { return iSamples; }
  uint64_t Checksum() const { return iChecksum; }
  // The store's service end while connected, else null.
  IPositioningSensorFemale* Service() const { return iService; }

 private:
  std::string iInstance;
  IReflectionInterface* iPeerHandle = nullptr;
  IPositioningSensorFemale* iService = nullptr;
  uint64_t iSamples = 0;
  uint64_t iChecksum = 0;
};

// Path of the built libPositioning.so; $POSITIONING_MODULE overrides it.
std::string ModulePath();

// The loaded module and the simulated head unit around it: the host's globals reset,
// one logger, brokers, properties, the services of one source (attached before the
// feature is created, so that the feature connects while it is being made) and one
// lean client.
class CBench {
 public:
  // Loads the module; aborts the process with a message when it cannot.
  CBench(Source aSource, Logger aLogger);
  ~CBench();
  CBench(const CBench&) = delete;
  CBench& operator=(const CBench&) = delete;

  Source SourceKind() const { return iSource; }

  // Creates the feature through FeatureCreate2, and deletes it as the daemon does.
  void Create();
  void Destroy();
  // Forgets what the broker logged and attaches the services afresh (between many
  // creations, so that the broker's own logs do not grow without bound).
  void ResetBroker();

  // The external source: the service announces its combined sensor (the module then
  // subscribes) and the clock-sync service answers the first kick.
  void Configure();

  // Connects the client; Subscribe calls go through it.
  void ConnectClient();
  CLeanClient& Client() { return iClient; }

  // One record from the source's service, time stamps 200 ms apart. The service's end
  // calls the module's callback as the broker connected them.
  void SendRecord();
  void SendCanRecord() {
    iCanRecord.TimeStamp += kRecordPeriod;
    iCanPeer->SensorData(iMicroHost, iCanRecord);
  }
  void SendExternalRecord() {
    iExternalRecord.timeStamp += kRecordPeriod;
    iExternalPeer->SensorData(iExternal, contract::kCombinedRecord, iExternalRecord);
  }

  // The two ends of each source's connection and the record it sends, for callers that
  // make the call themselves.
  IMicroHostSensorFemale* CanModuleEnd() const { return iCanPeer; }
  IMicroHostSensorMale& CanServiceEnd() { return iMicroHost; }
  TPosSensorData& CanRecord() { return iCanRecord; }
  IHalvikPositioningSensorMale* ExternalModuleEnd() const { return iExternalPeer; }
  IHalvikPositioningSensorFemale& ExternalServiceEnd() { return iExternal; }
  TiPositioningSensorData& ExternalRecord() { return iExternalRecord; }

  // The store behind the client's service end (after ConnectClient).
  CSensorStore& Store();

 private:
  void AttachServices();

  static constexpr uint32_t kPeerStart = 97500;  // the service's clock runs 2.5 s behind
  static constexpr uint32_t kRecordPeriod = 200;

  Source iSource;
  std::unique_ptr<CLoggerSetup> iLog;
  TFeatureId iFeatureId = "positioning";
  host::CInterfaceBroker iBroker;
  host::CEventBroker iEventBroker;
  host::CFeatureProperties iProperties;
  host::CModuleLoader iLoader;
  host::CMicroHostSensorService iMicroHost;
  host::CExternalPositioningService iExternal;
  host::CClockSyncService iClockSync;
  CLeanClient iClient;
  IFeatureModule2* iFeature = nullptr;
  // One record per source, its time stamp moving on by 200 ms with every send, so that
  // sending costs next to nothing besides the module's own call; the module's ends
  // as the broker connected them.
  TPosSensorData iCanRecord;
  int16_t iExternalValues[4];
  TiPositioningSensorData iExternalRecord;
  IMicroHostSensorFemale* iCanPeer = nullptr;
  IHalvikPositioningSensorMale* iExternalPeer = nullptr;
};

}  // namespace bench

#endif  // BENCH_BENCH_HOST_H
