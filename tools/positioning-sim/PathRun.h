// Sets up the reference client's dead reckoning for a run: the truth (the built-in
// drive's own, or a trace's truth file, checked against the trace before the run), the
// path writer and the GeoJSON origin.
#ifndef SIM_PATH_RUN_H
#define SIM_PATH_RUN_H

#include <stdio.h>

#include <memory>
#include <string>

#include "DeadReckoning.h"
#include "DriveSource.h"
#include "PathPlot.h"
#include "SimOptions.h"

namespace sim {

// The path's outputs, opened before the run (null when not asked for); they stay the
// caller's.
struct PathFiles {
  FILE* csv = nullptr;
  FILE* geoJson = nullptr;
  FILE* plot = nullptr;
};

class CPathRun {
 public:
  // Answers kExitOk, or an exit status with the reason in aError.
  int Prepare(const SimOptions& aOptions, SourceKind aKind, const IDriveSource& aDrive, const PathFiles& aFiles,
              std::string& aError);
  CDeadReckoning& Observer() { return *iReckoning; }
  // Ends the GeoJSON document and draws the plot; false with the reason.
  bool Finish(std::string& aError);

 private:
  std::unique_ptr<ITruthSource> iTruth;
  std::unique_ptr<CPathWriter> iWriter;
  std::unique_ptr<CDeadReckoning> iReckoning;
  std::unique_ptr<CPathPlot> iPlot;
};

}  // namespace sim

#endif  // SIM_PATH_RUN_H
