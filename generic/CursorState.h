// The state block of a cursor: one layout for every collection. Only the generic objects that make
// and move cursors look into it.
#pragma once

#include <cstdint>

#include "Mox/Entity.h"
#include "Mox/HashMap.h"
#include "generic/GenericIf.h"

namespace MOX_API Mox {

struct CursorState {
  /// The map's change stamp when the place was last known good.
  std::uint32_t stamp = 0;
  /// -1 without a member.
  std::int32_t bucket = -1;
  /// Null for a cursor that stood at the end from the start.
  HashMapGeneric* map = nullptr;
  /// Held: a member that was taken out keeps its place. Null at the end.
  Ptr<PtrInterface> member;
  /// Keeps the map alive, whatever becomes of the generic object.
  Ptr<Entity> owner;

  static CursorState* of(GenericIf::AttributeIteratorConst const& at) {
    return static_cast<CursorState*>(at.state);
  }
  static void* clone(GenericIf::AttributeIteratorConst const& at) {
    return at.state ? new CursorState(*of(at)) : nullptr;
  }
  static bool nonNull(GenericIf::AttributeIteratorConst const& at) {
    return at.state && of(at)->member;
  }
  static void del(GenericIf::AttributeIteratorConst const& at) {
    CursorState* const state = of(at);
    at.state = nullptr;
    delete state;
  }

  /// Stands on the first member of `map`.
  static CursorState* first(Ptr<Entity> const& owner, HashMapGeneric& map) {
    auto* const state = new CursorState{map.version(), -1, &map, {}, owner};
    state->member = map.findNextG(nullptr, &state->bucket);
    return state;
  }
  /// Stands on the member with this key, or at the end. `hash`: that of the key, reversed.
  static CursorState* at(Ptr<Entity> const& owner, HashMapGeneric& map, void const* key,
                         std::uint32_t hash) {
    int bucket = -1;
    PtrInterface* const member = map.startAtHash(key, hash, &bucket);
    // No stop at the key that follows.
    if (member && !map.moxKeyEquals(key, member)) return new CursorState;
    bool const isInTable = bucket < static_cast<std::int64_t>(map.bucketCount());
    return new CursorState{isInTable ? map.version() : 0, bucket, &map, member, owner};
  }

  void advance() {
    if (!member) return;
    PtrInterface* next;
    if (stamp == map->version()) {
      next = map->moxNext(member.get());
      if (next == member.get()) return;
      if (!next) next = map->findNextBucket(&bucket);
      if (!next) bucket = -1;
    } else {
      next = map->findNextG(member.get(), &bucket);
      stamp = map->version();
    }
    // Last: the release may destroy the old member, and that may change the map.
    member.ptrAssign(next);
  }
};

}  // namespace Mox
