#include "SampleWriter.h"

#include <nlohmann/json.hpp>

namespace sim {

CSampleWriter::CSampleWriter(FILE* aFile, OutputFormat aFormat) : iFile(aFile), iFormat(aFormat) {
  if (iFormat == OutputFormat::Csv) fputs("client,sensor_type,time_stamp,value_count,values,replayed\n", iFile);
}

void CSampleWriter::OnSample(const DeliveredSample& aSample) {
  const host::ReceivedSample& sample = aSample.sample;
  if (iFormat == OutputFormat::Csv) {
    fprintf(iFile, "%s,%u,%llu,%zu,", aSample.name.c_str(), sample.type,
            static_cast<unsigned long long>(sample.timeStamp), sample.values.size());
    for (size_t i = 0; i < sample.values.size(); ++i) fprintf(iFile, i == 0 ? "%d" : ";%d", sample.values[i]);
    fputs(aSample.replayed ? ",1\n" : ",0\n", iFile);
    return;
  }
  // Keys in this order, as readers of earlier output expect them.
  nlohmann::ordered_json line;
  line["client"] = aSample.name;
  line["sensor_type"] = sample.type;
  line["time_stamp"] = sample.timeStamp;
  line["value_count"] = sample.values.size();
  line["values"] = sample.values;
  line["replayed"] = aSample.replayed;
  fputs(line.dump().c_str(), iFile);
  fputc('\n', iFile);
}

}  // namespace sim
