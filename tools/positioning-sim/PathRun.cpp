#include "PathRun.h"

#include <stdio.h>

#include "ExitCodes.h"

namespace sim {

int CPathRun::Prepare(const SimOptions& aOptions, SourceKind aKind, const IDriveSource& aDrive, const PathFiles& aFiles,
                      std::string& aError) {
  FILE* const aCsv = aFiles.csv;
  FILE* const aGeoJson = aFiles.geoJson;
  const PathOptions& path = aOptions.path;
  bool geographic = false;
  if (aOptions.tracePath.empty()) {
    iTruth.reset(
        new CGeneratedTruth(aKind, aOptions.seed, aOptions.duration, static_cast<uint64_t>(aDrive.FirstPeerTime())));
  } else if (!path.truthPath.empty()) {
    std::unique_ptr<CTruthReader> reader(new CTruthReader);
    if (!reader->Open(path.truthPath, aError)) return kExitBadInput;
    if (reader->Count() != aDrive.Count() + 1) {
      aError = path.truthPath + ": holds " + std::to_string(reader->Count()) + " poses, the trace " +
               std::to_string(aDrive.Count()) + " records: a truth has one pose more than its trace's records";
      return kExitBadInput;
    }
    iTruth = std::move(reader);
  }
  iWriter.reset(new CPathWriter(aCsv, aGeoJson, iTruth != nullptr));
  if (aFiles.plot != nullptr) {
    const std::string& name = path.plotPath;
    iPlot.reset(new CPathPlot(aFiles.plot, name.size() > 4 && name.compare(name.size() - 4, 4, ".svg") == 0));
    if (!iPlot->Open(aError)) return kExitIoFailure;
    iWriter->SetPlotData(iPlot->Data());
  }
  const bool writing = aCsv != nullptr || aGeoJson != nullptr || iPlot != nullptr;
  iReckoning.reset(new CDeadReckoning(iTruth.get(), writing ? iWriter.get() : nullptr));
  if (!iReckoning->Start(aError)) return kExitBadInput;
  const TruthPoint& start = iReckoning->TruthStart();
  geographic = iTruth != nullptr && start.geographic;
  GeoAnchor anchor;
  if (path.hasOrigin) {
    anchor.latitude = path.latitude;
    anchor.longitude = path.longitude;
  } else if (geographic) {
    anchor = {start.pose.x, start.pose.y, start.latitude, start.longitude};
  } else if (aGeoJson != nullptr) {
    aError = "--geojson needs --origin LAT,LON or a --truth with latitude and longitude";
    return kExitUsage;
  }
  iWriter->SetAnchor(anchor);
  return kExitOk;
}

bool CPathRun::Finish(std::string& aError) {
  if (iWriter) iWriter->Finish();
  if (!iPlot) return true;
  const bool compared = iReckoning->HasTruth() && iReckoning->TruthError().empty();
  char title[160];
  if (compared) {
    const PathFigures figures = iReckoning->Figures();
    snprintf(title, sizeof title, "dead reckoning against the truth: %.1f m, end-point error %.2f m (%.2f %%)",
             figures.travelled, figures.endError, figures.endErrorShare);
  } else {
    snprintf(title, sizeof title, "dead reckoning: %.1f m", iReckoning->Reckoner().Distance());
  }
  return iPlot->Draw(title, compared, aError);
}

}  // namespace sim
