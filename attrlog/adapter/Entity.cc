// The attribute log's operations of an entity without a log face, and the hook that parts a
// removed child from every connection.
#include "Mox/Entity.h"

#include "attrlog/adapter/StreamAdapter.h"
#include "attrlog/link/Demuxer.h"

namespace Mox {

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

namespace NboAttrLog {
namespace {

/// A child that has left its parent says nothing more, whoever still holds it.
void handleUnparent(Entity* entity) {
  if (globalNboAttrLogDemuxerManager().demuxers().empty()) return;
  for (auto const& demuxer : globalNboAttrLogDemuxerManager().nboDemuxerIterator()) {
    Ptr<Sa> const adapter = entity->moxNboAttrLogSa(Ptr<Out const>(demuxer->out()));
    if (adapter && adapter->origin() != StreamAdapter::Origin::exportedOrphan) {
      adapter->doRemountSelf(Ptr<Out>());
    }
    demuxer->wakeAll();
  }
}

bool const hooked = (Entity::moxUnparentHook = &handleUnparent, true);

}  // namespace
}  // namespace NboAttrLog
}  // namespace Mox
