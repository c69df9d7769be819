// How a class becomes a value type of a schema: `value Units::Megahertz from
// "InvSiblings/Units.h"`. The header that the schema names declares the class and, in the class's
// own name space:
//
//   class Megahertz { … };   // with a default, copied, compared by ==
//
//   // Its text, in the forms of docs/value-text.md. The reader moves `pos` behind what it reads,
//   and
//   // throws what a text that is no value deserves (Mox::cannotConvert, a range exception).
//   Mox::String8 valueToStrep(Megahertz const& value);
//   Megahertz sequenceToValue(Mox::String8::IteratorConst& pos,
//                             Mox::String8::IteratorConst const& end, Megahertz*);
//
//   // Its bytes in a message: those of a builtin or of a std::tuple of builtins. The reader throws
//   a
//   // range exception for what is no value.
//   double valueToWire(Megahertz const& value);
//   Megahertz wireToValue(double number, Megahertz*);
//
// The run-time type follows from the name in the schema. A schema whose class lacks any of this
// doesn't compile: the message has the line of the schema that names the class.
#pragma once

#include <concepts>
#include <tuple>
#include <type_traits>

#include "Mox/String8.h"

namespace MOX_API Mox {

/// What a value can be made of in a message.
template <class T>
concept WireBuiltin =
    std::same_as<T, bool> || std::same_as<T, unsigned char> || std::same_as<T, unsigned short> ||
    std::same_as<T, unsigned int> || std::same_as<T, unsigned long long> || std::same_as<T, int> ||
    std::same_as<T, double> || std::same_as<T, String8>;

template <class T>
inline constexpr bool isWireTuple = false;
template <WireBuiltin... T>
inline constexpr bool isWireTuple<std::tuple<T...>> = sizeof...(T) != 0;

template <class T>
concept PlainValue =
    std::default_initializable<T> && std::copyable<T> && std::equality_comparable<T>;

template <class T>
concept HasValueText = requires(T const& value, String8::IteratorConst& pos) {
  { valueToStrep(value) } -> std::convertible_to<String8>;
  { sequenceToValue(pos, pos, static_cast<T*>(nullptr)) } -> std::same_as<T>;
};

template <class T>
concept HasValueBytes = requires(T const& value) {
  requires WireBuiltin<decltype(valueToWire(value))> || isWireTuple<decltype(valueToWire(value))>;
  { wireToValue(valueToWire(value), static_cast<T*>(nullptr)) } -> std::same_as<T>;
};

}  // namespace Mox
