#include "ResultDir.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ExitCodes.h"

namespace sim {

const char* const kResultSamples = "samples.csv";
const char* const kResultSummary = "summary.json";
const char* const kResultPath = "path.csv";
const char* const kResultLog = "log.txt";
const char* const kResultRun = "run.json";

namespace {

// mkdir -p: every missing folder on the way to aDir.
bool MakeFolders(const std::string& aDir, std::string& aError) {
  for (size_t slash = aDir.find('/', 1);; slash = aDir.find('/', slash + 1)) {
    const std::string folder = aDir.substr(0, slash);
    if (!folder.empty() && mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST) {
      aError = "--result-dir ";
      aError += aDir;
      aError += ": cannot create ";
      aError += folder;
      aError += ": ";
      aError += strerror(errno);
      return false;
    }
    if (slash == std::string::npos) break;
  }
  struct stat info;
  if (stat(aDir.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    aError = "--result-dir " + aDir + ": not a folder";
    return false;
  }
  return true;
}

std::string BaseName(const std::string& aPath) {
  const size_t slash = aPath.rfind('/');
  return slash == std::string::npos ? aPath : aPath.substr(slash + 1);
}

std::string HostName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0) return std::string();
  return name;
}

}  // namespace

CResultDir::~CResultDir() {
  for (const std::string& path : iPending) unlink(path.c_str());
}

std::string CResultDir::Temporary(const char* aName) const {
  return iDir + "/." + aName + "." + std::to_string(getpid()) + ".tmp";
}

bool CResultDir::Prepare(SimOptions& aOptions, std::string& aError) {
  std::string dir = aOptions.output.resultDir;
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  if (!MakeFolders(dir, aError)) return false;
  iDir = dir;
  iStarted = time(nullptr);
  iTracePath = aOptions.tracePath;
  char resolved[PATH_MAX];
  iModulePath = realpath(aOptions.modulePath.c_str(), resolved) != nullptr ? resolved : aOptions.modulePath;
  // A batch of drives loads one module again and again: hashed once while it stays the
  // same file. One that cannot be read fails to load, and says why then.
  static std::string hashedKey, hashedDigest;
  struct stat module;
  const std::string key = stat(iModulePath.c_str(), &module) != 0
                              ? std::string()
                              : iModulePath + ":" + std::to_string(module.st_ino) + ":" +
                                    std::to_string(module.st_size) + ":" + std::to_string(module.st_mtim.tv_sec) + "." +
                                    std::to_string(module.st_mtim.tv_nsec);
  if (key.empty() || key != hashedKey) {
    std::string ignored;
    hashedKey = key;
    if (!Sha256OfFile(iModulePath, hashedDigest, ignored)) hashedDigest.clear();
  }
  iModuleDigest = hashedDigest;
  aOptions.output.outPath = Temporary(kResultSamples);
  aOptions.output.summaryJsonPath = Temporary(kResultSummary);
  aOptions.path.csvPath = Temporary(kResultPath);
  aOptions.output.logTarget = Temporary(kResultLog);
  iPending = {aOptions.output.outPath, aOptions.output.summaryJsonPath, aOptions.path.csvPath,
              aOptions.output.logTarget};
  return true;
}

nlohmann::ordered_json CResultDir::SummaryJson(const Summary& aSummary, const CDeadReckoning& aReckoning,
                                               const std::map<uint16_t, uint64_t>& aByType) {
  Summary fixed = aSummary;
  fixed.outputs.clear();
  // The trace by its name only: the same drive read from another folder is the same.
  if (!iTracePath.empty()) {
    const size_t at = fixed.drive.find(iTracePath);
    if (at != std::string::npos) fixed.drive.replace(at, iTracePath.size(), BaseName(iTracePath));
  }
  nlohmann::ordered_json json = sim::SummaryJson(fixed);
  json.erase("outputs");
  json.erase("wall_seconds");
  iSamplesDigest = iSampleHash.HexDigest();
  json["samples_sha256"] = iSamplesDigest;
  json["samples_by_type"] = nlohmann::ordered_json::object();
  for (const auto& type : aByType) json["samples_by_type"][std::to_string(type.first)] = type.second;
  json["dead_reckoning"] = DriftJson(aReckoning);
  json["path"] = DeadReckoningJson(aReckoning);
  return json;
}

bool CResultDir::Publish(int aExitStatus, double aWallSeconds, std::string& aError) {
  // A file that could not be written completely is not put in place, nor are the
  // others: the folder keeps the last complete result.
  if (aExitStatus == kExitIoFailure) {
    aError = iDir + ": left as it was (an output could not be written)";
    return false;
  }
  const char* const names[] = {kResultSamples, kResultSummary, kResultPath, kResultLog};
  for (const char* name : names) {
    const std::string from = Temporary(name);
    const std::string to = iDir + "/" + name;
    if (rename(from.c_str(), to.c_str()) != 0) {
      aError = to + ": " + strerror(errno);
      return false;
    }
  }
  char started[32];
  struct tm utc;
  strftime(started, sizeof started, "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&iStarted, &utc));
  nlohmann::ordered_json run;
  run["exit_status"] = aExitStatus;
  run["wall_seconds"] = aWallSeconds;
  run["started"] = started;
  run["host"] = HostName();
  run["module"] = iModulePath;
  run["module_sha256"] = iModuleDigest.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(iModuleDigest);
  run["version"] = SimVersion();
  run["samples_sha256"] = iSamplesDigest;
  const std::string temporary = Temporary(kResultRun);
  iPending.assign(1, temporary);
  FILE* file = fopen(temporary.c_str(), "w");
  if (file == nullptr) return aError = temporary + ": " + strerror(errno), false;
  const std::string text = run.dump(2) + "\n";
  fputs(text.c_str(), file);
  const bool written = ferror(file) == 0;
  if (fclose(file) != 0 || !written) return aError = temporary + ": writing failed", false;
  const std::string to = iDir + "/" + kResultRun;
  if (rename(temporary.c_str(), to.c_str()) != 0) return aError = to + ": " + strerror(errno), false;
  iPending.clear();
  return true;
}

nlohmann::ordered_json DriftJson(const CDeadReckoning& aReckoning) {
  if (!aReckoning.HasTruth() || !aReckoning.TruthError().empty()) return nullptr;
  const PathFigures figures = aReckoning.Figures();
  nlohmann::ordered_json json;
  json["drift_m"] = figures.endError;
  json["drift_per_km"] = figures.travelled > 0 ? nlohmann::ordered_json(figures.endError / (figures.travelled / 1000))
                                               : nlohmann::ordered_json();
  json["distance_m"] = figures.travelled;
  return json;
}

}  // namespace sim
