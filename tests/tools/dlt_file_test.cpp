// positioning-sim's --log dlt:FILE.dlt: a .dlt file from a run, no daemon needed, read
// back with dlt-convert and held against the text log of the same run.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "DltLogOutput.h"
#include "DltMessage.h"
#include "DltReadBack.h"
#include "LogFacility.h"
#include "SimRunner.h"
#include "SimulatedOsal.h"

namespace {

using testing_host::CTempDir;
using testing_host::DltArgument;
using testing_host::DltMessage;
using testing_host::Lines;
using testing_host::ModuleMessages;
using testing_host::ReadDltFile;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::SimRun;
using testing_host::TextLogLine;
using testing_host::WithoutAddresses;
using testing_support::OnPath;
using testing_support::ProcessOptions;

// The messages of aPath; fails the test when the file cannot be read back.
std::vector<DltMessage> ReadBack(const std::string& aPath) {
  std::vector<DltMessage> messages;
  std::string error;
  EXPECT_TRUE(ReadDltFile(aPath, messages, error)) << error;
  return messages;
}

// The same drive written as text and as DLT: every record is one message, in order,
// with the same time, category, module, function, file, line and pieces.
void ExpectDltFileMatchesTextLog(const std::vector<std::string>& aArguments) {
  CTempDir scratch;
  std::vector<std::string> text = aArguments;
  text.insert(text.end(), {"--quiet", "--log", scratch.File("run.log")});
  std::vector<std::string> dlt = aArguments;
  dlt.insert(dlt.end(), {"--quiet", "--log", "dlt:" + scratch.File("run.dlt")});
  const SimRun textRun = RunSim(text);
  const SimRun dltRun = RunSim(dlt);
  ASSERT_EQ(0, textRun.exitCode) << textRun.err;
  ASSERT_EQ(0, dltRun.exitCode) << dltRun.err;
  const std::vector<std::string> lines = Lines(ReadFile(scratch.File("run.log")));
  const std::vector<DltMessage> all = ReadBack(scratch.File("run.dlt"));
  const std::vector<DltMessage> messages = ModuleMessages(all);
  ASSERT_GT(lines.size(), 100u);
  ASSERT_EQ(lines.size(), messages.size());
  EXPECT_EQ(all.size(), messages.size() + 1) << "one note on the time base, no wrap";
  size_t different = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    const DltMessage& message = messages[i];
    EXPECT_EQ("PSIM", message.app);
    EXPECT_EQ("log", message.type);
    EXPECT_EQ(0u, message.timestamp % 10) << "the simulated clock ticks in milliseconds";
    if (WithoutAddresses(TextLogLine(message)) != WithoutAddresses(lines[i]) && ++different <= 5)
      ADD_FAILURE() << "message " << i << ":\n  dlt:  " << TextLogLine(message) << "\n  text: " << lines[i];
  }
  EXPECT_EQ(0u, different);
}

TEST(DltFileTest, EveryRecordOfACanDriveIsOneMessageAsTheTextLogHasIt) {
  ASSERT_TRUE(OnPath("dlt-convert")) << "dlt-convert is needed (Debian package dlt-tools)";
  ExpectDltFileMatchesTextLog({"--duration", "30"});
}

TEST(DltFileTest, EveryRecordOfAnExternalDriveWithFaultsIsOneMessageAsTheTextLogHasIt) {
  ExpectDltFileMatchesTextLog({"--diversity", "EXTERNAL", "--duration", "40", "--service-leave", "10:20",
                               "--late-client", "25", "--main-unit-unplugged"});
}

