#include "Subprocess.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char** environ;

namespace testing_support {

namespace {

double Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The test's environment with aAdded put over it.
std::vector<std::string> Environment(const std::vector<std::string>& aAdded) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('='));
    bool replaced = false;
    for (const std::string& added : aAdded) replaced |= added.substr(0, added.find('=')) == name;
    if (!replaced) result.push_back(text);
  }
  result.insert(result.end(), aAdded.begin(), aAdded.end());
  return result;
}

std::vector<char*> Pointers(std::vector<std::string>& aTexts) {
  std::vector<char*> pointers;
  for (std::string& text : aTexts) pointers.push_back(&text[0]);
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

std::string ProcessResult::Describe() const {
  if (timedOut) return "killed at the time limit";
  if (signal != 0) return "signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
  return "exit " + std::to_string(exitCode);
}

CProcess::~CProcess() {
  if (iPid > 0 && !iReaped) {
    kill(-iPid, SIGKILL);
    kill(iPid, SIGKILL);
    int status;
    waitpid(iPid, &status, 0);
  }
  if (iTerminal >= 0) close(iTerminal);
}

bool CProcess::Start(const std::vector<std::string>& aArguments, const ProcessOptions& aOptions, std::string& aError) {
  if (iFiles.Path().empty()) return aError = "no temporary folder for the output", false;
  std::string terminalName;
  if (aOptions.errorOnTerminal) {
    iTerminal = posix_openpt(O_RDWR | O_NOCTTY);
    if (iTerminal < 0 || grantpt(iTerminal) != 0 || unlockpt(iTerminal) != 0)
      return aError = std::string("pseudo-terminal: ") + strerror(errno), false;
    terminalName = ptsname(iTerminal);
    fcntl(iTerminal, F_SETFL, O_NONBLOCK);
  }
  std::vector<std::string> arguments = aArguments;
  std::vector<std::string> environment = Environment(aOptions.environment);
  std::vector<char*> argv = Pointers(arguments);
  std::vector<char*> envp = Pointers(environment);
  const std::string outPath = iFiles.File("out");
  const std::string errPath = iFiles.File("err");
  // Tells the parent why exec failed; closed by a successful exec.
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return aError = std::string("pipe: ") + strerror(errno), false;
  iPid = fork();
  if (iPid < 0) return aError = std::string("fork: ") + strerror(errno), false;
  if (iPid == 0) {
    setsid();  // its own group, so that a time limit also ends what it started
    const int in = open(aOptions.input.c_str(), O_RDONLY);
    const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = terminalName.empty() ? open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)
                                         : open(terminalName.c_str(), O_RDWR);
    if (in < 0 || out < 0 || err < 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0 ||
        (!aOptions.workingDirectory.empty() && chdir(aOptions.workingDirectory.c_str()) != 0)) {
      const int error = errno;
      if (write(report[1], &error, sizeof error) < 0) _exit(126);
      _exit(126);
    }
    execvpe(argv[0], argv.data(), envp.data());
    const int error = errno;
    if (write(report[1], &error, sizeof error) < 0) _exit(127);
    _exit(127);
  }
  close(report[1]);
  int error = 0;
  const ssize_t got = read(report[0], &error, sizeof error);
  close(report[0]);
  if (got == sizeof error) {
    int status;
    waitpid(iPid, &status, 0);
    iReaped = true;
    return aError = "cannot start " + aArguments[0] + ": " + strerror(error), false;
  }
  iDeadline = Now() + aOptions.timeoutSeconds;
  return true;
}

bool CProcess::Running() {
  if (iPid <= 0 || iReaped) return false;
  int status;
  struct rusage usage;
  const pid_t done = wait4(iPid, &status, WNOHANG, &usage);
  if (done != iPid) return true;
  Finish(status, usage, false);
  return false;
}

bool CProcess::Signal(int aSignal) { return iPid > 0 && !iReaped && kill(iPid, aSignal) == 0; }

std::string CProcess::OutputSoFar() const { return ReadFile(iFiles.File("out")); }

void CProcess::DrainTerminal() {
  if (iTerminal < 0) return;
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(iTerminal, buffer, sizeof buffer);
    if (got <= 0) break;
    iTerminalText.append(buffer, static_cast<size_t>(got));
  }
}

ProcessResult CProcess::Finish(int aStatus, const struct rusage& aUsage, bool aTimedOut) {
  iReaped = true;
  iResult.maxResidentKb = aUsage.ru_maxrss;
  DrainTerminal();
  iResult.timedOut = aTimedOut;
  if (WIFEXITED(aStatus)) iResult.exitCode = WEXITSTATUS(aStatus);
  if (WIFSIGNALED(aStatus)) iResult.signal = WTERMSIG(aStatus);
  iResult.out = ReadFile(iFiles.File("out"));
  iResult.err = iTerminal >= 0 ? iTerminalText : ReadFile(iFiles.File("err"));
  return iResult;
}

ProcessResult CProcess::Wait() {
  if (iPid <= 0 || iReaped) return iResult;
  for (;;) {
    int status;
    struct rusage usage;
    if (wait4(iPid, &status, WNOHANG, &usage) == iPid) return Finish(status, usage, false);
    DrainTerminal();
    if (Now() > iDeadline) {
      kill(-iPid, SIGKILL);
      kill(iPid, SIGKILL);
      wait4(iPid, &status, 0, &usage);
      return Finish(status, usage, true);
    }
    usleep(5000);
  }
}

ProcessResult CProcess::Stop(double aGraceSeconds) {
  if (iPid <= 0 || iReaped) return iResult;
  kill(iPid, SIGTERM);
  const double limit = Now() + aGraceSeconds;
  if (limit < iDeadline) iDeadline = limit;
  return Wait();
}

ProcessResult RunProcess(const std::vector<std::string>& aArguments, const ProcessOptions& aOptions) {
  CProcess process;
  std::string error;
  if (!process.Start(aArguments, aOptions, error)) {
    ProcessResult result;
    result.err = error;
    return result;
  }
  return process.Wait();
}

bool OnPath(const std::string& aProgram) {
  const char* path = getenv("PATH");
  std::string folders = path != nullptr ? path : "/usr/bin:/bin";
  size_t start = 0;
  while (start <= folders.size()) {
    const size_t end = folders.find(':', start);
    const std::string folder = folders.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (!folder.empty() && access((folder + "/" + aProgram).c_str(), X_OK) == 0) return true;
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return false;
}

}  // namespace testing_support
