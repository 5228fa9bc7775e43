// The daemon's logging facility: control query, record handle and stream.
//
// A record is written in four steps: ask IControl().IsEnabled, Open the record on
// ILog(), append "(" + pieces + ")" and the line end "\n", and close the stream when
// the handle's flag word is 0 (the handle's destructor does so).
#ifndef LOGGING_H
#define LOGGING_H

#include <stdint.h>

#include "FeatureTypes.h"

namespace logging {

// Module tag numbers; the tag texts are the qualified names, "logging::Positioning".
const uint32_t Positioning = 81;
const uint32_t FeatureFw = 3;

namespace categories {
// Category numbers (single bits); the texts are "logging::categories::Error" and so on.
const uint32_t Error = 1;
const uint32_t Info = 4;
const uint32_t Info2 = 8;
const uint32_t Interface = 16;
}  // namespace categories

class HK_INTERFACE ILogControl {
 public:
  virtual ~ILogControl() {}
  virtual void Reserved3() = 0;
  virtual void Reserved4() = 0;
  virtual void Reserved5() = 0;
  virtual void Reserved6() = 0;
  virtual void Reserved7() = 0;
  virtual void Reserved8() = 0;
  virtual void Reserved9() = 0;
  virtual void Reserved10() = 0;
  // Whether a record of aCategory from aModule is wanted. Modules pass the answer on
  // to Open unread.
  virtual TBool IsEnabled(const uint32_t* aModule, const uint32_t* aCategory) = 0;
};

// The control object of the logging facility.
ILogControl& IControl();

namespace internals {

// One open record. Numbers are passed by address, texts and pointers by value.
class HK_INTERFACE ILogStream {
 public:
  virtual ~ILogStream() {}
  virtual void Reserved3() = 0;
  // Commits the record.
  virtual void Close() = 0;
  virtual void Append(const bool* aValue) = 0;
  virtual void Append(const uint8_t* aValue) = 0;
  virtual void Append(const int16_t* aValue) = 0;
  virtual void Append(const uint16_t* aValue) = 0;
  virtual void Append(const int32_t* aValue) = 0;
  virtual void Append(const uint32_t* aValue) = 0;
  virtual void Append(const int64_t* aValue) = 0;
  virtual void Reserved12() = 0;
  virtual void Reserved13() = 0;
  virtual void Reserved14() = 0;
  virtual void AppendLineEnd(const char* aLineEnd) = 0;
  // A text.
  virtual void Append(const char* aText) = 0;
  // A pointer value.
  virtual void Append(const void* aPointer) = 0;
};

// Handle of an open record, returned by value from ILogger::Open. The user-provided
// destructor makes the ABI return it through a hidden result pointer on both sides.
class CLogHandle {
 public:
  CLogHandle(uint32_t aFlags, ILogStream* aStream) : iFlags(aFlags), iStream(aStream) {}
  CLogHandle(const CLogHandle&) = delete;
  CLogHandle& operator=(const CLogHandle&) = delete;
  ~CLogHandle() {
    if (iFlags == 0) iStream->Close();
  }
  // Appends a text piece; chains.
  CLogHandle& operator<<(const char* aText) {
    iStream->Append(aText);
    return *this;
  }

  uint32_t iFlags;
  ILogStream* iStream;
};

class HK_INTERFACE ILogger {
 public:
  virtual ~ILogger() {}
  virtual void Reserved3() = 0;
  virtual void Reserved4() = 0;
  // Opens a record. aEnabled is the control's answer for it.
  virtual CLogHandle Open(const char* aCategory, const char* aModule, const char* aFunction,
                          TBool aEnabled, const char* aFile, int aLine) = 0;
};

// The log object of the logging facility.
ILogger& ILog();

}  // namespace internals
}  // namespace logging

#endif  // LOGGING_H
