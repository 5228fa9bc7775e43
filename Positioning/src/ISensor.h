// Common base of the sensor sources, through which the feature owns and deletes them.
#ifndef POSITIONING_I_SENSOR_H
#define POSITIONING_I_SENSOR_H

#include "ReflectionInterface.h"

class ISensor {
 public:
  HK_MALLOC_ALLOCATED

  virtual ~ISensor() {}
};

#endif  // POSITIONING_I_SENSOR_H
