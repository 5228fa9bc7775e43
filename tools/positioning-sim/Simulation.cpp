#include "Simulation.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>

#include "EventBroker.h"
#include "ModuleLoader.h"
#include "Platform.h"
#include "SimulatedOsal.h"
#include "SimulatedPeers.h"

namespace sim {

namespace {

const TiPositioningSensorType kCombinedRecord = 0x8000;
const uint32_t kClkSyncPin = 7;
const uint64_t kRejoinDelay = 1000;
const uint64_t kTearDownDelay = 1000;
// --soak: resident memory is sampled once a simulated minute; the store holds one
// minute of the first sensor; a type that matches no sensor asks only for a replay.
const uint64_t kRssPeriod = 60000;
const size_t kLastMinute = 300;
const TiPositioningSensorType kNoSensor = 0;
const size_t kMaxOffsetHistory = 1000;

int16_t DirectionCode(int64_t aDirection) { return aDirection == 0x21 ? 1 : aDirection == 0x25 ? 2 : 0; }

std::string Describe(const std::vector<std::pair<size_t, host::ReceivedSample>>& aSamples) {
  std::string text;
  for (size_t i = 0; i < aSamples.size() && i < 4; ++i) {
    const host::ReceivedSample& sample = aSamples[i].second;
    text += (i ? ", " : "") + std::string("C") + std::to_string(aSamples[i].first + 1) + " type " +
            std::to_string(sample.type) + " at " + std::to_string(sample.timeStamp) + " [";
    for (size_t v = 0; v < sample.values.size(); ++v) text += (v ? ";" : "") + std::to_string(sample.values[v]);
    text += "]";
  }
  if (aSamples.size() > 4) text += ", ...";
  return std::to_string(aSamples.size()) + " samples" + (aSamples.empty() ? "" : ": " + text);
}

double WallSeconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace

CClockModel::CClockModel(uint64_t aLocalAnchor, uint64_t aPeerAnchor, double aDriftPpm)
    : iLocalAnchor(static_cast<int64_t>(aLocalAnchor)),
      iPeerAnchor(static_cast<int64_t>(aPeerAnchor)),
      iRate(1.0 + aDriftPpm / 1e6) {}

uint64_t CClockModel::PeerAt(uint64_t aLocal) const {
  const double elapsed = static_cast<double>(static_cast<int64_t>(aLocal) - iLocalAnchor);
  return static_cast<uint64_t>(iPeerAnchor + std::llround(elapsed * iRate));
}

uint64_t CClockModel::LocalAt(uint64_t aPeer) const {
  const double elapsed = static_cast<double>(static_cast<int64_t>(aPeer) - iPeerAnchor);
  return static_cast<uint64_t>(iLocalAnchor + std::llround(elapsed / iRate));
}

// A positioning client with its name, counting what it receives.
class CSimulation::CClient : public host::CPositioningClient {
 public:
  CClient(const std::string& aInstance, const std::string& aName, size_t aIndex)
      : CPositioningClient(aInstance, aName), iIndex(aIndex) {}
  size_t iIndex;
};

CSimulation::CSimulation(const SimOptions& aOptions, SourceKind aKind, std::vector<DriveRecord> aDrive,
                         ISampleWriter& aWriter)
    : iOptions(aOptions),
      iKind(aKind),
      iDrive(std::move(aDrive)),
      iWriter(aWriter),
      iStoreInstance(aKind == SourceKind::External ? "2" : "1"),
      // The peer clock is anchored at the first record, so that a recorded drive replays
      // on the same clock as it was recorded on.
      iClock(kLocalStart + kFirstRecordDelay,
             iDrive.empty() ? kLocalStart + kFirstRecordDelay - aOptions.peerOffset : iDrive.front().stamp,
             aOptions.peerDriftPpm) {}

CSimulation::~CSimulation() {
  if (iFeature != nullptr) host::CModuleLoader::Destroy(iFeature);
  // The host's globals must not call back into a simulation that is gone.
  host::CPlatform::Instance().MainUnit().SetOnPin(nullptr);
  host::CSimulatedOsal::Instance().SetRealSleep(false);
}

void CSimulation::At(uint64_t aTime, std::function<void()> aAction) {
  iQueue.push({aTime, iOrder++, std::move(aAction)});
}

uint64_t CSimulation::AtSeconds(double aSeconds) const {
  return kLocalStart + static_cast<uint64_t>(std::llround(aSeconds * 1000.0));
}

bool CSimulation::InWindow(const std::vector<TimeWindow>& aWindows, uint64_t aTime) const {
  for (const TimeWindow& window : aWindows) {
    if (aTime >= AtSeconds(window.start) && (window.end < 0 || aTime < AtSeconds(window.end))) return true;
  }
  return false;
}

uint64_t CSimulation::JumpedStamp(uint64_t aStamp, uint64_t aTime) const {
  int64_t stamp = static_cast<int64_t>(aStamp);
  for (const TimeJump& jump : iOptions.timeJumps) {
    if (aTime >= AtSeconds(jump.at)) stamp += jump.delta;
  }
  if (stamp < 0) stamp = 0;
  if (iKind == SourceKind::Can) stamp &= 0xFFFFFFFFll;
  return static_cast<uint64_t>(stamp);
}

void CSimulation::ScheduleDrive() {
  uint64_t previous = kLocalStart;
  for (size_t i = 0; i < iDrive.size(); ++i) {
    // Records go out in file order, at the local instant of their time stamp.
    const uint64_t feed = std::max(previous, iClock.LocalAt(iDrive[i].stamp));
    iFeedTimes.push_back(feed);
    previous = feed;
    At(feed, [this, i] { SendRecord(i); });
  }
  iEndTime = std::max(iEndTime, previous);
}

void CSimulation::SendRecord(size_t aIndex) {
  const DriveRecord& record = iDrive[aIndex];
  const uint64_t now = host::CSimulatedOsal::Instance().Now();
  const bool present = iKind == SourceKind::Can ? iMicroHost.IsConnected() : iExternal.IsConnected();
  if (!present) {
    ++iSummary.recordsNotSent;
    return;
  }
  DriveRecord sent = record;
  sent.stamp = JumpedStamp(record.stamp, now);
  sent.line = 0;
  iSending = true;
  iSendingStamp = sent.stamp;
  iSendingTime = iFeedTimes[aIndex];
  iReceivedNow.clear();
  if (iKind == SourceKind::Can) {
    TPosSensorData data = {static_cast<uint32_t>(sent.stamp), static_cast<uint16_t>(sent.field[0]),
                           static_cast<int16_t>(sent.field[1]), static_cast<uint32_t>(sent.field[2]),
                           static_cast<uint8_t>(sent.field[3])};
    iMicroHost.SendSensorData(data);
  } else {
    iExternal.SendSensorData(kCombinedRecord, sent.stamp,
                             {static_cast<int16_t>(sent.field[0]), static_cast<int16_t>(sent.field[1]),
                              static_cast<int16_t>(sent.field[2]), static_cast<int16_t>(sent.field[3])});
  }
  iSending = false;
  ++iSummary.recordsFed;
  if (iOptions.soak) {
    ExpectRecord(sent);
    CompareReceived("record");
  }
  if (!iOptions.soak || !iOptions.recordPath.empty()) iSent.push_back(sent);
  if (!iOptions.plotPath.empty()) {
    const bool can = iKind == SourceKind::Can;
    iPlotPoints.push_back(
        {static_cast<double>(now - kLocalStart) / 1000.0, sent.field[1], can ? sent.field[0] : sent.field[2]});
  }
}

void CSimulation::AnswerKick(uint64_t aKickTime) {
  const uint64_t answerAt = aKickTime + iOptions.syncLatency;
  At(answerAt, [this, answerAt] {
    // The peer stamps the kick when it handles it, after the latency.
    const uint32_t peerTime = static_cast<uint32_t>(iClock.PeerAt(answerAt));
    if (iKind == SourceKind::Can) {
      if (!InWindow(iOptions.clockSyncLosses, answerAt) && iMicroHost.SendSyncTime(peerTime) == 0)
        ModelMeasured(peerTime);
    } else if (iClockSync.SendTimeStampReport(peerTime) == 0) {
      ModelMeasured(peerTime);
    }
  });
}

void CSimulation::ScheduleFaults() {
  for (const TimeWindow& window : iOptions.serviceLeaves) {
    At(AtSeconds(window.start), [this] {
      if (iKind == SourceKind::Can) {
        iMicroHost.Detach(iBroker);
      } else {
        iExternal.Detach(iBroker);
      }
    });
    if (window.end >= 0) {
      At(AtSeconds(window.end), [this] {
        if (iKind == SourceKind::Can) {
          iMicroHost.Attach(iBroker);
        } else {
          iExternal.Attach(iBroker);
          iExternal.SendConfiguration({{kCombinedRecord, 1, 200, 4}});
        }
      });
    }
    iEndTime = std::max(iEndTime, AtSeconds(std::max(window.start, window.end)));
  }
  if (iKind == SourceKind::External) {
    for (const TimeWindow& window : iOptions.clockSyncLosses) {
      At(AtSeconds(window.start), [this] {
        iClockSync.Detach(iBroker);
        iModelOffset = 0;  // the source drops its synchronised time with the service
      });
      if (window.end >= 0) At(AtSeconds(window.end), [this] { iClockSync.Attach(iBroker); });
    }
  }
}

void CSimulation::StartClient(CClient& aClient, uint64_t aTime) {
  At(aTime, [this, &aClient] {
    aClient.Attach(iBroker);
    // The store connects the first client; later ones connect their own end only.
    if (iModelStorePeer < 0) iModelStorePeer = static_cast<int>(aClient.iIndex);
    iInSubscribe = true;
    const TiPositioningSensorType types[2] = {1, 2};
    for (TiPositioningSensorType type : types) {
      const txdr_bool flag = type == 2 ? 1 : 0;
      iReceivedNow.clear();
      const bool connected = aClient.Subscribe(type, flag) != host::kNotConnected;
      if (!iOptions.soak) continue;
      if (connected) ModelSubscribe(aClient.iIndex, type, flag);
      CompareReceived("replay");
    }
    iInSubscribe = false;
  });
}

void CSimulation::ScheduleClients() {
  auto add = [this](const std::string& aName) {
    iClients.emplace_back(new CClient(iStoreInstance, aName, iClients.size()));
    CClient& client = *iClients.back();
    iSummary.clients.push_back(ClientSummary());
    iSummary.clients.back().name = aName;
    client.SetOnSample([this, &client](const host::ReceivedSample& aSample) { OnSample(client, aSample); });
    return &client;
  };
  CClient* first = add("C1");
  StartClient(*first, AtSeconds(iOptions.clientStart));
  iEndTime = std::max(iEndTime, AtSeconds(iOptions.clientStart));
  if (iOptions.secondClientAt >= 0) {
    StartClient(*add("C2"), AtSeconds(iOptions.secondClientAt));
    iEndTime = std::max(iEndTime, AtSeconds(iOptions.secondClientAt));
  }
  if (iOptions.clientRejoinAt >= 0) {
    const uint64_t leave = AtSeconds(iOptions.clientRejoinAt);
    At(leave, [this, first] {
      first->Detach(iBroker);
      // The store hears of its connected client leaving: one node per sensor goes.
      if (iModelStorePeer != static_cast<int>(first->iIndex)) return;
      iModelStorePeer = -1;
      for (std::vector<size_t>& list : iModelLists) {
        auto it = std::find(list.begin(), list.end(), first->iIndex);
        if (it != list.end()) list.erase(it);
      }
    });
    StartClient(*first, leave + kRejoinDelay);
    iEndTime = std::max(iEndTime, leave + kRejoinDelay);
  }
}

void CSimulation::OnSample(CClient& aClient, const host::ReceivedSample& aSample) {
  ClientSummary& stats = iSummary.clients[aClient.iIndex];
  ++stats.samples[aSample.type == 1 ? 0 : aSample.type == 2 ? 1 : 2];
  const bool replayed = iInSubscribe;
  if (replayed) {
    ++stats.replayed;
    ++iSummary.replayed;
  } else if (iSending) {
    const int64_t offset = static_cast<int64_t>(aSample.timeStamp - iSendingStamp);
    const int64_t error = static_cast<int64_t>(aSample.timeStamp - iSendingTime);
    if (!iHaveOffset || offset != iLastOffset) {
      if (!iOptions.soak || iSummary.offsets.size() < kMaxOffsetHistory)
        iSummary.offsets.push_back({static_cast<double>(iSendingTime - kLocalStart) / 1000.0, offset});
      if (!iSummary.synchronised && offset != 0) {
        iSummary.synchronised = true;
        iSummary.firstSyncOffset = offset;
      }
      iLastOffset = offset;
      iHaveOffset = true;
    }
    iErrorSum += static_cast<double>(error);
    ++iSummary.errorCount;
    iSummary.errorMaxAbs = std::max<int64_t>(iSummary.errorMaxAbs, error < 0 ? -error : error);
  }
  if (!iOptions.soak) {
    iWriter.Write(aClient.Name(), aSample, replayed);
    return;
  }
  if (iOptions.injectLoss > 0 && aClient.iIndex == 0 && ++iFirstClientSamples % iOptions.injectLoss == 0) return;
  iReceivedNow.push_back({aClient.iIndex, aSample});
  if (!iSending && !replayed) {
    ++iSummary.soak.deliveryErrors;
    if (iSummary.soak.firstDeliveryError.empty())
      iSummary.soak.firstDeliveryError = "a sample arrived while nothing was sent";
  }
}

void CSimulation::ModelSubscribe(size_t aClient, TiPositioningSensorType aType, txdr_bool aFlag) {
  for (int i = 0; i < 2; ++i) {
    if (aType != i + 1) continue;
    iModelLists[i].insert(iModelLists[i].begin(), aClient);
    ++iModelSubscriptions;
  }
  if (iModelSubscriptions != 2 || aFlag != 1 || iModelLists[0].empty()) return;
  // The replay: the first sensor's last minute, oldest first, to its newest subscriber.
  ++iSummary.soak.replaysChecked;
  for (const host::ReceivedSample& sample : iModelLastMinute) iExpectedNow.push_back({iModelLists[0].front(), sample});
}

void CSimulation::ModelMeasured(uint32_t aPeerTime) {
  const int64_t peer = static_cast<int64_t>(static_cast<uint64_t>(aPeerTime));
  if (iModelKick > peer) iModelOffset = iModelKick - peer;
}

void CSimulation::ExpectRecord(const DriveRecord& aSent) {
  const bool can = iKind == SourceKind::Can;
  host::ReceivedSample samples[2];
  const uint64_t stamp = can ? static_cast<uint64_t>(static_cast<uint32_t>(aSent.stamp)) : aSent.stamp;
  for (int i = 0; i < 2; ++i) {
    samples[i].type = static_cast<TiPositioningSensorType>(i + 1);
    samples[i].timeStamp = stamp + static_cast<uint64_t>(iModelOffset);
  }
  if (can) {
    samples[0].values = {static_cast<int16_t>(static_cast<uint8_t>(aSent.field[3])),
                         static_cast<int16_t>(aSent.field[1])};
    samples[1].values = {static_cast<int16_t>(static_cast<uint16_t>(aSent.field[0])), DirectionCode(aSent.field[2])};
  } else {
    samples[0].values = {static_cast<int16_t>(aSent.field[0]), static_cast<int16_t>(aSent.field[1])};
    samples[1].values = {static_cast<int16_t>(aSent.field[2]), static_cast<int16_t>(aSent.field[3])};
  }
  iModelLastMinute.push_back(samples[0]);
  if (iModelLastMinute.size() > kLastMinute) iModelLastMinute.pop_front();
  if (iModelSubscriptions != 2) return;
  ++iSummary.soak.recordsWhileGateOpen;
  for (int i = 0; i < 2; ++i) {
    for (size_t client : iModelLists[i]) iExpectedNow.push_back({client, samples[i]});
  }
}

void CSimulation::CompareReceived(const char* aWhat) {
  SoakSummary& soak = iSummary.soak;
  const bool replay = std::string(aWhat) == "replay";
  if (!replay) soak.deliveriesChecked += iExpectedNow.size();
  if (iReceivedNow != iExpectedNow) {
    ++(replay ? soak.replayErrors : soak.deliveryErrors);
    if (soak.firstDeliveryError.empty()) {
      char at[64];
      snprintf(at, sizeof at, " at %.1f s: expected ",
               static_cast<double>(host::CSimulatedOsal::Instance().Now() - kLocalStart) / 1000.0);
      soak.firstDeliveryError =
          std::string(aWhat) + at + Describe(iExpectedNow) + "; received " + Describe(iReceivedNow);
    }
  }
  iExpectedNow.clear();
  iReceivedNow.clear();
  // What the clients keep was checked: keeping it would grow without bound.
  for (auto& client : iClients) client->ClearSamples();
}

void CSimulation::FinalReplay() {
  SoakSummary& soak = iSummary.soak;
  soak.lastMinuteFed = iModelLastMinute.size();
  if (iModelSubscriptions != 2 || iModelLists[0].empty()) return;  // the gate is closed: nothing to ask
  CClient* caller = nullptr;
  for (auto& client : iClients) {
    if (client->IsConnected()) caller = client.get();
  }
  if (caller == nullptr) return;
  iReceivedNow.clear();
  iInSubscribe = true;
  caller->Subscribe(kNoSensor, 1);
  iInSubscribe = false;
  ModelSubscribe(caller->iIndex, kNoSensor, 1);
  soak.finalReplayDone = true;
  soak.finalReplaySamples = iReceivedNow.size();
  CompareReceived("replay");
}

void CSimulation::SampleRss() {
  std::ifstream statm("/proc/self/statm");
  uint64_t size = 0;
  uint64_t resident = 0;
  statm >> size >> resident;
  iSummary.soak.rssKb.push_back(resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024);
  TrimHostHistory();
  // Written to, so that the pages are resident.
  if (iOptions.injectLeakKb > 0) iInjectedLeak.emplace_back(static_cast<size_t>(iOptions.injectLeakKb) * 1024, 'x');
}

// The simulated host keeps every pin change and sleep for tests to look at; a soak
// forgets them once a minute so that only the module's memory is left to grow.
void CSimulation::TrimHostHistory() {
  host::CMainUnitIO& mainUnit = host::CPlatform::Instance().MainUnit();
  mainUnit.Reset();
  mainUnit.SetPluggedIn(!iOptions.mainUnitUnplugged);
  mainUnit.SetOnPin(iPinObserver);
  host::CSimulatedOsal& osal = host::CSimulatedOsal::Instance();
  const uint64_t now = osal.Now();
  osal.Reset();
  osal.SetNow(now);
  osal.SetRealSleep(iOptions.realtime);
}

void CSimulation::WaitForWallClock(uint64_t aTime) {
  if (!iOptions.realtime) return;
  const double due = iWallStart + static_cast<double>(aTime - kLocalStart) / 1000.0;
  const double wait = due - WallSeconds();
  if (wait > 0) usleep(static_cast<useconds_t>(wait * 1e6));
}

void CSimulation::Progress(bool aFinal) {
  if (!isatty(STDERR_FILENO) || iOptions.quiet) return;
  const double wall = WallSeconds();
  if (!aFinal && (wall - iWallStart < 2.0 || wall - iLastProgress < 0.25)) return;
  if (aFinal && !iProgressShown) return;
  iLastProgress = wall;
  iProgressShown = true;
  const double simulated = static_cast<double>(host::CSimulatedOsal::Instance().Now() - kLocalStart) / 1000.0;
  const double total = static_cast<double>(iEndTime + kTearDownDelay - kLocalStart) / 1000.0;
  fprintf(stderr, "\rpositioning-sim: %.1f / %.1f s simulated, %llu records fed%s", simulated, total,
          static_cast<unsigned long long>(iSummary.recordsFed), aFinal ? "\n" : "");
  fflush(stderr);
}

bool CSimulation::Run(std::string& aError) {
  if (!iLoader.Load(iOptions.modulePath)) {
    aError = iLoader.Error();
    return false;
  }
  host::CSimulatedOsal& osal = host::CSimulatedOsal::Instance();
  osal.SetNow(kLocalStart);
  osal.SetRealSleep(iOptions.realtime);
  host::CPlatform::Instance().MainUnit().SetPluggedIn(!iOptions.mainUnitUnplugged);
  if (iOptions.hasDiversity) iProperties.Set("diversity", iOptions.diversity);

  // Kicks: the CAN micro answers each sync timer event; the main unit's clock-sync
  // service answers each rising CLK_SYNC pulse.
  iEvents.SetOnFired([this](const host::Timer& aTimer) {
    if (iKind == SourceKind::Can && aTimer.eventClass == 0 && aTimer.eventId == 10) {
      iModelKick = static_cast<int64_t>(host::CSimulatedOsal::Instance().Now());
      AnswerKick(host::CSimulatedOsal::Instance().Now());
    }
  });
  iPinObserver = [this](const host::PinChange& aChange) {
    if (aChange.pin == kClkSyncPin && aChange.level == 1) {
      iModelKick = static_cast<int64_t>(aChange.tick);
      AnswerKick(aChange.tick);
    }
  };
  host::CPlatform::Instance().MainUnit().SetOnPin(iPinObserver);

  ScheduleDrive();
  ScheduleClients();
  ScheduleFaults();

  if (iOptions.soak) {
    iSummary.soak.enabled = true;
    iSummary.soak.rssToleranceKb = iOptions.rssToleranceKb;
    iSummary.soak.rssKb.reserve((iEndTime + kTearDownDelay - kLocalStart) / kRssPeriod + 4);
    iSummary.offsets.reserve(kMaxOffsetHistory);
    iNextRssSample = kLocalStart + kRssPeriod;
  }
  if (iKind == SourceKind::Can) iModelKick = static_cast<int64_t>(kLocalStart);
  iWallStart = WallSeconds();
  // The services are up when the daemon creates the feature.
  iMicroHost.Attach(iBroker);
  iExternal.Attach(iBroker);
  iClockSync.Attach(iBroker);
  iFeature = iLoader.Create(iFeatureId, iBroker, iEvents, iProperties);
  // The CAN source kicks once while it is created.
  if (iKind == SourceKind::Can) AnswerKick(kLocalStart);
  if (iKind == SourceKind::External) {
    At(kLocalStart, [this] { iExternal.SendConfiguration({{kCombinedRecord, 1, 200, 4}}); });
  }

  const uint64_t end = iEndTime + kTearDownDelay;
  for (;;) {
    // Timers due no later than the next event fire first, each at its own time.
    const uint64_t nextEvent = iQueue.empty() ? UINT64_MAX : iQueue.top().time;
    const uint64_t nextTimer = iEvents.NextDue();
    const uint64_t next = std::min(nextEvent, nextTimer);
    if (next > end) break;
    WaitForWallClock(next);
    if (nextTimer <= nextEvent) {
      iEvents.RunUntil(nextTimer);
    } else {
      iEvents.RunUntil(next);
      Event event = iQueue.top();
      iQueue.pop();
      event.action();
    }
    if (iOptions.soak && host::CSimulatedOsal::Instance().Now() >= iNextRssSample) {
      SampleRss();
      iNextRssSample += kRssPeriod;
    }
    Progress(false);
  }
  WaitForWallClock(end);
  iEvents.RunUntil(end);
  if (iOptions.soak) {
    FinalReplay();
    SampleRss();
    SoakSummary& soak = iSummary.soak;
    soak.rssFirstMinuteKb = soak.rssKb.front();
    soak.rssMaxKb = soak.rssFirstMinuteKb;
    for (size_t i = 1; i < soak.rssKb.size(); ++i) soak.rssMaxKb = std::max(soak.rssMaxKb, soak.rssKb[i]);
    soak.rssGrowthKb = static_cast<int64_t>(soak.rssMaxKb) - static_cast<int64_t>(soak.rssFirstMinuteKb);
  }
  host::CModuleLoader::Destroy(iFeature);
  iFeature = nullptr;
  for (auto& client : iClients) client->Detach(iBroker);
  iMicroHost.Detach(iBroker);
  iExternal.Detach(iBroker);
  iClockSync.Detach(iBroker);
  Progress(true);

  iSummary.source = iKind == SourceKind::Can ? "CAN" : "EXTERNAL";
  iSummary.simulatedSeconds = static_cast<double>(end - kLocalStart) / 1000.0;
  iSummary.wallSeconds = WallSeconds() - iWallStart;
  iSummary.errorMean = iSummary.errorCount > 0 ? iErrorSum / static_cast<double>(iSummary.errorCount) : 0;
  return true;
}

}  // namespace sim
