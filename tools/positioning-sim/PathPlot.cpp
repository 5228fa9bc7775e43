#include "PathPlot.h"

#include <errno.h>
#include <string.h>

namespace sim {

CPathPlot::~CPathPlot() {
  if (iData != nullptr) fclose(iData);
}

bool CPathPlot::Open(std::string& aError) {
  if (!iFolder.Make(aError)) return aError = "path plot: " + aError, false;
  iData = iFolder.Create("path.dat", aError);
  if (iData == nullptr) return aError = "path plot: " + aError, false;
  return true;
}

bool CPathPlot::Draw(const std::string& aTitle, bool aWithTruth, std::string& aError) {
  const bool empty = ftell(iData) == 0;
  const bool written = fclose(iData) == 0;
  iData = nullptr;
  if (!written) return aError = "path plot: writing the data failed: " + std::string(strerror(errno)), false;
  std::string script =
      iSvg ? "set terminal svg size 900,900 dynamic rounded\n" : "set terminal pngcairo size 900,900 rounded\n";
  script +=
      "set output 'plot.out'\n"
      "set title '" +
      aTitle +
      "'\n"
      "set size ratio -1\nset grid\nset key below\n"
      "set xlabel 'east of the start (m)'\nset ylabel 'north of the start (m)'\n";
  // No sample delivered still makes a picture, one that says so.
  if (empty) {
    script += "set label 1 'no sample delivered: no path' at graph 0.4,0.5\nplot [0:1] [0:1] 0 notitle\n";
  } else {
    script += aWithTruth
                  ? "plot 'path.dat' using 3:4 with lines lw 3 lc rgb '#999999' title 'truth', "
                    "'' using 1:2 with lines lw 2 lc rgb '#d62728' title 'dead reckoning on the samples received'\n"
                  : "plot 'path.dat' using 1:2 with lines lw 2 lc rgb '#d62728' title 'dead reckoning on the samples "
                    "received'\n";
  }
  std::string why;
  if (!iFolder.Draw(script, iOutput, why)) return aError = "path plot: " + why, false;
  return true;
}

}  // namespace sim
