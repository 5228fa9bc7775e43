#include "SoakCheck.h"

#include "SimulatedOsal.h"

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

namespace sim {

namespace {

const SimTime kRssPeriod = 60000;

int16_t DirectionCode(int64_t aDirection) {
  if (aDirection == 0x21) return 1;
  return aDirection == 0x25 ? int16_t{2} : int16_t{0};
}

std::string Describe(const std::vector<host::CStoreModel::Delivery>& aSamples) {
  std::string text;
  for (size_t i = 0; i < aSamples.size() && i < 4; ++i) {
    const host::ReceivedSample& sample = aSamples[i].sample;
    text += (i ? ", " : "") + std::string("C") + std::to_string(aSamples[i].client + 1) + " type " +
            std::to_string(sample.type) + " at " + std::to_string(sample.timeStamp) + " [";
    for (size_t v = 0; v < sample.values.size(); ++v) text += (v ? ";" : "") + std::to_string(sample.values[v]);
    text += "]";
  }
  if (aSamples.size() > 4) text += ", ...";
  return std::to_string(aSamples.size()) + " samples" + (aSamples.empty() ? "" : ": " + text);
}

}  // namespace

CSoakCheck::CSoakCheck(const SoakSetup& aSetup, size_t aClients)
    : iSetup(aSetup),
      iModel(aClients, true),
      iKick(aSetup.kind == SourceKind::Can ? static_cast<int64_t>(LocalStart()) : 0) {
  iSummary.rssToleranceKb = aSetup.rssToleranceKb;
  // Sized up front, so that the check's own history does not count as growth.
  iSummary.rssKb.reserve((aSetup.expectedEnd + kTearDownDelay - LocalStart()) / kRssPeriod + 4);
}

void CSoakCheck::OnRecordSent(const SentRecord& aRecord) {
  const DriveRecord& sent = aRecord.record;
  const bool can = iSetup.kind == SourceKind::Can;
  const uint64_t stamp =
      (can ? static_cast<uint64_t>(static_cast<uint32_t>(sent.stamp)) : sent.stamp) + static_cast<uint64_t>(iOffset);
  if (iModel.GateOpen()) ++iSummary.recordsWhileGateOpen;
  if (can) {
    iModel.Feed(0, stamp, static_cast<int16_t>(static_cast<uint8_t>(sent.field[3])),
                static_cast<int16_t>(sent.field[1]));
    iModel.Feed(1, stamp, static_cast<int16_t>(static_cast<uint16_t>(sent.field[0])), DirectionCode(sent.field[2]));
  } else {
    iModel.Feed(0, stamp, static_cast<int16_t>(sent.field[0]), static_cast<int16_t>(sent.field[1]));
    iModel.Feed(1, stamp, static_cast<int16_t>(sent.field[2]), static_cast<int16_t>(sent.field[3]));
  }
  Compare("record", aRecord.now);
}

void CSoakCheck::OnSample(const DeliveredSample& aSample) {
  if (iSetup.injectLoss > 0 && aSample.client == 0 && ++iFirstClientSamples % iSetup.injectLoss == 0) return;
  iReceived.push_back({aSample.client, aSample.sample});
  if (!aSample.live && !aSample.replayed) {
    ++iSummary.deliveryErrors;
    if (iSummary.firstDeliveryError.empty()) iSummary.firstDeliveryError = "a sample arrived while nothing was sent";
  }
}

void CSoakCheck::OnSubscribed(size_t aClient, TiPositioningSensorType aType, txdr_bool aFlag,
                              reflection::TErrCode aResult) {
  if (aResult != host::kNotConnected) {
    const uint64_t replays = iModel.Replays();
    iModel.Subscribe(aClient, aType, aFlag);
    if (iModel.Replays() != replays && !iModel.Subscribers(0).empty()) ++iSummary.replaysChecked;
  }
  Compare("replay", host::CSimulatedOsal::Instance().Now());
}

void CSoakCheck::OnSyncAnswered(uint32_t aPeerTime) {
  const int64_t peer = static_cast<int64_t>(static_cast<uint64_t>(aPeerTime));
  if (iKick > peer) iOffset = iKick - peer;
}

void CSoakCheck::Compare(const char* aWhat, SimTime aNow) {
  const std::vector<host::CStoreModel::Delivery> expected = iModel.TakeExpected();
  const bool replay = std::string(aWhat) == "replay";
  if (!replay) iSummary.deliveriesChecked += expected.size();
  if (replay) iLastReplayReceived = iReceived.size();
  if (iReceived != expected) {
    ++(replay ? iSummary.replayErrors : iSummary.deliveryErrors);
    if (iSummary.firstDeliveryError.empty()) {
      char at[64];
      snprintf(at, sizeof at, " at %.1f s: expected ", SecondsAt(aNow));
      iSummary.firstDeliveryError = std::string(aWhat) + at + Describe(expected) + "; received " + Describe(iReceived);
    }
  }
  iReceived.clear();
}

void CSoakCheck::OnMinute(SimTime /*aTime*/) { SampleMemory(); }

void CSoakCheck::SampleMemory() {
  std::ifstream statm("/proc/self/statm");
  uint64_t size = 0;
  uint64_t resident = 0;
  statm >> size >> resident;
  iSummary.rssKb.push_back(resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024);
  // Written to, so that the pages are resident.
  if (iSetup.injectLeakKb > 0) iInjectedLeak.emplace_back(static_cast<size_t>(iSetup.injectLeakKb) * 1024, 'x');
}

void CSoakCheck::Finish(CSimulatedHeadUnit& aUnit) {
  // The last memory sample comes first: the final replay's comparison fills buffers
  // of the check's own (about 70 kB the first time), which are not the module's.
  SampleMemory();
  aUnit.TrimHostHistory();
  iSummary.lastMinuteFed = iModel.Ring(0).size();
  // With the gate closed there is nothing to ask.
  if (iModel.GateOpen() && !iModel.Subscribers(0).empty()) {
    const int caller = aUnit.ReplayToLastClient();
    if (caller >= 0) {
      iSummary.finalReplayDone = true;
      iSummary.finalReplaySamples = iLastReplayReceived;
    }
  }
  iSummary.rssFirstMinuteKb = iSummary.rssKb.front();
  iSummary.rssMaxKb = iSummary.rssFirstMinuteKb;
  for (size_t i = 1; i < iSummary.rssKb.size(); ++i) iSummary.rssMaxKb = std::max(iSummary.rssMaxKb, iSummary.rssKb[i]);
  iSummary.rssGrowthKb = static_cast<int64_t>(iSummary.rssMaxKb) - static_cast<int64_t>(iSummary.rssFirstMinuteKb);
}

}  // namespace sim
