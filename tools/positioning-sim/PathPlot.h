// --path-plot: the dead-reckoned path against the truth, east against north in metres
// at one scale, drawn by gnuplot. The points stream into the plot's private folder
// while the drive runs (written by the path writer), so nothing is kept per record.
#ifndef SIM_PATH_PLOT_H
#define SIM_PATH_PLOT_H

#include <stdio.h>

#include <string>

#include "Gnuplot.h"

namespace sim {

class CPathPlot {
 public:
  // aOutput: the opened output file (stays the caller's); aSvg: SVG rather than PNG.
  CPathPlot(FILE* aOutput, bool aSvg) : iOutput(aOutput), iSvg(aSvg) {}
  ~CPathPlot();
  // Makes the folder and the data file; false with the reason.
  bool Open(std::string& aError);
  // Where the path writer puts the points: "x y [truth_x truth_y]" a line.
  FILE* Data() { return iData; }
  // aTitle is the simulator's own text (figures), never the user's.
  bool Draw(const std::string& aTitle, bool aWithTruth, std::string& aError);

 private:
  FILE* iOutput;
  bool iSvg;
  CGnuplotFolder iFolder;
  FILE* iData = nullptr;
};

}  // namespace sim

#endif  // SIM_PATH_PLOT_H
