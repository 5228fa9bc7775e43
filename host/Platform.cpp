#include "Platform.h"

#include "SimulatedOsal.h"

namespace host {

void CMainUnitIO::Reset() {
  iPluggedIn = true;
  iResultLow = 1;
  iResultHigh = 1;
  iPluggedInQueries = 0;
  iPins.clear();
  iOnPin = nullptr;
}

uint32_t CMainUnitIO::Level(uint32_t aPin) const {
  for (auto it = iPins.rbegin(); it != iPins.rend(); ++it) {
    if (it->pin == aPin) return it->level;
  }
  return 0;
}

TBool CMainUnitIO::IsPluggedIn() {
  ++iPluggedInQueries;
  return iPluggedIn ? 1 : 0;
}

TBool CMainUnitIO::SetPin(uint32_t aPin, uint32_t aLevel) {
  PinChange change{aPin, aLevel, CSimulatedOsal::Instance().Now(), aLevel == 0 ? iResultLow : iResultHigh};
  iPins.push_back(change);
  if (iOnPin) iOnPin(change);
  return change.result;
}

void CCanMicroIO::Reset() {
  iTriggerResult = 1;
  iTriggers = 0;
}

TBool CCanMicroIO::TriggerClockSync() {
  ++iTriggers;
  return iTriggerResult;
}

CPlatform& CPlatform::Instance() {
  static CPlatform platform;
  return platform;
}

void CPlatform::Reset() {
  iMainUnit.Reset();
  iCanMicro.Reset();
}

}  // namespace host

CPDDevice& CPDDevice::Instance() {
  static CPDDevice device;
  return device;
}

IMainUnitIO& CPDDevice::MainUnitIO() const { return host::CPlatform::Instance().MainUnit(); }

ICanMicroIO& CPDDevice::CanMicroIO() const { return host::CPlatform::Instance().CanMicro(); }
