// Announces entities without a parent on a connection: exported roots and what only references
// lead to; and withdraws them. Roots queue here; reference writers ask for ids.
#pragma once

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
  explicit Announcer(AdapterHost& host) : host_(host) {}

  // Roots.

  /// The entity is to be announced when there is room.
  void waitingIs(Ptr<Entity> const& entity) { waiting_.push_back(entity); }
  void waitingDel(Ptr<Entity> const& entity);
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

  /// The frame committed last announces the id.
  void sentIs(EntityId id);
  /// The peer has announced an id that is this end's: its frames about it are void until it has
  /// seen this end's announcement.
  void contestedIs(EntityId id);
  bool isContested(EntityId id) const { return !contested_.empty() && contested_.contains(id); }
  /// True when an announcement of the id is on its way: the peer hasn't seen it for sure.
  bool isInFlight(EntityId id) const;
  /// The peer has seen the first `acknowledged` frames.
  void acknowledgedIs(std::uint64_t acknowledged);

  // Withdrawals.

  /// An announced entity has left the connection: the peer is to drop it.
  void withdrawnIs(EntityId id) { withdrawn_.push_back(id); }
  void sendWithdrawals();
  bool isAnyWithdrawn() const { return !withdrawn_.empty(); }

  void clear();

 private:
  bool isTreeAnnounced(Entity const& entity) const;

  AdapterHost& host_;
  std::deque<Ptr<Entity>> waiting_;
  std::deque<EntityId> withdrawn_;
  /// The frames of the announcements that the peer hasn't acknowledged, in order.
  std::deque<std::pair<std::uint64_t, EntityId>> inFlight_;
  /// Contested ids, each with the frame of this end's last announcement.
  std::map<EntityId, std::uint64_t> contested_;
};

}  // namespace NboAttrLog
}  // namespace Mox
