// Statistics of a run, from what the service sent and the clients received: records
// fed, samples per client and type, replays, the synchronised offset and its history,
// and the error of the synchronised time stamps against the true time.
#ifndef SIM_RUN_STATISTICS_H
#define SIM_RUN_STATISTICS_H

#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "RunObserver.h"

namespace sim {

struct ClientSummary {
  std::string name;
  uint64_t samples[3] = {0, 0, 0};  // type 1, type 2, other
  uint64_t replayed = 0;
};

struct OffsetPoint {
  double seconds;  // since the feature was created
  int64_t offset;  // module time stamp minus the service's, ms
};

struct RunFigures {
  uint64_t recordsFed = 0;
  uint64_t recordsNotSent = 0;  // the service was away
  std::vector<ClientSummary> clients;
  uint64_t replayed = 0;
  std::vector<OffsetPoint> offsets;  // the first kMaxOffsetHistory changes
  uint64_t offsetChanges = 0;
  int64_t firstSyncOffset = 0;
  bool synchronised = false;
  double errorMean = 0;
  int64_t errorMaxAbs = 0;
  uint64_t errorCount = 0;
  uint64_t clockWraps = 0;  // the service's 32-bit stamps wrapped
  double firstWrapSeconds = 0;
  uint64_t stampsGoingBack = 0;  // live samples stamped before the one before them
};

class CRunStatistics : public IRunObserver {
 public:
  // The history kept for the summary is bounded, so that it does not grow with the drive.
  static const size_t kMaxOffsetHistory = 1000;

  explicit CRunStatistics(const std::vector<std::string>& aClientNames);
  // Told of every change of the synchronised offset (the plot draws them all).
  void SetOnOffsetChange(std::function<void(const OffsetPoint&)> aObserver) { iOnOffsetChange = std::move(aObserver); }
  const uint64_t& RecordsFed() const { return iFigures.recordsFed; }
  RunFigures Figures() const;

  void OnRecordSent(const SentRecord& aRecord) override;
  void OnRecordNotSent() override { ++iFigures.recordsNotSent; }
  void OnSample(const DeliveredSample& aSample) override;

 private:
  RunFigures iFigures;
  std::function<void(const OffsetPoint&)> iOnOffsetChange;
  double iErrorSum = 0;
  int64_t iLastOffset = 0;
  bool iHaveOffset = false;
  bool iHaveSent = false;
  uint64_t iLastSent = 0;
  std::vector<uint64_t> iLastDelivered;  // per client and type, 0: none yet
};

}  // namespace sim

#endif  // SIM_RUN_STATISTICS_H
