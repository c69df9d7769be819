// Announcing roots, and what becomes of an orphan message.
#include "attrlog/link/Roots.h"

#include <utility>
#include <vector>

#include "Mox/Exception.h"
#include "attrlog/wire/WireSchema.h"
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

/// The type and the constructor arguments that stand between `start` and the position of `in`, as
/// bytes; of a reference, what it leads to here.
std::string argumentsOf(MoxType const& type, unsigned char const* start, In& in) {
  unsigned char const* const end = in.position();
  std::string bytes(type.qualifiedName().view());
  WireType const* const wire = wireType(bytes);
  in.positionIs(start);
  for (WireArg const& argument : wire ? wire->args : WireArgs{nullptr, 0}) {
    if (argument.next == nullptr) {
      auto const target = reinterpret_cast<std::uintptr_t>(in.nextEntity().get());
      bytes.append(reinterpret_cast<char const*>(&target), sizeof target);
      continue;
    }
    unsigned char const* const from = in.position();
    argument.next(in);
    bytes.append(reinterpret_cast<char const*>(from), in.position() - from);
  }
  in.positionIs(end);
  return bytes;
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
    if (!imports_->isRootFrom(root.get(), peer())) host_.announcer.announce(root);
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
  if (frame.attributeId == -orphanAttribute) return withdrawal(frame);
  if (frame.attributeId != orphanAttribute) throw StreamException(StreamError::badOrphan);

  using Section = Out::PayloadSection;
  MoxType const* type = nullptr;
  readSection(in, Section::typeSection, [&] { type = MoxType::typeNode(Name(in.nextString())); });
  // A root needs a place; others are accepted from peers that may write.
  bool const isRoot = type != nullptr && type->isRootType();
  bool const isAccepted = type != nullptr && (dir_ || (!isRoot && host_.mayPeerWrite()));
  Ptr<Entity> made;
  std::string arguments;
  readSection(in, Section::constructorSection, [&] {
    if (!isAccepted) return;
    unsigned char const* const start = in.position();
    try {
      made = type->newEntity(host_.in, host_.rootFlags(false), 1, nullptr);
    } catch (Exception const&) {
      throw StreamException(StreamError::badValue);
    }
    if (made && in.bytesAvailable() != 0) throw StreamException(StreamError::badOrphan);
    if (!isRoot) arguments = argumentsOf(*type, start, in);
  });
  EntityId id;
  readSection(in, Section::identitySection, [&] { id = in.nextEntityId(); });
  if (in.bytesAvailable() != 0) throw StreamException(StreamError::badOrphan);
  if (!id.isUnified() || id == orphanTarget) throw StreamException(StreamError::badId);

  if (isOwn(id, frame, isAccepted, isRoot)) return;
  Ptr<Dir::Entry> const entry = isRoot && made ? dir_->entry(made->name()) : Ptr<Dir::Entry>();
  // This end's own root, which it doesn't export: the peer has yet to hear of that.
  bool const isWithdrawn = isRoot && host_.identities->isOwn(id);
  bool const isTaken =
      entry && (entry->target()->fwkType() != type || isMounted(**entry->target()));
  if (!made || isWithdrawn || isTaken || !made->moxHasAttrLogInterface()) {
    ++host_.stats.refusedOrphans;
    host_.reactors.refusedIs(id);
    return;
  }
  Ptr<Entity> const entity = isRoot ? root(made, entry, id) : other(made, id, arguments);
  Ptr<Sa> const adapter = entity->moxNboAttrLogSaIs(host_.rootFlags(false), 1, host_.out, nullptr);
  if (adapter->hasFlag(readOnlyHere)) host_.hasReadOnlyCopies = true;
  adapter->originIs(StreamAdapter::Origin::importedOrphan);
  host_.identities->idIs(**entity, id, false);
  host_.inHand.startsTransferIs(frame.fullTransferFollows);
  host_.reactorIs(id, **adapter, true);
  host_.inHand.startsTransferIs(false);
  if (!isRoot) takeOverElsewhere(**entity);
}

