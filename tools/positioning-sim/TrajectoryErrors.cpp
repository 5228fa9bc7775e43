#include "TrajectoryErrors.h"

#include <cmath>

namespace sim {

namespace {

const double kRadiansPerDegree = M_PI / 180.0;

}  // namespace

CTrajectoryErrors::Start::Start(const Pose& aPose) : pose(aPose) {
  const double heading = aPose.heading * kRadiansPerDegree;
  sine = std::sin(heading);
  cosine = std::cos(heading);
}

namespace {

// Where aTo lies seen from aFrom: metres ahead and to the right.
void Relative(const CTrajectoryErrors::Start& aFrom, const Pose& aTo, double& aAhead, double& aRight) {
  const double dx = aTo.x - aFrom.pose.x;
  const double dy = aTo.y - aFrom.pose.y;
  aAhead = dx * aFrom.sine + dy * aFrom.cosine;
  aRight = dx * aFrom.cosine - dy * aFrom.sine;
}

// A heading difference in (-180, 180].
double Turned(double aFrom, double aTo) {
  double turned = std::fmod(aTo - aFrom, 360.0);
  if (turned > 180) turned -= 360;
  if (turned <= -180) turned += 360;
  return turned;
}

}  // namespace

void CTrajectoryErrors::Add(uint64_t aStamp, const Pose& aTruth, const Pose& aEstimate) {
  if (iPoses > 0) iTravelled += std::hypot(aTruth.x - iLastTruth.x, aTruth.y - iLastTruth.y);
  CloseSegments(aTruth, aEstimate);
  if (iPoses == 0 || aStamp >= iLastStart + kStartEveryMs || aStamp < iLastStart) {
    iLastStart = aStamp;
    if (iOpen.size() < kMaxOpenStarts) {
      iOpen.push_back({Start(aTruth), Start(aEstimate), iTravelled, 0});
      iWaiting[0].push_back(iFirstOpen + iOpen.size() - 1);
    } else {
      ++iStartsLeftOut;
    }
  }
  iLastTruth = aTruth;
  iLastEstimate = aEstimate;
  ++iPoses;
}

// The relative motion over each segment that ends here, the estimate's against the
// truth's: the error's translation is the distance between the two end points seen
// from their starts, its rotation the difference of the two turns.
void CTrajectoryErrors::CloseSegments(const Pose& aTruth, const Pose& aEstimate) {
  for (int length = 0; length < SegmentFigures::kLengths; ++length) {
    std::deque<uint64_t>& waiting = iWaiting[length];
    while (!waiting.empty()) {
      Open& open = iOpen[waiting.front() - iFirstOpen];
      if (iTravelled <= open.distance + Length(length)) break;
      double trueAhead, trueRight, estimatedAhead, estimatedRight;
      Relative(open.truth, aTruth, trueAhead, trueRight);
      Relative(open.estimate, aEstimate, estimatedAhead, estimatedRight);
      const double translation = std::hypot(trueAhead - estimatedAhead, trueRight - estimatedRight);
      const double rotation = std::fabs(Turned(Turned(open.truth.pose.heading, aTruth.heading),
                                               Turned(open.estimate.pose.heading, aEstimate.heading)));
      iSum[0][length] += translation / Length(length) * 100.0;
      iSum[1][length] += rotation / Length(length);
      ++iCount[length];
      open.next = length + 1;
      if (length + 1 < SegmentFigures::kLengths) iWaiting[length + 1].push_back(waiting.front());
      waiting.pop_front();
    }
  }
  while (!iOpen.empty() && iOpen.front().next == SegmentFigures::kLengths) {
    iOpen.pop_front();
    ++iFirstOpen;
  }
}

PathFigures CTrajectoryErrors::Figures() const {
  PathFigures figures;
  figures.poses = iPoses > 0 ? iPoses - 1 : 0;
  figures.travelled = iTravelled;
  figures.endError = std::hypot(iLastEstimate.x - iLastTruth.x, iLastEstimate.y - iLastTruth.y);
  figures.endErrorShare = iTravelled > 0 ? figures.endError / iTravelled * 100.0 : 0;
  SegmentFigures& segments = figures.segments;
  double translation = 0;
  double rotation = 0;
  for (int i = 0; i < SegmentFigures::kLengths; ++i) {
    segments.count[i] = iCount[i];
    if (iCount[i] == 0) continue;
    segments.translation[i] = iSum[0][i] / static_cast<double>(iCount[i]);
    segments.rotation[i] = iSum[1][i] / static_cast<double>(iCount[i]);
    segments.segments += iCount[i];
    translation += iSum[0][i];
    rotation += iSum[1][i];
  }
  if (segments.segments > 0) {
    segments.meanTranslation = translation / static_cast<double>(segments.segments);
    segments.meanRotation = rotation / static_cast<double>(segments.segments);
  }
  segments.startsLeftOut = iStartsLeftOut;
  return figures;
}

}  // namespace sim
