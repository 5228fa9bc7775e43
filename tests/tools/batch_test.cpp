// positioning-sim batch: many drives in one process write what a process per drive
// writes, byte for byte; a line that is not a drive is named and the others go on, as
// do the others after a drive that crashes; with --atomic a result folder appears whole
// or not at all and a done drive is not run again; --status reports each drive.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "BatchCommand.h"
#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::FileExists;
using testing_host::ProcessOptions;
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

// The --status lines of a run.
std::vector<nlohmann::json> StatusLines(const std::string& aText) {
  std::vector<nlohmann::json> records;
  for (const std::string& line : testing_host::Lines(aText)) records.push_back(nlohmann::json::parse(line));
  return records;
}

// Names in aFolder that start with a dot: what a run left behind.
std::vector<std::string> Hidden(const std::string& aFolder) {
  std::vector<std::string> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(aFolder, error)) {
    if (entry.path().filename().string()[0] == '.') found.push_back(entry.path().filename().string());
  }
  return found;
}

TEST_F(BatchTest, AtomicFoldersHoldWhatAProcessPerDriveWritesAndNothingIsLeftAside) {
  std::string list;
  for (const auto& drive : kDrives) {
    list += ListLine(drive.second, iScratch.File("store/" + drive.first), iScratch.File("city.trace.csv")) + "\n";
    std::vector<std::string> alone = drive.second;
    for (std::string& option : alone) option = option == "TRACE" ? iScratch.File("city.trace.csv") : option;
    alone.insert(alone.end(), {"-q", "--result-dir", iScratch.File("alone/" + drive.first)});
    ASSERT_EQ(0, RunSim(alone).exitCode) << drive.first;
  }
  WriteFile(iScratch.File("list.txt"), list);
  const SimRun batch = RunSim({"batch", "--atomic", iScratch.File("list.txt")});
  ASSERT_EQ(0, batch.exitCode) << batch.err;
  for (const auto& drive : kDrives) {
    for (const char* file : {"samples.csv", "summary.json", "path.csv", "log.txt"}) {
      const std::string name = drive.first + "/" + file;
      EXPECT_TRUE(ReadFile(iScratch.File("store/" + name)) == ReadFile(iScratch.File("alone/" + name))) << name;
    }
  }
  EXPECT_EQ(std::vector<std::string>(), Hidden(iScratch.File("store")));
}

TEST_F(BatchTest, AnAtomicBatchDoesNotRunADriveWhoseFolderIsThere) {
  WriteFile(iScratch.File("list.txt"), "--duration 5 --result-dir " + iScratch.File("a") +
                                           "\n--duration 6 --result-dir " + iScratch.File("b") + "\n");
  ASSERT_EQ(0, RunSim({"batch", "--atomic", iScratch.File("list.txt")}).exitCode);
  const std::string first = ReadFile(iScratch.File("a/run.json"));
  std::filesystem::remove_all(iScratch.File("b"));
  const SimRun again = RunSim({"batch", "--atomic", "--status", "-", iScratch.File("list.txt")});
  ASSERT_EQ(0, again.exitCode) << again.err;
  const std::vector<nlohmann::json> records = StatusLines(again.out);
  ASSERT_EQ(2u, records.size()) << again.out;
  EXPECT_EQ("reused", records[0]["outcome"]);
  EXPECT_EQ("ran", records[1]["outcome"]);
  EXPECT_EQ(first, ReadFile(iScratch.File("a/run.json")));
  EXPECT_TRUE(FileExists(iScratch.File("b/summary.json")));
}

TEST_F(BatchTest, AStatusLineNamesEachDriveWithItsOutcomeAndItsMessages) {
  const std::string list = "--duration 5 --result-dir " + iScratch.File("a") + "\n# skipped\n--trace " +
                           iScratch.File("missing.csv") + " --result-dir " + iScratch.File("b") + "\n";
  WriteFile(iScratch.File("list.txt"), list);
  const SimRun batch =
      RunSim({"batch", "--atomic", "--status", iScratch.File("status.jsonl"), iScratch.File("list.txt")});
  EXPECT_EQ(4, batch.exitCode);
  EXPECT_EQ("", batch.err) << "the messages go into the status lines";
  const std::vector<nlohmann::json> records = StatusLines(ReadFile(iScratch.File("status.jsonl")));
  ASSERT_EQ(2u, records.size());
  EXPECT_EQ(1, records[0]["line"]);
  EXPECT_EQ("ran", records[0]["outcome"]);
  EXPECT_EQ(iScratch.File("a"), records[0]["result_dir"]);
  EXPECT_EQ(3, records[1]["line"]);
  EXPECT_EQ("failed", records[1]["outcome"]);
  EXPECT_EQ(4, records[1]["exit_status"]);
  EXPECT_NE(std::string::npos, records[1]["messages"].get<std::string>().find("missing.csv")) << records[1];
  EXPECT_FALSE(FileExists(iScratch.File("b")));
}

