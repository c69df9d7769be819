// The run-time types of values: builtins, texts, identifiers, enumerations and hand-written value
// types. `typeOf<T>()` gives the one of a C++ type, whichever it is.
#pragma once

#include <concepts>
#include <cstddef>
#include <new>
#include <type_traits>

#include "Mox/Entity.h"
#include "Mox/Name.h"
#include "Mox/String8.h"
#include "registry/MoxType.h"
#include "values/ValueText.h"

namespace MOX_API Mox {

/// What can be done with a value by those who don't know its class. `room` is fit for one value.
struct ValueOps {
  std::size_t size;
  /// Makes a copy of `value` in `room`, or of the default for null.
  void (*copy)(void* room, void const* value);
  /// Makes the value in `room` that `text` tells; throws what the text's reading throws.
  void (*read)(void* room, String8 const& text);
  /// Null where there is nothing to do.
  void (*destroy)(void* value);
  String8 (*text)(void const* value);
  bool isNumber;
};

template <class T>
inline constexpr ValueOps valueOps = {
    .size = sizeof(T),
    .copy = [](void* room,
               void const* value) { new (room) T(value ? *static_cast<T const*>(value) : T()); },
    .read = [](void* room, String8 const& text) { new (room) T(strepToValue<T>(text)); },
    .destroy = std::is_trivially_destructible_v<T> ? nullptr
                                                   : static_cast<void (*)(void*)>([](void* value) {
                                                       static_cast<T*>(value)->~T();
                                                     }),
    .text = [](void const* value) { return textOf(*static_cast<T const*>(value)); },
    .isNumber = std::is_arithmetic_v<T> || requires {T::isMoxIdentifier;
}  // namespace Mox
,
}
;

template <class T>
inline constexpr ValueRange const* valueRange = nullptr;
template <class T>
requires T::isMoxIdentifier inline constexpr ValueRange identifierRange{T::least, T::largest,
                                                                        requires {T::null;
}
}
;
template <class T>
requires T::isMoxIdentifier inline constexpr ValueRange const* valueRange<T> = &identifierRange<T>;

/// The run-time type of a value that is no enumeration; its generic objects are ValueCarriers.
class PlainValueType : public MoxType {
 public:
  PlainValueType(Name const& name, Name const& qualifiedName, ValueOps const& ops)
      : MoxType(name, nullptr, nullptr, {}), ops_(ops) {
    sizeIs(static_cast<unsigned int>(ops.size));
    isValueIs(true);
    hasGenericIfSupportIs(true);
    typeNodeIs(this, qualifiedName);
  }
  MoxType const* fwkType() const override { return MoxType::_fwkType(); }
  using MoxType::genericIf;
  // Defined with the carriers.
  Ptr<GenericIf> genericIf(void const* value, bool isConst) const override;
  Ptr<GenericIf> genericIf(String8 const& text, bool isConst) const override;
  ValueOps const& ops() const { return ops_; }

 private:
  ValueOps const& ops_;
};

/// The run-time type of values of `T`.
template <class T>
class ValueType : public PlainValueType {
 public:
  ValueType(Name const& name, Name const& qualifiedName)
      : PlainValueType(name, qualifiedName, valueOps<T>) {
    rangeIs(valueRange<T>);
    static_assert(alignof(T) <= alignof(std::max_align_t));
  }
};

/// A pointer that nobody follows has no text and no carrier.
template <>
class ValueType<void*> : public MoxType {
 public:
  ValueType(Name const& name, Name const& qualifiedName) : MoxType(name, nullptr, nullptr, {}) {
    sizeIs(sizeof(void*));
    isValueIs(true);
    typeNodeIs(this, qualifiedName);
  }
  MoxType const* fwkType() const override { return MoxType::_fwkType(); }
};

/// The base of an enumeration's type, which its module describes.
template <class T>
class EnumType : public MoxType {
 public:
  explicit EnumType(Name const& name) : MoxType(name, nullptr, nullptr, {}) {}
};

/// Makes the type of a value, immortal. `doc`: static.
template <class T>
MoxType* newValueType(char const* name, char const* qualifiedName, char const* doc = "") {
  auto* const type = new ValueType<T>(name, qualifiedName);
  type->docIs(doc);
  type->referencesLeak();
  return type;
}

template <class T>
struct Builtin {
  static MoxType* _fwkType();
};
template <>
MoxType* Builtin<bool>::_fwkType();
template <>
MoxType* Builtin<unsigned char>::_fwkType();
template <>
MoxType* Builtin<unsigned short>::_fwkType();
template <>
MoxType* Builtin<unsigned int>::_fwkType();
template <>
MoxType* Builtin<unsigned long long>::_fwkType();
template <>
MoxType* Builtin<int>::_fwkType();
template <>
MoxType* Builtin<double>::_fwkType();
template <>
MoxType* Builtin<void*>::_fwkType();
template <>
MoxType* Builtin<String8>::_fwkType();

// Value types that the schema names have such a function in their own name space.

inline MoxType* moxTypeOf(bool const*) { return Builtin<bool>::_fwkType(); }
inline MoxType* moxTypeOf(unsigned char const*) { return Builtin<unsigned char>::_fwkType(); }
inline MoxType* moxTypeOf(unsigned short const*) { return Builtin<unsigned short>::_fwkType(); }
inline MoxType* moxTypeOf(unsigned int const*) { return Builtin<unsigned int>::_fwkType(); }
inline MoxType* moxTypeOf(unsigned long long const*) {
  return Builtin<unsigned long long>::_fwkType();
}
inline MoxType* moxTypeOf(int const*) { return Builtin<int>::_fwkType(); }
inline MoxType* moxTypeOf(double const*) { return Builtin<double>::_fwkType(); }
inline MoxType* moxTypeOf(void* const*) { return Builtin<void*>::_fwkType(); }
inline MoxType* moxTypeOf(String8 const*) { return Builtin<String8>::_fwkType(); }
inline MoxType* moxTypeOf(Name const*) { return Name::_fwkType(); }
template <std::derived_from<PtrInterface> T>
MoxType* moxTypeOf(T const*) {
  return T::_fwkType();
}

/// The run-time type of `T`; for an entity class that of the entity.
template <class T>
MoxType* typeOf() {
  return moxTypeOf(static_cast<T const*>(nullptr));
}

}  // namespace Mox
