// The simulator's trace units without running the program: the service's wrapping
// 32-bit clock, the clock and stamp-shift lines of a recording, the trace reader's
// checks (header, values, stamp order) and the replay window.
#include <gtest/gtest.h>

#include <stdint.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ReplayWindow.h"
#include "TraceClock.h"
#include "TraceFile.h"

namespace {

using namespace sim;

const char* const kCanHeader = "TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples\n";
const char* const kExternalHeader = "timeStamp,value0,value1,value2,value3\n";

// Opens aText as a trace named "t"; the error when it is refused.
std::string OpenTrace(CTraceReader& aReader, const std::string& aText) {
  std::string error;
  std::unique_ptr<std::istream> stream(new std::istringstream(aText));
  if (aReader.Open("t", std::move(stream), error)) return std::string();
  EXPECT_FALSE(error.empty());
  return error;
}

std::vector<DriveRecord> ReadAll(IDriveSource& aSource) {
  std::vector<DriveRecord> records;
  DriveRecord record;
  while (aSource.Next(record)) records.push_back(record);
  EXPECT_EQ("", aSource.Error());
  return records;
}

TEST(TraceUnitsTest, StampStepsGoForwardAcrossTheWrapAndBackOtherwise) {
  EXPECT_EQ(200, StampStep(1000, 1200));
  EXPECT_EQ(-200, StampStep(1200, 1000));
  EXPECT_EQ(400, StampStep(4294967000u, 104));
  EXPECT_EQ(-400, StampStep(104, 4294967000u));
  EXPECT_EQ(0, StampStep(5, 5));
  EXPECT_EQ(4294967296 + 104, NearestPeerTime(104, 4294967000));
  EXPECT_EQ(-296, NearestPeerTime(4294967000u, 0));
  EXPECT_EQ(4294967000, NearestPeerTime(4294967000u, 4294967200));
}

TEST(TraceUnitsTest, AFollowerCountsWrapsAndKeepsTimeContinuous) {
  CStampFollower follower;
  EXPECT_EQ(4294967000, follower.Follow(4294967000u));
  EXPECT_EQ(4294967200, follower.Follow(4294967200u));
  EXPECT_EQ(4294967296 + 104, follower.Follow(104));
  EXPECT_EQ(4294967296 + 4, follower.Follow(4));  // back 100 ms: no wrap
  EXPECT_EQ(1u, follower.Wraps());
  CStampFollower anchored;
  anchored.SetReference(3 * 4294967296ll);
  EXPECT_EQ(3 * 4294967296ll + 7, anchored.Follow(7));
}

TEST(TraceUnitsTest, AClockLineReadsBackAsWritten) {
  ClockLine clock;
  clock.localStart = 4294969400;
  clock.localAnchor = 4294969500;
  clock.peerAnchor = 4294967000;
  clock.driftPpm = -12.5;
  clock.syncLatency = 35;
  const std::string line = FormatClockLine(clock);
  ClockLine read;
  bool isLine = false;
  std::string error;
  ASSERT_TRUE(ParseClockLine(line, read, isLine, error)) << error;
  EXPECT_TRUE(isLine);
  EXPECT_EQ(clock.localStart, read.localStart);
  EXPECT_EQ(clock.localAnchor, read.localAnchor);
  EXPECT_EQ(clock.peerAnchor, read.peerAnchor);
  EXPECT_EQ(clock.driftPpm, read.driftPpm);
  EXPECT_EQ(clock.syncLatency, read.syncLatency);
  EXPECT_FALSE(ParseClockLine("# a clock: of the car", read, isLine, error));
  EXPECT_FALSE(isLine);
  EXPECT_FALSE(ParseClockLine("# clock: local-start-ms=1 drift-ppm=nan", read, isLine, error));
  EXPECT_TRUE(isLine);
  EXPECT_EQ("clock line: drift-ppm: not a number: 'nan'", error);
  EXPECT_FALSE(ParseClockLine("# clock: local-start-ms=1", read, isLine, error));
  EXPECT_NE(std::string::npos, error.find("needs local-start-ms, local-anchor-ms")) << error;
}

TEST(TraceUnitsTest, HeaderErrorsNameWhatIsWrong) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"\xEF\xBB\xBF" + std::string(kCanHeader), "t:1: the file starts with a UTF-8 byte order mark"},
      {"timestamp,distancepuls,AngularRate,DrivingDirection,NrOfSamples\n",
       "t:1: header: column 'timestamp' must be written 'TimeStamp', column 'distancepuls' must be written "
       "'DistancePuls'"},
      {"TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples,Speed\n", "t:1: header: extra column 'Speed'"},
      {"timeStamp,value0,value1,value3\n", "t:1: header: missing column value2 (EXTERNAL trace"},
      {"value0,timeStamp,value1,value2,value3\n", "t:1: header: columns out of order"},
      {"speed,yaw\n", "t:1: missing header: expected"},
      {std::string(kCanHeader), "t:1: the trace holds no records, only its header"},
      {"", "t:0: missing header: the file has no rows"},
  };
  for (const auto& one : cases) {
    // The header alone when that is the case, else the header with a record.
    const bool alone = one.first.empty() || one.second.find("only its header") != std::string::npos;
    CTraceReader reader;
    const std::string error = OpenTrace(reader, one.first + (alone ? "" : "1000,1,2,33,10\n"));
    EXPECT_NE(std::string::npos, error.find(one.second)) << one.second << "\n" << error;
  }
}

