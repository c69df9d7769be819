// What a schema declares of one attribute, as data: a constexpr row that the schema compiler writes
// into the class of the entity's run-time type. Registry, generic interface and attribute log have
// tables of functions beside these rows, joined by index, and take everything else from here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "Mox/AttributeId.h"

namespace MOX_API Mox {

class MoxType;

/// Gives a type object; the first call makes it.
using TypeAccess = MoxType* (*)();

/// Rows in a static array.
template <class T>
struct Table {
  T const* rows = nullptr;
  std::size_t count = 0;

  constexpr Table() = default;
  template <std::size_t n>
  constexpr Table(T const (&array)[n]) : rows(array), count(n) {}
  template <std::size_t n>
  constexpr Table(std::array<T, n> const& array) : rows(array.data()), count(n) {}
  constexpr T const* begin() const { return rows; }
  constexpr T const* end() const { return rows + count; }
};

/// A constructor argument, with the name of its type as the schema writes it.
struct ArgumentRow {
  char const* name;
  char const* typeName;
};

enum class AttributeKind : std::uint8_t {
  system,                ///< common to all entities, or made without a schema
  enumerator,            ///< a constant of an enumeration
  interface,             ///< names a part of the framework
  handler,               ///< a hand-written reaction, called by name
  key,                   ///< `fwkKey`, the key under a name that all types share
  constructorValue,      ///< a value that only the constructor sets
  constructorReference,  ///< a reference that only the constructor sets
  value,                 ///< a value that can change
  reference,             ///< a reference to an entity owned elsewhere
  child,                 ///< one owned entity
  valueCollection,       ///< values by key
  childCollection,       ///< owned entities by key
};

constexpr bool isConstructorKind(AttributeKind kind) {
  return kind == AttributeKind::constructorValue || kind == AttributeKind::constructorReference;
}
constexpr bool isCollectionKind(AttributeKind kind) {
  return kind == AttributeKind::valueCollection || kind == AttributeKind::childCollection;
}
constexpr bool ownsEntities(AttributeKind kind) {
  return kind == AttributeKind::child || kind == AttributeKind::childCollection;
}
/// Can change after construction, and is announced then.
constexpr bool isMutableKind(AttributeKind kind) {
  return kind == AttributeKind::value || kind == AttributeKind::reference ||
         kind == AttributeKind::child || isCollectionKind(kind);
}

/// How the attribute log sends an attribute.
enum class WireForm : std::uint8_t {
  none,            ///< never changes
  plain,           ///< a value in one message
  reference,       ///< the id of an entity owned elsewhere
  pieces,          ///< a string, in as many messages as it takes
  singleton,       ///< an owned entity
  entities,        ///< a collection of owned entities
  valuesById,      ///< a collection of values, each in one message
  valuesByString,  ///< a collection of strings by strings, each in as many messages as it takes
};

struct AttributeRow {
  /// `keyLength` of a key that carries its own length.
  static constexpr std::uint8_t variableKey = 255;
  /// `argument` of what is no constructor argument.
  static constexpr std::int16_t noArgument = -1;

  AttributeId id;
  char const* name;
  AttributeKind kind;
  std::uint32_t flags[2];  ///< the words of MoxAttr::AttrFlags
  std::uint32_t introspectionFlags;
  TypeAccess type;  ///< of the value, of the target, or of the members
  char const* doc = "";

  // Values.

  /// The first value as the schema would write it; an earlier attribute's name stands for its
  /// value. Empty where only the value's class knows it.
  char const* defaultText = "";
  /// Place among the key and the parameters that the constructor takes, the name not counted.
  std::int16_t argument = noArgument;

  // Collections.

  TypeAccess keyType = nullptr;
  char const* memberKey = nullptr;  ///< of entities: the member's attribute that holds the key
  bool isWrapped = false;           ///< of entities: each is held by a wrapper of its own

  /// Owned entities: the constructor arguments of a member.
  Table<ArgumentRow> arguments = {};

  // The attribute log.

  WireForm form = WireForm::none;
  std::uint32_t dirtyMask = 0;   ///< the attribute's bit in the dirty word of its type's level
  std::uint8_t fixedLength = 0;  ///< bytes of a message's payload; 0: announced in the message
  std::uint8_t keyLength = 0;    ///< bytes of a key; 0: no collection
};

}  // namespace Mox
