// A collection of children whose type has no link of its own: each is held by a wrapper, which has
// the link and finds its key in the child. Generated one-liners call these.
//
// A wrapper is a public class, so a client can take its child out or put another one in under the
// map. A wrapper without a child is no member; whoever comes across it removes it, and removal
// finds it wherever it is linked.
#pragma once

#include <cstdint>

#include "Mox/HashMap.h"
#include "Mox/Ptr.h"
#include "model/Child.h"

namespace MOX_API Mox {

/// The fields of a wrapper: the child, null at first, and the link.
template <class Self, class Child>
class ChildWrapper : public PtrInterface {
 public:
  Ptr<Child> const& child() const { return child_; }

 protected:
  /// The child with this name and these parameters, made if the wrapper holds none or another.
  /// No version, no notification.
  template <class Make, class... Params>
  ValidPtr<Child> childIs(Name const& name, Make const& make, Params const&... params) {
    if (Ptr<Child> present = child_) {
      bool const sameName = present->name() == name;
      if ((static_cast<int>(params.matches(**present)) & ... & static_cast<int>(sameName)) != 0) {
        return ValidPtr<Child>(present);
      }
      present->parentIs(Ptr<Entity>());
    }
    Ptr<Child> const made = make();
    child_ = made;
    return ValidPtr<Child>(made);
  }
  /// Takes the child out; null when there was none.
  Ptr<Child> childDel() {
    Ptr<Child> const child = child_;
    if (!child) return child;
    child_ = nullptr;
    child->parentIs(Ptr<Entity>());
    return child;
  }

 private:
  Ptr<Child> child_;

 public:
  Ptr<Self> next;
};

/// The wrapper with this key, or null. Reads the keys in the bucket up to it; `isEmpty` is called
/// on each wrapper there that has no child.
template <class Map, class Key, class IsEmpty>
typename Map::MemberType* findWrapper(Map const& map, Key const& key, IsEmpty const& isEmpty) {
  using Wrapper = typename Map::MemberType;
  std::uint32_t const bucket = map.bucketOfHash(KeyHash<Key>::hash(key));
  for (auto* at = static_cast<Wrapper*>(map.bucketHead(bucket)); at; at = at->next.get()) {
    if (!at->child()) {
      isEmpty(at);
    } else if (at->key() == key) {
      return at;
    }
  }
  return nullptr;
}
template <class Map, class Key>
typename Map::MemberType* findWrapper(Map const& map, Key const& key) {
  return findWrapper(map, key, [](void const*) {});
}

/// `xIs(key)` of the collection's owner. `makeWrapper` links a new wrapper with its child. Throws
/// RangeException "null ValidPtr" when it comes across a wrapper without a child, which it removes:
/// the next call works.
template <class Child, class Owner, class Map, class Key, class MakeWrapper, class Notify>
ValidPtr<Child> wrappedChildIs(Owner& owner, Map& map, Key const& key,
                               MakeWrapper const& makeWrapper, Notify const& notify) {
  using Wrapper = typename Map::MemberType;
  auto const refuse = [&map](Wrapper* empty) {
    map.deleteMisplaced(Ptr<Wrapper>(empty));
    throwRangeException(messages::nullValidPtr);
  };
  if (auto* wrapper = findWrapper(map, key, refuse)) {
    Ptr<Child> const present = wrapper->child();
    owner.moxVersionInc();
    return ValidPtr<Child>(present);
  }
  auto const wrapper = makeWrapper();
  Ptr<Child> const child = wrapper->child();
  owner.moxVersionInc();
  notify(key);
  return ValidPtr<Child>(child);
}

/// `newX(key)` of the owner, behind the wrapper's own factory. Requires: no member has this key.
template <class Owner, class Map, class Wrapper>
Ptr<Wrapper> adoptWrapper(Owner& owner, Map& map, Ptr<Wrapper> const& wrapper,
                          AttributeId attribute) {
  auto const child = wrapper->child();
  child->parentAttrIdIs(attribute);
  auto key = wrapper->key();
#ifndef NDEBUG
  for (auto* at = map.bucketHead(map.bucketOfHash(KeyHash<decltype(key)>::hash(key))); at;
       at = map.moxNext(at)) {
    // Without a read that counts.
    auto const& other = static_cast<Wrapper*>(at)->child();
    requireFreeKey(!other || !(other->key() == key));
  }
#endif
  map.newMemberG(Ptr<PtrInterface>(wrapper), &key);
  child->moxOwnerIs(Ptr<Entity>(&owner));
  return wrapper;
}

/// Takes out a wrapper of the map: version, parent, notification, in this order. One without a
/// child goes without a trace.
template <class Child, class Owner, class Map, class Wrapper, class Key, class Notify>
Ptr<Child> wrappedChildRemove(Owner& owner, Map& map, Ptr<Wrapper> const& wrapper, Key const& key,
                              Notify const& notify) {
  Ptr<Child> const child = wrapper->child();
  map.deleteMisplaced(wrapper);
  if (!child) return child;
  owner.moxVersionInc();
  child->parentIs(Ptr<Entity>());
  notify(key);
  return child;
}

/// `xDel(key)`.
template <class Child, class Owner, class Map, class Key, class Notify>
Ptr<Child> wrappedChildDel(Owner& owner, Map& map, Key const& key, Notify const& notify) {
  Ptr<typename Map::MemberType> const wrapper(findWrapper(map, key));
  return wrapper ? wrappedChildRemove<Child>(owner, map, wrapper, key, notify) : Ptr<Child>();
}

/// `xDel(iterator)`.
template <class Child, class Owner, class Map, class Notify>
Ptr<Child> wrappedChildDelAt(Owner& owner, Map& map, typename Map::Iterator const& at,
                             Notify const& notify) {
  if (!at) return {};
  requireMember(at.isOnMemberOf(map));
  Ptr<typename Map::MemberType> const wrapper = at.ptr();
  return wrappedChildRemove<Child>(owner, map, wrapper, wrapper->key(), notify);
}

/// `x(key)`.
template <class Child, class Owner, class Map, class Key>
Ptr<Child> wrappedChildOf(Owner const& owner, Map const& map, Key const& key) {
  owner.moxReadCountInc();
  auto const* wrapper = findWrapper(map, key);
  return wrapper ? wrapper->child() : Ptr<Child>();
}

}  // namespace Mox
