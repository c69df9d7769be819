// Operations of a keyed collection of values. Members are wrappers with key, value and link;
// generated one-liners call these.
#pragma once

#include "Mox/HashMap.h"
#include "Mox/Ptr.h"
#include "model/Child.h"

namespace MOX_API Mox {

/// `newX(key, value)`: links a wrapper. No count, no notification.
/// Requires: no member has this key.
template <class Member, class Map>
Ptr<Member> newValueMember(Map& map, typename Map::KeyType const& key,
                           typename Map::ValueType const& value) {
  requireFreeKey(!map[key]);
  Ptr<Member> const member(new Member(key, value));
  map.newMember(member);
  return member;
}

/// `xIs(key, value)`: with an equal value nothing at all happens.
template <class Owner, class Map, class Key, class Value, class Notify>
void valueIs(Owner& owner, Map& map, Key const& key, Value const& value, Notify const& notify) {
  using Member = typename Map::MemberType;
  if (Member* present = map[key]) {
    if (present->value() == value) return;
    present->valueIs(value);
  } else {
    newValueMember<Member>(map, key, value);
  }
  owner.moxVersionInc();
  notify(key);
}

/// Takes out a member of the map.
template <class Owner, class Map, class Member, class Notify>
auto valueRemove(Owner& owner, Map& map, Ptr<Member> const& member, Notify const& notify) {
  auto value = member->value();
  map.deleteMember(member);
  owner.moxVersionInc();
  notify(member->key());
  return value;
}

/// `xDel(key)`: the removed value; the type's default for a missing key, without any effect.
template <class Owner, class Map, class Key, class Notify>
auto valueDel(Owner& owner, Map& map, Key const& key, Notify const& notify) {
  Ptr<typename Map::MemberType> const member = map[key];
  return member ? valueRemove(owner, map, member, notify) : typename Map::ValueType();
}

/// `xDel(iterator)`: the same for the member that the iterator stands on.
template <class Owner, class Map, class Notify>
auto valueDelAt(Owner& owner, Map& map, typename Map::Iterator const& at, Notify const& notify) {
  if (!at) return typename Map::ValueType();
  requireMember(at.isOnMemberOf(map));
  Ptr<typename Map::MemberType> const member = at.ptr();
  return valueRemove(owner, map, member, notify);
}

/// `x(key)`: the value, or the type's default; counts as a read.
template <class Owner, class Map, class Key>
auto valueOf(Owner const& owner, Map const& map, Key const& key) {
  owner.moxReadCountInc();
  typename Map::MemberType const* member = map[key];
  return member ? member->value() : typename Map::ValueType();
}

}  // namespace Mox
