#include "SampleWriter.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <string>

namespace sim {

namespace {

const char kCsvHeader[] = "client,sensor_type,time_stamp,value_count,values,replayed\n";

// Appends aValue's decimal digits at aAt; answers the end.
template <typename T>
char* Digits(char* aAt, char* aEnd, T aValue) {
  return std::to_chars(aAt, aEnd, aValue).ptr;
}

}  // namespace

CSampleWriter::CSampleWriter(FILE* aFile, OutputFormat aFormat, CSha256* aHash)
    : iFile(aFile), iFormat(aFormat), iHash(aHash) {
  if (iFormat == OutputFormat::Csv) Put(kCsvHeader, sizeof kCsvHeader - 1);
}

void CSampleWriter::Put(const char* aText, size_t aSize) {
  if (iHash != nullptr) iHash->Update(aText, aSize);
  fwrite(aText, 1, aSize, iFile);
}

void CSampleWriter::OnSample(const DeliveredSample& aSample) {
  const host::ReceivedSample& sample = aSample.sample;
  auto counted = iByType.find(sample.type);
  if (counted == iByType.end()) counted = iByType.emplace(sample.type, 0).first;
  ++counted->second;
  if (iFormat == OutputFormat::Csv) {
    // Built in place, in a buffer that only grows: no allocation per sample.
    const size_t longest = aSample.name.size() + 64 + 7 * sample.values.size();
    if (iLine.size() < longest) iLine.resize(longest);
    char* const start = &iLine[0];
    char* const stop = start + iLine.size();
    char* at = std::copy(aSample.name.begin(), aSample.name.end(), start);
    *at++ = ',';
    at = Digits(at, stop, sample.type);
    *at++ = ',';
    at = Digits(at, stop, static_cast<unsigned long long>(sample.timeStamp));
    *at++ = ',';
    at = Digits(at, stop, sample.values.size());
    *at++ = ',';
    for (size_t i = 0; i < sample.values.size(); ++i) {
      if (i > 0) *at++ = ';';
      at = Digits(at, stop, sample.values[i]);
    }
    *at++ = ',';
    *at++ = aSample.replayed ? '1' : '0';
    *at++ = '\n';
    Put(start, static_cast<size_t>(at - start));
    return;
  }
  // Keys in this order, as readers of earlier output expect them.
  nlohmann::ordered_json line;
  line["client"] = aSample.name;
  line["sensor_type"] = sample.type;
  line["time_stamp"] = sample.timeStamp;
  line["value_count"] = sample.values.size();
  line["values"] = sample.values;
  line["replayed"] = aSample.replayed;
  const std::string text = line.dump() + "\n";
  Put(text.data(), text.size());
}

}  // namespace sim
