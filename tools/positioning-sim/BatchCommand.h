// positioning-sim batch LIST: many drives in one program start, one `run` command line
// a line, each into its own --result-dir. For libraries of short drives, where starting
// a process per drive would cost more than the drive: each drive's folder holds the
// same bytes as a run of its own would write.
#ifndef SIM_BATCH_COMMAND_H
#define SIM_BATCH_COMMAND_H

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace sim {

struct SimOptions;

struct BatchOptions {
  std::string listPath;    // "-": standard input
  bool summaries = false;  // each drive's summary on standard error, as a run prints it
  bool atomic = false;     // result folders written aside, renamed into place; existing ones kept
  std::string statusPath;  // a JSON line per drive ("-": standard output); empty: none
};

// Adds the subcommand to aApp; the values land in aOptions.
CLI::App* AddBatchCommand(CLI::App& aApp, BatchOptions& aOptions);
// The words of one line: split at blanks; '...' and "..." keep blanks in a word.
// False with the reason for an unterminated quote.
bool SplitWords(const std::string& aLine, std::vector<std::string>& aWords, std::string& aError);
// Runs every drive of the list through aRunDrive (the `run` command) in a worker child,
// resetting the process-wide parts between drives, and in a new worker after a drive
// that crashed one; answers 0 when every drive's status was 0, else the first failing
// status (130 or 143 when interrupted, which stops the batch).
int RunBatch(const BatchOptions& aOptions, const std::string& aDefaultModule,
             const std::function<int(SimOptions&)>& aRunDrive);

}  // namespace sim

#endif  // SIM_BATCH_COMMAND_H
