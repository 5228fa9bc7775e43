// Fuzzes the import of a recorded drive: the signal table and the resampling, with
// any text as the CSV and any choice of columns, units and record period. Besides not
// crashing or hanging, whatever is imported must be a valid trace: stamps one period
// apart, every field within what its record carries, no distance lost (the pulses
// written are the metres resampled, to under a pulse), and a truth of one pose more
// than the records.
//
// Input: one byte of choices (bit 0 distance rather than speed, 1 a pose, 2 the pose
// in latitude/longitude, 3 the external source, 4 a direction column, 5 the pose's
// heading counter-clockwise from east, 6 time in ms rather than s, 7 a first stamp
// given), one byte for the period (10 + 2 * b ms), then the CSV text. Its header may
// name columns t, r, v, d, g, x, y, h.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <cmath>
#include <sstream>
#include <string>

#include "DriveImport.h"
#include "SignalTable.h"

namespace {

using namespace sim;

void Fail(const char* aWhat, uint64_t aRecord) {
  fprintf(stderr, "drive_import_fuzzer: record %llu: %s\n", static_cast<unsigned long long>(aRecord), aWhat);
  abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
  if (aSize < 2) return 0;
  const uint8_t choices = aData[0];
  ImportColumns columns;
  columns.time = {"t", choices & 0x40 ? 1.0 : 1000.0, 0};
  columns.rate = {"r", -1, 0};
  if (choices & 0x01) {
    columns.distance = {"d", 1, 0};
  } else {
    columns.speed = {"v", 1 / 3.6, 0};
  }
  if (choices & 0x10) columns.direction = "g";
  const bool pose = choices & 0x02;
  if (pose) {
    if (choices & 0x04) {
      columns.latitude = {"x", 1, 0};
      columns.longitude = {"y", 1, 0};
    } else {
      columns.x = {"x", 1, 0};
      columns.y = {"y", 1, 0};
    }
    columns.heading = choices & 0x20 ? ColumnSpec{"h", -1, 90} : ColumnSpec{"h", 1, 0};
  }
  ResampleSetup setup;
  setup.kind = choices & 0x08 ? SourceKind::External : SourceKind::Can;
  setup.periodMs = 10 + 2 * aData[1];
  setup.byDistance = choices & 0x01;
  setup.geographic = pose && (choices & 0x04);
  setup.hasFirstStamp = choices & 0x80;
  setup.firstStamp = 97600;

  std::istringstream text(std::string(reinterpret_cast<const char*>(aData + 2), aSize - 2));
  CSignalTable table;
  std::string error;
  if (!table.Open(text, "input", columns, error)) return 0;

  uint64_t records = 0;
  uint64_t poses = 0;
  uint64_t firstStamp = 0;
  double pulses = 0;
  const bool can = setup.kind == SourceKind::Can;
  CResampler resampler(
      setup,
      [&](const DriveRecord& aRecord) {
        if (records == 0) firstStamp = aRecord.stamp;
        if (aRecord.stamp != firstStamp + records * setup.periodMs) Fail("stamp not one period on", records);
        const int64_t* field = aRecord.field;
        const int64_t distance = can ? field[0] : field[2];
        const int64_t rate = field[1];
        const int64_t direction = can ? field[2] : field[3];
        const int64_t samples = can ? field[3] : field[0];
        if (distance < 0 || distance > (can ? 65535 : 32767)) Fail("pulses out of range", records);
        if (rate < -32767 || rate > 32767) Fail("rate out of range", records);
        if (can ? direction != 0x21 && direction != 0x25 : direction != 1 && direction != 2)
          Fail("direction code", records);
        if (samples < 0 || samples > 255) Fail("samples out of range", records);
        pulses += static_cast<double>(distance);
        ++records;
      },
      pose ? CResampler::TruthSink([&](const TruthPoint& aPoint) {
        if (!std::isfinite(aPoint.pose.x) || !std::isfinite(aPoint.pose.y) || aPoint.pose.heading < 0 ||
            aPoint.pose.heading >= 360)
          Fail("truth pose not finite or heading out of [0, 360)", poses);
        if (aPoint.stamp + setup.periodMs != firstStamp + poses * setup.periodMs && records > 0)
          Fail("truth stamp not at the record's edge", poses);
        ++poses;
      })
           : CResampler::TruthSink());
  SignalRow row;
  bool ok = true;
  while (ok && table.Next(row, error)) ok = resampler.Add(row, error);
  if (!ok || !error.empty() || !resampler.Finish(error)) return 0;
  if (records != resampler.Records()) Fail("records counted apart", records);
  // Every metre resampled is in the pulses, but for the last fraction of a pulse.
  const double metres = resampler.Metres();
  if (std::isfinite(metres) && std::fabs(metres * 4 - pulses) > 1 + 1e-9 * metres * 4) Fail("distance lost", records);
  if (pose && poses != records + 1) Fail("truth is not one pose more than the records", records);
  return 0;
}
