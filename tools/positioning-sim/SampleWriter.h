// Writes every sample a client receives, as CSV
// (client,sensor_type,time_stamp,value_count,values,replayed) or as JSON lines; the
// README's table gives each column's unit. Optionally fingerprints the bytes written
// and counts the samples per sensor type, for a result folder's summary.
#ifndef SIM_SAMPLE_WRITER_H
#define SIM_SAMPLE_WRITER_H

#include <stdint.h>
#include <stdio.h>

#include <map>
#include <string>

#include "RunObserver.h"
#include "Sha256.h"

namespace sim {

enum class OutputFormat { Csv, Jsonl };

class CSampleWriter : public IRunObserver {
 public:
  // aFile stays the caller's; the CSV header is written at once. With aHash, every byte
  // written is added to it.
  CSampleWriter(FILE* aFile, OutputFormat aFormat, CSha256* aHash = nullptr);
  void OnSample(const DeliveredSample& aSample) override;
  // Samples written per sensor type, over all clients.
  const std::map<uint16_t, uint64_t>& ByType() const { return iByType; }

 private:
  void Put(const char* aText, size_t aSize);

  FILE* iFile;
  OutputFormat iFormat;
  CSha256* iHash;
  std::map<uint16_t, uint64_t> iByType;
  std::string iLine;  // the CSV line being built, reused
};

}  // namespace sim

#endif  // SIM_SAMPLE_WRITER_H
