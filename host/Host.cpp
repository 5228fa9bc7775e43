#include "Host.h"

namespace host {

void ResetGlobals() {
  CLogFacility::Instance().Reset();
  COsal::Instance().Reset();
  CPlatform::Instance().Reset();
}

}  // namespace host
