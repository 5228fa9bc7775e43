#include "Truth.h"

#include <charconv>
#include <cmath>
#include <vector>

#include "CsvText.h"
#include "NumberParse.h"

namespace sim {

namespace {

const double kRadiansPerDegree = M_PI / 180.0;

const char* const kNames[] = {"time_stamp", "x_m", "y_m", "heading_deg", "latitude_deg", "longitude_deg"};
const double kLow[] = {0, -1e9, -1e9, -1e6, -90, -180};
const double kHigh[] = {0, 1e9, 1e9, 1e6, 90, 180};

}  // namespace

const char* TruthHeader(bool aGeographic) {
  return aGeographic ? "time_stamp,x_m,y_m,heading_deg,latitude_deg,longitude_deg" : "time_stamp,x_m,y_m,heading_deg";
}

CGeneratedTruth::CGeneratedTruth(SourceKind aKind, uint64_t aSeed, double aSeconds, uint64_t aFirstStamp)
    : iDrive(aKind, aSeed, aSeconds, static_cast<int64_t>(aFirstStamp)) {
  iPoint.stamp = aFirstStamp - kRecordPeriod;
}

bool CGeneratedTruth::Next(TruthPoint& aPoint) {
  if (!iStarted) {
    iStarted = true;
    aPoint = iPoint;
    return true;
  }
  DriveRecord record;
  if (!iDrive.Next(record)) return false;
  // The record's span at its speed and turn rate, along the heading in the middle of
  // the turn.
  const double seconds = kRecordPeriod / 1000.0;
  const double turn = iDrive.TrueTurnRate() * seconds;
  const double along = (iPoint.pose.heading + turn / 2) * kRadiansPerDegree;
  const double metres = iDrive.TrueSpeed() * seconds;
  iPoint.pose.x += metres * std::sin(along);
  iPoint.pose.y += metres * std::cos(along);
  iPoint.pose.heading = NormalisedHeading(iPoint.pose.heading + turn);
  iPoint.stamp = static_cast<uint64_t>(record.peerTime);  // continuous across wraps
  aPoint = iPoint;
  return true;
}

std::string CTruthReader::Where() const { return iPath + ":" + std::to_string(iLine) + ": "; }

bool CTruthReader::ReadRow(TruthPoint& aPoint) {
  std::string& line = iText;
  while (std::getline(iFile, line)) {
    ++iLine;
    const std::string_view trimmed = TrimmedView(line);
    if (trimmed.empty() || trimmed[0] == '#') continue;
    if (iColumns == 0) {
      std::string compact;
      for (char c : trimmed) {
        if (c != ' ' && c != '\t') compact += c;
      }
      if (compact == TruthHeader(false)) {
        iColumns = 4;
      } else if (compact == TruthHeader(true)) {
        iColumns = 6;
      } else {
        iError =
            Where() + "not a truth header: expected \"" + TruthHeader(false) + "\" or \"" + TruthHeader(true) + "\"";
        return false;
      }
      continue;
    }
    std::vector<std::string_view>& fields = iFields;
    SplitFields(line, fields);
    if (static_cast<int>(fields.size()) != iColumns) {
      iError = Where() + "expected " + std::to_string(iColumns) + " columns, found " + std::to_string(fields.size());
      return false;
    }
    aPoint = TruthPoint();
    std::string why;
    // The common case straight from the row; anything else through the one parser,
    // for its verdict and its words.
    const std::string_view stamp = fields[0];
    const auto parsed = std::from_chars(stamp.data(), stamp.data() + stamp.size(), aPoint.stamp);
    if ((parsed.ec != std::errc() || parsed.ptr != stamp.data() + stamp.size() ||
         aPoint.stamp > 0x7FFFFFFFFFFFFFFFULL) &&
        !ParseUnsigned(std::string(stamp), 0x7FFFFFFFFFFFFFFFULL, aPoint.stamp, why)) {
      iError = Where() + kNames[0] + ": " + why;
      return false;
    }
    double values[6] = {0, 0, 0, 0, 0, 0};
    for (int f = 1; f < iColumns; ++f) {
      if (QuickReal(fields[f], 1e300, values[f]) && values[f] >= kLow[f] && values[f] <= kHigh[f]) continue;
      if (!ParseReal(std::string(fields[f]), kLow[f], kHigh[f], values[f], why)) {
        iError = Where() + kNames[f] + ": " + why;
        return false;
      }
    }
    aPoint.pose.x = values[1];
    aPoint.pose.y = values[2];
    aPoint.pose.heading = NormalisedHeading(values[3]);
    aPoint.geographic = iColumns == 6;
    aPoint.latitude = values[4];
    aPoint.longitude = values[5];
    return true;
  }
  if (iFile.bad()) iError = iPath + ": cannot read the truth file";
  return false;
}

bool CTruthReader::Open(const std::string& aPath, std::string& aError) {
  iPath = aPath;
  iFile.open(aPath);
  if (!iFile) return aError = aPath + ": cannot open the truth file", false;
  TruthPoint point;
  while (ReadRow(point)) ++iCount;
  if (!iError.empty()) return aError = iError, false;
  if (iColumns == 0) return aError = aPath + ": not a truth file: no header row", false;
  iFile.clear();
  iFile.seekg(0);
  iLine = 0;
  iColumns = 0;
  return true;
}

bool CTruthReader::Next(TruthPoint& aPoint) { return iError.empty() && ReadRow(aPoint); }

CTruthWriter::CTruthWriter(FILE* aFile, bool aGeographic) : iFile(aFile), iGeographic(aGeographic) {
  fputs("# positioning-sim truth: the pose before the first record, then after every record\n", iFile);
  fprintf(iFile, "%s\n", TruthHeader(aGeographic));
}

void CTruthWriter::Write(const TruthPoint& aPoint) {
  iLine.Unsigned(aPoint.stamp);
  iLine.Char(',');
  iLine.Fixed(aPoint.pose.x, 3);
  iLine.Char(',');
  iLine.Fixed(aPoint.pose.y, 3);
  iLine.Char(',');
  iLine.Fixed(aPoint.pose.heading, 4);
  if (iGeographic) {
    iLine.Char(',');
    iLine.Fixed(aPoint.latitude, 9);
    iLine.Char(',');
    iLine.Fixed(aPoint.longitude, 9);
  }
  iLine.WriteTo(iFile);
}

}  // namespace sim
