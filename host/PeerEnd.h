// One end of an interface pair as the simulated services and clients implement it:
// the same handshake as the module's adapters, without their log records, and with
// counts of what happened for tests.
#ifndef HOST_PEER_END_H
#define HOST_PEER_END_H

#include <string>

#include "FeatureTypes.h"
#include "InterfaceBroker.h"
#include "ReflectionInterface.h"

namespace host {

template <class Own>
class CPeerEnd : public IReflectionInterface, public Own {
 public:
  typedef typename Own::TPartner Peer;

  CPeerEnd(const std::string& aInstance, const TInterfaceIdentity& aIdentity)
      : iInstance(aInstance), iIdentity(aIdentity) {}
  virtual ~CPeerEnd() {}

  // Attaches this end to the broker; it connects when the module's end is there.
  TBool Attach(CInterfaceBroker& aBroker) { return aBroker.AttachPeer(iInstance, iIdentity, this); }
  // Detaches (and so disconnects) this end.
  TBool Detach(CInterfaceBroker& aBroker) { return aBroker.DetachPeer(iInstance, iIdentity, this); }

  TBool Register(IReflectionInterface* aPeer) override {
    if (iPeerHandle != nullptr) return 0;
    Peer* peer = dynamic_cast<Peer*>(aPeer);
    if (peer == nullptr) return 0;
    iPeerHandle = aPeer;
    iPeer = peer;
    aPeer->Register(this);
    ++iAvailableCount;
    OnAvailable(*peer);
    return 1;
  }

  TBool Unregister(IReflectionInterface* aPeer) override {
    if (iPeerHandle == nullptr) return 0;
    if (aPeer == nullptr) return 1;
    if (aPeer != iPeerHandle) return 0;
    Peer* peer = iPeer;
    iPeerHandle = nullptr;
    iPeer = nullptr;
    ++iUnavailableCount;
    OnUnavailable(*peer);
    aPeer->Unregister(this);
    return 1;
  }

  void _RegisterCallback(Peer&) override {}
  void _UnregisterCallback(Peer&) override {}

  // The module's end while connected, else null.
  Peer* Connected() const { return iPeer; }
  bool IsConnected() const { return iPeer != nullptr; }
  int AvailableCount() const { return iAvailableCount; }
  int UnavailableCount() const { return iUnavailableCount; }
  const std::string& Instance() const { return iInstance; }
  const TInterfaceIdentity& Identity() const { return iIdentity; }

 protected:
  virtual void OnAvailable(Peer&) {}
  virtual void OnUnavailable(Peer&) {}

  Peer* iPeer = nullptr;

 private:
  std::string iInstance;
  TInterfaceIdentity iIdentity;
  IReflectionInterface* iPeerHandle = nullptr;
  int iAvailableCount = 0;
  int iUnavailableCount = 0;
};

}  // namespace host

#endif  // HOST_PEER_END_H
