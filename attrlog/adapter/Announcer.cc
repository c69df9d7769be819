// Orphan messages, their withdrawal, and the ids of references.
#include "attrlog/adapter/Announcer.h"

#include <algorithm>
#include <limits>

#include "Mox/Exception.h"
#include "attrlog/adapter/AdapterHost.h"
#include "registry/MoxType.h"

namespace Mox::NboAttrLog {

void Announcer::waitingDel(Ptr<Entity> const& entity) {
  waiting_.erase(std::remove(waiting_.begin(), waiting_.end(), entity), waiting_.end());
}

Ptr<Entity> Announcer::nextWaiting() {
  Ptr<Entity> const entity = waiting_.front();
  waiting_.pop_front();
  return entity;
}

void Announcer::announce(Ptr<Entity> const& entity) {
  if (entity->moxNboAttrLogSa(Ptr<Out const>(host_.out))) return;
  Ptr<Sa> const adapter = entity->moxNboAttrLogSaIs(host_.rootFlags(true), 1, host_.out, nullptr);
  adapter->originIs(StreamAdapter::Origin::exportedOrphan);
  adapter->moxOnInit();
  sendAnnouncement(**adapter);
}

void Announcer::sendAnnouncement(Sa& adapter) {
  try {
    adapter.doSerializeOrphan();
  } catch (MessageTooLong const&) {
    host_.tooLong(std::string(adapter.rawEntity()->fullName().view()));
    host_.retire(adapter);
  } catch (...) {
    host_.retire(adapter);
    throw;
  }
}

/// True when a tree of the connection, or of one about to be announced, holds the entity.
bool Announcer::isTreeAnnounced(Entity const& entity) const {
  for (Entity const* above = entity.moxRawParent(); above != nullptr;
       above = above->moxRawParent()) {
    auto const isAbove = [above](Ptr<Entity> const& root) { return root.get() == above; };
    if (above->moxNboAttrLogSa(Ptr<Out const>(host_.out)) ||
        std::any_of(waiting_.begin(), waiting_.end(), isAbove)) {
      return true;
    }
  }
  return false;
}

EntityId Announcer::referenceId(Entity& target, bool isInMessage, bool announces) {
  auto const unavailable = [&] {
    host_.scheduler.blockedOnIs(&target);
    throw EntityIdUnavailableException("entity has no id on this connection yet",
                                       Exception::IdBitArray());
  };
  Ptr<Out const> const out(host_.out);
  Ptr<Entity::MoxNboAttrLogSa> adapter = target.moxNboAttrLogSa(out);
  if (!adapter) {
    // A tree announces its own entities.
    if (!announces || !target.moxHasAttrLogInterface() || isTreeAnnounced(target)) unavailable();
    {
      FlowScheduler::OnlyQueue const anchor(host_.scheduler);
      announce(Ptr<Entity>(&target));
    }
    if (isInMessage) {
      throw AttrLogRecordException("an entity was announced within a message",
                                   Exception::IdBitArray());
    }
    adapter = target.moxNboAttrLogSa(out);
  }
  if (!adapter || !adapter->isAnnounced() || adapter->hasFlag(boundByTransaction)) unavailable();
  return adapter->entityId();
}

void Announcer::sentIs(Sa const& adapter) {
  EntityId const id = adapter.entityId();
  inFlight_.push_back({host_.exchange.framesCommitted(), id, claim(*adapter.rawEntity())});
  // What the peer writes before it has this is about the one that was withdrawn.
  if (!host_.reactors.isGone(id)) return;
  std::uint64_t& until = contested_[id];
  until = std::max(until, inFlight_.back().frame);
}

bool Announcer::isInFlight(EntityId id) const {
  return std::any_of(inFlight_.begin(), inFlight_.end(),
                     [id](Sent const& sent) { return sent.id == id; });
}

Claim Announcer::claim(Entity const& entity) const {
  if (host_.identities->isOwn(host_.identities->idOf(entity))) return Claim::chosen;
  // A root that another connection has brought is refused.
  if (entity.fwkType()->isRootType()) return Claim::none;
  for (AdapterHost const* const host : adapterHosts()) {
    if (host == &host_) continue;
    Ptr<Sa const> const adapter = entity.moxNboAttrLogSa(Ptr<Out const>(host->out));
    if (adapter && adapter->hasFlag(notAuthority)) return Claim::elsewhere;
  }
  return Claim::none;
}

void Announcer::contest(Entity& entity, EntityId id, bool holds) {
  ++host_.stats.contested;
  constexpr std::uint64_t forGood = std::numeric_limits<std::uint64_t>::max();
  if (auto const at = contested_.find(id); at != contested_.end() && at->second == forGood) return;
  Claim const claim = this->claim(entity);
  Ptr<Sa> const adapter = entity.moxNboAttrLogSa(Ptr<Out const>(host_.out));
  bool const isExport = adapter && adapter->origin() == StreamAdapter::Origin::exportedOrphan;
  bool const isOnItsWay =
      isExport && std::any_of(inFlight_.begin(), inFlight_.end(), [&](Sent const& sent) {
        return sent.id == id && sent.claim == claim;
      });
  if (!isOnItsWay) announceAnew(Ptr<Entity>(&entity));
  for (Sent const& sent : inFlight_) {
    if (sent.id == id) contested_[id] = holds ? sent.frame : forGood;
  }
}

void Announcer::yield(Sa& adapter) {
  contested_.erase(adapter.entityId());
  host_.beginAnew(adapter, StreamAdapter::Origin::importedOrphan);
}

/// Announces the entity, also where the peer has announced it.
void Announcer::announceAnew(Ptr<Entity> const& entity) {
  Ptr<Sa> const adapter = entity->moxNboAttrLogSa(Ptr<Out const>(host_.out));
  if (!adapter) return announce(entity);
  host_.beginAnew(**adapter, StreamAdapter::Origin::exportedOrphan);
  adapter->isTransferBegunIs(false);
  sendAnnouncement(**adapter);
}

void Announcer::acknowledgedIs(std::uint64_t acknowledged) {
  while (!inFlight_.empty() && inFlight_.front().frame <= acknowledged) inFlight_.pop_front();
  std::erase_if(contested_, [&](auto const& entry) { return entry.second <= acknowledged; });
}

void Announcer::sendWithdrawals() {
  while (host_.isRunning() && !withdrawn_.empty() && host_.out->freeSpace() >= runReserve) {
    EntityId const id = withdrawn_.front();
    withdrawn_.pop_front();
    MsgHeader header;
    header.entityId = orphanTarget;
    header.attributeId = -orphanAttribute;
    host_.out->nextHeaderIs(header);
    // Before this withdrawal could go out, the peer's own announcement may have come.
    auto const* const adapter = host_.reactors.reactor(id);
    if (adapter && adapter->origin() == StreamAdapter::Origin::importedOrphan) {
      host_.out->claimIs(Claim::chosen);
    }
    host_.out << Connection::Out::TransactToken::tokenBegin << id
              << Connection::Out::TransactToken::tokenEnd;
  }
}

void Announcer::clear() {
  waiting_.clear();
  withdrawn_.clear();
  inFlight_.clear();
  contested_.clear();
}

}  // namespace Mox::NboAttrLog
