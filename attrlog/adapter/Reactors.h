// Which adapter an entity id names on a connection, and what an id may name that has none: an
// entity that this end refused, or one that it has given up while the peer may still name it. The
// adapters' host enters and removes; readers and writers ask.
//
// R1  each adapter of the table has the id under which it is entered, and hasn't retired
// R2  each id that is gone is either waiting for its last frame or for the ack of that frame
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Mox/HashMap.h"
#include "Mox/Ptr.h"
#include "attrlog/adapter/StreamAdapter.h"
#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// What an id leads to that the peer uses.
enum class Naming : std::uint8_t {
  known,    ///< an entity
  refused,  ///< one that this end did not take: read as null
  gone,     ///< one that this end has given up, which the peer could not know yet
  unknown,  ///< nothing: the peer is at fault
};

class Reactors {
 public:
  using Sa = Entity::MoxNboAttrLogSa;

  /// The adapter with this id; null for none.
  Sa* reactor(EntityId id) const { return table_[id]; }
  std::size_t size() const { return table_.size(); }
  /// The live entity of an announced or bound id; null for none.
  Ptr<Entity> entity(EntityId id) const;
  Naming naming(EntityId id) const;
  /// Calls `visit` for each adapter; it must change nothing.
  void forEach(std::function<void(Sa&)> const& visit) const;
  std::vector<Ptr<Sa>> all() const;

  /// Enters the adapter under its own id. Requires: no other adapter has it.
  void enter(Sa& adapter) {
    table_.newMember(Ptr<Sa>(&adapter));
    --outside_;
  }
  /// Removes an id; returns its adapter.
  Ptr<Sa> remove(EntityId id);

  /// An adapter of the connection is outside of the table, and counted until it enters or ends.
  void outsideInc() { ++outside_; }
  void outsideDec() { --outside_; }
  /// Somewhere in the process an entity has different ids on two connections.
  static void idsDifferIs() { idsDiffer_ = true; }
  /// True when a miss under the id that an entity has on another connection means that it has no
  /// adapter on this one.
  bool isComplete() const { return outside_ == 0 && !idsDiffer_; }

  // Ids without an adapter.

  void refusedIs(EntityId id) { refused_.insert(id.value()); }
  bool isRefused(EntityId id) const { return refused_.contains(id.value()); }
  /// False for an id that was never refused.
  bool refusedDel(EntityId id) { return refused_.erase(id.value()) != 0; }
  /// This end has given the id up. The peer may name it in frames until it has acknowledged the
  /// last frame that says so, which is at the latest the last one that is owed now.
  void goneIs(EntityId id) {
    ++gone_[id.value()];
    goneOwed_.push_back(id);
  }
  bool isGone(EntityId id) const { return gone_.contains(id.value()); }
  bool isAnyGoneOwed() const { return !goneOwed_.empty(); }
  bool isAnyGoneSent() const { return !goneSent_.empty(); }
  /// All that was owed is among the first `committed` frames.
  void goneSentIs(std::uint64_t committed);
  /// The peer has seen the first `acknowledged` frames.
  void acknowledgedIs(std::uint64_t acknowledged) {
    while (!goneSent_.empty() && goneSent_.front().first <= acknowledged) goneForget();
  }

  void clear();
  /// The first broken invariant; empty when all hold.
  std::string brokenInvariant() const;

 private:
  void goneForget();

  static bool idsDiffer_;

  HashMap<Sa, EntityId> table_;
  std::size_t outside_ = 0;
  std::unordered_set<std::uint64_t> refused_;
  std::unordered_map<std::uint64_t, unsigned int> gone_;  ///< how often each was given up
  std::vector<EntityId> goneOwed_;
  std::deque<std::pair<std::uint64_t, EntityId>> goneSent_;  ///< by the last frame that says so
};

}  // namespace NboAttrLog
}  // namespace Mox
