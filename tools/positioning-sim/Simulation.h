// One run of the simulated head unit: the loaded module, its services and clients,
// the drive and the faults, on the simulated clock.
#ifndef SIM_SIMULATION_H
#define SIM_SIMULATION_H

#include <stdint.h>
#include <stdio.h>

#include <deque>
#include <functional>
#include <memory>
#include <queue>
#include <string>
#include <vector>

#include "Drive.h"
#include "EventBroker.h"
#include "FeatureProperties.h"
#include "InterfaceBroker.h"
#include "ModuleLoader.h"
#include "Platform.h"
#include "SimOptions.h"
#include "SimulatedPeers.h"

namespace sim {

// Local tick at which the feature is created: the unit has been up for a while.
const uint64_t kLocalStart = 100000;
// The first record is sent this long after the feature is created.
const uint64_t kFirstRecordDelay = 100;

// The peer's clock against the local tick: anchored at one instant, with a drift.
class CClockModel {
 public:
  CClockModel(uint64_t aLocalAnchor, uint64_t aPeerAnchor, double aDriftPpm);
  uint64_t PeerAt(uint64_t aLocal) const;
  uint64_t LocalAt(uint64_t aPeer) const;

 private:
  int64_t iLocalAnchor;
  int64_t iPeerAnchor;
  double iRate;
};

struct ClientSummary {
  std::string name;
  uint64_t samples[3] = {0, 0, 0};  // type 1, type 2, other
  uint64_t replayed = 0;
};

struct OffsetPoint {
  double seconds;  // since the feature was created
  int64_t offset;  // module time stamp minus the service's, ms
};

// What --soak checks and measures.
struct SoakSummary {
  bool enabled = false;
  uint64_t recordsWhileGateOpen = 0;  // fed while every sensor was subscribed
  uint64_t deliveriesChecked = 0;     // samples that had to reach a client
  uint64_t deliveryErrors = 0;        // sends or replays whose samples differed
  std::string firstDeliveryError;
  uint64_t replaysChecked = 0;
  uint64_t replayErrors = 0;
  bool finalReplayDone = false;  // false when the gate was closed at the end
  uint64_t finalReplaySamples = 0;
  uint64_t lastMinuteFed = 0;   // first-sensor samples the buffer must hold at the end
  std::vector<uint64_t> rssKb;  // resident memory at the end of each simulated minute
  uint64_t rssFirstMinuteKb = 0;
  uint64_t rssMaxKb = 0;  // after the first minute
  int64_t rssGrowthKb = 0;
  double rssToleranceKb = 0;
  bool RssFlat() const { return static_cast<double>(rssGrowthKb) <= rssToleranceKb; }
  bool Passed() const { return deliveryErrors == 0 && replayErrors == 0 && RssFlat(); }
};

struct Summary {
  std::string source;
  std::string drive;
  uint64_t recordsFed = 0;
  uint64_t recordsNotSent = 0;  // the service was away
  std::vector<ClientSummary> clients;
  uint64_t replayed = 0;
  std::vector<OffsetPoint> offsets;
  int64_t firstSyncOffset = 0;
  bool synchronised = false;
  double errorMean = 0;
  int64_t errorMaxAbs = 0;
  uint64_t errorCount = 0;
  uint64_t supervisionMessages = 0;
  std::string supervisionText;
  double simulatedSeconds = 0;
  double wallSeconds = 0;
  SoakSummary soak;
};

// Receives every sample a client gets.
class ISampleWriter {
 public:
  virtual ~ISampleWriter() {}
  virtual void Write(const std::string& aClient, const host::ReceivedSample& aSample, bool aReplayed) = 0;
};

// What is plotted: per record sent, and the offset per live sample.
struct PlotPoint {
  double seconds;
  int64_t angularRate;
  int64_t pulses;
};

class CSimulation {
 public:
  CSimulation(const SimOptions& aOptions, SourceKind aKind, std::vector<DriveRecord> aDrive, ISampleWriter& aWriter);
  ~CSimulation();

