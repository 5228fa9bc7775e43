// The daemon's registry of named service interfaces.
#ifndef I_INTERFACE_BROKER_H
#define I_INTERFACE_BROKER_H

#include <string>

#include "FeatureTypes.h"

class IReflectionInterface;

class HK_INTERFACE IInterfaceBroker {
 public:
  virtual ~IInterfaceBroker() {}
  // Attaches aHandler to the named instance of a pair; the broker connects it to the
  // peer end with IReflectionInterface::Register when both ends are present.
  virtual TBool RequestInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                 const TInterfaceIdentity& aIdentity,
                                 IReflectionInterface* aHandler) = 0;
  // Detaches aHandler again; a connected peer is disconnected through Unregister.
  virtual TBool RevokeInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                const TInterfaceIdentity& aIdentity,
                                IReflectionInterface* aHandler) = 0;
  // The daemon's own operation; modules never call it.
  virtual void Reserved5() = 0;
  // As RequestInterface, for an instance that several features share.
  virtual TBool RequestSharedInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                       const TInterfaceIdentity& aIdentity,
                                       IReflectionInterface* aHandler) = 0;
};

#endif  // I_INTERFACE_BROKER_H
