// Records of the positioning-sensor services: configuration and sample data.
#ifndef POSITIONING_SENSOR_TYPES_H
#define POSITIONING_SENSOR_TYPES_H

#include <stddef.h>
#include <stdint.h>

// Sensor-type code (1 gyroscope, 2 odometer, 0x8000 the external combined record).
typedef uint16_t TiPositioningSensorType;

// Description of one sensor.
struct TiPositioningSensorEntry {
  TiPositioningSensorType sensorType;
  uint16_t sensorParameter;  // carried to clients unchanged
  uint16_t samplePeriod;     // milliseconds between two samples
  uint8_t valueCount;        // 16-bit values per sample
};

// A set of sensors: size entries at data.
struct TiPositioningSensorConfiguration {
  uint8_t size;
  TiPositioningSensorEntry* data;
};

// A sequence of 16-bit values.
struct TiPositioningSensorValues {
  uint8_t size;
  int16_t* data;
};

// One sample as a service or client sees it.
struct TiPositioningSensorData {
  uint64_t timeStamp;  // milliseconds
  TiPositioningSensorValues values;
};

static_assert(sizeof(TiPositioningSensorEntry) == 8, "TiPositioningSensorEntry layout");
static_assert(offsetof(TiPositioningSensorEntry, samplePeriod) == 4, "TiPositioningSensorEntry layout");
static_assert(offsetof(TiPositioningSensorEntry, valueCount) == 6, "TiPositioningSensorEntry layout");
static_assert(offsetof(TiPositioningSensorData, values) == 8, "TiPositioningSensorData layout");
#if defined(__arm__) && !defined(__aarch64__)
static_assert(offsetof(TiPositioningSensorConfiguration, data) == 4, "32-bit ARM layout");
static_assert(sizeof(TiPositioningSensorConfiguration) == 8, "32-bit ARM layout");
static_assert(offsetof(TiPositioningSensorData, values) + offsetof(TiPositioningSensorValues, data) == 12,
              "32-bit ARM layout");
static_assert(sizeof(TiPositioningSensorData) == 16, "32-bit ARM layout");
#elif defined(__x86_64__)
static_assert(offsetof(TiPositioningSensorConfiguration, data) == 8, "x86-64 layout");
static_assert(sizeof(TiPositioningSensorConfiguration) == 16, "x86-64 layout");
static_assert(offsetof(TiPositioningSensorData, values) + offsetof(TiPositioningSensorValues, data) == 16,
              "x86-64 layout");
static_assert(sizeof(TiPositioningSensorData) == 24, "x86-64 layout");
#endif

#endif  // POSITIONING_SENSOR_TYPES_H
