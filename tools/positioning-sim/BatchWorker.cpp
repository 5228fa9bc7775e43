#include "BatchWorker.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>

#include "BatchCommand.h"
#include "BatchIsolation.h"
#include "ExitCodes.h"
#include "Globals.h"
#include "Interruption.h"
#include "SimOptions.h"

namespace sim {

const char* const kWorkerDone = "done";

namespace {

// How much of a drive's messages a --status line keeps: the end, which says why it failed.
const size_t kStatusMessageLines = 20;

// The line's words parsed as the command line of `run`: -1 when they are a drive to run,
// else the exit status (after the parser said what is wrong).
int ParseLine(std::vector<std::string> aWords, const std::string& aDefaultModule, SimOptions& aOptions) {
  aWords.insert(aWords.begin(), {"positioning-sim", "run"});
  std::vector<char*> arguments;
  arguments.reserve(aWords.size());
  for (std::string& word : aWords) arguments.push_back(&word[0]);
  const int parsed = ParseCommandLine(static_cast<int>(arguments.size()), arguments.data(), aDefaultModule, aOptions);
  return parsed == kExitOk ? kExitUsage : parsed;
}

// Runs one line of the list (its words) as a drive.
LineResult RunLine(const std::vector<std::string>& aWords, const WorkerSetup& aSetup, const std::string& aWhere) {
  LineResult result;
  SimOptions options;
  const int parsed = ParseLine(aWords, aSetup.defaultModule, options);
  if (parsed >= 0) {
    result.status = parsed;
    return result;
  }
  if (options.output.resultDir.empty()) {
    fprintf(stderr, "positioning-sim batch: %s: a drive needs --result-dir\n", aWhere.c_str());
    return result;
  }
  result.resultDir = options.output.resultDir;
  options.output.quiet = options.output.quiet || !aSetup.options->summaries;
  std::unique_ptr<CAtomicFolder> folder;
  if (aSetup.options->atomic) {
    folder.reset(new CAtomicFolder(options.output.resultDir));
    if (folder->Exists()) {
      result.status = kExitOk;
      result.outcome = "reused";
      return result;
    }
    folder->RemoveStale();
    options.output.resultDir = folder->Temporary();
  }
  result.status = aSetup.runDrive(options);
  host::ResetGlobals();
  result.outcome = result.status == kExitOk ? "ran" : "failed";
  if (result.status == kExitInterrupted || result.status == kExitTerminated) result.outcome = "interrupted";
  std::string error;
  bool taken = false;
  if (folder && result.status == kExitOk && !folder->Publish(taken, error)) {
    fprintf(stderr, "positioning-sim batch: %s: %s\n", aWhere.c_str(), error.c_str());
    result.status = kExitIoFailure;
    result.outcome = "failed";
  }
  if (taken) result.outcome = "reused";
  return result;
}

bool WriteAll(int aFd, const std::string& aText) {
  for (size_t done = 0; done < aText.size();) {
    const ssize_t wrote = write(aFd, aText.data() + done, aText.size() - done);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) return false;
    done += static_cast<size_t>(wrote);
  }
  return true;
}

}  // namespace

bool IsDriveLine(const std::string& aLine) {
  std::vector<std::string> words;
  std::string error;
  return !SplitWords(aLine, words, error) || (!words.empty() && words[0][0] != '#');
}

std::string ResultDirOf(const std::string& aLine, const std::string& aDefaultModule) {
  std::vector<std::string> words;
  std::string error;
  SimOptions options;
  if (!SplitWords(aLine, words, error) || ParseLine(words, aDefaultModule, options) >= 0) return std::string();
  return options.output.resultDir;
}

std::string StatusRecord(uint64_t aNumber, const std::string& aLine, const LineResult& aResult, double aSeconds,
                         const std::string& aMessages) {
  nlohmann::ordered_json record;
  record["line"] = aNumber;
  record["drive"] = aLine;
  record["result_dir"] = aResult.resultDir;
  record["outcome"] = aResult.outcome;
  record["exit_status"] = aResult.status;
  record["seconds"] = aSeconds >= 0 ? nlohmann::ordered_json(aSeconds) : nlohmann::ordered_json();
  record["messages"] = aMessages;
  // A trace's bytes quoted in a message need not be UTF-8: replaced, not refused.
  return record.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

int RunWorker(const std::vector<std::string>& aLines, size_t aFirst, const WorkerSetup& aSetup, int aReports) {
  const BatchOptions& batch = *aSetup.options;
  std::vector<std::string> words;
  std::string error;
  for (size_t index = aFirst; index < aLines.size(); ++index) {
    if (InterruptingSignal() != 0) return InterruptingSignal() == SIGTERM ? kExitTerminated : kExitInterrupted;
    const std::string& line = aLines[index];
    if (!IsDriveLine(line)) continue;
    const std::string where = batch.listPath + ":" + std::to_string(index + 1);
    if (aSetup.capture != nullptr) aSetup.capture->Start();
    const auto began = std::chrono::steady_clock::now();
    LineResult result;
    if (!SplitWords(line, words, error)) {
      fprintf(stderr, "positioning-sim batch: %s: %s\n", where.c_str(), error.c_str());
    } else {
      result = RunLine(words, aSetup, where);
    }
    std::string record;
    if (aSetup.capture != nullptr) {
      const std::string messages = aSetup.capture->Stop(kStatusMessageLines);
      const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
      record = StatusRecord(index + 1, line, result, seconds, messages);
    } else if (result.status != kExitOk) {
      fprintf(stderr, "positioning-sim batch: %s: status %d\n", where.c_str(), result.status);
    }
    const std::string report =
        std::to_string(index) + "\t" + std::to_string(result.status) + "\t" + result.outcome + "\t" + record + "\n";
    // The batch is gone: nobody would learn of the next drives.
    if (!WriteAll(aReports, report)) return kExitIoFailure;
    if (result.outcome == "interrupted") return result.status;
  }
  return WriteAll(aReports, std::string(kWorkerDone) + "\n") ? kExitOk : kExitIoFailure;
}

}  // namespace sim
