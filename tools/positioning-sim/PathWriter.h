// The dead-reckoned path, written as it grows: CSV (one row per record, with the true
// pose beside it when known) and GeoJSON (one LineString in longitude/latitude, about
// an origin given or taken from a geographic truth). Nothing is kept per row.
//
// CSV columns: time_stamp_ms (the module's synchronised time of the record), x_m, y_m
// (east, north of the start), heading_deg (clockwise from north), distance_m (along
// the path, either way), and with a truth truth_x_m, truth_y_m, truth_heading_deg.
#ifndef SIM_PATH_WRITER_H
#define SIM_PATH_WRITER_H

#include <stdint.h>
#include <stdio.h>

#include "CsvText.h"
#include "DeadReckoner.h"

namespace sim {

// Ties the local plane to the earth: local (x, y) is at (latitude, longitude). Over a
// drive's extent the plane is the tangent plane at the anchor (equirectangular).
struct GeoAnchor {
  double x = 0;
  double y = 0;
  double latitude = 0;
  double longitude = 0;
};
void LocalToGeo(const GeoAnchor& aAnchor, double aX, double aY, double& aLatitude, double& aLongitude);
void GeoToLocal(const GeoAnchor& aAnchor, double aLatitude, double aLongitude, double& aX, double& aY);

class CPathWriter {
 public:
  // Either file may be null; both stay the caller's. aWithTruth: the CSV has the
  // truth's columns.
  CPathWriter(FILE* aCsv, FILE* aGeoJson, bool aWithTruth);
  void SetAnchor(const GeoAnchor& aAnchor) { iAnchor = aAnchor; }
  // The path plot's points, "x y [truth_x truth_y]"; the file stays the caller's.
  void SetPlotData(FILE* aFile) { iPlot = aFile; }
  void Write(uint64_t aStamp, const Pose& aPose, double aDistance, const Pose* aTruth);
  // Closes the GeoJSON document; the files are then the caller's to close.
  void Finish();

 private:
  FILE* iCsv;
  FILE* iGeoJson;
  FILE* iPlot = nullptr;
  GeoAnchor iAnchor;
  uint64_t iRows = 0;
  CLineBuilder iLine;
};

}  // namespace sim

#endif  // SIM_PATH_WRITER_H
