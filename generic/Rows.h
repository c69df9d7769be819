// What the generic interface knows of an entity type: one row of data and small functions for each
// attribute. Generated code makes the tables (generic/Generated.h); the algorithms of Dispatch.cc
// and Relay.cc run over them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Mox/Entity.h"
#include "Mox/HashMap.h"
#include "Mox/Notifiee.h"
#include "generic/GenericIf.h"
#include "registry/MoxType.h"

namespace MOX_API Mox {

enum class GenericKind : std::uint8_t {
  constant,   ///< a key or a constructor parameter
  value,      ///< a value that can change
  reference,  ///< a reference to an entity owned elsewhere
  child,      ///< an owned entity
  children,   ///< a collection of owned entities
  values,     ///< a collection of values
  handler,    ///< a hand-written reaction, called by name
};

struct GenericArgumentType {
  MoxType* (*type)() = nullptr;
  /// A reference to an entity, which may be null.
  bool isEntity = false;
};

/// Where a subscriber keeps the latest key of a collection, and how many wait.
struct GenericCell {
  void* key;
  unsigned char* count;
};

/// Keys, values and arguments are passed by the address of what a carrier holds; entities by their
/// own.
struct GenericRow {
  AttributeId id;
  char const* name;
  GenericKind kind;
  /// Type of the value, of the target or of the members; null for a handler.
  MoxType* (*type)() = nullptr;

  /// The value or the target; of a collection the one under `key`.
  Ptr<GenericIf> (*get)(Entity&, void const* key, bool isConst) = nullptr;
  void (*set)(Entity&, void const* key, void* value) = nullptr;
  /// Takes a child or a value of a collection out, and hands it out.
  Ptr<GenericIf> (*del)(Entity&, void const* key, bool isConst) = nullptr;
  void (*call)(Entity&) = nullptr;

  // Of owned entities.
  Ptr<Entity> (*make)(Entity&, void* const* arguments) = nullptr;
  char const* const* argumentNames = nullptr;
  GenericArgumentType const* argumentTypes = nullptr;
  std::size_t argumentCount = 0;

  // Of collections.
  char const* keyName = nullptr;
  MoxType* (*keyType)() = nullptr;
  /// The hash of a key, reversed.
  std::uint32_t (*hash)(void const* key) = nullptr;
  HashMapGeneric& (*map)(Entity&) = nullptr;
  bool (*exists)(Entity&, void const* key) = nullptr;
  Ptr<GenericIf> (*memberKey)(PtrInterface& member) = nullptr;
  Ptr<GenericIf> (*memberValue)(PtrInterface& member, bool isConst) = nullptr;
  GenericCell (*cell)(PtrInterface::NotifieeConst& subscriber) = nullptr;

  bool isCollection() const { return kind == GenericKind::children || kind == GenericKind::values; }
  /// Subscribers hear of changes.
  bool isHeard() const { return kind != GenericKind::constant && kind != GenericKind::handler; }
};

/// The rows of one type, in id order without gaps, and those of its base.
struct GenericRows {
  GenericRow const* rows;
  std::size_t count;
  GenericRows const* base;
  /// The entity's key; null for a type without one.
  Ptr<GenericIf> (*key)(Entity&, bool isConst);

  GenericRow const* begin() const { return rows; }
  GenericRow const* end() const { return rows + count; }
  /// The own row of an id; null for none.
  GenericRow const* findOwn(AttributeId id) const {
    return count != 0 && id >= rows->id && static_cast<std::size_t>(id - rows->id) < count
               ? rows + (id - rows->id)
               : nullptr;
  }
  /// The same, bases included.
  GenericRow const* find(AttributeId id) const {
    GenericRow const* const own = findOwn(id);
    return own || !base ? own : base->find(id);
  }
};

}  // namespace Mox