TEST_F(BatchTest, ADriveThatCrashesFailsAloneAndTheDrivesAfterItRun) {
  WriteFile(iScratch.File("list.txt"), "--duration 5 --result-dir " + iScratch.File("a") + "\n--duration 5 --module " +
                                           POSITIONING_ABORTING_MODULE_PATH + " --result-dir " + iScratch.File("b") +
                                           "\n--duration 5 --result-dir " + iScratch.File("c") + "\n");
  const SimRun batch = RunSim({"batch", "--atomic", "--status", "-", iScratch.File("list.txt")});
  EXPECT_EQ(128 + SIGABRT, batch.exitCode) << batch.err;
  const std::vector<nlohmann::json> records = StatusLines(batch.out);
  ASSERT_EQ(3u, records.size()) << batch.out;
  EXPECT_EQ("failed", records[1]["outcome"]);
  EXPECT_EQ(128 + SIGABRT, records[1]["exit_status"]);
  EXPECT_NE(std::string::npos, records[1]["messages"].get<std::string>().find("ended with")) << records[1];
  EXPECT_EQ("ran", records[2]["outcome"]);
  EXPECT_TRUE(FileExists(iScratch.File("a/summary.json")));
  EXPECT_FALSE(FileExists(iScratch.File("b")));
  EXPECT_TRUE(FileExists(iScratch.File("c/summary.json")));
  EXPECT_EQ(std::vector<std::string>(), Hidden(iScratch.Path()));
}

TEST_F(BatchTest, AnAtomicBatchStoppedMidDriveKeepsTheDoneFoldersAndPublishesNoPartOne) {
  std::string list = "--duration 5 --result-dir " + iScratch.File("store/first") + "\n";
  for (int seed = 1; seed <= 4; ++seed)
    list += "--duration 36000 --seed " + std::to_string(seed) + " --result-dir " +
            iScratch.File("store/long-" + std::to_string(seed)) + "\n";
  WriteFile(iScratch.File("list.txt"), list);
  testing_support::CProcess batch;
  std::string error;
  ASSERT_TRUE(batch.Start({testing_host::SimPath(), "batch", "--atomic", "--status", iScratch.File("status.jsonl"),
                           iScratch.File("list.txt")},
                          ProcessOptions(), error))
      << error;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!FileExists(iScratch.File("store/first")) && batch.Running() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  batch.Signal(SIGTERM);
  const testing_support::ProcessResult stopped = batch.Wait();
  EXPECT_EQ(143, stopped.exitCode) << stopped.Describe() << stopped.err;
  // Stopped in a drive (reported as interrupted) or between two (not reported).
  const std::vector<nlohmann::json> records = StatusLines(ReadFile(iScratch.File("status.jsonl")));
  ASSERT_FALSE(records.empty());
  EXPECT_LT(records.size(), 5u) << "every drive finished before the signal";
  for (size_t drive = 0; drive < records.size(); ++drive) {
    const bool last = drive + 1 == records.size();
    const std::string outcome = records[drive]["outcome"];
    EXPECT_TRUE(outcome == "ran" || (last && outcome == "interrupted")) << records[drive];
    EXPECT_EQ(outcome == "ran", FileExists(records[drive]["result_dir"].get<std::string>() + "/run.json"));
  }
  for (int seed = static_cast<int>(records.size()); seed <= 4; ++seed)
    EXPECT_FALSE(FileExists(iScratch.File("store/long-" + std::to_string(seed)))) << seed;
  EXPECT_EQ(std::vector<std::string>(), Hidden(iScratch.File("store")));
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
