#include "LogSink.h"

#include <inttypes.h>

#include "LoggedRecord.h"

namespace host {

CTextLogSink::CTextLogSink(FILE* aFile, uint32_t aCategoryMask) : iFile(aFile), iMask(aCategoryMask) {}

void CTextLogSink::OnRecord(const LoggedRecord& aRecord) {
  if ((CategoryNumber(aRecord.category) & iMask) == 0) return;
  // A sink has nowhere to report a failed write to; the record stays in the facility.
  (void)fprintf(iFile, "%" PRIu64 " %s\n", aRecord.time, aRecord.Line().c_str());
}

}  // namespace host
