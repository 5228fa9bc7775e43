#include "PathWriter.h"

#include <cmath>

namespace sim {

namespace {

const double kEarthRadius = 6371008.8;  // mean radius, metres
const double kDegreesPerRadian = 180.0 / M_PI;

}  // namespace

void LocalToGeo(const GeoAnchor& aAnchor, double aX, double aY, double& aLatitude, double& aLongitude) {
  aLatitude = aAnchor.latitude + (aY - aAnchor.y) / kEarthRadius * kDegreesPerRadian;
  aLongitude = aAnchor.longitude +
               (aX - aAnchor.x) / (kEarthRadius * std::cos(aAnchor.latitude / kDegreesPerRadian)) * kDegreesPerRadian;
}

void GeoToLocal(const GeoAnchor& aAnchor, double aLatitude, double aLongitude, double& aX, double& aY) {
  aY = aAnchor.y + (aLatitude - aAnchor.latitude) / kDegreesPerRadian * kEarthRadius;
  aX = aAnchor.x + (aLongitude - aAnchor.longitude) / kDegreesPerRadian * kEarthRadius *
                       std::cos(aAnchor.latitude / kDegreesPerRadian);
}

CPathWriter::CPathWriter(FILE* aCsv, FILE* aGeoJson, bool aWithTruth) : iCsv(aCsv), iGeoJson(aGeoJson) {
  if (iCsv != nullptr) {
    fprintf(iCsv, "time_stamp_ms,x_m,y_m,heading_deg,distance_m%s\n",
            aWithTruth ? ",truth_x_m,truth_y_m,truth_heading_deg" : "");
  }
  if (iGeoJson != nullptr) {
    fputs(
        "{\"type\":\"FeatureCollection\",\"features\":[{\"type\":\"Feature\","
        "\"properties\":{\"name\":\"dead reckoning\"},\"geometry\":{\"type\":\"LineString\",\"coordinates\":[\n",
        iGeoJson);
  }
}

void CPathWriter::Write(uint64_t aStamp, const Pose& aPose, double aDistance, const Pose* aTruth) {
  if (iCsv != nullptr) {
    iLine.Unsigned(aStamp);
    for (double value : {aPose.x, aPose.y, aPose.heading, aDistance}) {
      iLine.Char(',');
      iLine.Fixed(value, 3);
    }
    if (aTruth != nullptr) {
      for (double value : {aTruth->x, aTruth->y, aTruth->heading}) {
        iLine.Char(',');
        iLine.Fixed(value, 3);
      }
    }
    iLine.WriteTo(iCsv);
  }
  if (iPlot != nullptr) {
    iLine.Fixed(aPose.x, 3);
    iLine.Char(' ');
    iLine.Fixed(aPose.y, 3);
    if (aTruth != nullptr) {
      iLine.Char(' ');
      iLine.Fixed(aTruth->x, 3);
      iLine.Char(' ');
      iLine.Fixed(aTruth->y, 3);
    }
    iLine.WriteTo(iPlot);
  }
  if (iGeoJson != nullptr) {
    double latitude, longitude;
    LocalToGeo(iAnchor, aPose.x, aPose.y, latitude, longitude);
    // 1e-7 degrees: about a centimetre. A position a line.
    iLine.Text(iRows == 0 ? "[" : ",[");
    iLine.Fixed(longitude, 7);
    iLine.Char(',');
    iLine.Fixed(latitude, 7);
    iLine.Char(']');
    iLine.WriteTo(iGeoJson);
  }
  ++iRows;
}

void CPathWriter::Finish() {
  if (iGeoJson != nullptr) fputs("]}}]}\n", iGeoJson);
}

}  // namespace sim
