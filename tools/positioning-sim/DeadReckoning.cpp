#include "DeadReckoning.h"

#include "ContractConstants.h"

namespace sim {

CDeadReckoning::CDeadReckoning(ITruthSource* aTruth, CPathWriter* aPath) : iTruth(aTruth), iPath(aPath) {}

bool CDeadReckoning::Start(std::string& aError) {
  if (iTruth != nullptr && !iTruth->Next(iTruthPoint)) {
    aError = iTruth->Error().empty() ? "the truth holds no pose" : iTruth->Error();
    return false;
  }
  iReckoner.Reset(iTruthPoint.pose);
  iErrors.Add(iTruthPoint.stamp, iTruthPoint.pose, iReckoner.Current());
  return true;
}

void CDeadReckoning::OnSample(const DeliveredSample& aSample) {
  // The reference client is the first one; the others receive the same samples.
  if (aSample.client != 0) return;
  const host::ReceivedSample& sample = aSample.sample;
  if (sample.values.size() < 2) return;
  if (sample.type == contract::kGyroscope) {
    FlushTurn();
    iTurnPending = true;
    iTurnStamp = sample.timeStamp;
    iTurnRate = sample.values[1];
  } else if (sample.type == contract::kOdometer) {
    const int32_t rate = iTurnPending && iTurnStamp == sample.timeStamp ? iTurnRate : 0;
    if (iTurnPending && iTurnStamp != sample.timeStamp) FlushTurn();
    iTurnPending = false;
    // The pulses travel as a 16-bit value: the count is unsigned.
    iReckoner.Step(sample.timeStamp, rate, static_cast<uint16_t>(sample.values[0]), sample.values[1]);
    iLastStamp = sample.timeStamp;
  }
}

// A turn without distance: a replayed gyroscope sample (the odometer's are not
// replayed), or a record whose odometer sample did not come.
void CDeadReckoning::FlushTurn() {
  if (!iTurnPending) return;
  iTurnPending = false;
  iReckoner.Step(iTurnStamp, iTurnRate, 0, kDirectionUnknown);
  iLastStamp = iTurnStamp;
}

void CDeadReckoning::RecordDone() {
  FlushTurn();
  const Pose* truth = nullptr;
  if (iTruth != nullptr && iTruthError.empty()) {
    if (iTruth->Next(iTruthPoint)) {
      truth = &iTruthPoint.pose;
      iErrors.Add(iTruthPoint.stamp, iTruthPoint.pose, iReckoner.Current());
    } else {
      iTruthError = iTruth->Error().empty() ? "the truth ends before the drive" : iTruth->Error();
    }
  }
  if (iPath != nullptr && iReckoner.Steps() != iStepsWritten) {
    iStepsWritten = iReckoner.Steps();
    iPath->Write(iLastStamp, iReckoner.Current(), iReckoner.Distance(), truth);
  }
}

void PrintDeadReckoning(FILE* aFile, const CDeadReckoning& aReckoning) {
  const CDeadReckoner& reckoner = aReckoning.Reckoner();
  const Pose& end = reckoner.Current();
  fprintf(aFile,
          "dead reckoning:       %llu records integrated, %.1f m travelled, ends at x %.1f m, y %.1f m, %.1f deg\n",
          static_cast<unsigned long long>(reckoner.Steps()), reckoner.Distance(), end.x, end.y, end.heading);
  if (!aReckoning.HasTruth()) return;
  if (!aReckoning.TruthError().empty()) {
    fprintf(aFile, "against the truth:    not compared: %s\n", aReckoning.TruthError().c_str());
    return;
  }
  const PathFigures figures = aReckoning.Figures();
  fprintf(aFile, "end-point error:      %.2f m after %.1f m along the truth: %.3f %%\n", figures.endError,
          figures.travelled, figures.endErrorShare);
  const SegmentFigures& segments = figures.segments;
  if (segments.segments == 0) {
    fprintf(aFile, "segment errors:       none: the drive is shorter than %.0f m\n", CTrajectoryErrors::Length(0));
    return;
  }
  fprintf(aFile, "segment errors:       translation %.3f %%, rotation %.5f deg/m over %llu segments of 100 to 800 m\n",
          segments.meanTranslation, segments.meanRotation, static_cast<unsigned long long>(segments.segments));
  if (segments.startsLeftOut > 0)
    fprintf(aFile, "                      (%llu starts left out while the car stood)\n",
            static_cast<unsigned long long>(segments.startsLeftOut));
}

nlohmann::ordered_json DeadReckoningJson(const CDeadReckoning& aReckoning) {
  const CDeadReckoner& reckoner = aReckoning.Reckoner();
  nlohmann::ordered_json json;
  json["records_integrated"] = reckoner.Steps();
  json["distance_m"] = reckoner.Distance();
  json["end"] = {
      {"x_m", reckoner.Current().x}, {"y_m", reckoner.Current().y}, {"heading_deg", reckoner.Current().heading}};
  json["truth"] = aReckoning.HasTruth() && aReckoning.TruthError().empty();
  if (!aReckoning.TruthError().empty()) json["truth_error"] = aReckoning.TruthError();
  if (!json["truth"].get<bool>()) return json;
  const PathFigures figures = aReckoning.Figures();
  json["travelled_m"] = figures.travelled;
  json["end_error_m"] = figures.endError;
  json["end_error_percent"] = figures.endErrorShare;
  const SegmentFigures& segments = figures.segments;
  json["segments"] = segments.segments;
  json["translation_error_percent"] = segments.meanTranslation;
  json["rotation_error_deg_per_m"] = segments.meanRotation;
  json["segment_starts_left_out"] = segments.startsLeftOut;
  json["by_length"] = nlohmann::ordered_json::array();
  for (int i = 0; i < SegmentFigures::kLengths; ++i) {
    json["by_length"].push_back({{"length_m", CTrajectoryErrors::Length(i)},
                                 {"segments", segments.count[i]},
                                 {"translation_error_percent", segments.translation[i]},
                                 {"rotation_error_deg_per_m", segments.rotation[i]}});
  }
  return json;
}

}  // namespace sim
