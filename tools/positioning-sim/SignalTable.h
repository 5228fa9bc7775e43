// A recorded drive as its logger wrote it: CSV with a header row of column names
// ('#' comments, blank lines skipped, a UTF-8 byte order mark allowed), read row by
// row. The columns the import names are found by name and their values converted
// from their declared units to the simulator's (see ImportCommand). An empty field
// keeps the previous row's value; empty pose fields mean no pose on that row.
#ifndef SIM_SIGNAL_TABLE_H
#define SIM_SIGNAL_TABLE_H

#include <fstream>
#include <istream>
#include <string>
#include <string_view>
#include <vector>

#include "DriveImport.h"

namespace sim {

// A column and how its values become the simulator's: value * scale + offset.
struct ColumnSpec {
  std::string name;  // empty: not used
  double scale = 1;
  double offset = 0;
  bool Used() const { return !name.empty(); }
};

struct ImportColumns {
  ColumnSpec time;        // to ms
  ColumnSpec rate;        // to deg/s, right turns positive
  ColumnSpec speed;       // to m/s
  ColumnSpec distance;    // to m
  std::string direction;  // gear or signed direction, see DirectionOf
  ColumnSpec x;           // to m east
  ColumnSpec y;           // to m north
  ColumnSpec latitude;    // degrees
  ColumnSpec longitude;
  ColumnSpec heading;  // to degrees clockwise from north
};

// +1 forward, -1 reverse, 0 neither (parked, neutral, empty): "R", "reverse" or a
// negative number is reverse; "D", "F", "forward", "drive" or a positive number is
// forward; "P", "N", "park", "neutral" or 0 is neither. False for anything else.
bool DirectionOf(const std::string& aText, int& aDirection);

class CSignalTable {
 public:
  // "-" reads standard input. Reads the header and finds the columns; false with
  // "INPUT:LINE: what" (a missing column is named, with the columns there are).
  bool Open(const std::string& aPath, const ImportColumns& aColumns, std::string& aError);
  // The same from a stream that stays the caller's; aName names it in messages.
  bool Open(std::istream& aInput, const std::string& aName, const ImportColumns& aColumns, std::string& aError);
  // The next row; false at the end, or with aError on a bad row.
  bool Next(SignalRow& aRow, std::string& aError);
  uint64_t Rows() const { return iRows; }

 private:
  bool ReadLine(std::string& aLine);
  bool Value(const std::vector<std::string_view>& aFields, int aIndex, const ColumnSpec& aSpec, double& aValue,
             bool& aPresent, std::string& aError) const;

  std::string iPath;
  std::ifstream iFile;
  std::istream* iInput = nullptr;
  ImportColumns iColumns;
  int iLine = 0;
  uint64_t iRows = 0;
  size_t iWidth = 0;  // columns in the header
  // Where each used column is: time, rate, speed, distance, direction, x, y,
  // latitude, longitude, heading; -1 when not used.
  int iIndex[10] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
  SignalRow iLast;                        // empty fields keep its values
  std::string iText;                      // the row being read
  std::vector<std::string_view> iFields;  // its fields
};

}  // namespace sim

#endif  // SIM_SIGNAL_TABLE_H