// The first three arguments name themselves; numbers keep the type the module appended
// them with, and take their name (and unit) from the label before them.
TEST(DltFileTest, ArgumentsAreTypedAndNamed) {
  CTempDir scratch;
  const SimRun can = RunSim({"--duration", "5", "--quiet", "--log", "dlt:" + scratch.File("can.dlt")});
  const SimRun external =
      RunSim({"--diversity", "EXTERNAL", "--duration", "5", "--quiet", "--log", "dlt:" + scratch.File("ext.dlt")});
  ASSERT_EQ(0, can.exitCode) << can.err;
  ASSERT_EQ(0, external.exitCode) << external.err;
  std::vector<DltMessage> messages = ModuleMessages(ReadBack(scratch.File("can.dlt")));
  const std::vector<DltMessage> more = ModuleMessages(ReadBack(scratch.File("ext.dlt")));
  messages.insert(messages.end(), more.begin(), more.end());
  ASSERT_FALSE(messages.empty());

  // "name" or "name [unit]" of the argument after aLabel, with its type.
  std::map<std::string, std::set<std::string>> seen;
  std::set<std::string> types;
  for (const DltMessage& message : messages) {
    ASSERT_GE(message.arguments.size(), 5u);
    EXPECT_EQ(static_cast<size_t>(message.argumentCount), message.arguments.size());
    const DltArgument& function = message.arguments[0];
    const DltArgument& file = message.arguments[1];
    const DltArgument& line = message.arguments[2];
    EXPECT_EQ("string", function.type);
    EXPECT_EQ("function", function.name);
    EXPECT_EQ("string", file.type);
    EXPECT_EQ("file", file.name);
    EXPECT_EQ("i32", line.type);
    EXPECT_EQ("line", line.name);
    EXPECT_GT(line.number, 0);
    // The framing brackets as the module appended them.
    EXPECT_EQ("(", message.arguments[3].text);
    EXPECT_EQ(")", message.arguments.back().text);
    for (size_t i = 3; i < message.arguments.size(); ++i) {
      const DltArgument& argument = message.arguments[i];
      types.insert(argument.type + (argument.hex ? " hex" : ""));
      if (argument.type == "string") {
        EXPECT_TRUE(argument.name.empty()) << argument.text;
        continue;
      }
      seen[argument.name].insert(argument.type + (argument.unit.empty() ? "" : " [" + argument.unit + "]"));
    }
  }
  // The types the module appends with, each seen.
  // Addresses as wide as the simulator's (built for the same target as this test).
  const std::string address = "u" + std::to_string(sizeof(void*) * 8) + " hex";
  EXPECT_EQ((std::set<std::string>{"string", "bool", "u8", "i16", "u16", "i32", "u32", "i64", address}), types);
  EXPECT_EQ((std::set<std::string>{"i16"}), seen["AngularRate"]);
  EXPECT_EQ((std::set<std::string>{"u32 [ms]"}), seen["TimeStamp"]);
  EXPECT_EQ((std::set<std::string>{"i64 [ms]"}), seen["iCurrentTime"]);
  EXPECT_EQ((std::set<std::string>{"u8"}), seen["Configuration Size"]);
  EXPECT_EQ((std::set<std::string>{"u16"}), seen["Sensor Type"]);
  EXPECT_EQ((std::set<std::string>{"bool"}), seen["aRequestBufferedData"]);
  EXPECT_EQ((std::set<std::string>{"i32"}), seen["bufferd data size"]);
}

// The stamp is the simulated time in 0.1 ms: the CAN records are fed about every 200 ms
// from tick 100100 on (the peer's clock drifts), and each sample's time stamp in the
// output is its record's time less the 20 ms the synchronisation is early.
TEST(DltFileTest, TimeStampsAreTheSimulatedTimeAndLineUpWithTheSamples) {
  CTempDir scratch;
  const SimRun run = RunSim({"--duration", "20", "--log", "dlt:" + scratch.File("run.dlt")});
  ASSERT_EQ(0, run.exitCode) << run.err;
  const std::vector<DltMessage> messages = ReadBack(scratch.File("run.dlt"));
  ASSERT_FALSE(messages.empty());
  const DltMessage& note = messages[0];
  EXPECT_EQ("SIM", note.context);
  ASSERT_EQ(3u, note.arguments.size());
  EXPECT_NE(std::string::npos, note.arguments[0].text.find("simulated time in 0.1 ms"));
  EXPECT_EQ("wraps", note.arguments[1].name);
  EXPECT_EQ(0u, note.arguments[1].unsignedNumber);
  EXPECT_EQ("simulated time", note.arguments[2].name);
  EXPECT_EQ("ms", note.arguments[2].unit);
  EXPECT_EQ(100000u, note.arguments[2].unsignedNumber);
  EXPECT_EQ(1000000u, note.timestamp);
  uint32_t previous = 0;
  std::vector<int64_t> fed;
  for (const DltMessage& message : messages) {
    EXPECT_GE(message.timestamp, previous);
    previous = message.timestamp;
    if (message.arguments.size() > 2 && message.arguments[0].text.find("CCANSensor::SensorData(") != std::string::npos)
      fed.push_back(message.timestamp);
  }
  std::vector<int64_t> samples;
  for (const std::string& line : Lines(run.out)) {
    if (line.compare(0, 5, "C1,1,") == 0) samples.push_back(std::stoll(line.substr(5)));
  }
  ASSERT_EQ(100u, fed.size());
  ASSERT_EQ(100u, samples.size());
  for (size_t i = 0; i < fed.size(); ++i) {
    EXPECT_NEAR(static_cast<int64_t>(100100 + 200 * i) * 10, fed[i], 20) << i;
    EXPECT_NEAR(fed[i] / 10 - 20, samples[i], 1) << i;
  }
}

