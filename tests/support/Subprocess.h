// Starting programs from tests, one way: an argument vector (never a shell), standard
// output and error captured apart (or standard error on a pseudo-terminal), the exit
// status or the signal, and a time limit after which the program and everything it
// started are killed.
#ifndef TESTS_SUPPORT_SUBPROCESS_H
#define TESTS_SUPPORT_SUBPROCESS_H

#include <sys/resource.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "TempDir.h"

namespace testing_support {

struct ProcessOptions {
  std::vector<std::string> environment;  // "NAME=value", added to the test's own
  std::string input = "/dev/null";       // file on standard input
  bool errorOnTerminal = false;          // standard error (only) on a pseudo-terminal
  std::string workingDirectory;          // empty: the test's own
  double timeoutSeconds = 120;
};

struct ProcessResult {
  int exitCode = -1;       // when it exited
  int signal = 0;          // when a signal ended it
  bool timedOut = false;   // killed at the time limit
  long maxResidentKb = 0;  // the program's peak resident memory (not its children's)
  std::string out;
  std::string err;  // with errorOnTerminal, what the terminal showed
  // "exit 2", "signal 9 (timed out)", ... for failure messages.
  std::string Describe() const;
};

class CProcess {
 public:
  CProcess() = default;
  ~CProcess();  // kills what still runs
  CProcess(const CProcess&) = delete;
  CProcess& operator=(const CProcess&) = delete;

  // Starts aArguments[0] (searched on PATH) with the rest as its arguments; false with
  // the reason in aError when it cannot be started.
  bool Start(const std::vector<std::string>& aArguments, const ProcessOptions& aOptions, std::string& aError);
  pid_t Pid() const { return iPid; }
  bool Running();
  // Sends aSignal to the program (not to what it started).
  bool Signal(int aSignal);
  // What it wrote so far to standard output.
  std::string OutputSoFar() const;
  // Waits for it to end, at most the time limit given at Start; kills it then.
  ProcessResult Wait();
  // SIGTERM, then SIGKILL after aGraceSeconds.
  ProcessResult Stop(double aGraceSeconds = 5);

 private:
  void DrainTerminal();
  ProcessResult Finish(int aStatus, const struct rusage& aUsage, bool aTimedOut);

  CTempDir iFiles;
  pid_t iPid = -1;
  int iTerminal = -1;
  std::string iTerminalText;
  double iDeadline = 0;
  bool iReaped = false;
  ProcessResult iResult;
};

// Runs a program to its end (or its time limit).
ProcessResult RunProcess(const std::vector<std::string>& aArguments, const ProcessOptions& aOptions = ProcessOptions());
// Whether aProgram is found on PATH.
bool OnPath(const std::string& aProgram);

}  // namespace testing_support

#endif  // TESTS_SUPPORT_SUBPROCESS_H
