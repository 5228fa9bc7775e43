// One drive, one result folder: the samples, a deterministic summary, the
// dead-reckoned path and the log, each written under a temporary name in the folder
// and renamed into place when complete, and run.json for what differs from run to run
// (wall time, host, module file). Two runs of one drive and build give byte-identical
// folders but for run.json.
#ifndef SIM_RESULT_DIR_H
#define SIM_RESULT_DIR_H

#include <stdint.h>
#include <time.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "DeadReckoning.h"
#include "Sha256.h"
#include "SimOptions.h"
#include "SummaryReport.h"

namespace sim {

// The file names in a result folder.
extern const char* const kResultSamples;
extern const char* const kResultSummary;
extern const char* const kResultPath;
extern const char* const kResultLog;
extern const char* const kResultRun;

class CResultDir {
 public:
  CResultDir() = default;
  CResultDir(const CResultDir&) = delete;
  CResultDir& operator=(const CResultDir&) = delete;
  // Removes the temporary files of whatever was not published.
  ~CResultDir();

  // Creates aOptions' result folder (and its parents) when missing and points the
  // sample, summary, path and log outputs at temporary files in it; false with the
  // reason.
  bool Prepare(SimOptions& aOptions, std::string& aError);
  bool Active() const { return !iDir.empty(); }
  const std::string& Dir() const { return iDir; }
  // Every byte of the sample file goes through it.
  CSha256& SampleHash() { return iSampleHash; }
  // The summary for the folder: no wall time, no paths; the samples' hash and counts
  // per type; the dead reckoning's drift against the truth (null without one).
  nlohmann::ordered_json SummaryJson(const Summary& aSummary, const CDeadReckoning& aReckoning,
                                     const std::map<uint16_t, uint64_t>& aByType);
  // Renames the complete files into place, run.json last (it records aExitStatus);
  // false with the reason when one cannot be.
  bool Publish(int aExitStatus, double aWallSeconds, std::string& aError);

 private:
  std::string Temporary(const char* aName) const;

  std::string iDir;
  std::string iModulePath;
  std::string iTracePath;
  std::string iModuleDigest;
  time_t iStarted = 0;
  CSha256 iSampleHash;
  std::string iSamplesDigest;
  std::vector<std::string> iPending;  // temporary files not yet renamed
};

// The dead reckoning's drift for a summary: the end-point error against the truth, per
// kilometre of the truth's distance, and that distance; null without a truth.
nlohmann::ordered_json DriftJson(const CDeadReckoning& aReckoning);

}  // namespace sim

#endif  // SIM_RESULT_DIR_H
