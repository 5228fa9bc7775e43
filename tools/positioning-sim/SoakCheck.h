// --soak: checks instead of printing. Every sample fed while the delivery gate is open
// must reach every subscribed client in synchronised time, every replay must be the
// last minute fed (the store's expected behaviour is host::CStoreModel), and resident
// memory, sampled once a simulated minute, must stay flat after the first minute.
#ifndef SIM_SOAK_CHECK_H
#define SIM_SOAK_CHECK_H

#include <stdint.h>

#include <string>
#include <vector>

#include "RunObserver.h"
#include "SimulatedHeadUnit.h"
#include "StoreModel.h"

namespace sim {

struct SoakSummary {
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

struct SoakSetup {
  SourceKind kind = SourceKind::Can;
  double rssToleranceKb = 256;
  uint32_t injectLeakKb = 0;  // leaked every simulated minute, to show the check work
  uint32_t injectLoss = 0;    // the first client loses every n-th sample it receives
  SimTime expectedEnd = 0;    // for sizing the memory history up front
};

class CSoakCheck : public IRunObserver {
 public:
  CSoakCheck(const SoakSetup& aSetup, size_t aClients);
  // After the run: a final replay of the last minute, and the last memory sample.
  void Finish(CSimulatedHeadUnit& aUnit);
  const SoakSummary& Summary() const { return iSummary; }

  void OnRecordSent(const SentRecord& aRecord) override;
  void OnSample(const DeliveredSample& aSample) override;
  void OnClientAttached(size_t aClient) override { iModel.Attached(aClient); }
  void OnClientDetached(size_t aClient) override { iModel.Detached(aClient); }
  void OnSubscribing(size_t /*aClient*/) override { iReceived.clear(); }
  void OnSubscribed(size_t aClient, TiPositioningSensorType aType, txdr_bool aFlag,
                    reflection::TErrCode aResult) override;
  void OnKick(SimTime aTime) override { iKick = static_cast<int64_t>(aTime); }
  void OnSyncAnswered(uint32_t aPeerTime) override;
  // The external source drops its synchronised time with the clock-sync service.
  void OnClockSyncServiceLeft() override { iOffset = 0; }
  void OnMinute(SimTime aTime) override;

 private:
  void Compare(const char* aWhat, SimTime aNow);
  void SampleMemory();

  const SoakSetup iSetup;
  host::CStoreModel iModel;
  std::vector<host::CStoreModel::Delivery> iReceived;
  int64_t iKick = 0;    // local tick of the last kick
  int64_t iOffset = 0;  // the offset the module must have measured
  uint64_t iFirstClientSamples = 0;
  size_t iLastReplayReceived = 0;
  std::vector<std::vector<char>> iInjectedLeak;
  SoakSummary iSummary;
};

}  // namespace sim

#endif  // SIM_SOAK_CHECK_H
