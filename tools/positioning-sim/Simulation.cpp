#include "Simulation.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

const TiPositioningSensorType kCombinedRecord = 0x8000;
const uint32_t kClkSyncPin = 7;
const uint64_t kRejoinDelay = 1000;
const uint64_t kTearDownDelay = 1000;

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
  host::COsal::Instance().SetRealSleep(false);
}

void CSimulation::At(uint64_t aTime, std::function<void()> aAction) { iQueue.push({aTime, iOrder++, std::move(aAction)}); }

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
  const uint64_t now = host::COsal::Instance().Now();
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
  iSent.push_back(sent);
  if (!iOptions.plotPath.empty()) {
    const bool can = iKind == SourceKind::Can;
    iPlotPoints.push_back({static_cast<double>(now - kLocalStart) / 1000.0, sent.field[1],
                           can ? sent.field[0] : sent.field[2]});
  }
}

void CSimulation::AnswerKick(uint64_t aKickTime) {
  const uint64_t answerAt = aKickTime + iOptions.syncLatency;
  At(answerAt, [this, answerAt] {
    // The peer stamps the kick when it handles it, after the latency.
    const uint32_t peerTime = static_cast<uint32_t>(iClock.PeerAt(answerAt));
    if (iKind == SourceKind::Can) {
      if (!InWindow(iOptions.clockSyncLosses, answerAt)) iMicroHost.SendSyncTime(peerTime);
    } else {
      iClockSync.SendTimeStampReport(peerTime);
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
      At(AtSeconds(window.start), [this] { iClockSync.Detach(iBroker); });
      if (window.end >= 0) At(AtSeconds(window.end), [this] { iClockSync.Attach(iBroker); });
    }
  }
}

void CSimulation::StartClient(CClient& aClient, uint64_t aTime) {
  At(aTime, [this, &aClient] {
    aClient.Attach(iBroker);
    iInSubscribe = true;
    aClient.Subscribe(1, 0);
    aClient.Subscribe(2, 1);
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
    At(leave, [this, first] { first->Detach(iBroker); });
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
  iWriter.Write(aClient.Name(), aSample, replayed);
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
  const double simulated = static_cast<double>(host::COsal::Instance().Now() - kLocalStart) / 1000.0;
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
  host::COsal& osal = host::COsal::Instance();
  osal.SetNow(kLocalStart);
  osal.SetRealSleep(iOptions.realtime);
  host::CPlatform::Instance().MainUnit().SetPluggedIn(!iOptions.mainUnitUnplugged);
  if (iOptions.hasDiversity) iProperties.Set("diversity", iOptions.diversity);

  // Kicks: the CAN micro answers each sync timer event; the main unit's clock-sync
  // service answers each rising CLK_SYNC pulse.
  iEvents.SetOnFired([this](const host::Timer& aTimer) {
    if (iKind == SourceKind::Can && aTimer.eventClass == 0 && aTimer.eventId == 10)
      AnswerKick(host::COsal::Instance().Now());
  });
  host::CPlatform::Instance().MainUnit().SetOnPin([this](const host::PinChange& aChange) {
    if (aChange.pin == kClkSyncPin && aChange.level == 1) AnswerKick(aChange.tick);
  });

  ScheduleDrive();
  ScheduleClients();
  ScheduleFaults();

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
    Progress(false);
  }
  WaitForWallClock(end);
  iEvents.RunUntil(end);
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
