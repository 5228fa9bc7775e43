// The reference client's dead reckoning: integrates the gyroscope and odometer samples
// the first client received, in the order they came (the records' time-stamp order),
// and, record by record, compares the path with the truth where one is known and
// hands it to the path writer. Its figures go into the summary.
#ifndef SIM_DEAD_RECKONING_H
#define SIM_DEAD_RECKONING_H

#include <stdint.h>
#include <stdio.h>

#include <nlohmann/json.hpp>
#include <string>

#include "DeadReckoner.h"
#include "PathWriter.h"
#include "RunObserver.h"
#include "TrajectoryErrors.h"
#include "Truth.h"

namespace sim {

class CDeadReckoning : public IRunObserver {
 public:
  // aTruth and aPath may be null; both stay the caller's.
  CDeadReckoning(ITruthSource* aTruth, CPathWriter* aPath);
  // Takes the start pose from the truth (or the origin without one); false with the
  // truth's error.
  bool Start(std::string& aError);
  void OnSample(const DeliveredSample& aSample) override;
  void OnRecordSent(const SentRecord& /*aRecord*/) override { RecordDone(); }
  void OnRecordNotSent() override { RecordDone(); }

  bool HasTruth() const { return iTruth != nullptr; }
  // The truth's first point (for a geographic anchor).
  const TruthPoint& TruthStart() const { return iTruthPoint; }
  const CDeadReckoner& Reckoner() const { return iReckoner; }
  PathFigures Figures() const { return iErrors.Figures(); }
  // Whether the truth ran out before the drive or failed; the reason.
  const std::string& TruthError() const { return iTruthError; }

 private:
  void RecordDone();
  void FlushTurn();

  ITruthSource* iTruth;
  CPathWriter* iPath;
  CDeadReckoner iReckoner;
  CTrajectoryErrors iErrors;
  TruthPoint iTruthPoint;
  std::string iTruthError;
  // A gyroscope sample waiting for the odometer sample of its record.
  bool iTurnPending = false;
  uint64_t iTurnStamp = 0;
  int32_t iTurnRate = 0;
  uint64_t iStepsWritten = 0;
  uint64_t iLastStamp = 0;
};

void PrintDeadReckoning(FILE* aFile, const CDeadReckoning& aReckoning);
nlohmann::ordered_json DeadReckoningJson(const CDeadReckoning& aReckoning);

}  // namespace sim

#endif  // SIM_DEAD_RECKONING_H
