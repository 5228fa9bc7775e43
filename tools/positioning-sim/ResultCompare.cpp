#include "ResultCompare.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>

namespace sim {

namespace {

using Json = nlohmann::ordered_json;

// A file read a line at a time into one buffer that only grows.
class CLineReader {
 public:
  ~CLineReader() {
    free(iLine);
    if (iFile != nullptr) fclose(iFile);
  }
  bool Open(const std::string& aPath, std::string& aError) {
    iPath = aPath;
    iFile = fopen(aPath.c_str(), "r");
    if (iFile == nullptr) aError = aPath + ": " + strerror(errno);
    return iFile != nullptr;
  }
  // The next line without its end; false at the end of the file.
  bool Next() {
    if (iFile == nullptr) return false;
    const ssize_t got = getline(&iLine, &iCapacity, iFile);
    if (got < 0) return false;
    iLength = static_cast<size_t>(got);
    if (iLength > 0 && iLine[iLength - 1] == '\n') --iLength;
    return true;
  }
  bool Failed(std::string& aError) const {
    if (iFile == nullptr || ferror(iFile) == 0) return false;
    aError = iPath + ": reading failed";
    return true;
  }
  bool Same(const CLineReader& aOther) const {
    return iLength == aOther.iLength && memcmp(iLine, aOther.iLine, iLength) == 0;
  }
  std::string Line() const { return std::string(iLine, iLength); }

 private:
  std::string iPath;
  FILE* iFile = nullptr;
  char* iLine = nullptr;
  size_t iCapacity = 0;
  size_t iLength = 0;
};

SampleFields Fields(const std::string& aLine) {
  SampleFields fields;
  fields.present = true;
  fields.line = aLine;
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t comma = aLine.find(',');; comma = aLine.find(',', start)) {
    parts.push_back(aLine.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  if (parts.size() != 6) return fields;  // shown as written
  fields.client = parts[0];
  fields.type = parts[1];
  fields.timeStamp = parts[2];
  fields.values = parts[4];
  fields.replayed = parts[5];
  return fields;
}

bool ReadJson(const std::string& aPath, Json& aJson, std::string& aError) {
  std::ifstream file(aPath);
  if (!file) return aError = aPath + ": " + strerror(errno), false;
  aJson = Json::parse(file, nullptr, false);
  if (aJson.is_discarded() || !aJson.is_object()) return aError = aPath + ": not a summary (JSON object)", false;
  return true;
}

void Flatten(const std::string& aName, const Json& aFirst, const Json* aSecond, std::vector<MovedFigure>& aMoved) {
  if (aFirst.is_object() && aSecond != nullptr && aSecond->is_object()) {
    for (auto item = aFirst.begin(); item != aFirst.end(); ++item) {
      const std::string name = aName.empty() ? item.key() : aName + "." + item.key();
      const auto other = aSecond->find(item.key());
      Flatten(name, item.value(), other == aSecond->end() ? nullptr : &*other, aMoved);
    }
    for (auto item = aSecond->begin(); item != aSecond->end(); ++item) {
      if (aFirst.find(item.key()) == aFirst.end())
        aMoved.push_back({aName.empty() ? item.key() : aName + "." + item.key(), Json(), item.value()});
    }
    return;
  }
  if (aFirst.is_array() && aSecond != nullptr && aSecond->is_array() && aFirst.size() == aSecond->size()) {
    for (size_t i = 0; i < aFirst.size(); ++i)
      Flatten(aName + "[" + std::to_string(i) + "]", aFirst[i], &(*aSecond)[i], aMoved);
    return;
  }
  if (aSecond != nullptr && aFirst == *aSecond) return;
  MovedFigure moved{aName, aFirst, aSecond != nullptr ? *aSecond : Json()};
  if (aFirst.is_number() && aSecond != nullptr && aSecond->is_number()) {
    moved.numeric = true;
    moved.change = aSecond->get<double>() - aFirst.get<double>();
  }
  aMoved.push_back(moved);
}

}  // namespace

std::vector<MovedFigure> MovedFigures(const Json& aFirst, const Json& aSecond) {
  Json first = aFirst, second = aSecond;
  first.erase("samples_sha256");
  second.erase("samples_sha256");
  std::vector<MovedFigure> moved;
  Flatten("", first, &second, moved);
  return moved;
}

bool CompareDrive(const std::string& aFirst, const std::string& aSecond, DriveComparison& aResult,
                  std::string& aError) {
  Json first, second;
  if (!ReadJson(aFirst + "/summary.json", first, aError) || !ReadJson(aSecond + "/summary.json", second, aError))
    return false;
  aResult.moved = MovedFigures(first, second);
  CLineReader a, b;
  if (!a.Open(aFirst + "/samples.csv", aError) || !b.Open(aSecond + "/samples.csv", aError)) return false;
  // The header line, then one sample a line: position n is the n-th sample.
  a.Next();
  b.Next();
  uint64_t position = 0;
  bool moreA = false, moreB = false;
  for (moreA = a.Next(), moreB = b.Next(); moreA || moreB; moreA = moreA && a.Next(), moreB = moreB && b.Next()) {
    ++position;
    aResult.firstSamples += moreA ? 1 : 0;
    aResult.secondSamples += moreB ? 1 : 0;
    if (moreA && moreB && a.Same(b)) continue;
    ++aResult.differing;
    if (aResult.firstDifference != 0) continue;
    aResult.firstDifference = position;
    if (moreA) aResult.first = Fields(a.Line());
    if (moreB) aResult.second = Fields(b.Line());
  }
  aResult.samplesIdentical = aResult.differing == 0;
  return !a.Failed(aError) && !b.Failed(aError);
}

}  // namespace sim
