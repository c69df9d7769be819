// Entities without a parent on the connection: the exported roots, what references lead to, what
// the peer brings, and the ids of those that have gone.
#include <algorithm>

#include "Mox/Exception.h"
#include "attrlog/adapter/EntityIds.h"
#include "attrlog/link/Demuxer.h"
#include "registry/MoxType.h"

namespace Mox::NboAttrLog {

// Export.

std::uint32_t Demuxer::rootFlags(bool exported) const {
  std::uint32_t flags = weakReference;
  if (exported) {
    if (!mayPeerWrite()) flags |= readOnlyRemote;
  } else {
    flags |= notAuthority;
    if (!mayWrite()) flags |= readOnlyHere;
  }
  return flags;
}

void Demuxer::exportIs(Ptr<Entity> const& root) {
  exportsWaiting_.push_back(root);
  exportWaiting();
  turnIsWanted();
}

void Demuxer::exportWaiting() {
  sendWithdrawals();
  while (mode_ == Mode::running && !exportsWaiting_.empty() && out_->freeSpace() >= runRoom) {
    Ptr<Entity> root = exportsWaiting_.front();
    exportsWaiting_.pop_front();
    // What the peer itself has brought, or is about to bring again, doesn't go back to it.
    if (imports_->isRootFrom(root.get(), peerName())) continue;
    if (root->moxNboAttrLogSa(Ptr<Out const>(out_))) continue;
    announce(root);
  }
  if (exportsDoneOwed_ && mode_ == Mode::running && exportsWaiting_.empty()) {
    exportsDoneOwed_ = false;
    sendComplete(orphanTarget);
  }
}

/// Says an entity without its parent; its full transfer follows.
void Demuxer::announce(Ptr<Entity> const& entity) {
  Ptr<Sa> adapter = entity->moxNboAttrLogSaIs(
      PtrInterface::NotifieeConst::Mox_BitSet(rootFlags(true)), 1, out_, nullptr);
  adapter->originIs(StreamAdapter::Origin::exportedOrphan);
  adapter->moxOnInit();
  try {
    adapter->doSerializeOrphan();
  } catch (...) {
    retire(**adapter);
    throw;
  }
}

void Demuxer::exportDel(Ptr<Entity> const& root) {
  exportsWaiting_.erase(std::remove(exportsWaiting_.begin(), exportsWaiting_.end(), root),
                        exportsWaiting_.end());
  Ptr<Sa> adapter = root->moxNboAttrLogSa(Ptr<Out const>(out_));
  if (!adapter || adapter->origin() != StreamAdapter::Origin::exportedOrphan) return;
  adapter->doRemountSelf(Ptr<Out>());
  sendWithdrawals();
}

void Demuxer::exportsDone() {
  exportsDoneOwed_ = true;
  exportWaiting();
  turnIsWanted();
}

void Demuxer::sendWithdrawals() {
  while (mode_ == Mode::running && !withdrawalsOwed_.empty() && out_->freeSpace() >= runReserve) {
    EntityId const id = withdrawalsOwed_.front();
    withdrawalsOwed_.pop_front();
    MsgHeader header;
    header.entityId = orphanTarget;
    header.attributeId = -orphanAttribute;
    out_->nextHeaderIs(header);
    out_ << Out::TransactToken::tokenBegin << id << Out::TransactToken::tokenEnd;
  }
}

bool Demuxer::inStep() const { return mode_ == Mode::running && peerExportsDone_ && holds_ == 0; }

// References.

EntityId Demuxer::referenceId(Entity const* target) {
  if (target == nullptr) return EntityId();
  auto const unavailable = [&] {
    unavailable_ = target;
    throw EntityIdUnavailableException("entity has no id on this connection yet",
                                       Exception::IdBitArray());
  };
  Ptr<Out const> const out(out_);
  if (Ptr<Sa const> adapter = target->moxNboAttrLogSa(out)) {
    if (!adapter->hasFlag(writingOn) || adapter->hasFlag(boundByTransaction)) unavailable();
    return adapter->entityId();
  }
  if (!target->moxHasAttrLogInterface()) unavailable();
  for (Entity const* above = target->moxRawParent(); above != nullptr;
       above = above->moxRawParent()) {
    // Its tree is on the connection, or about to be: its own announcement is still owed.
    auto const isAbove = [above](Ptr<Entity> const& root) { return root.get() == above; };
    if (above->moxNboAttrLogSa(out) ||
        std::any_of(exportsWaiting_.begin(), exportsWaiting_.end(), isAbove)) {
      unavailable();
    }
  }
  bool const before = std::exchange(onlyQueueTransfers_, true);
  try {
    announce(Ptr<Entity>(const_cast<Entity*>(target)));
  } catch (...) {
    onlyQueueTransfers_ = before;
    throw;
  }
  onlyQueueTransfers_ = before;
  throw AttrLogRecordException("an entity was announced within a message", Exception::IdBitArray());
}

// An id that this end has parted with may still stand in frames of the peer: until the peer has
// acknowledged the last frame that tells it so, which is at the latest the last one that is owed
// now.

void Demuxer::goneIs(EntityId id) {
  if (mode_ != Mode::running || !gone_.insert(id.value()).second) return;
  gonePending_.push_back(id);
}

void Demuxer::settleGone() {
  if (gonePending_.empty() || flowOutCount_ != parkedCount_ || !withdrawalsOwed_.empty()) return;
  for (EntityId id : gonePending_) goneTold_.emplace_back(framesCommitted_, id);
  gonePending_.clear();
}

// Import.

void Demuxer::dispatchOrphan(Frame const& frame) {
  using Section = Out::PayloadSection;
  in_->payloadIs(frame.payload, frame.payloadSize);
  if (frame.attributeId == -orphanAttribute) return dispatchWithdrawal();
  if (frame.attributeId != orphanAttribute) throw StreamException(StreamError::badOrphan);

  auto const section = [this](Section wanted, auto const& read) {
    if (static_cast<Section>(in_->nextU8()) != wanted)
      throw StreamException(StreamError::badOrphan);
    std::size_t const size = in_->nextU32();
    unsigned char const* const end = in_->endMark();
    if (size > in_->bytesAvailable()) throw StreamException(StreamError::badOrphan);
    in_->endMarkIs(in_->position() + size);
    unsigned char const* const next = in_->endMark();
    read();
    in_->endMarkIs(end);
    in_->positionIs(next);
  };
  MoxType const* type = nullptr;
  section(Section::typeSection, [&] { type = MoxType::typeNode(Name(in_->nextString())); });
  // A root needs a place; what references lead to is taken from whom they are taken.
  bool const isRoot = type != nullptr && type->isRootType();
  bool const isTaken = type != nullptr && (importDir_ || (!isRoot && mayPeerWrite()));
  Ptr<Entity> made;
  section(Section::constructorSection, [&] {
    if (!isTaken) return;
    try {
      made = type->newEntity(in_, PtrInterface::NotifieeConst::Mox_BitSet(rootFlags(false)), 1,
                             nullptr);
    } catch (Exception const&) {
      throw StreamException(StreamError::badValue);
    }
    if (made && in_->bytesAvailable() != 0) throw StreamException(StreamError::badOrphan);
  });
  EntityId id;
  section(Section::identitySection, [&] { id = in_->nextEntityId(); });
  if (in_->bytesAvailable() != 0) throw StreamException(StreamError::badOrphan);
  if (!id.isUnified() || id == orphanTarget || reactor(id) != nullptr) {
    throw StreamException(StreamError::badId);
  }

  Ptr<Entity> entity = made;
  Ptr<Dir::Entry> entry = isRoot && made ? importDir_->entry(made->name()) : Ptr<Dir::Entry>();
  if (entry && (entry->target()->fwkType() != type || isMounted(**entry->target()))) entity = {};
  if (!entity || !entity->moxHasAttrLogInterface()) {
    ++stats_.refusedOrphans;
    refused_.insert(id.value());
    return;
  }
  if (isRoot) {
    if (!entry) entry = importDir_->entryIs(made->name(), made);
    entity = entry->target();
    imports_->rootIs(peerName(), entry, this);
  } else if (Ptr<Entity> present = imports_->claim(peerName(), **made, this)) {
    entity = present;
  } else {
    imports_->shelve(peerName(), made, this);
  }
  Ptr<Sa> adapter = entity->moxNboAttrLogSaIs(
      PtrInterface::NotifieeConst::Mox_BitSet(rootFlags(false)), 1, out_, nullptr);
  adapter->originIs(StreamAdapter::Origin::importedOrphan);
  frameStartsHold_ = frame.fullTransferFollows;
  reactorIs(id, **adapter, true);
  frameStartsHold_ = false;
}

/// Once, when all that the peer had at first has come, or was taken back before it came.
void Demuxer::dropStaleShelved() {
  if (isShelfSwept_ || !inStep()) return;
  isShelfSwept_ = true;
  imports_->dropStaleShelved(peerName());
}

/// True when this or another connection has brought the root and still stands.
bool Demuxer::isMounted(Entity& root) const {
  for (Ptr<Demuxer> const& demuxer : globalNboAttrLogDemuxerManager().nboDemuxerIterator()) {
    Ptr<Sa> const adapter = root.moxNboAttrLogSa(Ptr<Out const>(demuxer->out()));
    if (adapter && (demuxer.get() == this || adapter->hasFlag(notAuthority))) return true;
  }
  return false;
}

void Demuxer::dispatchWithdrawal() {
  EntityId const id = in_->nextEntityId();
  if (in_->bytesAvailable() != 0) throw StreamException(StreamError::badLength);
  if (!id.isUnified()) throw StreamException(StreamError::badId);
  Ptr<Sa> const adapter(reactor(id));
  if (!adapter) {
    if (refused_.erase(id.value()) == 0) ++stats_.strays;
    return;
  }
  if (adapter->origin_ != StreamAdapter::Origin::importedOrphan) {
    throw StreamException(StreamError::badOrphan);
  }
  Ptr<Entity> const entity = adapter->moxNotifierEntity();
  adapter->doRemountSelf(Ptr<Out>());
  if (entity) imports_->drop(entity.get(), this);
}

}  // namespace Mox::NboAttrLog
