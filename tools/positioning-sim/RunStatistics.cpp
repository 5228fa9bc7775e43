#include "RunStatistics.h"

#include <algorithm>

#include "ContractConstants.h"
#include "TraceClock.h"

namespace sim {

CRunStatistics::CRunStatistics(const std::vector<std::string>& aClientNames) {
  for (const std::string& name : aClientNames) {
    iFigures.clients.push_back(ClientSummary());
    iFigures.clients.back().name = name;
  }
  iFigures.offsets.reserve(kMaxOffsetHistory);
  iLastDelivered.assign(aClientNames.size() * 2, 0);
}

RunFigures CRunStatistics::Figures() const {
  RunFigures figures = iFigures;
  figures.errorMean = figures.errorCount > 0 ? iErrorSum / static_cast<double>(figures.errorCount) : 0;
  return figures;
}

void CRunStatistics::OnRecordSent(const SentRecord& aRecord) {
  ++iFigures.recordsFed;
  const uint64_t stamp = aRecord.record.stamp;
  if (iHaveSent && stamp < iLastSent && StampStep(iLastSent, stamp) > 0) {
    if (iFigures.clockWraps++ == 0) iFigures.firstWrapSeconds = SecondsAt(aRecord.now);
  }
  iHaveSent = true;
  iLastSent = stamp;
}

void CRunStatistics::OnSample(const DeliveredSample& aSample) {
  ClientSummary& client = iFigures.clients[aSample.client];
  const TiPositioningSensorType type = aSample.sample.type;
  ++client.samples[type == contract::kGyroscope ? 0 : type == contract::kOdometer ? 1 : 2];
  if (aSample.replayed) {
    ++client.replayed;
    ++iFigures.replayed;
    return;
  }
  if (!aSample.live) return;
  if (type == contract::kGyroscope || type == contract::kOdometer) {
    uint64_t& last = iLastDelivered[aSample.client * 2 + (type == contract::kGyroscope ? 0 : 1)];
    if (aSample.sample.timeStamp < last) ++iFigures.stampsGoingBack;
    last = aSample.sample.timeStamp;
  }
  const int64_t offset = static_cast<int64_t>(aSample.sample.timeStamp - aSample.sentStamp);
  const int64_t error = static_cast<int64_t>(aSample.sample.timeStamp - aSample.due);
  if (!iHaveOffset || offset != iLastOffset) {
    const OffsetPoint point = {SecondsAt(aSample.due), offset};
    if (iFigures.offsets.size() < kMaxOffsetHistory) iFigures.offsets.push_back(point);
    ++iFigures.offsetChanges;
    if (iOnOffsetChange) iOnOffsetChange(point);
    if (!iFigures.synchronised && offset != 0) {
      iFigures.synchronised = true;
      iFigures.firstSyncOffset = offset;
    }
    iLastOffset = offset;
    iHaveOffset = true;
  }
  iErrorSum += static_cast<double>(error);
  ++iFigures.errorCount;
  iFigures.errorMaxAbs = std::max<int64_t>(iFigures.errorMaxAbs, error < 0 ? -error : error);
}

}  // namespace sim
