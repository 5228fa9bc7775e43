// positioning-sim's --log dlt against a DLT daemon of the test's own: what dlt-receive
// stores is read back with dlt-convert and held against the text log of the same drive.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "DltReadBack.h"
#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::DltMessage;
using testing_host::Lines;
using testing_host::ModuleMessages;
using testing_host::ProcessOptions;
using testing_host::ReadDltFile;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::SimRun;
using testing_host::TextLogLine;
using testing_host::WithoutAddresses;
using testing_host::WriteFile;
using testing_support::CProcess;
using testing_support::OnPath;

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

// A DLT daemon of the test's own (its own pipe directory, its own port on loopback,
// buffers large enough for a long drive) with dlt-receive storing what it forwards.
class CDaemon {
 public:
  // False with the reason when the daemon or the receiver does not come up.
  bool Start(std::string& aError) {
    const int port = FreePort();
    if (port <= 0) {
      aError = "no free port";
      return false;
    }
    // The daemon listens on an IPv6 socket: loopback is given in its mapped form.
    WriteFile(iScratch.File("dlt.conf"),
              "ECUId = SIMU\nLoggingMode = 0\nSharedMemorySize = 100000\n"
              "RingbufferMinSize = 500000\nRingbufferMaxSize = 100000000\nRingbufferStepSize = 500000\n"
              "BindAddress = ::ffff:127.0.0.1\nControlSocketPath = " +
                  iScratch.File("dlt-ctrl.sock") + "\n");
    if (!iDaemon.Start(
            {"dlt-daemon", "-c", iScratch.File("dlt.conf"), "-t", iScratch.Path(), "-p", std::to_string(port)},
            ProcessOptions(), aError))
      return false;
    struct stat info;
    if (!WaitFor([&] { return stat(iScratch.File("dlt").c_str(), &info) == 0; }, 5000)) {
      aError = "dlt-daemon made no pipe";
      return false;
    }
    if (!iReceiver.Start({"dlt-receive", "-o", Received(), "-p", std::to_string(port), "127.0.0.1"}, ProcessOptions(),
                         aError))
      return false;
    // Connected once the daemon's own messages (it greets every client) are stored.
    if (!WaitFor([&] { return stat(Received().c_str(), &info) == 0 && info.st_size > 0; }, 5000)) {
      aError = "dlt-receive did not connect";
      return false;
    }
    return true;
  }
  // Stops the receiver once the file has stopped growing, then the daemon.
  void Stop() {
    struct stat info;
    off_t size = -1;
    WaitFor(
        [&] {
          const off_t before = size;
          size = stat(Received().c_str(), &info) == 0 ? info.st_size : -1;
          return size == before;
        },
        30000, 500);
    iReceiver.Stop();
    iDaemon.Stop();
  }
  ProcessOptions Environment() const {
    ProcessOptions options;
    options.environment = {"DLT_PIPE_DIR=" + iScratch.Path()};
    options.timeoutSeconds = 300;
    return options;
  }
  std::string Received() const { return iScratch.File("received.dlt"); }

 private:
  static bool WaitFor(const std::function<bool()>& aCondition, int aMilliseconds, int aStep = 50) {
    for (int waited = 0; waited < aMilliseconds; waited += aStep) {
      if (aCondition()) return true;
      usleep(aStep * 1000);
    }
    return aCondition();
  }
  CTempDir iScratch;
  CProcess iDaemon;
  CProcess iReceiver;
};

// A long drive in accelerated time: every record the text log of the same drive holds
// reaches the daemon, in order and as written, with the simulated time as its stamp;
// libdlt's own lines stay out of the samples and the module's messages.
TEST(DltLogTest, EveryRecordOfALongDriveReachesTheDaemon) {
  ASSERT_TRUE(OnPath("dlt-daemon") && OnPath("dlt-receive") && OnPath("dlt-convert"))
      << "dlt-daemon, dlt-receive and dlt-convert are needed (Debian packages dlt-daemon, dlt-tools)";
  CTempDir scratch;
  const std::vector<std::string> drive = {"--duration", "600", "--late-client", "300"};
  std::vector<std::string> text = drive;
  text.insert(text.end(), {"--log", scratch.File("run.log")});
  const SimRun textRun = RunSim(text);
  ASSERT_EQ(0, textRun.exitCode) << textRun.err;

  CDaemon daemon;
  std::string error;
  ASSERT_TRUE(daemon.Start(error)) << error;
  std::vector<std::string> dlt = drive;
  dlt.insert(dlt.end(), {"--log", "dlt"});
  const SimRun dltRun = RunSim(dlt, daemon.Environment());
  daemon.Stop();
  ASSERT_EQ(0, dltRun.exitCode) << dltRun.Describe() << "\n" << dltRun.err;
  EXPECT_EQ(textRun.out, dltRun.out) << "the samples are the same";
  EXPECT_EQ(std::string::npos, dltRun.err.find("module:")) << dltRun.err;
  EXPECT_NE(std::string::npos, dltRun.err.find("supervision messages: 0")) << dltRun.err;

  const std::vector<std::string> lines = Lines(ReadFile(scratch.File("run.log")));
  std::vector<DltMessage> received;
  ASSERT_TRUE(ReadDltFile(daemon.Received(), received, error)) << error;
  const std::vector<DltMessage> messages = ModuleMessages(received);
  ASSERT_GT(lines.size(), 20000u);
  EXPECT_EQ(lines.size(), messages.size());
  size_t different = 0;
  for (size_t i = 0; i < std::min(lines.size(), messages.size()); ++i) {
    EXPECT_EQ("SIMU", messages[i].ecu);
    if (WithoutAddresses(TextLogLine(messages[i])) != WithoutAddresses(lines[i]) && ++different <= 5)
      ADD_FAILURE() << "message " << i << ":\n  dlt:  " << TextLogLine(messages[i]) << "\n  text: " << lines[i];
  }
  EXPECT_EQ(0u, different);
}

}  // namespace
