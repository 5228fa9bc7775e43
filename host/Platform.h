// The simulated platform device: main-unit I/O (plug state, pins) and the CAN
// micro-controller I/O behind CPDDevice.
#ifndef HOST_PLATFORM_H
#define HOST_PLATFORM_H

#include <stdint.h>

#include <functional>
#include <utility>
#include <vector>

#include "PlatformDevice.h"

namespace host {

// One SetPin call.
struct PinChange {
  uint32_t pin;
  uint32_t level;
  uint64_t tick;  // simulated clock when it was set
  TBool result;
};

class CMainUnitIO : public IMainUnitIO {
 public:
  void Reset();
  void SetPluggedIn(bool aPluggedIn) { iPluggedIn = aPluggedIn; }
  // What SetPin answers for a given level (1 by default).
  void SetPinResult(uint32_t aLevel, TBool aResult) { (aLevel == 0 ? iResultLow : iResultHigh) = aResult; }
  // Called after every SetPin, e.g. for a clock-sync service reacting to the pulse.
  void SetOnPin(std::function<void(const PinChange&)> aObserver) { iOnPin = std::move(aObserver); }

  const std::vector<PinChange>& Pins() const { return iPins; }
  int PluggedInQueries() const { return iPluggedInQueries; }
  // Level of a pin as last set, 0 if never set.
  uint32_t Level(uint32_t aPin) const;

  void Reserved3() override {}
  TBool IsPluggedIn() override;
  void Reserved5() override {}
  void Reserved6() override {}
  TBool SetPin(uint32_t aPin, uint32_t aLevel) override;

 private:
  bool iPluggedIn = true;
  TBool iResultLow = 1;
  TBool iResultHigh = 1;
  int iPluggedInQueries = 0;
  std::vector<PinChange> iPins;
  std::function<void(const PinChange&)> iOnPin;
};

class CCanMicroIO : public ICanMicroIO {
 public:
  void Reset();
  // What TriggerClockSync answers (1 by default).
  void SetTriggerResult(TBool aResult) { iTriggerResult = aResult; }
  int Triggers() const { return iTriggers; }

  void Reserved3() override {}
  void Reserved4() override {}
  void Reserved5() override {}
  TBool TriggerClockSync() override;

 private:
  TBool iTriggerResult = 1;
  int iTriggers = 0;
};

// The fakes behind CPDDevice::Instance().
class CPlatform {
 public:
  static CPlatform& Instance();
  void Reset();
  CMainUnitIO& MainUnit() { return iMainUnit; }
  CCanMicroIO& CanMicro() { return iCanMicro; }

 private:
  CMainUnitIO iMainUnit;
  CCanMicroIO iCanMicro;
};

}  // namespace host

#endif  // HOST_PLATFORM_H
