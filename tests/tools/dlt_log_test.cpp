// positioning-sim's --log dlt against a DLT daemon of the test's own: its own pipe
// directory, its own port on loopback; the records are read back with dlt-receive.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::CScratchDir;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::SimRun;
using testing_host::WriteFile;

bool OnPath(const std::string& aTool) {
  const std::string command = "command -v " + aTool + " >/dev/null 2>&1";
  return system(command.c_str()) == 0;
}

// A free TCP port on loopback, as the kernel hands one out.
int FreePort() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  int port = -1;
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
    port = ntohs(address.sin_port);
  close(fd);
  return port;
}

// Starts a program with its output in aOutput; answers its process id.
pid_t Start(const std::vector<std::string>& aArguments, const std::string& aOutput) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  const int fd = open(aOutput.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  dup2(fd, STDOUT_FILENO);
  dup2(fd, STDERR_FILENO);
  std::vector<char*> argv;
  for (const std::string& argument : aArguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
  _exit(127);
}

void Stop(pid_t aPid) {
  if (aPid <= 0) return;
  kill(aPid, SIGTERM);
  int status;
  for (int i = 0; i < 50; ++i) {
    if (waitpid(aPid, &status, WNOHANG) == aPid) return;
    usleep(100000);
  }
  kill(aPid, SIGKILL);
  waitpid(aPid, &status, 0);
}

bool WaitFor(const std::function<bool()>& aCondition, int aMilliseconds) {
  for (int waited = 0; waited < aMilliseconds; waited += 50) {
    if (aCondition()) return true;
    usleep(50000);
  }
  return aCondition();
}

TEST(DltLogTest, ModuleRecordsReachTheDltDaemon) {
  ASSERT_TRUE(OnPath("dlt-daemon") && OnPath("dlt-receive"))
      << "dlt-daemon and dlt-receive are needed (Debian packages dlt-daemon, dlt-tools)";
  CScratchDir scratch;
  const int port = FreePort();
  ASSERT_GT(port, 0);
  WriteFile(scratch.File("dlt.conf"),
            // The daemon listens on an IPv6 socket: loopback is given in its mapped form.
            "ECUId = SIMU\nLoggingMode = 0\nSharedMemorySize = 100000\n"
            "RingbufferMinSize = 500000\nRingbufferMaxSize = 10000000\nRingbufferStepSize = 500000\n"
            "BindAddress = ::ffff:127.0.0.1\nControlSocketPath = " +
                scratch.File("dlt-ctrl.sock") + "\n");
  const pid_t daemon =
      Start({"dlt-daemon", "-c", scratch.File("dlt.conf"), "-t", scratch.Path(), "-p", std::to_string(port)},
            scratch.File("daemon.log"));
  struct stat info;
  const bool up = WaitFor([&] { return stat(scratch.File("dlt").c_str(), &info) == 0; }, 5000);
  pid_t receiver = -1;
  if (up) {
    // Line-buffered, so that what arrives can be read while it runs.
    receiver = Start({"stdbuf", "-oL", "dlt-receive", "-a", "-p", std::to_string(port), "127.0.0.1"},
                     scratch.File("received.txt"));
    usleep(500000);  // let it connect before anything is logged
  }
  SimRun run;
  if (up) run = RunSim({"--log", "dlt", "--duration", "5", "--quiet"}, "DLT_PIPE_DIR=" + scratch.Path());
  bool arrived = false;
  if (up) {
    arrived = WaitFor([&] { return ReadFile(scratch.File("received.txt")).find("~CPositioning") != std::string::npos; },
                      5000);
  }
  Stop(receiver);
  Stop(daemon);
  ASSERT_TRUE(up) << "dlt-daemon did not start: " << ReadFile(scratch.File("daemon.log"));
  ASSERT_EQ(0, run.status) << run.err;
  const std::string received = ReadFile(scratch.File("received.txt"));
  EXPECT_TRUE(arrived) << received;
  EXPECT_NE(std::string::npos, received.find("PSIM POSI log info"));
  EXPECT_NE(std::string::npos,
            received.find("CPositioning Positioning/src/Positioning.cpp:64 (CANSensor is being created...)"));
  EXPECT_NE(std::string::npos, received.find("PSIM FFW- log info"));
  EXPECT_NE(std::string::npos, received.find("PSIM POSI log debug"));  // Info2 sample dumps
  EXPECT_NE(std::string::npos, received.find("AngularRate      : "));
}

}  // namespace
