// Operations of a keyed collection whose members the entity owns. Generated one-liners call these
// with the map, the attribute's id, and functions that make and announce a member.
#pragma once

#include "Mox/HashMap.h"
#include "Mox/Ptr.h"
#include "model/Child.h"

namespace MOX_API Mox {

/// `xIs(key, params...)`: the member with this key, made if there is none. The parameters of a
/// member that exists must be equal; then the parent's version rises, without notification.
template <class Owner, class Map, class Key, class Make, class Notify, class... Params>
auto childIs(Owner& owner, Map& map, Key const& key, Make const& make, Notify const& notify,
             Params const&... params) {
  using Child = typename Map::MemberType;
  if (Ptr<Child> present = map[key]) {
    (params.check(**present), ...);
    owner.moxVersionInc();
    return ValidPtr<Child>(present);
  }
  Ptr<Child> const made = make();
  owner.moxVersionInc();
  notify(key);
  return ValidPtr<Child>(made);
}

/// `newX(key, params...)`: links a new child. No count, no notification.
/// Requires: no member has this key.
template <class Owner, class Map, class Child>
Ptr<Child> adoptMember(Owner& owner, Map& map, Ptr<Child> const& child, AttributeId attribute) {
  requireFreeKey(!map[HashMapMember<Child>::key(**child)]);
  child->parentAttrIdIs(attribute);
  map.newMember(child);
  child->moxOwnerIs(Ptr<Entity>(&owner));
  return child;
}

/// Takes out a member of the map: version, parent, notification, in this order.
template <class Owner, class Map, class Child, class Key, class Notify>
Ptr<Child> childRemove(Owner& owner, Map& map, Ptr<Child> const& child, Key const& key,
                       Notify const& notify) {
  map.deleteMember(child);
  owner.moxVersionInc();
  child->parentIs(Ptr<Entity>());
  notify(key);
  return child;
}

/// `xDel(key)`: null for a missing key, without any effect.
template <class Owner, class Map, class Key, class Notify>
auto childDel(Owner& owner, Map& map, Key const& key, Notify const& notify) {
  Ptr<typename Map::MemberType> const child = map[key];
  return child ? childRemove(owner, map, child, key, notify) : child;
}

/// `xDel(iterator)`: takes out the member that the iterator stands on, and leaves it there. Null
/// for an iterator at its end.
template <class Owner, class Map, class Notify>
auto childDelAt(Owner& owner, Map& map, typename Map::Iterator const& at, Notify const& notify) {
  Ptr<typename Map::MemberType> const child = *at;
  if (!child) return child;
  requireMember(at.isOnMemberOf(map));
  return childRemove(owner, map, child, at.key(), notify);
}

/// `x(key)`: a look-up counts as a read, hit or miss.
template <class Owner, class Map, class Key>
auto childOf(Owner const& owner, Map const& map, Key const& key) {
  owner.moxReadCountInc();
  return Ptr<typename Map::MemberType>(map[key]);
}

}  // namespace Mox
