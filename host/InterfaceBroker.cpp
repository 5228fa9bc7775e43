#include "InterfaceBroker.h"

#include <algorithm>

namespace host {

namespace {

bool SameKey(const std::string& aInstance, uint16_t aIdentifier, uint32_t aQualifier, const std::string& bInstance,
             const TInterfaceIdentity& bIdentity) {
  return aInstance == bInstance && aIdentifier == bIdentity.identifier && aQualifier == bIdentity.qualifier;
}

}  // namespace

void CInterfaceBroker::Reset() {
  iEntries.clear();
  iCalls.clear();
  iHandshakes.clear();
  iFailRequests = false;
  iFailRevokes = false;
  iFailIndexes.clear();
  iModuleCalls = 0;
}

std::vector<BrokerCall> CInterfaceBroker::CallsOf(BrokerCall::Kind aKind) const {
  std::vector<BrokerCall> found;
  for (const BrokerCall& call : iCalls) {
    if (call.kind == aKind) found.push_back(call);
  }
  return found;
}

bool CInterfaceBroker::IsAttached(const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                                  const IReflectionInterface* aHandler) const {
  for (const Entry& entry : iEntries) {
    if (entry.handler == aHandler && SameKey(entry.instance, entry.identifier, entry.qualifier, aInstance, aIdentity))
      return true;
  }
  return false;
}

size_t CInterfaceBroker::ModuleHandlerCount() const {
  return static_cast<size_t>(
      std::count_if(iEntries.begin(), iEntries.end(), [](const Entry& aEntry) { return aEntry.moduleSide; }));
}

bool CInterfaceBroker::ShouldFail(BrokerCall::Kind aKind) {
  const size_t index = iModuleCalls++;
  if (std::find(iFailIndexes.begin(), iFailIndexes.end(), index) != iFailIndexes.end()) return true;
  if (aKind == BrokerCall::Revoke) return iFailRevokes;
  return iFailRequests;
}

std::vector<CInterfaceBroker::Entry> CInterfaceBroker::Matching(const std::string& aInstance,
                                                                const TInterfaceIdentity& aIdentity,
                                                                bool aModuleSide) const {
  std::vector<Entry> found;
  for (const Entry& entry : iEntries) {
    if (entry.moduleSide == aModuleSide &&
        SameKey(entry.instance, entry.identifier, entry.qualifier, aInstance, aIdentity))
      found.push_back(entry);
  }
  return found;
}

bool CInterfaceBroker::Remove(const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                              const IReflectionInterface* aHandler) {
  for (auto it = iEntries.begin(); it != iEntries.end(); ++it) {
    if (it->handler == aHandler && SameKey(it->instance, it->identifier, it->qualifier, aInstance, aIdentity)) {
      iEntries.erase(it);
      return true;
    }
  }
  return false;
}

void CInterfaceBroker::Connect(IReflectionInterface* aModule, IReflectionInterface* aPeer) {
  TBool result = aModule->Register(aPeer);
  iHandshakes.push_back({true, aModule, aPeer, result});
  if (result != 0) return;
  // The module end serves another peer already: the peer still connects its own end.
  result = aPeer->Register(aModule);
  iHandshakes.push_back({true, aPeer, aModule, result});
}

void CInterfaceBroker::Disconnect(IReflectionInterface* aModule, IReflectionInterface* aPeer) {
  TBool result = aModule->Unregister(aPeer);
  iHandshakes.push_back({false, aModule, aPeer, result});
  if (result != 0) return;
  result = aPeer->Unregister(aModule);
  iHandshakes.push_back({false, aPeer, aModule, result});
}

TBool CInterfaceBroker::Attach(BrokerCall::Kind aKind, const TFeatureId& aFeature, const std::string& aInstance,
                               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) {
  const TBool result = (ShouldFail(aKind) || aHandler == nullptr) ? 0 : 1;
  iCalls.push_back({aKind, aFeature, aInstance, aIdentity.identifier, aIdentity.qualifier, aHandler, result});
  if (result == 0) return 0;
  iEntries.push_back({aInstance, aIdentity.identifier, aIdentity.qualifier, aHandler, true});
  for (const Entry& peer : Matching(aInstance, aIdentity, false)) Connect(aHandler, peer.handler);
  return 1;
}

TBool CInterfaceBroker::RequestInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                         const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) {
  return Attach(BrokerCall::Request, aFeature, aInstance, aIdentity, aHandler);
}

TBool CInterfaceBroker::RequestSharedInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) {
  return Attach(BrokerCall::RequestShared, aFeature, aInstance, aIdentity, aHandler);
}

TBool CInterfaceBroker::RevokeInterface(const TFeatureId& aFeature, const std::string& aInstance,
                                        const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) {
  const bool fail = ShouldFail(BrokerCall::Revoke);
  const bool attached = Remove(aInstance, aIdentity, aHandler);
  const TBool result = (fail || !attached) ? 0 : 1;
  iCalls.push_back(
      {BrokerCall::Revoke, aFeature, aInstance, aIdentity.identifier, aIdentity.qualifier, aHandler, result});
  if (attached) {
    for (const Entry& peer : Matching(aInstance, aIdentity, false)) Disconnect(aHandler, peer.handler);
  }
  return result;
}

TBool CInterfaceBroker::AttachPeer(const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                                   IReflectionInterface* aPeer) {
  const TBool result = aPeer != nullptr ? 1 : 0;
  iCalls.push_back(
      {BrokerCall::AttachPeer, TFeatureId(), aInstance, aIdentity.identifier, aIdentity.qualifier, aPeer, result});
  if (result == 0) return 0;
  iEntries.push_back({aInstance, aIdentity.identifier, aIdentity.qualifier, aPeer, false});
  for (const Entry& module : Matching(aInstance, aIdentity, true)) Connect(module.handler, aPeer);
  return 1;
}

TBool CInterfaceBroker::DetachPeer(const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                                   IReflectionInterface* aPeer) {
  const bool attached = Remove(aInstance, aIdentity, aPeer);
  iCalls.push_back({BrokerCall::DetachPeer, TFeatureId(), aInstance, aIdentity.identifier, aIdentity.qualifier, aPeer,
                    attached ? 1 : 0});
  if (!attached) return 0;
  for (const Entry& module : Matching(aInstance, aIdentity, true)) Disconnect(module.handler, aPeer);
  return 1;
}

}  // namespace host
