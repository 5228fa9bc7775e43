// --plot: angular rate, distance pulses and the synchronised time offset over the
// drive, drawn by gnuplot. The data stream into a private temporary folder while the
// drive runs; gnuplot runs there on a fixed script with fixed file names, so the
// user's file name never becomes part of gnuplot's input, and its picture is copied
// into the output file opened before the run.
#ifndef SIM_DRIVE_PLOT_H
#define SIM_DRIVE_PLOT_H

#include <stdint.h>
#include <stdio.h>

#include <string>

#include "Gnuplot.h"
#include "RunObserver.h"
#include "RunStatistics.h"

namespace sim {

class CDrivePlot : public IRunObserver {
 public:
  // aOutput: the opened output file (stays the caller's); aSvg: SVG rather than PNG.
  CDrivePlot(FILE* aOutput, bool aSvg, SourceKind aKind);
  ~CDrivePlot() override;
  CDrivePlot(const CDrivePlot&) = delete;
  CDrivePlot& operator=(const CDrivePlot&) = delete;
  // Makes the temporary folder; false with the reason.
  bool Open(std::string& aError);
  void OnRecordSent(const SentRecord& aRecord) override;
  void OnOffsetChange(const OffsetPoint& aPoint);
  // Runs gnuplot over what was collected up to aSeconds; false with gnuplot's own
  // words, or the reason it could not run.
  bool Draw(double aSeconds, std::string& aError);

 private:
  FILE* iOutput;
  bool iSvg;
  SourceKind iKind;
  CGnuplotFolder iFolder;
  FILE* iRecords = nullptr;
  FILE* iOffsets = nullptr;
  bool iHaveOffset = false;
  int64_t iLastOffset = 0;
};

}  // namespace sim

#endif  // SIM_DRIVE_PLOT_H
