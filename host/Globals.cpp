#include "Globals.h"

#include "LogFacility.h"
#include "Platform.h"
#include "SimulatedOsal.h"

namespace host {

void ResetGlobals() {
  CLogFacility::Instance().Reset();
  CSimulatedOsal::Instance().Reset();
  CPlatform::Instance().Reset();
}

}  // namespace host
