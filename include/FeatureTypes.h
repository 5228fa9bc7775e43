// Value types and records shared by the feature daemon and every feature module.
#ifndef FEATURE_TYPES_H
#define FEATURE_TYPES_H

#include <stddef.h>
#include <stdint.h>
#include <string>

// Interface classes keep default visibility so that their type information is
// shared by name across binaries: a cross cast between a module object and a
// host object relies on it.
#define HK_INTERFACE __attribute__((visibility("default")))

// Text identifying a feature instance; handed in by the daemon.
typedef std::string TFeatureId;
// 32-bit truth value: 0 is false, anything else true.
typedef int32_t TBool;
// No result.
typedef void TAny;
typedef uint8_t TUint8;
// Transport types of the service interfaces.
typedef int32_t txdr_bool;
typedef uint32_t txdr_uint32;

namespace reflection {
// Result of every service-interface callback; 0 is success.
typedef int32_t TErrCode;
}  // namespace reflection

// Identity of an interface pair, given by address to every broker call.
struct TInterfaceIdentity {
  uint16_t identifier;
  uint32_t qualifier;
};

// The daemon's event record. The daemon may append fields; modules read only these two.
struct TEvent {
  uint32_t eventClass;
  uint32_t eventId;
};

// Registration of an observer for a (periodic) event.
struct TEventRegistration {
  uint32_t eventClass;
  uint32_t eventId;
  uint32_t period;  // milliseconds
  uint32_t repeat;  // 1 = periodic
};

static_assert(sizeof(TInterfaceIdentity) == 8, "TInterfaceIdentity layout");
static_assert(offsetof(TInterfaceIdentity, qualifier) == 4, "TInterfaceIdentity layout");
static_assert(sizeof(TEventRegistration) == 16, "TEventRegistration layout");
static_assert(offsetof(TEvent, eventId) == 4, "TEvent layout");

#endif  // FEATURE_TYPES_H
