// Writes one record of the module through the host's logging facility.
//
//   CLogRecord(EInfo, "CPositioning", kFile, 44).Text("Diversity: ").Text(value.c_str());
//
// The constructor asks the control whether the record is wanted, opens it and
// appends "("; each piece goes to the stream slot of its type; the destructor appends
// ")" and the line end and closes the stream when the handle's flag word is 0. The
// pieces are always appended, whatever the control answered: the host decides.
#ifndef POSITIONING_LOG_RECORD_H
#define POSITIONING_LOG_RECORD_H

#include <stdint.h>

#include "Logging.h"

namespace positioning {

// Categories of the module's records.
enum TLogCategory { EError, EInfo, EInfo2, EInterface };

class CLogRecord {
 public:
  CLogRecord(TLogCategory aCategory, const char* aFunction, const char* aFile, int aLine);
  ~CLogRecord();
  CLogRecord(const CLogRecord&) = delete;
  CLogRecord& operator=(const CLogRecord&) = delete;

  CLogRecord& Text(const char* aText) {
    iHandle.iStream->Append(aText);
    return *this;
  }
  CLogRecord& Bool(bool aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  CLogRecord& U8(uint8_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  CLogRecord& I16(int16_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  CLogRecord& U16(uint16_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  CLogRecord& I32(int32_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  CLogRecord& U32(uint32_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  CLogRecord& I64(int64_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  CLogRecord& Pointer(const void* aValue) {
    iHandle.iStream->Append(aValue);
    return *this;
  }

 private:
  logging::internals::CLogHandle iHandle;
};

}  // namespace positioning

#endif  // POSITIONING_LOG_RECORD_H
