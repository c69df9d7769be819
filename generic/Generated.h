// The support header of generated generic classes: makes the functions of an attribute out of
// pointers to the entity's members. Only generated code includes it.
#pragma once

#include <array>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "generic/Arguments.h"
#include "generic/Carrier.h"
#include "generic/GenericIfOf.h"
#include "generic/Rows.h"
#include "values/ValueText.h"

namespace MOX_API Mox {

// Hidden: each module has its own, under names as long as the types that they are made of.
#pragma GCC visibility push(hidden)
namespace generic {

// The parts of pointers to members.

template <class>
struct Member;
template <class E, class R>
struct Member<R (E::*)() const> {
  using Entity = E;
  using Result = R;
};
template <class E>
struct Member<void (E::*)() noexcept> {
  using Entity = E;
};
template <class E, class V, class K, class H>
struct Member<HashMap<V, K, H> E::*> {
  using Entity = E;
  using Key = K;
};
template <class>
struct FieldClass;
template <class S, class T>
struct FieldClass<T S::*> {
  using Type = S;
};

/// Picks the overload with this parameter.
template <class A, class E, class R>
constexpr auto taking(R (E::*operation)(A)) {
  return operation;
}
template <class A, class E, class R>
constexpr auto taking(R (E::*operation)(A) const) {
  return operation;
}

// Values and entities, wrapped and unwrapped.

template <class T>
struct ValueOf {
  using Type = T;
  static constexpr bool isEntity = false;
};
template <class T>
struct ValueOf<Ptr<T>> {
  using Type = std::remove_const_t<T>;
  static constexpr bool isEntity = true;
};
template <class T>
inline constexpr auto typeAccess = &typeOf<typename ValueOf<std::remove_cvref_t<T>>::Type>;

template <class T>
Ptr<GenericIf> wrapped(T const& value, bool isConst) {
  return typeOf<T>()->genericIf(static_cast<void const*>(&value), isConst);
}
template <class T>
Ptr<GenericIf> wrapped(Ptr<T> const& entity, bool isConst) {
  if constexpr (std::is_const_v<T>) {
    return typeOf<std::remove_const_t<T>>()->genericIf(
        static_cast<PtrInterface const*>(entity.get()));
  } else {
    return typeOf<T>()->genericIf(static_cast<PtrInterface*>(entity.get()), isConst);
  }
}

template <class T>
decltype(auto) unwrapped(void const* address) {
  using Bare = std::remove_cvref_t<T>;
  if constexpr (ValueOf<Bare>::isEntity) {
    return Bare(static_cast<typename ValueOf<Bare>::Type*>(const_cast<void*>(address)));
  } else {
    return (*static_cast<Bare const*>(address));
  }
}

// The functions of an attribute, by its kind.

template <auto get>
constexpr GenericRow constantRow() {
  using Get = Member<decltype(get)>;
  GenericRow row;
  row.get = [](Entity& entity, void const*, bool isConst) {
    return wrapped((static_cast<typename Get::Entity&>(entity).*get)(), isConst);
  };
  return row;
}

/// A value, or a reference to an entity owned elsewhere.
template <auto get, auto is>
constexpr GenericRow scalarRow() {
  using Get = Member<decltype(get)>;
  GenericRow row = constantRow<get>();
  row.set = [](Entity& entity, void const*, void* value) {
    (static_cast<typename Get::Entity&>(entity).*is)(unwrapped<typename Get::Result>(value));
  };
  return row;
}

template <class... A>
inline constexpr GenericArgumentType argumentTypes[] = {
    GenericArgumentType{typeAccess<A>, ValueOf<std::remove_cvref_t<A>>::isEntity}...,
    GenericArgumentType{}};

/// What makes an owned entity; `is` is its setter.
template <auto is, class E, class R, class... A>
constexpr void makingIs(GenericRow& row, R (E::*)(A...)) {
  row.argumentTypes = argumentTypes<A...>;
  row.make = [](Entity& entity, [[maybe_unused]] void* const* arguments) {
    return [&]<std::size_t... i>(std::index_sequence<i...>) {
      return Ptr<Entity>((static_cast<E&>(entity).*is)(unwrapped<A>(arguments[i])...).ptr());
    }
    (std::index_sequence_for<A...>());
  };
}

template <auto get, auto is, auto del>
constexpr GenericRow childRow() {
  GenericRow row = constantRow<get>();
  makingIs<is>(row, is);
  row.del = [](Entity& entity, void const*, bool isConst) {
    return wrapped((static_cast<typename Member<decltype(get)>::Entity&>(entity).*del)(), isConst);
  };
  return row;
}

/// `map`: the field; `get`, `del`: by key; `key`, `count`: the cell of subscribers.
template <auto map, auto get, auto del, auto key, auto count>
constexpr GenericRow collectionRow() {
  using Map = Member<decltype(map)>;
  using E = typename Map::Entity;
  using Key = typename Map::Key;
  using V = typename std::remove_reference_t<decltype(std::declval<E&>().*map)>::MemberType;
  using Subscriber = typename FieldClass<decltype(key)>::Type;
  GenericRow row;
  row.get = [](Entity& entity, void const* at, bool isConst) {
    return wrapped((static_cast<E&>(entity).*get)(unwrapped<Key>(at)), isConst);
  };
  row.del = [](Entity& entity, void const* at, bool isConst) {
    return wrapped((static_cast<E&>(entity).*del)(unwrapped<Key>(at)), isConst);
  };
  row.hash = [](void const* at) { return bitReverse(KeyHash<Key>::hash(unwrapped<Key>(at))); };
  row.map = [](Entity& entity) -> HashMapGeneric& { return static_cast<E&>(entity).*map; };
  row.exists = [](Entity& entity, void const* at) {
    entity.moxReadCountInc();
    return (static_cast<E&>(entity).*map)[unwrapped<Key>(at)] != nullptr;
  };
  row.memberKey = [](PtrInterface& member) {
    auto& typed = static_cast<V&>(member);
    if constexpr (std::is_base_of_v<Entity, V>) typed.moxReadCountInc();
    return wrapped<Key>(HashMapMember<V>::key(typed), true);
  };
  row.cell = [](PtrInterface::NotifieeConst& subscriber) {
    auto& typed = static_cast<Subscriber&>(subscriber);
    return GenericCell{&(typed.*key), &(typed.*count)};
  };
  return row;
}

template <auto map, auto get, auto is, auto del, auto key, auto count>
constexpr GenericRow childrenRow() {
  using E = typename Member<decltype(map)>::Entity;
  using V = typename std::remove_reference_t<decltype(std::declval<E&>().*map)>::MemberType;
  GenericRow row = collectionRow<map, get, del, key, count>();
  makingIs<is>(row, is);
  row.memberValue = [](PtrInterface& member, bool isConst) {
    if constexpr (std::is_base_of_v<Entity, V>) {
      return wrapped(Ptr<V>(static_cast<V*>(&member)), isConst);
    } else {
      return wrapped(static_cast<V&>(member).child(), isConst);
    }
  };
  return row;
}

template <auto map, auto get, auto is, auto del, auto key, auto count>
constexpr GenericRow valuesRow() {
  using E = typename Member<decltype(map)>::Entity;
  using Key = typename Member<decltype(map)>::Key;
  using V = typename std::remove_reference_t<decltype(std::declval<E&>().*map)>::MemberType;
  using Value = std::remove_cvref_t<decltype(std::declval<V&>().value())>;
  GenericRow row = collectionRow<map, get, del, key, count>();
  row.set = [](Entity& entity, void const* at, void* value) {
    (static_cast<E&>(entity).*is)(unwrapped<Key>(at), unwrapped<Value>(value));
  };
  row.memberValue = [](PtrInterface& member, bool isConst) {
    return wrapped(static_cast<V&>(member).value(), isConst);
  };
  return row;
}

template <auto call>
constexpr GenericRow handlerRow() {
  GenericRow row;
  row.call = [](Entity& entity) {
    (static_cast<typename Member<decltype(call)>::Entity&>(entity).*call)();
  };
  return row;
}

/// GCC with the undefined behaviour sanitizer takes no function's address for a constant that isn't
/// null; nothing can be checked there.
template <class Function>
constexpr bool isGiven(Function function, bool expected) {
  return !__builtin_constant_p(function != nullptr) || (function != nullptr) == expected;
}

/// True when a row has the functions that attributes of the kind need.
constexpr bool isFit(GenericRow const& row, AttributeKind kind) {
  bool const isSettable = kind == AttributeKind::value || kind == AttributeKind::reference ||
                          kind == AttributeKind::valueCollection;
  return isGiven(row.set, isSettable) && isGiven(row.make, ownsEntities(kind)) &&
         isGiven(row.map, isCollectionKind(kind)) &&
         isGiven(row.call, kind == AttributeKind::handler);
}

/// The functions of a type's attributes joined to their rows by index.
template <std::size_t n>
consteval std::array<GenericRow, n> joined(std::array<AttributeRow, n> const& attributes,
                                           std::array<GenericRow, n> rows) {
  for (std::size_t i = 0; i < n; ++i) {
    if (!isFit(rows[i], attributes[i].kind)) throw "functions of another kind of attribute";
    rows[i].attribute = &attributes[i];
  }
  return rows;
}

/// The attribute `fwkKey`; `get` reads the key.
template <auto get>
Ptr<GenericIf> keyOf(Entity& entity, bool isConst) {
  return wrapped((static_cast<typename Member<decltype(get)>::Entity&>(entity).*get)(), isConst);
}

/// Makes a root entity out of a list with its constructor's arguments, and gives its generic
/// object.
template <auto make, class X, class... A>
Ptr<GenericIf> rootOfList(char const* typeName, GenericIf const* list, Ptr<X> (*)(A...)) {
  GenericArguments const arguments(typeName, X::_Type::moxArguments, argumentTypes<A...>, list);
  Ptr<X> const root = [&]<std::size_t... i>(std::index_sequence<i...>) {
    return make(unwrapped<A>(arguments.values()[i])...);
  }
  (std::index_sequence_for<A...>());
  return X::_fwkType()->genericIf(static_cast<PtrInterface*>(root.get()), false);
}

}  // namespace generic
#pragma GCC visibility pop
}  // namespace Mox