  // Runs the whole drive; false with a reason when the module cannot be loaded.
  bool Run(std::string& aError);

  const Summary& Result() const { return iSummary; }
  // The records the service sent, as --record writes them.
  const std::vector<DriveRecord>& Sent() const { return iSent; }
  const std::vector<PlotPoint>& PlotPoints() const { return iPlotPoints; }

 private:
  struct Event {
    uint64_t time;
    uint64_t order;
    std::function<void()> action;
    bool operator>(const Event& aOther) const {
      return time != aOther.time ? time > aOther.time : order > aOther.order;
    }
  };
  class CClient;

  void At(uint64_t aTime, std::function<void()> aAction);
  uint64_t AtSeconds(double aSeconds) const;
  bool InWindow(const std::vector<TimeWindow>& aWindows, uint64_t aTime) const;
  uint64_t JumpedStamp(uint64_t aStamp, uint64_t aTime) const;
  void ScheduleDrive();
  void ScheduleFaults();
  void ScheduleClients();
  void StartClient(CClient& aClient, uint64_t aTime);
  void SendRecord(size_t aIndex);
  void AnswerKick(uint64_t aKickTime);
  void OnSample(CClient& aClient, const host::ReceivedSample& aSample);
  // In real time, sleeps until the wall clock reaches simulated time aTime.
  void WaitForWallClock(uint64_t aTime);
  void Progress(bool aFinal);
  // --soak: what the module must do, worked out from what the simulation sent.
  void ModelSubscribe(size_t aClient, TiPositioningSensorType aType, txdr_bool aFlag);
  void ModelMeasured(uint32_t aPeerTime);
  void ExpectRecord(const DriveRecord& aSent);
  void CompareReceived(const char* aWhat);
  void FinalReplay();
  void SampleRss();
  void TrimHostHistory();

  const SimOptions& iOptions;
  SourceKind iKind;
  std::vector<DriveRecord> iDrive;
  std::vector<uint64_t> iFeedTimes;
  ISampleWriter& iWriter;
  std::string iStoreInstance;
  CClockModel iClock;

  TFeatureId iFeatureId = "positioning";
  host::CInterfaceBroker iBroker;
  host::CEventBroker iEvents;
  host::CFeatureProperties iProperties;
  host::CModuleLoader iLoader;
  IFeatureModule2* iFeature = nullptr;
  host::CMicroHostSensorService iMicroHost;
  host::CExternalPositioningService iExternal;
  host::CClockSyncService iClockSync;
  std::vector<std::unique_ptr<CClient>> iClients;

  std::priority_queue<Event, std::vector<Event>, std::greater<Event>> iQueue;
  uint64_t iOrder = 0;
  uint64_t iEndTime = 0;
  bool iInSubscribe = false;
  // The record being sent, while the module handles it.
  bool iSending = false;
  uint64_t iSendingStamp = 0;
  uint64_t iSendingTime = 0;
  double iErrorSum = 0;
  int64_t iLastOffset = 0;
  bool iHaveOffset = false;

  // --soak model: subscriptions, client lists (newest first), the store's connected
  // client, the synchronised offset, the first sensor's last minute.
  int iModelSubscriptions = 0;
  std::vector<size_t> iModelLists[2];
  int iModelStorePeer = -1;
  int64_t iModelKick = 0;
  int64_t iModelOffset = 0;
  std::deque<host::ReceivedSample> iModelLastMinute;
  std::vector<std::pair<size_t, host::ReceivedSample>> iExpectedNow;
  std::vector<std::pair<size_t, host::ReceivedSample>> iReceivedNow;
  uint64_t iNextRssSample = 0;
  std::function<void(const host::PinChange&)> iPinObserver;
  std::vector<std::vector<char>> iInjectedLeak;
  uint64_t iFirstClientSamples = 0;

  Summary iSummary;
  std::vector<DriveRecord> iSent;
  std::vector<PlotPoint> iPlotPoints;
  double iWallStart = 0;
  double iLastProgress = 0;
  bool iProgressShown = false;
};

}  // namespace sim

#endif  // SIM_SIMULATION_H
