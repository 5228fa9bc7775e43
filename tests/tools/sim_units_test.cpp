// The simulator's own units, without running the program: the number parser, the
// scheduler's order, the built-in drive generated record by record, the check that two
// outputs name one file, and outputs that hold what was written to them.
#include <gtest/gtest.h>

#include <stdint.h>

#include <string>
#include <vector>

#include "DriveGenerator.h"
#include "NumberParse.h"
#include "OptionValues.h"
#include "OutputFiles.h"
#include "Scheduler.h"
#include "SimRunner.h"

namespace {

using namespace sim;

TEST(SimUnitsTest, IntegersAreWholeTextsWithinTheirRange) {
  int64_t value = 0;
  std::string why;
  EXPECT_TRUE(ParseInteger(" -32768 ", -32768, 32767, value, why));
  EXPECT_EQ(-32768, value);
  EXPECT_TRUE(ParseInteger("9223372036854775807", INT64_MIN, INT64_MAX, value, why));
  EXPECT_EQ(INT64_MAX, value);
  EXPECT_FALSE(ParseInteger("9223372036854775808", INT64_MIN, INT64_MAX, value, why));
  EXPECT_EQ("out of range (-9223372036854775808 to 9223372036854775807): '9223372036854775808'", why);
  EXPECT_FALSE(ParseInteger("32768", -32768, 32767, value, why));
  EXPECT_EQ("out of range (-32768 to 32767): '32768'", why);
  EXPECT_FALSE(ParseInteger("12abc", -100, 100, value, why));
  EXPECT_EQ("not a whole number: '12abc'", why);
  EXPECT_FALSE(ParseInteger("1.5", -100, 100, value, why));
  EXPECT_FALSE(ParseInteger("+1", -100, 100, value, why));
  EXPECT_FALSE(ParseInteger("", -100, 100, value, why));
  EXPECT_EQ("empty field", why);
  EXPECT_EQ(INT64_MAX, value) << "a failed parse leaves the value alone";
}

TEST(SimUnitsTest, UnsignedNumbersRefuseASign) {
  uint64_t value = 0;
  std::string why;
  EXPECT_TRUE(ParseUnsigned("18446744073709551615", UINT64_MAX, value, why));
  EXPECT_EQ(UINT64_MAX, value);
  EXPECT_FALSE(ParseUnsigned("18446744073709551616", UINT64_MAX, value, why));
  EXPECT_FALSE(ParseUnsigned("-1", 10, value, why));
  EXPECT_EQ("out of range (0 to 10): '-1'", why);
  EXPECT_FALSE(ParseUnsigned("-x", 10, value, why));
  EXPECT_EQ("not a whole number: '-x'", why);
  EXPECT_FALSE(ParseUnsigned("4294967296", 0xFFFFFFFFull, value, why));
}

TEST(SimUnitsTest, RealNumbersAreFiniteAndWithinTheirRange) {
  double value = 0;
  std::string why;
  EXPECT_TRUE(ParseReal("1e3", 0, 2000, value, why));
  EXPECT_EQ(1000.0, value);
  EXPECT_TRUE(ParseReal("-0.25", -1, 1, value, why));
  EXPECT_EQ(-0.25, value);
  for (const char* bad : {"nan", "NaN", "inf", "-inf", "infinity", "1e", "1,5", "0x10"}) {
    EXPECT_FALSE(ParseReal(bad, -1e300, 1e300, value, why)) << bad;
  }
  EXPECT_FALSE(ParseReal("1e999", -1e300, 1e300, value, why));
  EXPECT_FALSE(ParseReal("1e9", 0, 1209600, value, why));
  EXPECT_EQ("out of range (0 to 1.2096e+06): '1e9'", why);
}

TEST(SimUnitsTest, SchedulerRunsByTimeThenLaneThenOrderOfScheduling) {
  CScheduler scheduler;
  std::string ran;
  scheduler.At(20, [&] { ran += "d"; });
  scheduler.At(
      10, [&] { ran += "b"; }, Lane::kRecords);
  scheduler.At(10, [&] { ran += "c"; });
  scheduler.At(
      10, [&] { ran += "a"; }, Lane::kBeforeRecords);
  scheduler.At(5, [&] {
    ran += "0";
    scheduler.At(
        10, [&] { ran += "B"; }, Lane::kRecords);  // scheduled later, same lane
  });
  EXPECT_EQ(5u, scheduler.NextTime());
  while (!scheduler.Empty()) scheduler.RunNext();
  EXPECT_EQ("0abBcd", ran);
  EXPECT_EQ(UINT64_MAX, scheduler.NextTime());
}

TEST(SimUnitsTest, TheBuiltInDriveIsGeneratedRecordByRecord) {
  CDriveGenerator drive(SourceKind::Can, 1, 60, 97600);
  EXPECT_EQ(300u, drive.Count());
  EXPECT_EQ(97600, drive.FirstPeerTime());
  EXPECT_EQ(97600 + 299 * 200, drive.LastPeerTime());
  CDriveGenerator longer(SourceKind::Can, 1, 36000, 97600);
  DriveRecord record;
  DriveRecord other;
  uint64_t count = 0;
  while (drive.Next(record)) {
    ASSERT_TRUE(longer.Next(other));
    EXPECT_EQ(other.stamp, record.stamp);
    for (int f = 0; f < 4; ++f) EXPECT_EQ(other.field[f], record.field[f]) << count << " " << f;
    ++count;
  }
  EXPECT_EQ(300u, count);
  EXPECT_FALSE(drive.Next(record));
  EXPECT_EQ("built-in drive, seed 1, 60.0 s", drive.Describe());
}

TEST(SimUnitsTest, OutputsNamingOneFileAreFoundWhateverTheSpelling) {
  testing_host::CTempDir scratch;
  testing_host::WriteFile(scratch.File("in.csv"), "x");
  std::string error;
  EXPECT_TRUE(OutputsAreDistinct({{"--out", scratch.File("a")}, {"--log", scratch.File("b")}}, {scratch.File("in.csv")},
                                 error));
  // The folder named again through its parent: one file, spelt two ways.
  const std::string folder = scratch.Path().substr(scratch.Path().rfind('/') + 1);
  EXPECT_FALSE(OutputsAreDistinct({{"--out", scratch.File("a")}, {"--log", scratch.Path() + "/../" + folder + "/a"}},
                                  {}, error));
  EXPECT_EQ("--out and --log name the same file: " + scratch.Path() + "/../" + folder + "/a", error);
  EXPECT_FALSE(OutputsAreDistinct({{"--record", scratch.Path() + "//in.csv"}}, {scratch.File("in.csv")}, error));
  EXPECT_EQ("--record " + scratch.Path() + "//in.csv would overwrite the input " + scratch.File("in.csv"), error);
  EXPECT_TRUE(OutputsAreDistinct({{"--out", "/dev/null"}, {"--log", "/dev/null"}}, {}, error));
}

// Lines that tell one file from another and one line from the next.
std::string Lines(char aFile, int aCount) {
  std::string text;
  for (int i = 0; i < aCount; ++i) text += std::string(1, aFile) + std::to_string(i) + "\n";
  return text;
}

TEST(SimUnitsTest, OutputsOpenedClosedAndOpenedAgainEachHoldExactlyTheirOwnBytes) {
  testing_host::CTempDir scratch;
  std::string error;
  // Larger than an output's buffer, written while other outputs are open, closed and
  // given up on, so that buffers are handed on from one output to the next.
  const std::string a = Lines('a', 40000), b = Lines('b', 30000), c = Lines('c', 50000), d = Lines('d', 20000);
  FILE* first = OpenOutput(scratch.File("a"), error);
  FILE* second = OpenOutput(scratch.File("b"), error);
  ASSERT_NE(nullptr, first);
  ASSERT_NE(nullptr, second);
  fputs(a.c_str(), first);
  fputs(b.c_str(), second);
  ASSERT_TRUE(CloseOutput(first, scratch.File("a"), error)) << error;
  FILE* third = OpenOutput(scratch.File("c"), error);
  FILE* fourth = OpenOutput(scratch.File("d"), error);
  ASSERT_NE(nullptr, third);
  ASSERT_NE(nullptr, fourth);
  const size_t half = c.size() / 2;
  fwrite(c.data(), 1, half, third);
  fputs(d.c_str(), fourth);
  fputs(c.c_str() + half, third);
  fputs("lost", second);
  DiscardOutput(second);
  ASSERT_TRUE(CloseOutput(third, scratch.File("c"), error)) << error;
  ASSERT_TRUE(CloseOutput(fourth, scratch.File("d"), error)) << error;
  EXPECT_EQ(a, testing_host::ReadFile(scratch.File("a")));
  EXPECT_EQ(b + "lost", testing_host::ReadFile(scratch.File("b")));
  EXPECT_EQ(c, testing_host::ReadFile(scratch.File("c")));
  EXPECT_EQ(d, testing_host::ReadFile(scratch.File("d")));
}

}  // namespace

