// The worker of positioning-sim batch: a child of the batch that runs the list's drives
// one after the other in itself and reports each as it ends, so that the batch can go
// on after a drive that crashed the worker.
#ifndef SIM_BATCH_WORKER_H
#define SIM_BATCH_WORKER_H

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

namespace sim {

struct BatchOptions;
struct SimOptions;
class CMessageCapture;

// What became of one line of the list.
struct LineResult {
  int status = 2;                  // the drive's exit status
  std::string outcome = "failed";  // ran, reused, failed or interrupted
  std::string resultDir;           // as the line names it
};

// What the worker needs besides the list.
struct WorkerSetup {
  const BatchOptions* options = nullptr;
  std::string defaultModule;
  std::function<int(SimOptions&)> runDrive;  // the `run` command
  CMessageCapture* capture = nullptr;        // each drive's messages, for --status; null: none
};

// True for a line that names a drive (or tries to): not blank, not a comment.
bool IsDriveLine(const std::string& aLine);
// The --result-dir a drive line names; empty when it names none or does not parse.
std::string ResultDirOf(const std::string& aLine, const std::string& aDefaultModule);
// One --status line: what became of the drive on list line aNumber, and its messages
// (aSeconds below 0: not known).
std::string StatusRecord(uint64_t aNumber, const std::string& aLine, const LineResult& aResult, double aSeconds,
                         const std::string& aMessages);

// The worker's last report when it went through the list.
extern const char* const kWorkerDone;

// Runs aLines from aFirst on, one report a line on aReports as each ends:
// "INDEX<TAB>STATUS<TAB>OUTCOME<TAB>RECORD" (RECORD the --status line, or empty), and
// kWorkerDone at the end. Stops after an interrupted drive; answers its status, else 0.
int RunWorker(const std::vector<std::string>& aLines, size_t aFirst, const WorkerSetup& aSetup, int aReports);

}  // namespace sim

#endif  // SIM_BATCH_WORKER_H
