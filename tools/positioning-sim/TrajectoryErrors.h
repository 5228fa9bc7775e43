// How far a dead-reckoned path is from the true one: the end-point error as a share of
// the distance travelled, and the segment errors of the field's odometry benchmark in
// the plane. A segment starts every second of the drive; for each length of 100, 200,
// ..., 800 m it ends at the first pose whose travelled distance exceeds the start's by
// that length. Its error is the relative pose of the estimate against the truth's over
// the segment: translation divided by the length (%), rotation divided by the length
// (deg/m), averaged over all segments.
//
// Only the segments still open are kept (one start a second within the last 800 m);
// a car standing still for hours would open one a second, so at most kMaxOpenStarts
// are kept and starts beyond them are counted and left out.
#ifndef SIM_TRAJECTORY_ERRORS_H
#define SIM_TRAJECTORY_ERRORS_H

#include <stddef.h>
#include <stdint.h>

#include <deque>

#include "DeadReckoner.h"

namespace sim {

struct SegmentFigures {
  static const int kLengths = 8;  // 100 m to 800 m
  uint64_t count[kLengths] = {};
  double translation[kLengths] = {};  // mean %, per length
  double rotation[kLengths] = {};     // mean deg/m, per length
  uint64_t segments = 0;              // all lengths
  double meanTranslation = 0;         // %
  double meanRotation = 0;            // deg/m
  uint64_t startsLeftOut = 0;
};

struct PathFigures {
  uint64_t poses = 0;        // after the start
  double travelled = 0;      // metres along the truth
  double endError = 0;       // metres between the last estimate and the last true pose
  double endErrorShare = 0;  // % of the distance travelled (0 when nothing was travelled)
  SegmentFigures segments;
};

class CTrajectoryErrors {
 public:
  static const size_t kMaxOpenStarts = 4096;
  static const uint64_t kStartEveryMs = 1000;
  static double Length(int aIndex) { return 100.0 * (aIndex + 1); }

  // The poses before the first record, then after each record, with the truth's stamp.
  void Add(uint64_t aStamp, const Pose& aTruth, const Pose& aEstimate);
  PathFigures Figures() const;

  // A segment's start pose, with its heading's sine and cosine: each start is seen
  // from up to eight ends.
  struct Start {
    explicit Start(const Pose& aPose);
    Pose pose;
    double sine;
    double cosine;
  };

 private:
  struct Open {
    Start truth;
    Start estimate;
    double distance;
    int next;  // the first length not yet reached
  };
  void CloseSegments(const Pose& aTruth, const Pose& aEstimate);

  // The starts in the order they were made, oldest first, and for each length the
  // starts waiting for it (by number), in the same order: a start further along
  // reaches a length no earlier than one before it.
  std::deque<Open> iOpen;
  uint64_t iFirstOpen = 0;  // the number of iOpen.front()
  std::deque<uint64_t> iWaiting[SegmentFigures::kLengths];
  double iSum[2][SegmentFigures::kLengths] = {};  // translation, rotation
  uint64_t iCount[SegmentFigures::kLengths] = {};
  uint64_t iStartsLeftOut = 0;
  uint64_t iPoses = 0;
  uint64_t iLastStart = 0;
  double iTravelled = 0;
  Pose iLastTruth;
  Pose iLastEstimate;
};

}  // namespace sim

#endif  // SIM_TRAJECTORY_ERRORS_H
