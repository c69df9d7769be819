// Announcing roots, and what becomes of an orphan message.
#include "attrlog/link/Roots.h"

#include <utility>

#include "Mox/Exception.h"
#include "registry/MoxType.h"

namespace Mox::NboAttrLog {
namespace {

/// Reads one section of an orphan's payload; `read` sees its bytes alone.
template <class Read>
void readSection(In& in, Out::PayloadSection wanted, Read const& read) {
  if (static_cast<Out::PayloadSection>(in.nextU8()) != wanted) {
    throw StreamException(StreamError::badOrphan);
  }
  std::size_t const size = in.nextU32();
  unsigned char const* const end = in.endMark();
  if (size > in.bytesAvailable()) throw StreamException(StreamError::badOrphan);
  in.endMarkIs(in.position() + size);
  unsigned char const* const next = in.endMark();
  read();
  in.endMarkIs(end);
  in.positionIs(next);
}

}  // namespace

// Export.

void Roots::exportIs(Ptr<Entity> const& root) {
  host_.announceIs(root);
  sendWaiting();
}

void Roots::exportDel(Ptr<Entity> const& root) {
  host_.announcer.waitingDel(root);
  Ptr<Sa> const adapter = root->moxNboAttrLogSa(Ptr<Out const>(host_.out));
  if (!adapter || adapter->origin() != StreamAdapter::Origin::exportedOrphan) return;
  adapter->doRemountSelf(Ptr<Out>());
  host_.announcer.sendWithdrawals();
}

void Roots::exportsDone() {
  isDoneOwed_ = true;
  sendWaiting();
  host_.waker.wake();
}

void Roots::sendWaiting() {
  host_.announcer.sendWithdrawals();
  while (host_.isRunning() && host_.announcer.isAnyWaiting() && host_.out->freeSpace() >= runRoom) {
    Ptr<Entity> const root = host_.announcer.nextWaiting();
    // What the peer itself has brought, or is about to bring again, doesn't go back to it.
    if (!imports_->isRootFrom(root.get(), peerName())) host_.announcer.announce(root);
  }
  if (isDoneOwed_ && host_.isRunning() && !host_.announcer.isAnyWaiting()) {
    isDoneOwed_ = false;
    host_.sendComplete(orphanTarget);
  }
}

// Import.

void Roots::orphan(Frame const& frame) {
  In& in = **host_.in;
  in.payloadIs(frame.payload, frame.payloadSize);
  if (frame.attributeId == -orphanAttribute) return withdrawal();
  if (frame.attributeId != orphanAttribute) throw StreamException(StreamError::badOrphan);

  using Section = Out::PayloadSection;
  MoxType const* type = nullptr;
  readSection(in, Section::typeSection, [&] { type = MoxType::typeNode(Name(in.nextString())); });
  // A root needs a place; others are accepted from peers that may write.
  bool const isRoot = type != nullptr && type->isRootType();
  bool const isAccepted = type != nullptr && (dir_ || (!isRoot && host_.mayPeerWrite()));
  Ptr<Entity> made;
  readSection(in, Section::constructorSection, [&] {
    if (!isAccepted) return;
    try {
      made = type->newEntity(host_.in, host_.rootFlags(false), 1, nullptr);
    } catch (Exception const&) {
      throw StreamException(StreamError::badValue);
    }
    if (made && in.bytesAvailable() != 0) throw StreamException(StreamError::badOrphan);
  });
  EntityId id;
  readSection(in, Section::identitySection, [&] { id = in.nextEntityId(); });
  if (in.bytesAvailable() != 0) throw StreamException(StreamError::badOrphan);
  if (!id.isUnified() || id == orphanTarget || host_.reactors.reactor(id) != nullptr) {
    throw StreamException(StreamError::badId);
  }

  Ptr<Dir::Entry> entry = isRoot && made ? dir_->entry(made->name()) : Ptr<Dir::Entry>();
  bool const isTaken =
      entry && (entry->target()->fwkType() != type || isMounted(**entry->target()));
  if (!made || isTaken || !made->moxHasAttrLogInterface()) {
    ++host_.stats.refusedOrphans;
    host_.reactors.refusedIs(id);
    return;
  }
  Ptr<Entity> const entity = present(made, *type, entry);
  Ptr<Sa> const adapter = entity->moxNboAttrLogSaIs(host_.rootFlags(false), 1, host_.out, nullptr);
  if (adapter->hasFlag(readOnlyHere)) host_.hasReadOnlyCopies = true;
  adapter->originIs(StreamAdapter::Origin::importedOrphan);
  host_.inHand.startsTransferIs(frame.fullTransferFollows);
  host_.reactorIs(id, **adapter, true);
  host_.inHand.startsTransferIs(false);
}

/// The entity that an orphan message leads to: one that is here already, or the one made of it.
Ptr<Entity> Roots::present(Ptr<Entity> const& made, MoxType const& type, Ptr<Dir::Entry>& entry) {
  if (type.isRootType()) {
    if (!entry) entry = dir_->entryIs(made->name(), made);
    imports_->rootIs(peerName(), entry, &host_);
    return entry->target();
  }
  if (Ptr<Entity> known = imports_->claim(peerName(), **made, &host_)) return known;
  imports_->shelve(peerName(), made, &host_);
  return made;
}

/// True when this or another connection has brought the root and is still there.
bool Roots::isMounted(Entity& root) const {
  for (AdapterHost const* const host : adapterHosts()) {
    Ptr<Sa> const adapter = root.moxNboAttrLogSa(Ptr<Out const>(host->out));
    if (adapter && (host == &host_ || adapter->hasFlag(notAuthority))) return true;
  }
  return false;
}

void Roots::withdrawal() {
  In& in = **host_.in;
  EntityId const id = in.nextEntityId();
  if (in.bytesAvailable() != 0) throw StreamException(StreamError::badLength);
  if (!id.isUnified()) throw StreamException(StreamError::badId);
  Ptr<Sa> const adapter(host_.reactors.reactor(id));
  if (!adapter) {
    if (!host_.reactors.refusedDel(id)) ++host_.stats.strays;
    return;
  }
  if (adapter->origin() != StreamAdapter::Origin::importedOrphan) {
    throw StreamException(StreamError::badOrphan);
  }
  Ptr<Entity> const entity = adapter->moxNotifierEntity();
  adapter->doRemountSelf(Ptr<Out>());
  if (entity) imports_->drop(entity.get(), &host_);
}

void Roots::complete(Frame const& frame) {
  if (frame.payloadSize != 0) throw StreamException(StreamError::badLength);
  isPeerDone_ = true;
  imports_->dropStaleRoots(peerName());
}

void Roots::dropStale() {
  if (!inStep() || std::exchange(isShelfSwept_, true)) return;
  imports_->dropStaleShelved(peerName());
}

void Roots::close() {
  // Announced to a peer whose tree this end may write: its next connection may bring them back.
  if (host_.mayWrite()) {
    host_.reactors.forEach([this](Sa& adapter) {
      Ptr<Entity> const entity = adapter.moxNotifierEntity();
      if (adapter.origin() == StreamAdapter::Origin::exportedOrphan && entity &&
          !entity->fwkType()->isRootType()) {
        imports_->lend(peerName(), entity);
      }
    });
  }
  imports_->staleIs(&host_);
}

}  // namespace Mox::NboAttrLog
