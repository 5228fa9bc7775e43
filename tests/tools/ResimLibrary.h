// A small drive library in a scratch folder, and scripts/resim.sh (or its Slurm
// script) run over it as a user would: shared by the library runner's tests.
#ifndef TESTS_RESIM_LIBRARY_H
#define TESTS_RESIM_LIBRARY_H

#include <map>
#include <string>
#include <vector>

#include "SimRunner.h"

namespace testing_host {

// One drive of a run's list (OUT/drives.tsv, or a chunk's).
struct ListedDrive {
  std::string line;   // the manifest line
  std::string label;  // the drive as the manifest wrote it
  std::string key;    // its result key
};

// A scratch library holding the imported city drive as traces/city.trace.csv and its
// truth traces/city.truth.csv; the runner's output goes to Out().
class CResimLibrary {
 public:
  CResimLibrary();
  // The library's folder, and where the runs write (not created before a run).
  const std::string& Dir() const { return iScratch.Path(); }
  std::string Out() const { return iScratch.File("out"); }
  // Writes a manifest of aLines into the library's folder; returns its path.
  std::string WriteManifest(const std::vector<std::string>& aLines, const std::string& aName = "manifest.txt") const;
  // The command that runs scripts/aScript (resim.sh, resim-slurm.sh) with aArguments
  // and the simulator the runner must use here; the options that go with it.
  std::vector<std::string> Command(const std::string& aScript, const std::vector<std::string>& aArguments) const;
  ProcessOptions Options() const;
  // Runs resim.sh with aArguments (LIBRARY and OUT among them) to its end.
  SimRun Run(const std::vector<std::string>& aArguments) const;
  // The drives a run listed: aRunDir is Out() or a chunk's folder.
  std::vector<ListedDrive> Drives(const std::string& aRunDir) const;
  // The drive's result folder under aKey (the one build in it); empty when none.
  std::string ResultDir(const std::string& aKey) const;
  // The keys a run's jobs said they ran ("ran") or reused ("reused").
  std::vector<std::string> JobKeys(const std::string& aRunDir, const std::string& aWord) const;
  // The keys of the drives simulated since the last Forget (their result folder is new
  // since: a drive simulated again is renamed into place anew), in key order.
  std::vector<std::string> SimulatedKeys() const;
  // How often the simulator was started for drives (not for --version) since then.
  size_t SimulatorStarts() const;
  void ForgetSimulated() const;
  // Folders in the result store left over from runs (names starting with a dot).
  std::vector<std::string> LeftOvers() const;

 private:
  // The result folders' identities (device, inode) by key, as Forget found them.
  std::map<std::string, std::pair<uint64_t, uint64_t>> ResultFolders() const;

  CTempDir iScratch;
  mutable std::map<std::string, std::pair<uint64_t, uint64_t>> iKnown;
};

// The simulator resim.sh runs in these tests, behind resim/counting_sim.sh that notes
// its starts.
std::string ResimSimulator();

}  // namespace testing_host

#endif  // TESTS_RESIM_LIBRARY_H
