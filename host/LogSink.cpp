#include "LogSink.h"

#include "LoggedRecord.h"

namespace host {

CTextLogSink::CTextLogSink(FILE* aFile, uint32_t aCategoryMask) : iFile(aFile), iMask(aCategoryMask) {}

void CTextLogSink::OnRecord(const LoggedRecord& aRecord) {
  if ((CategoryNumber(aRecord.category) & iMask) == 0) return;
  fprintf(iFile, "%s\n", aRecord.Line().c_str());
}

}  // namespace host