TEST(SimUnitsTest, OptionValuesAreConvertedAfterTheLineAndErrorsNameTheirOption) {
  CLI::App app;
  sim::COptionValues values;
  std::vector<double> seconds;
  values.Add(app, "--at", "SECONDS", "", "seconds", [&seconds](const std::string& aText, std::string& aWhy) {
    double value = 0;
    if (!sim::Seconds(aText, value, aWhy)) return false;
    seconds.push_back(value);
    return true;
  });
  const char* good[] = {"prog", "--at=1.5"};
  app.parse(2, good);
  EXPECT_TRUE(seconds.empty());  // nothing converted while the line is read
  std::string error;
  ASSERT_TRUE(values.Convert(error)) << error;
  EXPECT_EQ((std::vector<double>{1.5}), seconds);

  CLI::App other;
  sim::COptionValues refused;
  refused.Add(other, "--at", "SECONDS", "", "seconds", [](const std::string& aText, std::string& aWhy) {
    double value = 0;
    return sim::Seconds(aText, value, aWhy);
  });
  const char* bad[] = {"prog", "--at", "nan"};
  other.parse(3, bad);
  EXPECT_FALSE(refused.Convert(error));
  EXPECT_EQ(0u, error.find("--at takes seconds: nan (")) << error;
}

TEST(SimUnitsTest, WindowsEndAfterTheyStart) {
  std::vector<sim::TimeWindow> windows;
  std::string why;
  EXPECT_TRUE(sim::Window("10:20", windows, why)) << why;
  EXPECT_TRUE(sim::Window("30", windows, why)) << why;
  ASSERT_EQ(2u, windows.size());
  EXPECT_EQ(10, windows[0].start);
  EXPECT_EQ(20, windows[0].end);
  EXPECT_FALSE(sim::Window("20:10", windows, why));
  EXPECT_EQ("the end must come after the start", why);
  EXPECT_FALSE(sim::Window("-1", windows, why));
}
