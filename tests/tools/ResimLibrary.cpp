#include "ResimLibrary.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace testing_host {

namespace {

const std::string kSourceDir = POSITIONING_SOURCE_DIR;
const std::string kCounting = kSourceDir + "/tests/tools/resim/counting_sim.sh";

// The city drive imported once for every library of the process.
const CTempDir& ImportedCityDrive() {
  static const CTempDir imported;
  static const SimRun run = RunSim({"import",      kSourceDir + "/tests/tools/drives/city-drive.csv",
                                    "-o",          imported.File("city.trace.csv"),
                                    "--truth",     imported.File("city.truth.csv"),
                                    "--time",      "ts_us:us",
                                    "--yaw-rate",  "yaw_rate_rad_s:rad/s:left",
                                    "--speed",     "speed_kmh:km/h",
                                    "--direction", "gear",
                                    "--lat",       "ref_lat_deg:deg",
                                    "--lon",       "ref_lon_deg:deg",
                                    "--heading",   "ref_heading_deg:deg:compass"});
  EXPECT_EQ(0, run.exitCode) << run.err;
  return imported;
}

}  // namespace

std::string ResimSimulator() { return SimPath(); }

CResimLibrary::CResimLibrary() {
  std::filesystem::create_directories(iScratch.File("traces"));
  for (const char* name : {"city.trace.csv", "city.truth.csv"}) {
    std::error_code error;
    std::filesystem::copy_file(ImportedCityDrive().File(name), iScratch.File(std::string("traces/") + name), error);
    EXPECT_FALSE(error) << name << ": " << error.message();
  }
}

std::string CResimLibrary::WriteManifest(const std::vector<std::string>& aLines, const std::string& aName) const {
  std::string text;
  for (const std::string& line : aLines) text += line + "\n";
  WriteFile(iScratch.File(aName), text);
  return iScratch.File(aName);
}

std::vector<std::string> CResimLibrary::Command(const std::string& aScript,
                                                const std::vector<std::string>& aArguments) const {
  std::vector<std::string> command = {"bash", kSourceDir + "/scripts/" + aScript};
  command.insert(command.end(), aArguments.begin(), aArguments.end());
  // Options after LIBRARY and OUT are read as well; the Slurm script passes them on.
  command.insert(command.end(), {"--sim", kCounting, "--module", POSITIONING_MODULE_PATH});
  return command;
}

ProcessOptions CResimLibrary::Options() const {
  ProcessOptions options;
  options.environment.push_back("REAL_POSITIONING_SIM=" + SimPath());
  options.environment.push_back("RESIM_REAL_SIM=" + ResimSimulator());
  options.environment.push_back("RESIM_CALLS=" + iScratch.File("calls.txt"));
  options.timeoutSeconds = 300;
  return options;
}

SimRun CResimLibrary::Run(const std::vector<std::string>& aArguments) const {
  return testing_support::RunProcess(Command("resim.sh", aArguments), Options());
}

std::vector<ListedDrive> CResimLibrary::Drives(const std::string& aRunDir) const {
  std::vector<ListedDrive> drives;
  for (const std::string& text : Lines(ReadFile(aRunDir + "/drives.tsv"))) {
    std::vector<std::string> fields;
    std::istringstream split(text);
    for (std::string field; std::getline(split, field, '\t');) fields.push_back(field);
    if (fields.size() >= 3) drives.push_back({fields[0], fields[1], fields[2]});
  }
  return drives;
}

std::string CResimLibrary::ResultDir(const std::string& aKey) const {
  const std::filesystem::path store = Out() + "/results/" + aKey;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(store, error)) {
    if (entry.is_directory() && entry.path().filename().string()[0] != '.') return entry.path().string();
  }
  return "";
}

std::vector<std::string> CResimLibrary::JobKeys(const std::string& aRunDir, const std::string& aWord) const {
  std::vector<std::string> keys;
  for (const std::string& line : Lines(ReadFile(aRunDir + "/jobs.out"))) {
    if (line.rfind(aWord + " ", 0) == 0) keys.push_back(line.substr(aWord.size() + 1));
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

std::map<std::string, std::pair<uint64_t, uint64_t>> CResimLibrary::ResultFolders() const {
  std::map<std::string, std::pair<uint64_t, uint64_t>> folders;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(Out() + "/results", error)) {
    const std::string folder = ResultDir(entry.path().filename().string());
    struct stat info;
    if (!folder.empty() && stat(folder.c_str(), &info) == 0)
      folders[entry.path().filename().string()] = {info.st_dev, info.st_ino};
  }
  return folders;
}

std::vector<std::string> CResimLibrary::SimulatedKeys() const {
  std::vector<std::string> keys;
  for (const auto& folder : ResultFolders()) {
    const auto known = iKnown.find(folder.first);
    if (known == iKnown.end() || known->second != folder.second) keys.push_back(folder.first);
  }
  return keys;
}

size_t CResimLibrary::SimulatorStarts() const {
  size_t starts = 0;
  for (const std::string& call : Lines(ReadFile(iScratch.File("calls.txt")))) {
    if (call.rfind("--version", 0) != 0) ++starts;
  }
  return starts;
}

void CResimLibrary::ForgetSimulated() const {
  WriteFile(iScratch.File("calls.txt"), "");
  iKnown = ResultFolders();
}

std::vector<std::string> CResimLibrary::LeftOvers() const {
  std::vector<std::string> found;
  std::error_code error;
  for (auto entry = std::filesystem::recursive_directory_iterator(Out() + "/results", error);
       entry != std::filesystem::recursive_directory_iterator(); entry.increment(error)) {
    if (entry->path().filename().string()[0] == '.') found.push_back(entry->path().string());
  }
  return found;
}

}  // namespace testing_host
