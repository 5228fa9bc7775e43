// The run's wiring of host and module: loads the module as the daemon does, creates
// the feature with its services, clients and clocks, and performs what the scenario
// schedules (records, kicks and their answers, services and clients coming and going),
// telling the observers what happened.
#ifndef SIM_SIMULATED_HEAD_UNIT_H
#define SIM_SIMULATED_HEAD_UNIT_H

#include <stdint.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ClockModel.h"
#include "DriveSource.h"
#include "EventBroker.h"
#include "FeatureProperties.h"
#include "Globals.h"
#include "InterfaceBroker.h"
#include "ModuleLoader.h"
#include "Platform.h"
#include "RunObserver.h"
#include "Scheduler.h"
#include "SimulatedPeers.h"

namespace sim {

using ObserverList = std::vector<IRunObserver*>;

// What the head unit is asked to be.
struct HeadUnitSetup {
  std::string modulePath;
  bool hasDiversity = false;
  std::string diversity;
  SourceKind kind = SourceKind::Can;
  uint32_t syncLatency = 20;  // ms between a kick and the peer's answer
  bool mainUnitUnplugged = false;
  bool realtime = false;  // the pin pulse sleeps for real
};

class CSimulatedHeadUnit {
 public:
  CSimulatedHeadUnit(const HeadUnitSetup& aSetup, CScheduler& aScheduler, const CClockModel& aClock,
                     const ObserverList& aObservers);
  ~CSimulatedHeadUnit();

  // Loads the module; false with the loader's reason.
  bool Load(std::string& aError);
  // The services come up and the daemon creates the feature.
  void Start();
  // The daemon deletes the feature; clients and services leave.
  void Stop();
  host::CEventBroker& Events() { return iHost.events; }

  // What the scenario schedules.
  size_t AddClient(const std::string& aName);
  void StartClient(size_t aClient);  // attaches and subscribes to types 1 and 2 (2 with replay)
  void DetachClient(size_t aClient);
  void ServiceLeaves();
  void ServiceReturns();
  void ClockSyncLeaves();  // external source: the clock-sync service leaves
  void ClockSyncReturns();
  // CAN source: the micro stops answering kicks (windows may overlap), and resumes.
  void KickAnswersStop();
  void KickAnswersResume();
  void ShiftStamps(int64_t aDelta);  // from now on the service's stamps jump by aDelta
  void SendRecord(const DriveRecord& aRecord, SimTime aDue);

  // A replay asked for by the last connected client (type 0: no sensor, replay only);
  // the client's index, or -1 when none is connected.
  int ReplayToLastClient();
  // The host keeps every pin change and sleep for tests to look at; a long run
  // forgets them, so that only the module's memory can grow.
  void TrimHostHistory();

 private:
  class CClient;
  struct HostParts {
    TFeatureId featureId = "positioning";  // the feature keeps a reference to it
    host::CInterfaceBroker broker;
    host::CEventBroker events;
    host::CFeatureProperties properties;
    host::CModuleLoader loader;
    IFeatureModule2* feature = nullptr;
  };
  struct Peers {
    host::CMicroHostSensorService microHost;
    host::CExternalPositioningService external;
    host::CClockSyncService clockSync;
    std::vector<std::unique_ptr<CClient>> clients;
  };
  // What is going on while a client receives a sample.
  struct DeliveryContext {
    bool subscribing = false;
    bool sending = false;
    uint64_t sentStamp = 0;
    SimTime due = 0;
  };

  void Kick(SimTime aTime);
  void Answer(SimTime aKick);
  void OnSample(CClient& aClient, const host::ReceivedSample& aSample);
  template <typename F>
  void Notify(F aCall) {
    for (IRunObserver* observer : iObservers) aCall(*observer);
  }

  const HeadUnitSetup iSetup;
  CScheduler& iScheduler;
  const CClockModel& iClock;
  const ObserverList& iObservers;
  HostParts iHost;
  Peers iPeers;
  DeliveryContext iDelivery;
  std::function<void(const host::PinChange&)> iPinObserver;
  int iKickLosses = 0;
  int64_t iStampShift = 0;
};

}  // namespace sim

#endif  // SIM_SIMULATED_HEAD_UNIT_H
