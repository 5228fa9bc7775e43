// Adapters that turn a module object implementing one end of a service interface pair
// into something the interface broker can connect.
//
//   class CMyService : public CReflectionInterfaceHandler<IFooFemale> { ... };
//
// The broker calls Register(peer) when both ends are present; the handshake connects
// both ends and calls OnInterfaceAvailable on each. Owners revoke their handlers
// through the broker before destroying them: the destructors here do not unregister.
#ifndef REFLECTION_INTERFACE_H
#define REFLECTION_INTERFACE_H

#include <stdlib.h>

#include "FeatureTypes.h"
#include "Logging.h"

// Class-level allocation over malloc/free. Allocation results are not checked by the
// callers; with a noexcept operator new a failed allocation yields a null object
// instead of a construction on a null address.
#define HK_MALLOC_ALLOCATED                                                   \
  static void* operator new(size_t aSize) noexcept { return malloc(aSize); } \
  static void operator delete(void* aPointer) { free(aPointer); }

// What the broker connects: one end of an interface pair.
class HK_INTERFACE IReflectionInterface {
 public:
  virtual ~IReflectionInterface() {}
  // Connects this end to aPeer; true when this call connected the pair.
  virtual TBool Register(IReflectionInterface* aPeer) = 0;
  // Disconnects aPeer; true when disconnected or nothing had to be done.
  virtual TBool Unregister(IReflectionInterface* aPeer) = 0;
};

namespace reflection {
namespace internals {

// Writes the framework's record of a handshake step: "(" peer " (" converted ")" ")".
inline void LogHandshake(const char* aFunction, int aLine, const void* aPeer, const void* aConverted) {
  TBool enabled = logging::IControl().IsEnabled(&logging::FeatureFw, &logging::categories::Info);
  logging::internals::CLogHandle record = logging::internals::ILog().Open(
      "logging::categories::Info", "logging::FeatureFw", aFunction, enabled, "include/ReflectionInterface.h", aLine);
  record << "(";
  record.iStream->Append(aPeer);
  record << " (";
  record.iStream->Append(aConverted);
  record << ")" << ")";
  record.iStream->AppendLineEnd("\n");
}

// Source lines the handshake records carry.
const int kRegisterLine = 43;
const int kUnregisterLine = 65;

}  // namespace internals
}  // namespace reflection

// The handshake of one end whose peer implements Peer.
template <class Own, class Peer>
class CReflectionInterface : public IReflectionInterface {
 public:
  HK_MALLOC_ALLOCATED

  CReflectionInterface() : iPeer(NULL) {}
  virtual ~CReflectionInterface() {}

  TBool Register(IReflectionInterface* aPeer) override {
    if (iPeer != NULL) return 0;
    Peer* peer = dynamic_cast<Peer*>(aPeer);
    reflection::internals::LogHandshake("Register", reflection::internals::kRegisterLine, aPeer, peer);
    if (peer == NULL) return 0;
    // Set before calling back, so that the peer's Register into ours stops at once.
    iPeer = aPeer;
    aPeer->Register(this);
    OnInterfaceAvailable(*peer);
    return 1;
  }

  TBool Unregister(IReflectionInterface* aPeer) override {
    if (iPeer == NULL) return 0;
    Peer* peer = dynamic_cast<Peer*>(aPeer);
    reflection::internals::LogHandshake("Unregister", reflection::internals::kUnregisterLine, aPeer, peer);
    // A null unregister is accepted as done and changes nothing.
    if (aPeer == NULL) return 1;
    if (peer == NULL || aPeer != iPeer) return 0;
    // Mirrors Register: the own end is told first, the peer last.
    iPeer = NULL;
    OnInterfaceUnavailable(*peer);
    aPeer->Unregister(this);
    return 1;
  }

  // The peer end became available; called only from Register.
  virtual void OnInterfaceAvailable(Peer& aPeer) = 0;
  // The peer end went away; called only from Unregister.
  virtual void OnInterfaceUnavailable(Peer& aPeer) = 0;

 protected:
  IReflectionInterface* iPeer;  // the connected peer, null when unconnected
};

// Adds the interface Own to the handshake; its callback registration is a no-op.
template <class Own, class Peer>
class CInterfaceAdapter : public CReflectionInterface<Own, Peer>, public Own {
 public:
  HK_MALLOC_ALLOCATED

  virtual ~CInterfaceAdapter() {}
  void _RegisterCallback(Peer&) override {}
  void _UnregisterCallback(Peer&) override {}
};

// Base of a module class implementing Own; the peer type is Own's partner.
template <class Own>
class CReflectionInterfaceHandler : public CInterfaceAdapter<Own, typename Own::TPartner> {
 public:
  HK_MALLOC_ALLOCATED

  virtual ~CReflectionInterfaceHandler() {}
};

#endif  // REFLECTION_INTERFACE_H
