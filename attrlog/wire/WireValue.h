// How each value type stands in a message: one trait, from which writers, readers and shapes
// follow. Generated descriptors name the types; nobody writes a width twice.
#pragma once

#include <concepts>
#include <type_traits>

#include "Mox/Exception.h"
#include "Mox/Ptr.h"
#include "attrlog/wire/In.h"
#include "attrlog/wire/Out.h"
#include "values/DramConfig.h"
#include "values/EnumSupport.h"
#include "values/RangedId.h"
#include "values/SlotId.h"
#include "values/Units.h"

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

template <>
struct WireValue<Units::Megahertz> {
  static constexpr std::size_t size = 8;
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, Units::Megahertz value) { out << value.value(); }
  static Units::Megahertz read(In& in) { return Units::Megahertz(in.nextdouble()); }
};

template <>
struct WireValue<Fru::SlotId> {
  static constexpr std::size_t size = 4;
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, Fru::SlotId value) { out << value.value(); }
  static Fru::SlotId read(In& in) { return Fru::SlotId(in.nextU32()); }
};

/// One byte: a bit for each interface that is in use.
template <>
struct WireValue<Hardware::Sand::DramConfig> {
  static constexpr std::size_t size = 1;
  static constexpr std::uint32_t fixedLength = 0;
  static void write(Ptr<Out> const& out, Hardware::Sand::DramConfig const& value) {
    out << value.bits();
  }
  static Hardware::Sand::DramConfig read(In& in) {
    return Hardware::Sand::DramConfig::fromBits(in.nextU8());
  }
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

/// The value types that stand in a message in a form of their own: identifiers, units, DramConfig.
template <class T>
concept WireClass = T::isMoxIdentifier || std::same_as<T, Units::Megahertz> ||
    std::same_as<T, Fru::SlotId> || std::same_as<T, Hardware::Sand::DramConfig>;

template <class T>
requires WireClass<T> Ptr<Out>
const& operator<<(Ptr<Out> const& out, T value) {
  WireValue<T>::write(out, value);
  return out;
}

}  // namespace NboAttrLog
}  // namespace Mox
