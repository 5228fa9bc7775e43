// Writes one record of the module through the host's logging facility.
//
//   CLogRecord(EInfo, "CPositioning", kFile, 44).Text("Diversity: ").Text(value.c_str());
//
// The constructor asks the control whether the record is wanted, opens it and
// appends "("; each piece goes to the stream slot of its type; the destructor appends
// ")" and the line end and closes the stream when the handle's flag word is 0. The
// pieces are always appended, whatever the control answered: the host decides.
//
// A record is on the path of every sample, several times over, so the writer is inlined
// where it is used: with the category a constant, its number and text fold into the
// calls, and what is left is the calls to the host themselves.
#ifndef POSITIONING_LOG_RECORD_H
#define POSITIONING_LOG_RECORD_H

#include <stddef.h>
#include <stdint.h>

#include "Logging.h"

#define POSITIONING_INLINE inline __attribute__((always_inline))

namespace positioning {

// Categories of the module's records.
enum TLogCategory { EError, EInfo, EInfo2, EInterface };

namespace internals {

// The facility's control and log objects. The daemon sets the facility up before it
// loads the module and keeps it for the life of the process, so they are fetched once,
// when the module is loaded, instead of at every record.
struct TLogFacility {
  logging::ILogControl* control;
  logging::internals::ILogger* log;
};
extern const TLogFacility gLogFacility;

POSITIONING_INLINE const uint32_t* CategoryNumber(TLogCategory aCategory) {
  switch (aCategory) {
    case EError:
      return &logging::categories::Error;
    case EInfo:
      return &logging::categories::Info;
    case EInfo2:
      return &logging::categories::Info2;
    default:
      return &logging::categories::Interface;
  }
}

POSITIONING_INLINE const char* CategoryText(TLogCategory aCategory) {
  switch (aCategory) {
    case EError:
      return "logging::categories::Error";
    case EInfo:
      return "logging::categories::Info";
    case EInfo2:
      return "logging::categories::Info2";
    default:
      return "logging::categories::Interface";
  }
}

// The control is asked before the record is opened; its answer goes to Open unread.
POSITIONING_INLINE logging::internals::CLogHandle Open(TLogCategory aCategory, const char* aFunction,
                                                       const char* aFile, int aLine) {
  const TBool enabled = gLogFacility.control->IsEnabled(&logging::Positioning, CategoryNumber(aCategory));
  return gLogFacility.log->Open(CategoryText(aCategory), "logging::Positioning", aFunction, enabled, aFile, aLine);
}

}  // namespace internals

class CLogRecord {
 public:
  POSITIONING_INLINE CLogRecord(TLogCategory aCategory, const char* aFunction, const char* aFile, int aLine)
      : iHandle(internals::Open(aCategory, aFunction, aFile, aLine)) {
    iHandle.iStream->Append("(");
  }
  // The handle's own destructor then closes the stream when its flag word is 0.
  POSITIONING_INLINE ~CLogRecord() {
    iHandle.iStream->Append(")");
    iHandle.iStream->AppendLineEnd("\n");
  }
  CLogRecord(const CLogRecord&) = delete;
  CLogRecord& operator=(const CLogRecord&) = delete;

  POSITIONING_INLINE CLogRecord& Text(const char* aText) {
    iHandle.iStream->Append(aText);
    return *this;
  }
  POSITIONING_INLINE CLogRecord& Bool(bool aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  POSITIONING_INLINE CLogRecord& U8(uint8_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  POSITIONING_INLINE CLogRecord& I16(int16_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  POSITIONING_INLINE CLogRecord& U16(uint16_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  POSITIONING_INLINE CLogRecord& I32(int32_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  POSITIONING_INLINE CLogRecord& U32(uint32_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  POSITIONING_INLINE CLogRecord& I64(int64_t aValue) {
    iHandle.iStream->Append(&aValue);
    return *this;
  }
  POSITIONING_INLINE CLogRecord& Pointer(const void* aValue) {
    iHandle.iStream->Append(aValue);
    return *this;
  }

 private:
  logging::internals::CLogHandle iHandle;
};

}  // namespace positioning

#endif  // POSITIONING_LOG_RECORD_H
