// Resampling a recorded drive onto the records of a trace: the signals, already in the
// simulator's units, come row by row at their own times; each holds until the next
// row. Every record period (a window) becomes one record: the mean angular rate over
// the window, the distance travelled in it as pulses (the fraction carried on, so no
// distance is lost over a drive), the direction at its end, and the number of rows
// that fell in it. The true pose, where the rows carry one, is interpolated at every
// window's edge: the start, then the end of each record. Nothing is kept per row.
#ifndef SIM_DRIVE_IMPORT_H
#define SIM_DRIVE_IMPORT_H

#include <stdint.h>

#include <deque>
#include <functional>
#include <string>

#include "DriveSource.h"
#include "PathWriter.h"
#include "Truth.h"

namespace sim {

// One row of signals, in the simulator's units and signs.
struct SignalRow {
  double time = 0;      // ms
  double rate = 0;      // deg/s, right turns positive
  double speed = 0;     // m/s, negative when reversing (when the drive gives speed)
  double distance = 0;  // m, cumulative (when the drive gives distance)
  int direction = 0;    // +1 forward, -1 reverse, 0 not given on this row
  bool hasPose = false;
  Pose pose;  // x, y when local; heading always
  double latitude = 0;
  double longitude = 0;
  int line = 0;
};

struct ResampleSetup {
  SourceKind kind = SourceKind::Can;
  uint32_t periodMs = 200;
  bool byDistance = false;     // cumulative distance rather than speed
  bool geographic = false;     // poses in latitude/longitude
  bool hasFirstStamp = false;  // else the first record's stamp is its window's end in the rows' time
  uint64_t firstStamp = 0;
};

class CResampler {
 public:
  using RecordSink = std::function<void(const DriveRecord&)>;
  using TruthSink = std::function<void(const TruthPoint&)>;
  // aTruth may be empty: no truth is made.
  CResampler(const ResampleSetup& aSetup, RecordSink aRecords, TruthSink aTruth);
  // False with "line N: what" when a row cannot be taken (time going back, a value
  // beyond what a record can carry).
  bool Add(const SignalRow& aRow, std::string& aError);
  // The last whole window is the last record; the truth's last poses are made.
  bool Finish(std::string& aError);
  uint64_t Records() const { return iRecords; }
  double Metres() const { return iTotalMetres; }

  // Poses waited for at most: ten minutes of records without a pose is an error.
  static const size_t kMaxPendingPoses = 3000;
  // Rows further apart than this are a gap in the recording, not a value held; a
  // drive longer than the simulator takes is refused as well (ms).
  static constexpr double kLongestGap = 60000;
  static constexpr double kLongestDrive = 14 * 86400000.0;

 private:
  bool CloseWindow(std::string& aError);
  void TakePose(const SignalRow& aRow, bool aFinal);
  double Edge(uint64_t aIndex) const { return iStart + static_cast<double>(aIndex) * iSetup.periodMs; }

  ResampleSetup iSetup;
  RecordSink iRecordSink;
  TruthSink iTruthSink;
  bool iStarted = false;
  double iStart = 0;
  SignalRow iPrevious;
  uint64_t iRecords = 0;  // windows closed
  double iTurn = 0;       // degrees in the open window
  double iMetres = 0;     // in the open window
  uint32_t iRows = 0;     // rows that fell in the open window
  double iPulseRemainder = 0;
  double iTotalMetres = 0;
  bool iReverse = false;
  // The truth: window edges waiting for the pose after them, and the last pose seen.
  std::deque<uint64_t> iPending;
  bool iHaveFix = false;
  SignalRow iFix;
  GeoAnchor iAnchor;
};

}  // namespace sim

#endif  // SIM_DRIVE_IMPORT_H
