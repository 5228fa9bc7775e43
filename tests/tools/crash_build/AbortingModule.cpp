// A stand-in for the module that aborts when the head unit creates its feature: how a
// build gone badly wrong looks to positioning-sim batch, whose other drives must go on.
#include <stdlib.h>

#include "PositioningModule.h"

extern "C" {

__attribute__((visibility("default"))) const char* FeatureType() { return "positioning"; }

__attribute__((visibility("default"))) IFeatureModule2* FeatureCreate2(const TFeatureId&, IInterfaceBroker&,
                                                                       IEventBroker&, const IFeatureProperties&) {
  abort();
}
}