/// True when the peer announces what is this end's: where both ends announce, or may announce, one
/// id, the greater claim holds. Of equal ones: among processes that have it from elsewhere neither;
/// otherwise that of the lower nonce. The other end's announcement gives way.
bool Roots::isOwn(EntityId id, Frame const& frame, bool isAccepted, bool isRoot) {
  Sa* const adapter = host_.reactors.reactor(id);
  if (adapter && adapter->origin() == StreamAdapter::Origin::importedOrphan && !isRoot) {
    // The peer contests an announcement of this end that has given way meanwhile.
    host_.announcer.yield(*adapter);
    return false;
  }
  if (adapter && adapter->origin() != StreamAdapter::Origin::exportedOrphan) {
    throw StreamException(StreamError::badId);
  }
  Ptr<Entity> const entity =
      adapter ? adapter->moxNotifierEntity() : Ptr<Entity>(host_.identities->entity(id));
  if (!entity) return false;
  if (isRoot && !adapter && !host_.announcer.isWaiting(entity)) return false;
  Claim const claim = host_.announcer.claim(**entity);
  bool const isTie = claim == frame.claim;
  bool const isShared = isTie && claim == Claim::elsewhere;
  bool const isNearer = isTie && adapter && host_.nonce() < host_.peer().nonce;
  bool const isRefused = adapter && !isAccepted;
  if (claim > frame.claim || claim == Claim::chosen || isShared || isNearer || isRefused) {
    bool const holds = host_.mayAnnounce() && !isShared && !isRefused;
    host_.announcer.contest(**entity, id, holds);
    return true;
  }
  if (adapter) host_.announcer.yield(*adapter);
  return false;
}

/// The root that stands in the directory under the name, or the new one.
Ptr<Entity> Roots::root(Ptr<Entity> const& made, Ptr<Dir::Entry> entry, EntityId id) {
  Ptr<Entity> const root = entry ? entry->target() : made;
  // Whoever hears of it from the directory may export it: not back to the peer, and by this id.
  host_.identities->idIs(**root, id, false);
  imports_->rootIs(peer(), root, entry, &host_);
  if (entry) return root;
  entry = dir_->entryIs(made->name(), made);
  imports_->rootIs(peer(), root, entry, &host_);
  return root;
}

/// The entity that the id names here; or, if the peer's process is another than before, one that it
/// announced then, made of the same arguments; or the new one.
Ptr<Entity> Roots::other(Ptr<Entity> const& made, EntityId id, std::string const& arguments) {
  Ptr<Entity> entity(host_.identities->entity(id));
  if (entity && entity->fwkType() != made->fwkType()) entity = {};
  if (!entity) entity = imports_->claim(peer(), arguments);
  if (!entity) entity = made;
  imports_->shelve(peer(), entity, arguments, &host_);
  return entity;
}

/// The entity's authority is behind this connection: whoever else has brought it is told it from
/// here.
void Roots::takeOverElsewhere(Entity& entity) {
  std::vector<AdapterHost*> const hosts = adapterHosts();
  for (AdapterHost* const host : hosts) {
    if (host == &host_) continue;
    Ptr<Sa> const adapter = entity.moxNboAttrLogSa(Ptr<Out const>(host->out));
    if (!adapter || adapter->origin() != StreamAdapter::Origin::importedOrphan) continue;
    if (host->mayAnnounce()) host->announcer.contest(entity, adapter->entityId(), true);
  }
}

/// True when this or another connection has brought the root and is still there.
bool Roots::isMounted(Entity& root) const {
  for (AdapterHost const* const host : adapterHosts()) {
    Ptr<Sa> const adapter = root.moxNboAttrLogSa(Ptr<Out const>(host->out));
    if (adapter && (host == &host_ || adapter->hasFlag(notAuthority))) return true;
  }
  return false;
}

void Roots::withdrawal(Frame const& frame) {
  In& in = **host_.in;
  EntityId const id = in.nextEntityId();
  if (in.bytesAvailable() != 0) throw StreamException(StreamError::badLength);
  if (!id.isUnified()) throw StreamException(StreamError::badId);
  // The peer withdraws what it announced itself; this end's own announcement is on its way.
  if (host_.announcer.isContested(id)) return;
  Ptr<Sa> const adapter(host_.reactors.reactor(id));
  if (!adapter) {
    if (!host_.reactors.refusedDel(id)) ++host_.stats.strays;
    return;
  }
  // It was announced against this end's own.
  if (adapter->origin() == StreamAdapter::Origin::exportedOrphan) return;
  if (adapter->origin() != StreamAdapter::Origin::importedOrphan) {
    throw StreamException(StreamError::badOrphan);
  }
  // Behind what it withdraws the peer meets, or has met, this end's own announcement.
  bool const isOwnKept = frame.claim == Claim::chosen || host_.announcer.isInFlight(id);
  Ptr<Entity> const entity = adapter->moxNotifierEntity();
  if (isOwnKept) {
    host_.reclaim(**adapter);
  } else {
    adapter->doRemountSelf(Ptr<Out>());
  }
  if (entity) imports_->drop(peer(), entity.get());
}

void Roots::complete(Frame const& frame) {
  if (frame.payloadSize != 0) throw StreamException(StreamError::badLength);
  isPeerDone_ = true;
  imports_->dropStaleRoots(peer());
}

void Roots::dropStale() {
  if (!inStep() || std::exchange(isShelfSwept_, true)) return;
  imports_->dropStaleShelved(peer());
}

void Roots::close() { imports_->staleIs(peer(), &host_); }

}  // namespace Mox::NboAttrLog
