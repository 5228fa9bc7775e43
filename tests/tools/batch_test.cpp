// positioning-sim batch: many drives in one process write what a process per drive
// writes, byte for byte; a line that is not a drive is named and the others go on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "BatchCommand.h"
#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::FileExists;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::SimRun;
using testing_host::WriteFile;

const std::string kDrive = std::string(POSITIONING_DRIVES_DIR) + "/city-drive.csv";

// The drives: a name and the options of each (with blanks in one folder's name).
const std::vector<std::pair<std::string, std::vector<std::string>>> kDrives = {
    {"can", {"--duration", "60", "--seed", "3", "--time-jump", "30:-200"}},
    {"external late", {"--duration", "60", "--diversity", "EXTERNAL", "--late-client", "20", "--log-level", "all"}},
    {"city", {"--trace", "TRACE", "--log-level", "all"}},
    {"two clients", {"--duration", "40", "--second-client", "10"}}};

std::string ListLine(const std::vector<std::string>& aOptions, const std::string& aFolder, const std::string& aTrace) {
  std::string line;
  for (const std::string& option : aOptions) line += (option == "TRACE" ? aTrace : option) + " ";
  return line + "--result-dir '" + aFolder + "'";
}

class BatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const SimRun imported =
        RunSim({"import", kDrive, "-o", iScratch.File("city.trace.csv"), "--time", "ts_us:us", "--yaw-rate",
                "yaw_rate_rad_s:rad/s:left", "--speed", "speed_kmh:km/h", "--direction", "gear"});
    ASSERT_EQ(0, imported.exitCode) << imported.err;
  }
  CTempDir iScratch;
};

TEST_F(BatchTest, ABatchWritesWhatAProcessPerDriveWrites) {
  std::string list = "# the drives\n\n";
  for (const auto& drive : kDrives) {
    list += ListLine(drive.second, iScratch.File("batch/" + drive.first), iScratch.File("city.trace.csv")) + "\n";
    std::vector<std::string> alone = drive.second;
    for (std::string& option : alone) option = option == "TRACE" ? iScratch.File("city.trace.csv") : option;
    alone.insert(alone.end(), {"-q", "--result-dir", iScratch.File("alone/" + drive.first)});
    const SimRun run = RunSim(alone);
    ASSERT_EQ(0, run.exitCode) << drive.first << ": " << run.err;
  }
  WriteFile(iScratch.File("list.txt"), list);
  const SimRun batch = RunSim({"batch", iScratch.File("list.txt")});
  ASSERT_EQ(0, batch.exitCode) << batch.err;
  EXPECT_NE(std::string::npos, batch.err.find("4 drives, 0 failed")) << batch.err;
  for (const auto& drive : kDrives) {
    for (const char* file : {"samples.csv", "summary.json", "path.csv", "log.txt"}) {
      const std::string name = drive.first + "/" + file;
      ASSERT_TRUE(FileExists(iScratch.File("batch/" + name))) << name;
      EXPECT_TRUE(ReadFile(iScratch.File("batch/" + name)) == ReadFile(iScratch.File("alone/" + name))) << name;
    }
  }
}

TEST_F(BatchTest, ALineThatIsNotADriveIsNamedAndTheOthersGoOn) {
  WriteFile(iScratch.File("list.txt"), "--duration 5 --result-dir " + iScratch.File("a") +
                                           "\n--no-such-option --result-dir " + iScratch.File("b") +
                                           "\n--duration 5\n--duration 5 --result-dir " + iScratch.File("c") + "\n");
  const SimRun batch = RunSim({"batch", iScratch.File("list.txt")});
  EXPECT_EQ(2, batch.exitCode);
  EXPECT_NE(std::string::npos, batch.err.find("list.txt:2: status 2")) << batch.err;
  EXPECT_NE(std::string::npos, batch.err.find("list.txt:3: a drive needs --result-dir")) << batch.err;
  EXPECT_NE(std::string::npos, batch.err.find("4 drives, 2 failed")) << batch.err;
  EXPECT_TRUE(FileExists(iScratch.File("a/summary.json")));
  EXPECT_FALSE(FileExists(iScratch.File("b")));
  EXPECT_TRUE(FileExists(iScratch.File("c/summary.json")));
}

TEST_F(BatchTest, ADriveThatFailsGivesTheBatchItsStatus) {
  WriteFile(iScratch.File("list.txt"), "--trace " + iScratch.File("missing.csv") + " --result-dir " +
                                           iScratch.File("a") + "\n--duration 5 --result-dir " + iScratch.File("b") +
                                           "\n");
  const SimRun batch = RunSim({"batch", iScratch.File("list.txt")});
  EXPECT_EQ(4, batch.exitCode) << batch.err;
  EXPECT_TRUE(FileExists(iScratch.File("b/summary.json")));
}

TEST_F(BatchTest, AMissingListIsBadInput) {
  const SimRun batch = RunSim({"batch", iScratch.File("missing.txt")});
  EXPECT_EQ(4, batch.exitCode);
  EXPECT_NE(std::string::npos, batch.err.find("missing.txt: No such file")) << batch.err;
}

TEST(BatchWordsTest, WordsSplitAtBlanksAndQuotesKeepThem) {
  std::vector<std::string> words;
  std::string error;
  ASSERT_TRUE(sim::SplitWords("  --a 1\t--b 'x y' \"p q\"r  ", words, error));
  EXPECT_EQ((std::vector<std::string>{"--a", "1", "--b", "x y", "p qr"}), words);
  ASSERT_TRUE(sim::SplitWords("--c ''", words, error));
  EXPECT_EQ((std::vector<std::string>{"--c", ""}), words);
  EXPECT_FALSE(sim::SplitWords("--d 'open", words, error));
  EXPECT_EQ("no closing '", error);
}

}  // namespace
