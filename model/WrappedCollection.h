// A collection of children whose type has no link of its own: each is held by a wrapper, which has
// the link and finds its key in the child. Generated one-liners call these.
#pragma once

#include <cstdint>

#include "Mox/HashMap.h"
#include "Mox/Ptr.h"
#include "model/ChildCollection.h"

namespace MOX_API Mox {

/// The fields of a wrapper: the child, null at first, and the link.
template <class Self, class Child>
class ChildWrapper : public PtrInterface {
 public:
  Ptr<Child> const& child() const { return child_; }

  Ptr<Self> next;

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
};

/// The wrapper with this key, or null. One on the way whose child was taken out by hand raises
/// RangeException "null ValidPtr", before its key is asked for.
template <class Map, class Key>
typename Map::MemberType* findWrapper(Map const& map, Key const& key) {
  using Wrapper = typename Map::MemberType;
  std::uint32_t const bucket = map.bucketOf(bitReverse(KeyHash<Key>::hash(key)));
  for (auto* at = static_cast<Wrapper*>(map.bucketHead(bucket)); at; at = at->next.get()) {
    if (!at->child()) throwRangeException("null ValidPtr");
    if (at->key() == key) return at;
  }
  return nullptr;
}

/// `xIs(key)` of the collection's owner. `makeWrapper` links a new wrapper with its child.
template <class Child, class Owner, class Map, class Key, class MakeWrapper, class Notify>
ValidPtr<Child> wrappedChildIs(Owner& owner, Map& map, Key const& key,
                               MakeWrapper const& makeWrapper, Notify const& notify) {
  if (auto* wrapper = findWrapper(map, key)) {
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

/// `newX(key)` of the owner, behind the wrapper's own factory.
template <class Owner, class Map, class Wrapper>
Ptr<Wrapper> adoptWrapper(Owner& owner, Map& map, Ptr<Wrapper> const& wrapper,
                          AttributeId attribute) {
  wrapper->child()->parentAttrIdIs(attribute);
  auto key = wrapper->key();
  map.newMemberG(Ptr<PtrInterface>(wrapper), &key);
  wrapper->child()->parentIs(Ptr<Entity>(&owner));
  return wrapper;
}

/// `xDel(key)` and, with the wrapper found already, `xDel(iterator)`.
template <class Child, class Owner, class Map, class Wrapper, class Key, class Notify>
Ptr<Child> wrappedChildRemove(Owner& owner, Map& map, Ptr<Wrapper> const& wrapper, Key const& key,
                              Notify const& notify) {
  Ptr<Child> const child = wrapper->child();
  if (!child) return child;  // Taken out by hand: the wrapper goes with the map.
  map.deleteMember(Ptr<PtrInterface>(wrapper));
  owner.moxVersionInc();
  child->parentIs(Ptr<Entity>());
  notify(key);
  return child;
}
template <class Child, class Owner, class Map, class Key, class Notify>
Ptr<Child> wrappedChildDel(Owner& owner, Map& map, Key const& key, Notify const& notify) {
  Ptr<typename Map::MemberType> const wrapper = map[key];
  return wrapper ? wrappedChildRemove<Child>(owner, map, wrapper, key, notify) : Ptr<Child>();
}
template <class Child, class Owner, class Map, class Notify>
Ptr<Child> wrappedChildDelAt(Owner& owner, Map& map, typename Map::Iterator const& at,
                             Notify const& notify) {
  if (!at) return {};
  Ptr<typename Map::MemberType> const wrapper(*at);
  auto const key = at.key();
  return wrappedChildRemove<Child>(owner, map, wrapper, key, notify);
}

/// `x(key)`.
template <class Child, class Owner, class Map, class Key>
Ptr<Child> wrappedChildOf(Owner const& owner, Map const& map, Key const& key) {
  owner.moxReadCountInc();
  auto const* wrapper = map[key];
  return wrapper ? wrapper->child() : Ptr<Child>();
}

}  // namespace Mox
