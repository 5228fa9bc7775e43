// What positioning-sim writes besides the samples: the summary, its JSON form, the plot.
#ifndef SIM_REPORT_H
#define SIM_REPORT_H

#include <stdio.h>

#include <string>
#include <vector>

#include "SimulatedPeers.h"
#include "Simulation.h"

namespace sim {

// Writes samples as CSV (client,sensor_type,time_stamp,value_count,values) or JSON lines.
class CSampleWriter : public ISampleWriter {
 public:
  // aFile stays the caller's.
  CSampleWriter(FILE* aFile, OutputFormat aFormat);
  void Write(const std::string& aClient, const host::ReceivedSample& aSample, bool aReplayed) override;

 private:
  FILE* iFile;
  OutputFormat iFormat;
};

// The human-readable summary.
void PrintSummary(FILE* aFile, const Summary& aSummary);
// The summary as one JSON object.
bool WriteSummaryJson(const std::string& aPath, const Summary& aSummary, std::string& aError);
// Draws angular rate, distance pulses and the sync offset over time with gnuplot.
bool WritePlot(const std::string& aPath, const std::vector<PlotPoint>& aPoints,
               const std::vector<OffsetPoint>& aOffsets, double aSeconds, std::string& aError);

}  // namespace sim

#endif  // SIM_REPORT_H
