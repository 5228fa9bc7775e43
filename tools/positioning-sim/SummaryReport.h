// The summary of a run: as text for people (standard error) and as JSON.
#ifndef SIM_SUMMARY_REPORT_H
#define SIM_SUMMARY_REPORT_H

#include <stdio.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "RunStatistics.h"
#include "SoakCheck.h"

namespace sim {

struct Summary {
  std::string source;
  std::string drive;
  RunFigures figures;
  uint64_t supervisionMessages = 0;
  double simulatedSeconds = 0;
  double wallSeconds = 0;
  int interruptedBy = 0;                                     // the signal that ended the run early, 0 when none
  const SoakSummary* soak = nullptr;                         // with --soak
  std::string noSource;                                      // why nothing could be fed, when nothing could
  std::vector<std::pair<std::string, std::string>> outputs;  // what went where
};

void PrintSummary(FILE* aFile, const Summary& aSummary);
nlohmann::ordered_json SummaryJson(const Summary& aSummary);

}  // namespace sim

#endif  // SIM_SUMMARY_REPORT_H
