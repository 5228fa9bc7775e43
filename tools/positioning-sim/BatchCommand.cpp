#include "BatchCommand.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

#include "BatchIsolation.h"
#include "BatchWorker.h"
#include "ExitCodes.h"
#include "Interruption.h"
#include "SimOptions.h"

namespace sim {

namespace {

const char* const kBatchFooter =
    "LIST holds one drive a line: the options of `positioning-sim run`, with --result-dir (blank lines and\n"
    "lines starting with # are skipped; '...' or \"...\" keep blanks in a word). For example:\n"
    "  --duration 600 --seed 1 --result-dir out/seed-1\n"
    "  --trace drives/a.csv --truth drives/a.truth.csv --result-dir out/a\n"
    "Each drive's folder holds what `positioning-sim run` with that line writes, byte for byte (run.json\n"
    "apart). A drive that fails is named on standard error with its status; the others go on, also after\n"
    "a drive that crashes (the drives run in a child of the batch, started again after a crash).\n"
    "\n"
    "A store of results that runs can share (as scripts/resim.sh keeps one):\n"
    "  --atomic   a drive writes into .NAME.tmp.HOST.PID beside its folder NAME, renamed to NAME when the\n"
    "             drive went through: a folder that exists is whole, and its drive is not run again\n"
    "  --status FILE  a JSON line per drive as it ends: line, drive, result_dir, outcome (ran, reused,\n"
    "             failed, interrupted), exit_status, seconds, messages (the end of what it wrote on\n"
    "             standard error, which it then does not)\n"
    "\n"
    "Exit status: 0 when every drive went through, else the first failing drive's status\n"
    "(2 for a line that is not a drive); 130 or 143 when interrupted, which ends the batch (the drive\n"
    "that was running publishes what it simulated, or with --atomic nothing).\n";

}  // namespace

CLI::App* AddBatchCommand(CLI::App& aApp, BatchOptions& aOptions) {
  CLI::App* batch = aApp.add_subcommand("batch", "run many drives in one process, each into its own result folder");
  batch->footer(kBatchFooter);
  batch->add_option("LIST", aOptions.listPath, "the drives, one `run` command line a line (- for standard input)")
      ->required()
      ->type_name("FILE");
  batch->add_flag("--summaries", aOptions.summaries, "print each drive's summary on standard error");
  batch->add_flag("--atomic", aOptions.atomic,
                  "write each result folder aside and rename it into place when whole; skip a drive whose folder "
                  "exists");
  batch->add_option("--status", aOptions.statusPath, "a JSON line per drive as it ends (- for standard output)")
      ->type_name("FILE");
  return batch;
}

bool SplitWords(const std::string& aLine, std::vector<std::string>& aWords, std::string& aError) {
  aWords.clear();
  std::string word;
  bool inWord = false;
  char quote = 0;
  for (char c : aLine) {
    if (quote != 0) {
      if (c == quote) {
        quote = 0;
      } else {
        word += c;
      }
    } else if (c == '\'' || c == '"') {
      quote = c;
      inWord = true;
    } else if (c == ' ' || c == '\t' || c == '\r') {
      if (inWord) aWords.push_back(word);
      word.clear();
      inWord = false;
    } else {
      word += c;
      inWord = true;
    }
  }
  if (quote != 0) return aError = std::string("no closing ") + quote, false;
  if (inWord) aWords.push_back(word);
  return true;
}

namespace {

// How the batch stands: drives reported so far and the exit status they make.
struct Tally {
  uint64_t drives = 0;
  uint64_t failed = 0;
  int exitStatus = kExitOk;
  bool interrupted = false;
  bool workerDone = false;  // the last worker went through the list
  bool statusWritten = true;
};

// Counts one drive's report, and writes its --status line.
void Count(int aExitStatus, const std::string& aOutcome, const std::string& aRecord, FILE* aStatus, Tally& aTally) {
  ++aTally.drives;
  if (aExitStatus != kExitOk) {
    ++aTally.failed;
    if (aTally.exitStatus == kExitOk) aTally.exitStatus = aExitStatus;
  }
  if (aOutcome == "interrupted") {
    aTally.interrupted = true;
    aTally.exitStatus = aExitStatus;
  }
  if (aStatus != nullptr) {
    const bool written = fputs((aRecord + "\n").c_str(), aStatus) >= 0 && fflush(aStatus) == 0;
    aTally.statusWritten = aTally.statusWritten && written;
  } else if (isatty(STDERR_FILENO) != 0) {
    fprintf(stderr, "\rbatch: %llu drives, %llu failed ", static_cast<unsigned long long>(aTally.drives),
            static_cast<unsigned long long>(aTally.failed));
  }
}

// Reads a worker's reports until it closes its end; answers the index after the last
// line reported (aFirst when none). A stop the batch is asked for is passed on to it.
size_t ReadReports(int aReports, pid_t aWorker, size_t aFirst, FILE* aStatus, Tally& aTally) {
  size_t next = aFirst;
  std::string pending;
  char buffer[4096];
  bool passedOn = false;
  for (;;) {
    // A signal that came while a report was being handled interrupts no wait: looked
    // for every tenth of a second.
    pollfd readable = {aReports, POLLIN, 0};
    const int ready = poll(&readable, 1, 100);
    if (InterruptingSignal() != 0 && !passedOn) passedOn = kill(aWorker, InterruptingSignal()) == 0;
    if (ready < 0 && errno != EINTR) break;
    if (ready <= 0) continue;
    const ssize_t got = read(aReports, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    pending.append(buffer, static_cast<size_t>(got));
    for (size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
      const std::string report = pending.substr(0, end);
      pending.erase(0, end + 1);
      if (report == kWorkerDone) aTally.workerDone = true;
      // INDEX, STATUS, OUTCOME, RECORD: tab-separated, the record last (it holds no tab).
      const size_t first = report.find('\t'), second = report.find('\t', first + 1),
                   third = report.find('\t', second + 1);
      if (third == std::string::npos) continue;
      next = std::stoul(report.substr(0, first)) + 1;
      Count(std::stoi(report.substr(first + 1, second - first - 1)), report.substr(second + 1, third - second - 1),
            report.substr(third + 1), aStatus, aTally);
    }
  }
  return next;
}

// Waits for the worker; answers its wait status. A stop the batch is asked for is passed on.
int WaitFor(pid_t aWorker) {
  int status = 0;
  bool passedOn = false;
  while (waitpid(aWorker, &status, 0) < 0) {
    if (errno != EINTR) return 0;
    if (InterruptingSignal() != 0 && !passedOn) passedOn = kill(aWorker, InterruptingSignal()) == 0;
  }
  return status;
}

// The drive that was running when the worker died fails alone: named, its messages
// kept, its temporary folder removed. aEnded: the worker's wait status.
void CountCrash(const std::vector<std::string>& aLines, size_t aIndex, int aEnded, const BatchOptions& aOptions,
                const std::string& aDefaultModule, const CMessageCapture* aCapture, FILE* aStatus, Tally& aTally) {
  const std::string where = aOptions.listPath + ":" + std::to_string(aIndex + 1);
  LineResult result;
  std::string death;
  if (WIFSIGNALED(aEnded)) {
    result.status = 128 + WTERMSIG(aEnded);
    death = std::string("the drive ended with ") + strsignal(WTERMSIG(aEnded));
  } else {
    // exit() called by the module, or a sanitizer's report.
    result.status = WIFEXITED(aEnded) && WEXITSTATUS(aEnded) != kExitOk ? WEXITSTATUS(aEnded) : kExitIoFailure;
    death = "the drive ended the process with exit status " + std::to_string(WEXITSTATUS(aEnded));
  }
  result.resultDir = ResultDirOf(aLines[aIndex], aDefaultModule);
  if (aOptions.atomic && !result.resultDir.empty()) CAtomicFolder(result.resultDir).RemoveStale();
  std::string record;
  if (aCapture != nullptr) {
    const std::string messages = aCapture->Tail(19) + "positioning-sim batch: " + death + "\n";
    record = StatusRecord(aIndex + 1, aLines[aIndex], result, -1, messages);
  } else {
    fprintf(stderr, "positioning-sim batch: %s: %s: status %d\n", where.c_str(), death.c_str(), result.status);
  }
  Count(result.status, result.outcome, record, aStatus, aTally);
}

}  // namespace

int RunBatch(const BatchOptions& aOptions, const std::string& aDefaultModule,
             const std::function<int(SimOptions&)>& aRunDrive) {
  std::ifstream file;
  if (aOptions.listPath != "-") {
    file.open(aOptions.listPath);
    if (!file) {
      fprintf(stderr, "positioning-sim batch: %s: %s\n", aOptions.listPath.c_str(), strerror(errno));
      return kExitBadInput;
    }
  }
  std::istream& list = aOptions.listPath == "-" ? std::cin : file;
  std::vector<std::string> lines;
  for (std::string line; std::getline(list, line);) lines.push_back(line);
  if (list.bad()) {
    fprintf(stderr, "positioning-sim batch: %s: reading failed\n", aOptions.listPath.c_str());
    return kExitBadInput;
  }
  FILE* status = nullptr;
  CMessageCapture capture;
  if (!aOptions.statusPath.empty()) {
    std::string error;
    status = aOptions.statusPath == "-" ? stdout : fopen(aOptions.statusPath.c_str(), "w");
    if (status == nullptr) {
      fprintf(stderr, "positioning-sim batch: --status %s: %s\n", aOptions.statusPath.c_str(), strerror(errno));
      return kExitIoFailure;
    }
    if (!capture.Open(error)) {
      fprintf(stderr, "positioning-sim batch: %s\n", error.c_str());
      return kExitIoFailure;
    }
  }
  WorkerSetup setup;
  setup.options = &aOptions;
  setup.defaultModule = aDefaultModule;
  setup.runDrive = aRunDrive;
  setup.capture = status != nullptr ? &capture : nullptr;
  // The worker's drive stops when the batch is asked to stop: the batch hears it too.
  CatchInterruptions();
  Tally tally;
  // A worker runs the drives from `next` on; when one crashes it, the next worker goes
  // on after that drive.
  for (size_t next = 0; next < lines.size() && InterruptingSignal() == 0;) {
    int reports[2];
    if (pipe(reports) != 0) {
      fprintf(stderr, "positioning-sim batch: cannot start a worker: %s\n", strerror(errno));
      return kExitIoFailure;
    }
    fflush(nullptr);
    const pid_t worker = fork();
    if (worker == 0) {
      close(reports[0]);
      // The status lines own standard output: what a line prints there (--help) goes to
      // standard error instead.
      if (status == stdout) dup2(STDERR_FILENO, STDOUT_FILENO);
      const int exitStatus = RunWorker(lines, next, setup, reports[1]);
      fflush(nullptr);
      _exit(exitStatus);
    }
    close(reports[1]);
    if (worker < 0) {
      close(reports[0]);
      fprintf(stderr, "positioning-sim batch: cannot start a worker: %s\n", strerror(errno));
      return kExitIoFailure;
    }
    next = ReadReports(reports[0], worker, next, status, tally);
    close(reports[0]);
    const int ended = WaitFor(worker);
    if (tally.workerDone || tally.interrupted || InterruptingSignal() != 0) break;
    // The worker died before the end of the list: of the drive it was running.
    while (next < lines.size() && !IsDriveLine(lines[next])) ++next;
    if (next == lines.size()) break;
    CountCrash(lines, next, ended, aOptions, aDefaultModule, setup.capture, status, tally);
    ++next;
  }
  if (InterruptingSignal() != 0 && !tally.interrupted)
    tally.exitStatus = InterruptingSignal() == SIGTERM ? kExitTerminated : kExitInterrupted;
  if (status == nullptr && isatty(STDERR_FILENO) != 0) fprintf(stderr, "\n");
  if (status != nullptr && ((status != stdout && fclose(status) != 0) || !tally.statusWritten)) {
    fprintf(stderr, "positioning-sim batch: --status %s: writing failed\n", aOptions.statusPath.c_str());
    if (tally.exitStatus == kExitOk) tally.exitStatus = kExitIoFailure;
  }
  if (status == nullptr)
    fprintf(stderr, "positioning-sim batch: %llu drives, %llu failed\n", static_cast<unsigned long long>(tally.drives),
            static_cast<unsigned long long>(tally.failed));
  return tally.exitStatus;
}

}  // namespace sim
