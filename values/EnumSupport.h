// What a generated enumeration needs: one table of its enumerators, and the conversions between
// number, name and text over it. Generated code includes this; model code calls the generated
// one-liners (`SerdesCoreTypeInstance`, `stringValue`, …) beside each enumeration.
#pragma once

#include <concepts>
#include <cstdint>
#include <ostream>
#include <string_view>
#include <type_traits>

#include "Mox/Exception.h"
#include "Mox/String8.h"
#include "values/ValueText.h"

namespace MOX_API Mox {

/// One enumerator with its bare name.
template <class E>
struct EnumEntry {
  E value;
  std::string_view name;
};

/// Specialised beside each enumeration (whose underlying type is std::int32_t, so that a raw
/// number of a newer peer can be stored):
///
///   template <>
///   struct Mox::EnumTraits<Inventory::Arad::SerdesCoreType> {
///     static constexpr char typeName[] = "SerdesCoreType";
///     static constexpr EnumEntry<Inventory::Arad::SerdesCoreType> entries[] = {
///         {Inventory::Arad::unknownCore, "unknownCore"}, …};
///   };
template <class E>
struct EnumTraits;

/// An enumeration with a table.
template <class E>
concept MoxEnum = std::is_enum_v<E> && requires {
  EnumTraits<E>::typeName;
  EnumTraits<E>::entries;
};

/// The table's entry for a value, null for a number that the table doesn't know.
template <MoxEnum E>
constexpr EnumEntry<E> const* enumEntry(E value) {
  static_assert(std::is_same_v<std::underlying_type_t<E>, std::int32_t>);
  for (auto const& entry : EnumTraits<E>::entries) {
    if (entry.value == value) return &entry;
  }
  return nullptr;
}

/// The bare name, or "SerdesCoreType(4)" for a number that the table doesn't know. Never fails.
template <MoxEnum E>
String8 enumStringValue(E value) {
  if (auto const* entry = enumEntry(value)) {
    return String8(entry->name);
  }
  return format("%s(%d)", EnumTraits<E>::typeName, static_cast<int>(value));
}

/// The enumerator with this number; otherwise RangeException with the bare type name.
template <MoxEnum E>
constexpr E enumInstance(unsigned int number) {
  auto const value = static_cast<E>(static_cast<std::int32_t>(number));
  for (auto const& entry : EnumTraits<E>::entries) {
    if (entry.value == value) return value;
  }
  throwRangeException(EnumTraits<E>::typeName);
}

/// The first enumerator with exactly this name; otherwise RangeException with the bare type name.
template <MoxEnum E>
E enumInstance(String8 const& name) {
  for (auto const& entry : EnumTraits<E>::entries) {
    if (entry.name == name.view()) return entry.value;
  }
  throwRangeException(EnumTraits<E>::typeName);
}

/// The text form: `enumStringValue` inside apostrophes.
template <MoxEnum E>
String8 enumToStrep(E value) {
  return "'" + enumStringValue(value) + "'";
}

/// Reads one string token at `pos`, leaves `pos` behind it, and takes it for a name.
template <MoxEnum E>
E enumFromSequence(String8::IteratorConst& pos, String8::IteratorConst const& end) {
  return enumInstance<E>(sequenceToValue(pos, end, static_cast<String8*>(nullptr)));
}

/// Writes what `enumStringValue` gives, without a string of its own.
template <MoxEnum E>
std::ostream& enumToStream(std::ostream& out, E value) {
  if (auto const* entry = enumEntry(value)) return out << entry->name;
  return out << EnumTraits<E>::typeName << '(' << static_cast<int>(value) << ')';
}

}  // namespace Mox