TEST(TraceUnitsTest, ValuesOutsideTheWireAndNulBytesAreRefusedWithTheirLine) {
  CTraceReader reader;
  EXPECT_EQ("t:3: timeStamp: out of range (0 to 4294967295): '4294967296': the service's stamps are 32-bit",
            OpenTrace(reader, std::string(kExternalHeader) + "97600,1,2,3,4\n4294967296,1,2,3,4\n"));
  CTraceReader can;
  EXPECT_EQ("t:2: TimeStamp: out of range (0 to 4294967295): '9000000000000000000': the service's stamps are 32-bit",
            OpenTrace(can, std::string(kCanHeader) + "9000000000000000000,1,2,33,10\n"));
  CTraceReader nul;
  EXPECT_EQ("t:3: a NUL byte in column 3",
            OpenTrace(nul, std::string(kCanHeader) + "1000,1,2,33,10\n1200,1," + std::string(1, '\0') + "2,33,10\n"));
}

TEST(TraceUnitsTest, StampsThatGoBackOrRepeatAreWarnedOfWithTheirLines) {
  CTraceReader reader;
  ASSERT_EQ("", OpenTrace(reader, std::string(kCanHeader) +
                                      "1000,0,0,33,10\n1200,0,0,33,10\n1200,0,0,33,10\n# c\n900,0,0,33,10\n"
                                      "4294967000,0,0,33,10\n5,0,0,33,10\n"));
  const TraceContents& contents = reader.Contents();
  ASSERT_EQ(2u, contents.warnings.size());
  EXPECT_EQ("t: time stamps go back at line 6, 7", contents.warnings[0]);
  EXPECT_EQ("t: time stamps repeat at line 4", contents.warnings[1]);
  EXPECT_EQ(1u, contents.wraps);
  EXPECT_EQ(6u, contents.count);
  EXPECT_EQ(1000, contents.firstPeerTime);
  EXPECT_EQ(1200, contents.lastPeerTime);  // 4294967000 after 900 is read as 1196 ms back
}

TEST(TraceUnitsTest, ARecordingsShiftLinesKeepItsRecordsOnTheServicesClock) {
  CTraceReader reader(4294967000u);  // shifted to just before the wrap
  ASSERT_EQ("", OpenTrace(reader,
                          "# clock: local-start-ms=100000 local-anchor-ms=100100 peer-anchor-ms=97600 "
                          "drift-ppm=0 sync-latency-ms=20\n" +
                              std::string(kCanHeader) +
                              "97600,0,0,33,10\n# stamp-shift-ms: 5000\n102800,0,0,33,10\n"
                              "# stamp-shift-ms: 0\n98000,0,0,33,10\n"));
  const TraceContents& contents = reader.Contents();
  ASSERT_TRUE(contents.hasClock);
  EXPECT_EQ(100000ull + 4294967000ull, contents.clock.localStart);
  EXPECT_EQ(97600 + 4294967000ll, contents.clock.peerAnchor);
  const std::vector<DriveRecord> records = ReadAll(reader);
  ASSERT_EQ(3u, records.size());
  EXPECT_EQ(97600 + 4294967000ll, records[0].peerTime);
  EXPECT_EQ(97800 + 4294967000ll, records[1].peerTime);  // sent 5 s ahead of the clock
  EXPECT_EQ((102800 + 4294967000ull) % 4294967296ull, records[1].stamp);
  EXPECT_EQ(98000 + 4294967000ll, records[2].peerTime);
  EXPECT_EQ(3, records[1].line - records[0].line + 1);
}

TEST(TraceUnitsTest, TheReplayWindowTakesItsStretchAsOftenAsAsked) {
  std::string text = kExternalHeader;
  for (int i = 0; i < 50; ++i) text += std::to_string(4294957296ull + i * 200) + ",10,0,1,1\n";  // 10 s, wrapping
  CTraceReader reader;
  ASSERT_EQ("", OpenTrace(reader, text));
  CReplayWindow window(reader, 2, 4, 3);
  std::string error;
  ASSERT_TRUE(window.Open(error)) << error;
  EXPECT_EQ(33u, window.Count());  // 2.0 s to 4.0 s: 11 records, 3 times
  EXPECT_EQ(4294957296 + 2000, window.FirstPeerTime());
  EXPECT_EQ(4294957296 + 4000 + 2 * 2200, window.LastPeerTime());
  const std::vector<DriveRecord> records = ReadAll(window);
  ASSERT_EQ(33u, records.size());
  for (size_t i = 1; i < records.size(); ++i) {
    EXPECT_EQ(200, records[i].peerTime - records[i - 1].peerTime) << i;
    EXPECT_EQ(200, StampStep(records[i - 1].stamp, records[i].stamp)) << i;
  }
  CReplayWindow empty(reader, 20, -1, 1);
  ASSERT_TRUE(reader.Rewind());
  EXPECT_FALSE(empty.Open(error));
  EXPECT_NE(std::string::npos, error.find("no record lies in the window")) << error;
}

}  // namespace
