#include "SignalTable.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <iostream>

#include "CsvText.h"
#include "NumberParse.h"

namespace sim {

namespace {

enum Column { kTime, kRate, kSpeed, kDistance, kDirection, kX, kY, kLatitude, kLongitude, kHeading, kColumns };

const double kLargest = 1e15;

std::string Trim(const std::string& aText) {
  const size_t begin = aText.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return std::string();
  return aText.substr(begin, aText.find_last_not_of(" \t\r") - begin + 1);
}

std::string Lower(std::string aText) {
  std::transform(aText.begin(), aText.end(), aText.begin(), [](unsigned char c) { return std::tolower(c); });
  return aText;
}

}  // namespace

bool DirectionOf(const std::string& aText, int& aDirection) {
  const std::string text = Lower(Trim(aText));
  if (text == "r" || text == "reverse") return aDirection = -1, true;
  if (text == "d" || text == "f" || text == "forward" || text == "drive") return aDirection = 1, true;
  if (text.empty() || text == "p" || text == "n" || text == "park" || text == "neutral") return aDirection = 0, true;
  double value = 0;
  std::string why;
  if (!ParseReal(text, -kLargest, kLargest, value, why)) return false;
  aDirection = value < 0 ? -1 : value > 0 ? 1 : 0;
  return true;
}

bool CSignalTable::ReadLine(std::string& aLine) {
  while (std::getline(*iInput, aLine)) {
    ++iLine;
    if (iLine == 1 && aLine.compare(0, 3, "\xEF\xBB\xBF") == 0) aLine.erase(0, 3);
    // Trimmed in place: a row costs no allocation.
    const size_t end = aLine.find_last_not_of(" \t\r");
    aLine.erase(end == std::string::npos ? 0 : end + 1);
    aLine.erase(0, std::min(aLine.size(), aLine.find_first_not_of(" \t")));
    if (!aLine.empty() && aLine[0] != '#') return true;
  }
  return false;
}

bool CSignalTable::Open(const std::string& aPath, const ImportColumns& aColumns, std::string& aError) {
  if (aPath == "-") return Open(std::cin, "standard input", aColumns, aError);
  iFile.open(aPath);
  if (!iFile) return aError = aPath + ": " + strerror(errno), false;
  return Open(iFile, aPath, aColumns, aError);
}

bool CSignalTable::Open(std::istream& aInput, const std::string& aName, const ImportColumns& aColumns,
                        std::string& aError) {
  iPath = aName;
  iColumns = aColumns;
  iInput = &aInput;
  std::string header;
  if (!ReadLine(header)) return aError = iPath + ": no header row: the file is empty", false;
  std::vector<std::string_view> views;
  SplitFields(header, views);
  const std::vector<std::string> names(views.begin(), views.end());
  iWidth = names.size();
  const std::string* wanted[kColumns] = {&aColumns.time.name,     &aColumns.rate.name,     &aColumns.speed.name,
                                         &aColumns.distance.name, &aColumns.direction,     &aColumns.x.name,
                                         &aColumns.y.name,        &aColumns.latitude.name, &aColumns.longitude.name,
                                         &aColumns.heading.name};
  for (int column = 0; column < kColumns; ++column) {
    if (wanted[column]->empty()) continue;
    const auto found = std::find(names.begin(), names.end(), *wanted[column]);
    if (found == names.end()) {
      std::string there;
      for (const std::string& name : names) there += (there.empty() ? "" : ", ") + name;
      aError = iPath + ":" + std::to_string(iLine) + ": no column '" + *wanted[column] +
               "' (the columns are: " + there + ")";
      return false;
    }
    if (std::find(found + 1, names.end(), *wanted[column]) != names.end()) {
      aError = iPath + ":" + std::to_string(iLine) + ": two columns are named '" + *wanted[column] + "'";
      return false;
    }
    iIndex[column] = static_cast<int>(found - names.begin());
  }
  return true;
}

bool CSignalTable::Value(const std::vector<std::string_view>& aFields, int aIndex, const ColumnSpec& aSpec,
                         double& aValue, bool& aPresent, std::string& aError) const {
  aPresent = false;
  if (aIndex < 0 || aFields[aIndex].empty()) return true;
  const std::string_view field = aFields[aIndex];
  double value = 0;
  // The common case straight from the row; anything else through the one parser, for
  // its verdict and its words.
  if (QuickReal(field, kLargest, value)) {
    aValue = value * aSpec.scale + aSpec.offset;
    aPresent = true;
    return true;
  }
  std::string why;
  if (!ParseReal(std::string(field), -kLargest, kLargest, value, why)) {
    aError = iPath + ":" + std::to_string(iLine) + ": " + aSpec.name + ": " + why;
    return false;
  }
  aValue = value * aSpec.scale + aSpec.offset;
  aPresent = true;
  return true;
}

bool CSignalTable::Next(SignalRow& aRow, std::string& aError) {
  std::string& line = iText;
  if (!ReadLine(line)) {
    if (iInput->bad()) aError = iPath + ": cannot read: " + strerror(errno);
    return false;
  }
  // Made only when a message needs it: most rows are good.
  auto where = [this] { return iPath + ":" + std::to_string(iLine) + ": "; };
  if (line.find('\0') != std::string::npos) return aError = where() + "a NUL byte in the row", false;
  std::vector<std::string_view>& fields = iFields;
  SplitFields(line, fields);
  if (fields.size() != iWidth) {
    aError = where() + "expected " + std::to_string(iWidth) + " columns as in the header, found " +
             std::to_string(fields.size());
    return false;
  }
  SignalRow row = iLast;
  row.line = iLine;
  row.hasPose = false;
  row.direction = 0;
  bool present = false;
  if (!Value(fields, iIndex[kTime], iColumns.time, row.time, present, aError)) return false;
  if (!present) return aError = where() + iColumns.time.name + ": empty: every row needs its time", false;
  // To the microsecond: 64.6 s is 64600 ms, not the 64599.99999 that doubles make of it.
  row.time = std::round(row.time * 1000.0) / 1000.0;
  if (!Value(fields, iIndex[kRate], iColumns.rate, row.rate, present, aError)) return false;
  if (!Value(fields, iIndex[kSpeed], iColumns.speed, row.speed, present, aError)) return false;
  if (!Value(fields, iIndex[kDistance], iColumns.distance, row.distance, present, aError)) return false;
  if (iIndex[kDirection] >= 0 && !DirectionOf(std::string(fields[iIndex[kDirection]]), row.direction)) {
    aError = where() + iColumns.direction + ": not a direction or gear: '" + std::string(fields[iIndex[kDirection]]) +
             "' (R, reverse or below 0; D, F, forward, drive or above 0; P, N, park, neutral or 0)";
    return false;
  }
  // A pose is all of its fields or none.
  const bool geographic = iIndex[kLatitude] >= 0;
  const int first = geographic ? kLatitude : kX;
  if (iIndex[first] >= 0) {
    const ColumnSpec* specs[3] = {geographic ? &iColumns.latitude : &iColumns.x,
                                  geographic ? &iColumns.longitude : &iColumns.y, &iColumns.heading};
    const int indices[3] = {iIndex[first], iIndex[first + 1], iIndex[kHeading]};
    double values[3] = {0, 0, 0};
    int given = 0;
    for (int i = 0; i < 3; ++i) {
      if (!Value(fields, indices[i], *specs[i], values[i], present, aError)) return false;
      given += present ? 1 : 0;
    }
    if (given != 0 && given != 3)
      return aError =
                 where() + "a pose needs all of " + specs[0]->name + ", " + specs[1]->name + " and " + specs[2]->name,
             false;
    if (given == 3) {
      row.hasPose = true;
      if (geographic) {
        if (values[0] < -90 || values[0] > 90 || values[1] < -180 || values[1] > 180)
          return aError = where() + "a latitude or longitude out of range", false;
        row.latitude = values[0];
        row.longitude = values[1];
      } else {
        row.pose.x = values[0];
        row.pose.y = values[1];
      }
      row.pose.heading = values[2];
    }
  }
  iLast = row;
  ++iRows;
  aRow = row;
  return true;
}

}  // namespace sim
