// What owned children in collections and singletons have in common: the comparison with the
// parameters of a child that exists, the checks of a collection's operations, and the end of a
// parent. Generated code and the other headers of this folder include it.
#pragma once

#include <type_traits>

#include "Mox/Assertion.h"
#include "Mox/AttributeId.h"
#include "Mox/Entity.h"
#include "Mox/Exception.h"
#include "Mox/HashMap.h"
#include "Mox/Ptr.h"
#include "Mox/String8.h"
#include "values/ValueText.h"

namespace MOX_API Mox {

/// Throws the NameInUseException of a child that exists with another value of a constructor
/// parameter; the new value comes first in its text.
[[noreturn]] void throwReinstantiation(Name const& childName, char const* parameter,
                                       String8 const& newValue, String8 const& oldValue);

/// One constructor parameter of a child that `xIs` asks for: `Getter` reads it.
template <auto Getter, class T>
struct ChildParam {
  char const* name;
  T const& value;

  /// Throws when the child has another value.
  template <class Child>
  void check(Child const& child) const {
    T const stored = (child.*Getter)();
    if (stored != value) {
      throwReinstantiation(child.name(), name, valueToStrep(value), valueToStrep(stored));
    }
  }
  template <class Child>
  bool matches(Child const& child) const {
    return (child.*Getter)() == value;
  }
};

template <auto Getter, class T>
ChildParam<Getter, T> childParam(char const* name, T const& value) {
  return {name, value};
}

/// Requires of `newX`: no member has the key. A build without NDEBUG checks it.
inline void requireFreeKey([[maybe_unused]] bool isFree) {
#ifndef NDEBUG
  if (!isFree) assertionFailed("the key is free: clients call xIs", "model", __LINE__, "newX");
#endif
}

/// `xDel(iterator)` refuses an iterator of another collection, and one whose member was removed.
inline void requireMember(bool isMember) {
  if (!isMember) throwRangeException(messages::foreignIterator);
}

/// `xDelAll()`: `del` is called on each member, in the map's order.
template <class Map, class Del>
void deleteAll(Map& map, Del const& del) {
  for (typename Map::Iterator at(&map); at; ++at) del(at);
}

template <class Child>
void orphan(Ptr<Child> const& child) {
  if (child) child->parentIs(Ptr<Entity>());
}
template <class V, class K, class H>
void orphan(HashMap<V, K, H> const& members) {
  if (members.empty()) return;
  for (auto at = members.iteratorConst(); at; ++at) {
    if constexpr (std::is_base_of_v<Entity, V>) {
      orphan(Ptr<V>(const_cast<V*>(*at)));
    } else {
      orphan(at->child());
    }
  }
}

/// The last step of a parent's destructor, behind the deletion of all children: a child that a
/// subscriber has added meanwhile loses its parent, without notification.
template <class... Attributes>
void orphanAll(Attributes const&... attributes) {
  (orphan(attributes), ...);
}

}  // namespace Mox