TEST(DltFileTest, ARerunOntoTheSameFileLeavesNoStaleTail) {
  CTempDir scratch;
  const std::string file = "dlt:" + scratch.File("run.dlt");
  ASSERT_EQ(0, RunSim({"--duration", "30", "--quiet", "--log", file}).exitCode);
  const size_t longRun = ReadBack(scratch.File("run.dlt")).size();
  ASSERT_EQ(0, RunSim({"--duration", "5", "--quiet", "--log", file}).exitCode);
  ASSERT_EQ(0, RunSim({"--duration", "5", "--quiet", "--log", scratch.File("short.log")}).exitCode);
  const std::vector<DltMessage> shortRun = ReadBack(scratch.File("run.dlt"));
  EXPECT_LT(shortRun.size(), longRun);
  EXPECT_EQ(Lines(ReadFile(scratch.File("short.log"))).size() + 1, shortRun.size());
}

// libdlt's own lines go to standard error, errors only: the samples are the same as
// without a log, and nothing is taken for the module's printing.
TEST(DltFileTest, LibdltWritesNothingIntoTheSamplesOrTheModulesMessages) {
  CTempDir scratch;
  const SimRun plain = RunSim({"--duration", "30"});
  const SimRun dlt = RunSim({"--duration", "30", "--log", "dlt:" + scratch.File("run.dlt")});
  ASSERT_EQ(0, plain.exitCode);
  ASSERT_EQ(0, dlt.exitCode) << dlt.err;
  EXPECT_EQ(plain.out, dlt.out);
  EXPECT_NE(std::string::npos, dlt.err.find("supervision messages: 0")) << dlt.err;
  EXPECT_EQ(std::string::npos, dlt.err.find("module:")) << dlt.err;
  EXPECT_EQ(std::string::npos, dlt.err.find("DLT")) << dlt.err;
}

TEST(DltFileTest, AFileThatCannotBeWrittenFailsBeforeTheRun) {
  const SimRun run = RunSim({"--duration", "5", "--log", "dlt:/nonexistent-folder/run.dlt"});
  EXPECT_EQ(1, run.exitCode) << run.Describe();
  EXPECT_NE(std::string::npos, run.err.find("/nonexistent-folder/run.dlt")) << run.err;
  EXPECT_TRUE(run.out.empty()) << run.out;
}

TEST(DltFileTest, AMissingFileNameIsAUsageError) {
  const SimRun run = RunSim({"--duration", "5", "--log", "dlt:"});
  EXPECT_EQ(2, run.exitCode) << run.Describe();
  EXPECT_NE(std::string::npos, run.err.find("--log dlt:FILE: the file name is missing")) << run.err;
}

TEST(DltFileTest, TheDltFileMustDifferFromTheOtherOutputs) {
  CTempDir scratch;
  const SimRun run = RunSim({"--duration", "5", "--out", scratch.File("x"), "--log", "dlt:" + scratch.File("x")});
  EXPECT_EQ(2, run.exitCode) << run.Describe();
  EXPECT_NE(std::string::npos, run.err.find("--out and --log name the same file")) << run.err;
}

// Without a daemon, --log dlt says so at once instead of buffering into the void.
TEST(DltFileTest, NoDaemonIsReportedAtOnce) {
  CTempDir scratch;
  ProcessOptions noDaemon;
  noDaemon.environment = {"DLT_PIPE_DIR=" + scratch.Path()};
  noDaemon.timeoutSeconds = 5;
  const SimRun run = RunSim({"--duration", "30", "--log", "dlt"}, noDaemon);
  EXPECT_EQ(1, run.exitCode) << run.Describe() << "\n" << run.err;
  EXPECT_NE(std::string::npos, run.err.find("no DLT daemon is reachable through " + scratch.File("dlt"))) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("--log dlt:FILE.dlt")) << run.err;
  EXPECT_TRUE(run.out.empty()) << run.out;
}

TEST(DltStampTest, StampIsTenthsOfAMillisecondAndWrapsAfter2To32) {
  EXPECT_EQ(1000000u, sim::DltStamp(100000));
  EXPECT_EQ(0u, sim::DltStampWraps(100000));
  EXPECT_EQ(4294967290u, sim::DltStamp(429496729));
  EXPECT_EQ(0u, sim::DltStampWraps(429496729));
  EXPECT_EQ(4u, sim::DltStamp(429496730));
  EXPECT_EQ(1u, sim::DltStampWraps(429496730));
  EXPECT_EQ(2u, sim::DltStampWraps(14ull * 86400 * 1000));  // the longest run allowed
}

