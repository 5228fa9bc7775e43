// Writes every sample a client receives, as CSV
// (client,sensor_type,time_stamp,value_count,values,replayed) or as JSON lines; the
// README's table gives each column's unit.
#ifndef SIM_SAMPLE_WRITER_H
#define SIM_SAMPLE_WRITER_H

#include <stdio.h>

#include "RunObserver.h"

namespace sim {

enum class OutputFormat { Csv, Jsonl };

class CSampleWriter : public IRunObserver {
 public:
  // aFile stays the caller's; the CSV header is written at once.
  CSampleWriter(FILE* aFile, OutputFormat aFormat);
  void OnSample(const DeliveredSample& aSample) override;

 private:
  FILE* iFile;
  OutputFormat iFormat;
};

}  // namespace sim

#endif  // SIM_SAMPLE_WRITER_H
