// The true path of a drive, where it is known, as a stream beside the drive's records:
// the pose before the first record, then the pose after each record. The built-in
// drive knows it (CGeneratedTruth runs a generator of its own with the same seed); an
// imported drive may carry it in a truth file (CTruthReader, written by CTruthWriter).
//
// Truth file: CSV, '#' comments, a header row, then one row per pose, records + 1 rows:
//   time_stamp,x_m,y_m,heading_deg[,latitude_deg,longitude_deg]
// time_stamp in the service's milliseconds; x east and y north in metres; heading
// clockwise from north in degrees; with the last two columns the truth is geographic.
#ifndef SIM_TRUTH_H
#define SIM_TRUTH_H

#include <stdint.h>
#include <stdio.h>

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "CsvText.h"
#include "DeadReckoner.h"
#include "DriveGenerator.h"

namespace sim {

struct TruthPoint {
  uint64_t stamp = 0;
  Pose pose;
  bool geographic = false;
  double latitude = 0;  // degrees, when geographic
  double longitude = 0;
};

class ITruthSource {
 public:
  virtual ~ITruthSource() {}
  // The next pose: the start first, then one per record; false at the end or on a
  // read error (then Error() says why).
  virtual bool Next(TruthPoint& aPoint) = 0;
  virtual const std::string& Error() const = 0;
};

// The built-in drive's true path: its speed and turn rate before the sensors' noise
// and rounding, integrated as the dead reckoning integrates the records.
class CGeneratedTruth : public ITruthSource {
 public:
  CGeneratedTruth(SourceKind aKind, uint64_t aSeed, double aSeconds, uint64_t aFirstStamp);
  bool Next(TruthPoint& aPoint) override;
  const std::string& Error() const override { return iError; }

 private:
  CDriveGenerator iDrive;
  TruthPoint iPoint;
  bool iStarted = false;
  std::string iError;
};

class CTruthReader : public ITruthSource {
 public:
  // Reads the whole file once, checking every row; false with "FILE:LINE: what".
  bool Open(const std::string& aPath, std::string& aError);
  uint64_t Count() const { return iCount; }
  bool Next(TruthPoint& aPoint) override;
  const std::string& Error() const override { return iError; }

 private:
  bool ReadRow(TruthPoint& aPoint);
  std::string Where() const;  // "FILE:LINE: "

  std::string iPath;
  std::ifstream iFile;
  int iLine = 0;
  int iColumns = 0;  // 0 until the header is read
  uint64_t iCount = 0;
  std::string iError;
  std::string iText;                      // the row being read
  std::vector<std::string_view> iFields;  // its fields
};

// Writes a truth file row by row; the header at once.
class CTruthWriter {
 public:
  CTruthWriter(FILE* aFile, bool aGeographic);
  void Write(const TruthPoint& aPoint);

 private:
  FILE* iFile;
  bool iGeographic;
  CLineBuilder iLine;
};

const char* TruthHeader(bool aGeographic);

}  // namespace sim

#endif  // SIM_TRUTH_H
