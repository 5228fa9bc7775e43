#include "TraceHeader.h"

#include <ctype.h>

#include "NumberParse.h"

namespace sim {

namespace {

std::string Trim(const std::string& aText) {
  const size_t begin = aText.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return std::string();
  return aText.substr(begin, aText.find_last_not_of(" \t\r") - begin + 1);
}

std::string Lower(std::string aText) {
  for (char& c : aText) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return aText;
}

std::string Expected() {
  return std::string("expected \"") + TraceHeader(SourceKind::Can) + "\" or \"" + TraceHeader(SourceKind::External) +
         "\"";
}

// What differs between aNames and the kind's columns, naming each column.
std::string Differences(const std::vector<std::string>& aNames, SourceKind aKind) {
  const std::vector<std::string>& columns = TraceColumns(aKind);
  std::vector<std::string> problems;
  std::vector<bool> used(aNames.size(), false);
  for (const std::string& column : columns) {
    bool found = false;
    for (size_t i = 0; i < aNames.size() && !found; ++i) {
      if (used[i] || Lower(aNames[i]) != Lower(column)) continue;
      used[i] = found = true;
      if (aNames[i] != column) problems.push_back("column '" + aNames[i] + "' must be written '" + column + "'");
    }
    if (!found) problems.push_back("missing column " + column);
  }
  for (size_t i = 0; i < aNames.size(); ++i) {
    if (!used[i]) problems.push_back("extra column '" + aNames[i] + "'");
  }
  if (problems.empty()) problems.push_back("columns out of order");
  std::string text;
  for (const std::string& problem : problems) text += (text.empty() ? "" : ", ") + problem;
  return text + " (" + SourceName(aKind) + " trace: \"" + TraceHeader(aKind) + "\")";
}

}  // namespace

const std::vector<std::string>& TraceColumns(SourceKind aKind) {
  static const std::vector<std::string> can = {"TimeStamp", "DistancePuls", "AngularRate", "DrivingDirection",
                                               "NrOfSamples"};
  static const std::vector<std::string> external = {"timeStamp", "value0", "value1", "value2", "value3"};
  return aKind == SourceKind::Can ? can : external;
}

std::vector<std::string> SplitRow(const std::string& aLine) {
  std::vector<std::string> fields(1);
  for (char c : aLine) {
    if (c == ',') {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

bool ReadTraceHeader(const std::string& aLine, SourceKind& aKind, std::string& aWhy) {
  if (aLine.compare(0, 3, "\xEF\xBB\xBF") == 0)
    return aWhy = "the file starts with a UTF-8 byte order mark: save it without one", false;
  std::vector<std::string> names = SplitRow(aLine);
  for (std::string& name : names) name = Trim(name);
  if (names == TraceColumns(SourceKind::Can)) return aKind = SourceKind::Can, true;
  if (names == TraceColumns(SourceKind::External)) return aKind = SourceKind::External, true;
  // The kind it resembles most, by the columns it names in any case.
  int score[2] = {0, 0};
  for (int kind = 0; kind < 2; ++kind) {
    for (const std::string& column : TraceColumns(kind == 0 ? SourceKind::Can : SourceKind::External)) {
      for (const std::string& name : names) score[kind] += Lower(name) == Lower(column) ? 1 : 0;
    }
  }
  if (score[0] == 0 && score[1] == 0) {
    int64_t number = 0;
    std::string why;
    const bool data = ParseInteger(names[0], INT64_MIN, INT64_MAX, number, why);
    aWhy = std::string("missing header: ") + (data ? "the first row is data; " : "") + Expected();
    return false;
  }
  aWhy = "header: " + Differences(names, score[0] >= score[1] ? SourceKind::Can : SourceKind::External);
  return false;
}

}  // namespace sim
