// The platform device: the unit's I/O toward the main unit and the CAN micro-controller.
#ifndef PLATFORM_DEVICE_H
#define PLATFORM_DEVICE_H

#include <stdint.h>

#include "FeatureTypes.h"

class HK_INTERFACE IMainUnitIO {
 public:
  virtual ~IMainUnitIO() {}
  virtual void Reserved3() = 0;
  // Non-zero while the main unit is connected.
  virtual TBool IsPluggedIn() = 0;
  virtual void Reserved5() = 0;
  virtual void Reserved6() = 0;
  // Drives output aPin to aLevel; answers 1 on success.
  virtual TBool SetPin(uint32_t aPin, uint32_t aLevel) = 0;
};

class HK_INTERFACE ICanMicroIO {
 public:
  virtual ~ICanMicroIO() {}
  virtual void Reserved3() = 0;
  virtual void Reserved4() = 0;
  virtual void Reserved5() = 0;
  // Asks the CAN micro-controller to synchronise its clock; answers 1 on success.
  virtual TBool TriggerClockSync() = 0;
};

// The daemon's platform device singleton. Its state is the daemon's own; modules
// reach it only through these three operations.
class HK_INTERFACE CPDDevice {
 public:
  static CPDDevice& Instance();
  IMainUnitIO& MainUnitIO() const;
  ICanMicroIO& CanMicroIO() const;

 private:
  CPDDevice() {}
  CPDDevice(const CPDDevice&) = delete;
  CPDDevice& operator=(const CPDDevice&) = delete;
};

#endif  // PLATFORM_DEVICE_H
