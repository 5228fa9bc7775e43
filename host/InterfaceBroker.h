// The simulated daemon's interface broker.
//
// Handlers are attached per (instance name, identity). Module handlers come through
// IInterfaceBroker; the simulated services and clients attach their ends with
// AttachPeer. Whenever a module handler and a peer share a key, the broker connects
// them synchronously with moduleHandler->Register(peer); when the module end is
// already connected elsewhere (a store serves several clients through one handler)
// the broker lets the peer connect its own end with peer->Register(moduleHandler).
// Revokes and detaches disconnect the same way with Unregister.
#ifndef HOST_INTERFACE_BROKER_H
#define HOST_INTERFACE_BROKER_H

#include <stddef.h>

#include <string>
#include <vector>

#include "IInterfaceBroker.h"
#include "ReflectionInterface.h"

namespace host {

// One call made to the broker.
struct BrokerCall {
  enum Kind { Request, Revoke, RequestShared, AttachPeer, DetachPeer };
  Kind kind;
  TFeatureId feature;
  std::string instance;
  uint16_t identifier;
  uint32_t qualifier;
  IReflectionInterface* handler;
  TBool result;
};

// One handshake call the broker made on a handler.
struct HandshakeCall {
  bool registering;  // Register, else Unregister
  IReflectionInterface* target;
  IReflectionInterface* peer;
  TBool result;
};

class CInterfaceBroker : public IInterfaceBroker {
 public:
  // Forgets every handler and call; failures off.
  void Reset();

  // Makes every module request (Request and RequestShared) answer false and attach nothing.
  void FailRequests(bool aFail) { iFailRequests = aFail; }
  // Makes every revoke answer false. The handler is still detached and disconnected,
  // so that no simulated peer calls into a module object that is being deleted.
  void FailRevokes(bool aFail) { iFailRevokes = aFail; }
  // Makes the module call with this index (counting requests and revokes from 0) fail.
  void FailCall(size_t aIndex) { iFailIndexes.push_back(aIndex); }

  // Attaches a simulated peer end (service or client) and connects it to the module
  // handlers of the same key.
  TBool AttachPeer(const std::string& aInstance, const TInterfaceIdentity& aIdentity, IReflectionInterface* aPeer);
  // Detaches it again, disconnecting it first.
  TBool DetachPeer(const std::string& aInstance, const TInterfaceIdentity& aIdentity, IReflectionInterface* aPeer);

  const std::vector<BrokerCall>& Calls() const { return iCalls; }
  const std::vector<HandshakeCall>& Handshakes() const { return iHandshakes; }
  // Calls of one kind.
  std::vector<BrokerCall> CallsOf(BrokerCall::Kind aKind) const;
  // Whether aHandler is attached (as module handler or peer) under that key.
  bool IsAttached(const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                  const IReflectionInterface* aHandler) const;
  // Module handlers attached anywhere.
  size_t ModuleHandlerCount() const;

  // IInterfaceBroker
  TBool RequestInterface(const TFeatureId& aFeature, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                         IReflectionInterface* aHandler) override;
  TBool RevokeInterface(const TFeatureId& aFeature, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                        IReflectionInterface* aHandler) override;
  void Reserved5() override {}
  TBool RequestSharedInterface(const TFeatureId& aFeature, const std::string& aInstance,
                               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) override;

 private:
  struct Entry {
    std::string instance;
    uint16_t identifier;
    uint32_t qualifier;
    IReflectionInterface* handler;
    bool moduleSide;
  };

  TBool Attach(BrokerCall::Kind aKind, const TFeatureId& aFeature, const std::string& aInstance,
               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler);
  bool ShouldFail(BrokerCall::Kind aKind);
  std::vector<Entry> Matching(const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                              bool aModuleSide) const;
  bool Remove(const std::string& aInstance, const TInterfaceIdentity& aIdentity, const IReflectionInterface* aHandler);
  void Connect(IReflectionInterface* aModule, IReflectionInterface* aPeer);
  void Disconnect(IReflectionInterface* aModule, IReflectionInterface* aPeer);

  std::vector<Entry> iEntries;
  std::vector<BrokerCall> iCalls;
  std::vector<HandshakeCall> iHandshakes;
  bool iFailRequests = false;
  bool iFailRevokes = false;
  std::vector<size_t> iFailIndexes;
  size_t iModuleCalls = 0;
};

}  // namespace host

#endif  // HOST_INTERFACE_BROKER_H
