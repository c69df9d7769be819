// How each value type stands in a message: one trait, from which writers, readers and shapes
// follow. Generated descriptors name the types; nobody writes a width twice.
#pragma once

#include <concepts>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Mox/Exception.h"
#include "Mox/Ptr.h"
#include "attrlog/wire/In.h"
#include "attrlog/wire/Out.h"
#include "values/EnumSupport.h"
#include "values/RangedId.h"
#include "values/ValueClass.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// The id of a referenced entity on this connection, as a message carries it; 0 for null. Throws
/// what `Entity::entityId` throws. Defined where entities are known (adapter/AdapterHost.cc).
unsigned long long referenceId(Ptr<Out> const& out, Entity const* target);

/// For a type T: `fixedLength` (0 where a scalar message is of variable length), `write`, `read`,
/// and `size`, its bytes in a message, unless it tells its length itself.
template <class T>
struct WireValue;

template <class T>
requires WireUnsigned<T> || std::same_as<T, bool>
struct WireValue<T> {
  static constexpr std::uint32_t fixedLength = sizeof(T) <= 4 ? sizeof(T) : 0;
  static constexpr std::size_t size = sizeof(T);
  static void write(Ptr<Out> const& out, T value) { out << value; }
  static T read(In& in) {
    if constexpr (std::same_as<T, bool>) {
      return in.nextbool();
    } else {
      return static_cast<T>(getBytes(in.take(sizeof(T)), sizeof(T)));
    }
  }
};

template <>
struct WireValue<int> {
  static constexpr std::size_t size = 4;
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, int value) { out << value; }
  static int read(In& in) { return in.nextint(); }
};

template <>
struct WireValue<double> {
  static constexpr std::size_t size = 8;
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, double value) { out << value; }
  static double read(In& in) { return in.nextdouble(); }
};

template <class T>
requires std::same_as<T, String8> || std::same_as<T, Name>
struct WireValue<T> {
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, T const& value) { out << String8(value); }
  static T read(In& in) { return T(in.nextString()); }
};

template <class T>
requires T::isMoxIdentifier struct WireValue<T> {
  static constexpr std::size_t size = WireValue<typename T::NumberType>::size;
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, T value) { out << value.value(); }
  static T read(In& in) { return T(WireValue<typename T::NumberType>::read(in)); }
};

/// A peer may know more enumerators than this end: the number is counted and kept as it stands.
template <MoxEnum T>
struct WireValue<T> {
  static constexpr std::size_t size = 4;
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, T value) { out << static_cast<int>(value); }
  static T read(In& in) {
    unsigned int const number = in.nextU32();
    try {
      Expect const expect(Exception::rangeId);
      return enumInstance<T>(number);
    } catch (RangeException const&) {
      in.unknownEnumsInc();
      return static_cast<T>(static_cast<int>(number));
    }
  }
};

/// `size` where every part has one.
template <class... T>
struct WireSize {};
template <class... T>
requires requires { (WireValue<T>::size + ...); }
struct WireSize<T...> {
  static constexpr std::size_t size = (WireValue<T>::size + ...);
};

/// The parts one behind the other.
template <WireBuiltin... T>
struct WireValue<std::tuple<T...>> : WireSize<T...> {
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, std::tuple<T...> const& parts) {
    std::apply([&](T const&... part) { (WireValue<T>::write(out, part), ...); }, parts);
  }
  // Braces: the parts are read in their order.
  static std::tuple<T...> read(In& in) { return std::tuple<T...>{WireValue<T>::read(in)...}; }
};

/// A value class: the bytes of what it converts to.
template <HasValueBytes T>
struct WireValue<T> : WireSize<decltype(valueToWire(std::declval<T const&>()))> {
  using Bytes = WireValue<decltype(valueToWire(std::declval<T const&>()))>;
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, T const& value) { Bytes::write(out, valueToWire(value)); }
  static T read(In& in) { return wireToValue(Bytes::read(in), static_cast<T*>(nullptr)); }
};

/// A reference: the entity's id, 0 for null.
template <class T>
struct WireValue<Ptr<T>> {
  static constexpr std::size_t size = 8;
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, Ptr<T> const& value) {
    out << referenceId(out, value.get());
  }
  static Ptr<T> read(In& in) { return in.nextEntity<std::remove_const_t<T>>(); }
};

/// The classes that have a form of their own in a message: identifiers and value classes.
template <class T>
concept WireClass = T::isMoxIdentifier || HasValueBytes<T>;

template <class T>
requires WireClass<T> Ptr<Out>
const& operator<<(Ptr<Out> const& out, T value) {
  WireValue<T>::write(out, value);
  return out;
}

}  // namespace NboAttrLog
}  // namespace Mox
