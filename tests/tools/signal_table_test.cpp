// The recorded drive's table as the import reads it: columns found by name, units
// applied, empty fields keeping the last value, and every kind of bad input named
// with its line.
#include <gtest/gtest.h>

#include <string>

#include "SignalTable.h"
#include "SimRunner.h"

namespace {

using namespace sim;
using testing_host::CTempDir;
using testing_host::WriteFile;

TEST(SignalTableTest, ColumnsAreFoundByNameAndUnitsApplied) {
  CTempDir scratch;
  WriteFile(scratch.File("in.csv"),
            "\xEF\xBB\xBF# logger export\nyaw, t ,speed,gear\n0.5,1.0,36,D\n,1.01,,R\n\n0.25,1.02,18,P\n");
  ImportColumns columns;
  columns.time = {"t", 1000, 0};
  columns.rate = {"yaw", -1, 0};
  columns.speed = {"speed", 1 / 3.6, 0};
  columns.direction = "gear";
  CSignalTable table;
  std::string error;
  ASSERT_TRUE(table.Open(scratch.File("in.csv"), columns, error)) << error;
  SignalRow row;
  ASSERT_TRUE(table.Next(row, error));
  EXPECT_DOUBLE_EQ(1000, row.time);
  EXPECT_DOUBLE_EQ(-0.5, row.rate);
  EXPECT_DOUBLE_EQ(10, row.speed);
  EXPECT_EQ(1, row.direction);
  EXPECT_EQ(3, row.line);
  ASSERT_TRUE(table.Next(row, error));
  EXPECT_DOUBLE_EQ(-0.5, row.rate) << "an empty field keeps the last value";
  EXPECT_DOUBLE_EQ(10, row.speed);
  EXPECT_EQ(-1, row.direction);
  ASSERT_TRUE(table.Next(row, error));
  EXPECT_EQ(6, row.line);
  EXPECT_EQ(0, row.direction);
  EXPECT_FALSE(table.Next(row, error));
  EXPECT_TRUE(error.empty()) << error;
  EXPECT_EQ(3u, table.Rows());
}

TEST(SignalTableTest, BadInputIsNamedWithItsLine) {
  CTempDir scratch;
  ImportColumns columns;
  columns.time = {"t", 1, 0};
  columns.rate = {"yaw", 1, 0};
  columns.speed = {"v", 1, 0};
  columns.x = {"x", 1, 0};
  columns.y = {"y", 1, 0};
  columns.heading = {"h", 1, 0};
  const struct {
    std::string text;
    std::string error;
  } cases[] = {
      {"t,yaw,x,y,h\n", ":1: no column 'v' (the columns are: t, yaw, x, y, h)"},
      {"t,yaw,v,v,x,y,h\n", ":1: two columns are named 'v'"},
      {"", ": no header row: the file is empty"},
      {"t,yaw,v,x,y,h\n1,2,3,4,5\n", ":2: expected 6 columns as in the header, found 5"},
      {"t,yaw,v,x,y,h\n1,2,abc,,,\n", ":2: v: not a number: 'abc'"},
      {"t,yaw,v,x,y,h\n,2,3,,,\n", ":2: t: empty: every row needs its time"},
      {"t,yaw,v,x,y,h\n1,2,3,4,,6\n", ":2: a pose needs all of x, y and h"},
      {std::string("t,yaw,v,x,y,h\n1,2,3\0,,,\n", 25), ":2: a NUL byte in the row"},
  };
  for (const auto& test : cases) {
    WriteFile(scratch.File("in.csv"), test.text);
    CSignalTable table;
    std::string error;
    SignalRow row;
    const bool ok = table.Open(scratch.File("in.csv"), columns, error) && table.Next(row, error);
    EXPECT_FALSE(ok) << test.error;
    EXPECT_EQ(scratch.File("in.csv") + test.error, error);
  }
  int direction = 0;
  EXPECT_FALSE(DirectionOf("sideways", direction));
  EXPECT_TRUE(DirectionOf(" Reverse", direction));
  EXPECT_EQ(-1, direction);
  EXPECT_TRUE(DirectionOf("-0.5", direction));
  EXPECT_EQ(-1, direction);
  EXPECT_TRUE(DirectionOf("1", direction));
  EXPECT_EQ(1, direction);
}

}  // namespace
