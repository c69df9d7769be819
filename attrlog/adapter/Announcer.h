// Announces entities without a parent on a connection: exported roots and what only references
// lead to; and withdraws them. Roots queue here; reference writers ask for ids.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <utility>

#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class AdapterHost;

class Announcer {
 public:
  using Sa = Entity::MoxNboAttrLogSa;

  explicit Announcer(AdapterHost& host) : host_(host) {}

  // Roots.

  /// The entity is to be announced when there is room.
  void waitingIs(Ptr<Entity> const& entity) { waiting_.push_back(entity); }
  void waitingDel(Ptr<Entity> const& entity);
  bool isWaiting(Ptr<Entity> const& entity) const {
    return std::find(waiting_.begin(), waiting_.end(), entity) != waiting_.end();
  }
  bool isAnyWaiting() const { return !waiting_.empty(); }
  /// The next one that waits, and has left the queue. Requires: one waits.
  Ptr<Entity> nextWaiting();
  /// Announces an entity; its full transfer follows. One with an adapter is passed over. A message
  /// that the peer would not take is counted and reported.
  void announce(Ptr<Entity> const& entity);

  // References.

  /// The id of an entity for a message. `announces`: it is announced if it belongs to no tree of
  /// the connection. `isInMessage`: a message is being written, which an announcement drops. Throws
  /// `AttrLogRecordException` when that has happened, `EntityIdUnavailableException` when the peer
  /// can't know the entity yet.
  EntityId referenceId(Entity& target, bool isInMessage, bool announces);

  // Announcements that cross: both ends announce one id at a time, and one of them yields.

  /// The frame committed last announces the adapter's entity.
  void sentIs(Sa const& adapter);
  /// What this end's announcement of the entity would say.
  Claim claim(Entity const& entity) const;
  /// The peer announces, under the id, what it isn't the authority for: what it writes about the
  /// entity is void until it has seen this end's announcement, which is sent unless it is on its
  /// way; for good where the peer won't give way (`holds` is false). Its references hold.
  void contest(Entity& entity, EntityId id, bool holds);
  /// The peer's announcement holds: the adapter is to be bound to it.
  void yield(Sa& adapter);
  bool isAnyContested() const { return !contested_.empty(); }
  bool isContested(EntityId id) const { return contested_.contains(id); }
  /// True when an announcement of the id is on its way: the peer hasn't seen it for sure.
  bool isInFlight(EntityId id) const;
  /// The peer has seen the first `acknowledged` frames.
  void acknowledgedIs(std::uint64_t acknowledged);

  // Withdrawals.

  /// An announced entity has left the connection: the peer is to drop it.
  void withdrawnIs(EntityId id) { withdrawn_.push_back(id); }
  void sendWithdrawals();
  bool isAnyWithdrawn() const { return !withdrawn_.empty(); }
  bool isWithdrawalOwed(EntityId id) const {
    return std::find(withdrawn_.begin(), withdrawn_.end(), id) != withdrawn_.end();
  }

  void clear();

 private:
  struct Sent {
    std::uint64_t frame;
    EntityId id;
    Claim claim;
  };

  void announceAnew(Ptr<Entity> const& entity);
  void sendAnnouncement(Sa& adapter);
  bool isTreeAnnounced(Entity const& entity) const;

  AdapterHost& host_;
  std::deque<Ptr<Entity>> waiting_;
  std::deque<EntityId> withdrawn_;
  /// The announcements that the peer hasn't acknowledged, in order.
  std::deque<Sent> inFlight_;
  /// Contested ids, each with the frame of this end's last announcement; with the last frame of
  /// all where the peer won't give way.
  std::map<EntityId, std::uint64_t> contested_;
};

}  // namespace NboAttrLog
}  // namespace Mox
