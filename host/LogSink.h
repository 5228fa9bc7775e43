// Where closed log records go besides the facility's memory: the sink interface and
// the readable text sink (one line per record).
#ifndef HOST_LOG_SINK_H
#define HOST_LOG_SINK_H

#include <stdint.h>
#include <stdio.h>

#include "ContractConstants.h"
#include "LoggedRecord.h"

namespace host {

// Receives every closed record.
class ILogSink {
 public:
  virtual ~ILogSink() {}
  virtual void OnRecord(const LoggedRecord& aRecord) = 0;
  // The categories (contract::kLogMask...) the sink writes: a record in none of its
  // sinks' categories need not be built when nobody else keeps it.
  virtual uint32_t Categories() const { return contract::kLogMaskAll; }
};

// Writes each record whose category is in the mask as one readable line, led by the
// simulated time in milliseconds: the samples' time base, so the two line up.
class CTextLogSink : public ILogSink {
 public:
  // aFile stays the caller's.
  explicit CTextLogSink(FILE* aFile, uint32_t aCategoryMask = contract::kLogMaskAll);
  void OnRecord(const LoggedRecord& aRecord) override;
  uint32_t Categories() const override { return iMask; }

 private:
  FILE* iFile;
  uint32_t iMask;
};

}  // namespace host

#endif  // HOST_LOG_SINK_H
