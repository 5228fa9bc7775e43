// A forked child that may crash: its output through a pipe, its end from waitpid.
#include "CrashingChild.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

// Present when the build measures coverage (clang's profile runtime).
extern "C" int __llvm_profile_write_file(void) __attribute__((weak));

namespace testing_support {

namespace {

// Said last by a child whose body returned; a child that crashes never says it.
const std::string kFinished = "<finished>";

void WriteProfile() {
  if (__llvm_profile_write_file != nullptr) __llvm_profile_write_file();
}

// A child that dies writes its coverage profile first, and then dies of the same signal.
void WriteProfileAndDie(int aSignal) {
  WriteProfile();
  (void)signal(aSignal, SIG_DFL);
  (void)raise(aSignal);
}

}  // namespace

TChildRun RunInChild(const std::function<void()>& aBody) {
  TChildRun run;
  int fds[2];
  if (pipe(fds) != 0) return run;
  // Whatever the test printed before stays the parent's, not printed twice.
  (void)fflush(stdout);
  const pid_t pid = fork();
  if (pid < 0) {
    close(fds[0]);
    close(fds[1]);
    return run;
  }
  if (pid == 0) {
    close(fds[0]);
    dup2(fds[1], STDOUT_FILENO);
    close(fds[1]);
    (void)setvbuf(stdout, nullptr, _IONBF, 0);
    (void)signal(SIGSEGV, WriteProfileAndDie);
    (void)signal(SIGBUS, WriteProfileAndDie);
    aBody();
    (void)fputs(kFinished.c_str(), stdout);
    // _exit skips the exit handlers, among them the one that writes the profile.
    WriteProfile();
    _exit(0);
  }
  close(fds[1]);
  char buffer[1024];
  for (;;) {
    const ssize_t got = read(fds[0], buffer, sizeof buffer);
    if (got > 0) {
      run.out.append(buffer, static_cast<size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      break;
    }
  }
  close(fds[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (run.out.size() >= kFinished.size() &&
      run.out.compare(run.out.size() - kFinished.size(), kFinished.size(), kFinished) == 0) {
    run.finished = true;
    run.out.erase(run.out.size() - kFinished.size());
  }
  run.signaled = WIFSIGNALED(status);
  run.signal = run.signaled ? WTERMSIG(status) : 0;
  return run;
}

}  // namespace testing_support
