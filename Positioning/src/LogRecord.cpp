#include "LogRecord.h"

namespace positioning {
namespace {

struct TCategoryName {
  const uint32_t* number;
  const char* text;
};

const TCategoryName kCategories[] = {
    {&logging::categories::Error, "logging::categories::Error"},
    {&logging::categories::Info, "logging::categories::Info"},
    {&logging::categories::Info2, "logging::categories::Info2"},
    {&logging::categories::Interface, "logging::categories::Interface"},
};

// The control is asked before the record is opened; its answer goes to Open unread.
logging::internals::CLogHandle Open(TLogCategory aCategory, const char* aFunction, const char* aFile, int aLine) {
  const TCategoryName& category = kCategories[aCategory];
  TBool enabled = logging::IControl().IsEnabled(&logging::Positioning, category.number);
  return logging::internals::ILog().Open(category.text, "logging::Positioning", aFunction, enabled, aFile, aLine);
}

}  // namespace

CLogRecord::CLogRecord(TLogCategory aCategory, const char* aFunction, const char* aFile, int aLine)
    : iHandle(Open(aCategory, aFunction, aFile, aLine)) {
  iHandle.iStream->Append("(");
}

CLogRecord::~CLogRecord() {
  iHandle.iStream->Append(")");
  iHandle.iStream->AppendLineEnd("\n");
}

}  // namespace positioning
