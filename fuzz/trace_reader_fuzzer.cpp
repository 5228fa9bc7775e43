// Fuzzes the simulator's trace reader with any text: it must refuse a bad trace with
// "NAME:LINE: reason", or stream exactly the records its check counted, every one
// within the wire's ranges, on a peer clock that moves less than half the 32-bit range
// a row, the same on a second pass; a replay window over it must give what it counts.
//
// Input: a flags byte (bit 0: stamps shifted to just before the wrap; bits 1-2: a
// replay window; bits 3-4: loops), then the trace's text.
#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "ReplayWindow.h"
#include "TraceClock.h"
#include "TraceFile.h"

namespace {

using namespace sim;

const int64_t kHalfRange = static_cast<int64_t>(kStampRange / 2);

void CheckRecord(const DriveRecord& aRecord, SourceKind aKind, const CTraceReader& aReader) {
  FUZZ_CHECK(aRecord.stamp <= kLargestStamp);
  FUZZ_CHECK(aRecord.peerTime >= aReader.FirstPeerTime() - kHalfRange * 1000);
  FUZZ_CHECK(aRecord.peerTime <= aReader.LastPeerTime());
  if (aKind == SourceKind::Can) {
    FUZZ_CHECK(aRecord.field[0] >= 0 && aRecord.field[0] <= 65535);
    FUZZ_CHECK(aRecord.field[1] >= -32768 && aRecord.field[1] <= 32767);
    FUZZ_CHECK(aRecord.field[2] >= 0 && aRecord.field[2] <= 0xFFFFFFFFll);
    FUZZ_CHECK(aRecord.field[3] >= 0 && aRecord.field[3] <= 255);
  } else {
    for (int f = 0; f < 4; ++f) FUZZ_CHECK(aRecord.field[f] >= -32768 && aRecord.field[f] <= 32767);
  }
}

// One pass over the reader: every record checked, and what they were.
std::vector<DriveRecord> Pass(CTraceReader& aReader) {
  std::vector<DriveRecord> records;
  DriveRecord record;
  while (aReader.Next(record)) {
    CheckRecord(record, aReader.Kind(), aReader);
    if (!records.empty()) {
      FUZZ_CHECK(record.line > records.back().line);
      const int64_t step = record.peerTime - records.back().peerTime;
      FUZZ_CHECK(step < kHalfRange && step >= -kHalfRange);
    }
    records.push_back(record);
  }
  FUZZ_CHECK_MSG(aReader.Error().empty(), aReader.Error());
  return records;
}

void Window(CTraceReader& aReader, uint8_t aFlags) {
  const double starts[] = {0, 0.5, 2, 0};
  const double ends[] = {-1, 3, -1, 0.2};
  const uint32_t loops = 1 + ((aFlags >> 3) & 3);
  const int which = (aFlags >> 1) & 3;
  FUZZ_CHECK(aReader.Rewind());
  CReplayWindow window(aReader, starts[which], ends[which], loops);
  std::string error;
  if (!window.Open(error)) {
    FUZZ_CHECK(error.find("no record lies in the window") != std::string::npos);
    return;
  }
  uint64_t count = 0;
  DriveRecord record;
  while (window.Next(record)) {
    FUZZ_CHECK(record.stamp <= kLargestStamp);
    FUZZ_CHECK(record.peerTime >= window.FirstPeerTime() && record.peerTime <= window.LastPeerTime());
    ++count;
  }
  FUZZ_CHECK(window.Error().empty());
  FUZZ_CHECK_MSG(count == window.Count(), std::to_string(count) + " of " + std::to_string(window.Count()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
  if (aSize == 0) return 0;
  const uint8_t flags = aData[0];
  const std::string text(reinterpret_cast<const char*>(aData + 1), aSize - 1);
  CTraceReader reader((flags & 1) != 0 ? 4294967000u : 0u);
  std::string error;
  std::unique_ptr<std::istream> stream(new std::istringstream(text));
  if (!reader.Open("t", std::move(stream), error)) {
    // "t:LINE: reason"
    FUZZ_CHECK_MSG(error.compare(0, 2, "t:") == 0 && error.size() > 2, error);
    size_t digits = 2;
    while (digits < error.size() && error[digits] >= '0' && error[digits] <= '9') ++digits;
    FUZZ_CHECK_MSG(digits > 2 && error.compare(digits, 2, ": ") == 0 && error.size() > digits + 2, error);
    return 0;
  }
  FUZZ_CHECK(reader.Count() >= 1);
  FUZZ_CHECK(reader.Contents().warnings.size() <= 2);
  const std::vector<DriveRecord> first = Pass(reader);
  FUZZ_CHECK_MSG(first.size() == reader.Count(),
                 std::to_string(first.size()) + " of " + std::to_string(reader.Count()));
  FUZZ_CHECK(first.front().peerTime == reader.FirstPeerTime());
  FUZZ_CHECK(reader.Rewind());
  const std::vector<DriveRecord> second = Pass(reader);
  FUZZ_CHECK(second.size() == first.size());
  for (size_t i = 0; i < first.size(); ++i) {
    FUZZ_CHECK(second[i].stamp == first[i].stamp && second[i].peerTime == first[i].peerTime);
    for (int f = 0; f < 4; ++f) FUZZ_CHECK(second[i].field[f] == first[i].field[f]);
  }
  Window(reader, flags);
  return 0;
}
