// The attribute log's operations of an entity: those without a log face, its id on a connection,
// what a child that loses its parent means to every connection, and which object is an adapter.
#include "Mox/Entity.h"

#include "Mox/Hooks.h"
#include "attrlog/adapter/AdapterHost.h"

namespace Mox {

using NboAttrLog::AdapterHost;
using NboAttrLog::Out;
using Sa = Entity::MoxNboAttrLogSa;

Ptr<Sa const> Entity::moxNboAttrLogSa(Ptr<Out const> const&) const { return {}; }
Ptr<Sa> Entity::moxNboAttrLogSa(Ptr<Out const> const&) { return {}; }
Ptr<Sa> Entity::moxNboAttrLogSaForMsgChannel(Ptr<Sa> const&) const { return {}; }
Ptr<Sa> Entity::moxNboAttrLogSaIs(PtrInterface::NotifieeConst::Mox_BitSet, unsigned int,
                                  Ptr<Out> const&, PtrInterface*) {
  return {};
}
Ptr<Sa> Entity::moxNboAttrLogSaDel(Ptr<Out const> const&) { return {}; }

EntityId Entity::entityId(Ptr<Out> const& out, bool isInMessage, bool announces,
                          bool throws) const {
  AdapterHost* const host = out ? out->host() : nullptr;
  if (host == nullptr) return EntityId();
  try {
    return host->announcer.referenceId(const_cast<Entity&>(*this), isInMessage, announces);
  } catch (EntityIdUnavailableException const&) {
    if (throws) throw;
    return EntityId();
  }
}

namespace NboAttrLog {
namespace {

/// A child that has left its parent leaves every connection, whoever still holds it.
void handleUnparent(Entity& entity) {
  std::vector<AdapterHost*> const hosts = adapterHosts();
  for (AdapterHost* const host : hosts) {
    Ptr<Sa> const adapter = entity.moxNboAttrLogSa(Ptr<Out const>(host->out));
    if (adapter && adapter->origin() != StreamAdapter::Origin::exportedOrphan) {
      adapter->doRemountSelf(Ptr<Out>());
    }
    host->scheduler.wakeAll();
  }
}

bool isStreamAdapter(PtrInterface const* object) {
  return dynamic_cast<Sa const*>(object) != nullptr;
}

bool const hooked =
    (hooks.unparented = &handleUnparent, hooks.isStreamAdapter = &isStreamAdapter, true);

}  // namespace
}  // namespace NboAttrLog
}  // namespace Mox
