#include "DrivePlot.h"

#include <errno.h>
#include <string.h>

namespace sim {

CDrivePlot::CDrivePlot(FILE* aOutput, bool aSvg, SourceKind aKind) : iOutput(aOutput), iSvg(aSvg), iKind(aKind) {}

// The folder removes itself and what was made in it after the files are closed.
CDrivePlot::~CDrivePlot() {
  if (iRecords != nullptr) fclose(iRecords);
  if (iOffsets != nullptr) fclose(iOffsets);
}

bool CDrivePlot::Open(std::string& aError) {
  if (!iFolder.Make(aError) || (iRecords = iFolder.Create("records.dat", aError)) == nullptr ||
      (iOffsets = iFolder.Create("offsets.dat", aError)) == nullptr) {
    aError = "plot: " + aError;
    return false;
  }
  return true;
}

void CDrivePlot::OnRecordSent(const SentRecord& aRecord) {
  const int64_t* field = aRecord.record.field;
  fprintf(iRecords, "%g %lld %lld\n", SecondsAt(aRecord.now), static_cast<long long>(field[1]),
          static_cast<long long>(iKind == SourceKind::Can ? field[0] : field[2]));
}

void CDrivePlot::OnOffsetChange(const OffsetPoint& aPoint) {
  fprintf(iOffsets, "%g %lld\n", aPoint.seconds, static_cast<long long>(aPoint.offset));
  iHaveOffset = true;
  iLastOffset = aPoint.offset;
}

bool CDrivePlot::Draw(double aSeconds, std::string& aError) {
  // A step line from each change to the next, and on to the end.
  if (iHaveOffset) fprintf(iOffsets, "%g %lld\n", aSeconds, static_cast<long long>(iLastOffset));
  const bool dataWritten = fclose(iRecords) == 0 && fclose(iOffsets) == 0;
  iRecords = iOffsets = nullptr;
  if (!dataWritten) return aError = "plot: writing the data failed: " + std::string(strerror(errno)), false;

  std::string script = iSvg ? "set terminal svg size 1000,900 dynamic\n" : "set terminal pngcairo size 1000,900\n";
  char range[64];
  snprintf(range, sizeof range, "set grid\nset xrange [0:%g]\n", aSeconds);
  script +=
      "set output 'plot.out'\n"
      "set multiplot layout 3,1 title 'positioning-sim drive'\n";
  script += range;
  script +=
      "set xlabel 'time since feature start (s)'\n"
      "set ylabel 'angular rate (as sent; built-in: 1/100 deg/s)'\n"
      "plot 'records.dat' using 1:2 with lines title 'angular rate'\n"
      "set ylabel 'distance pulses per record (pulses)'\n"
      "plot 'records.dat' using 1:3 with steps title 'distance pulses'\n"
      "set ylabel 'sync offset (ms)'\n";
  script += iHaveOffset
                ? "plot 'offsets.dat' using 1:2 with steps title 'module time minus service time'\n"
                : "set label 1 'no sample delivered: no offset seen' at graph 0.4,0.5\nplot 0 notitle with lines\n";
  script += "unset multiplot\n";
  if (!iFolder.Draw(script, iOutput, aError)) {
    aError = "plot: " + aError;
    return false;
  }
  return true;
}

}  // namespace sim