// Writes one record as the module does, at simulated time aMilliseconds.
void WriteRecordAt(uint64_t aMilliseconds, int32_t aValue) {
  host::CSimulatedOsal::Instance().SetNow(aMilliseconds);
  const uint32_t module = 81;
  const uint32_t category = logging::categories::Info;
  const TBool enabled = logging::IControl().IsEnabled(&module, &category);
  logging::internals::CLogHandle handle = logging::internals::ILog().Open(
      "logging::categories::Info", "logging::Positioning", "Fn", enabled, "src/File.cpp", 12);
  handle << "("
         << "value=";
  handle.iStream->Append(&aValue);
  handle << ")";
  handle.iStream->AppendLineEnd("\n");
}

// A run longer than 4.97 days: the stamp wraps, and a SIM message says where, with
// the full simulated time, so a reader can add the wraps back.
TEST(DltStampTest, EveryWrapIsMarkedInTheFile) {
  CTempDir scratch;
  const std::string path = scratch.File("wrap.dlt");
  std::string error;
  std::unique_ptr<sim::ILogOutput> output =
      sim::DltFileLog(fopen(path.c_str(), "w"), path, contract::kLogMaskAll, error);
  ASSERT_TRUE(output) << error;
  WriteRecordAt(429496000, 1);  // 0.7 s before the first wrap
  WriteRecordAt(429497000, 2);  // 0.3 s after it
  WriteRecordAt(2 * 429496730ull + 5, 3);
  ASSERT_TRUE(output->Close(error)) << error;
  host::CLogFacility::Instance().SetKeepRecords(true);
  host::CSimulatedOsal::Instance().Reset();
  const std::vector<DltMessage> messages = ReadBack(path);
  ASSERT_EQ(6u, messages.size());
  const size_t notes[] = {0, 2, 4};
  const uint64_t wraps[] = {0, 1, 2};
  const uint64_t times[] = {429496000, 429497000, 2 * 429496730ull + 5};
  for (size_t i = 0; i < 3; ++i) {
    const DltMessage& note = messages[notes[i]];
    const DltMessage& record = messages[notes[i] + 1];
    EXPECT_EQ("SIM", note.context);
    ASSERT_EQ(3u, note.arguments.size());
    EXPECT_NE(std::string::npos, note.arguments[0].text.find(i == 0 ? "each wrap is marked" : "wrapped")) << i;
    EXPECT_EQ(wraps[i], note.arguments[1].unsignedNumber) << i;
    EXPECT_EQ(times[i], note.arguments[2].unsignedNumber) << i;
    EXPECT_EQ(static_cast<uint32_t>(times[i] * 10), note.timestamp) << i;
    EXPECT_EQ("POSI", record.context);
    EXPECT_EQ(static_cast<uint32_t>(times[i] * 10), record.timestamp) << i;
    // The full time comes back from the stamp and the wraps before it.
    EXPECT_EQ(times[i] * 10, (wraps[i] << 32) + record.timestamp) << i;
    ASSERT_EQ(7u, record.arguments.size());
    EXPECT_EQ("value", record.arguments[5].name);
    EXPECT_EQ(static_cast<int64_t>(i + 1), record.arguments[5].number);
  }
}

TEST(DltStampTest, ArgumentsAreNamedByTheLabelBeforeThem) {
  EXPECT_EQ("TimeStamp", sim::DltArgumentName("TimeStamp        : "));
  EXPECT_EQ("iCurrentTime", sim::DltArgumentName("iCurrentTime = "));
  EXPECT_EQ("aTime", sim::DltArgumentName(" aTime="));
  EXPECT_EQ("Sensor Index", sim::DltArgumentName("Configuration, Sensor Index        : "));
  EXPECT_EQ("aRequestBufferedData", sim::DltArgumentName("All sensors are subscribed, aRequestBufferedData="));
  EXPECT_EQ("", sim::DltArgumentName(", "));
  EXPECT_EQ("", sim::DltArgumentName("("));
  EXPECT_EQ("", sim::DltArgumentName(" : "));
  EXPECT_EQ("", sim::DltArgumentName(""));
  EXPECT_EQ("ms", sim::DltArgumentUnit("TimeStamp"));
  EXPECT_EQ("", sim::DltArgumentUnit("AngularRate"));
}

}  // namespace
