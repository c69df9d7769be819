// What the generic interface can do with an entity type: small functions for each attribute, beside
// its row of data (Mox/AttributeRow.h). Generated code makes the tables (generic/Generated.h);
// the algorithms of Dispatch.cc and Relay.cc run over them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Mox/AttributeRow.h"
#include "Mox/Entity.h"
#include "Mox/HashMap.h"
#include "Mox/Notifiee.h"
#include "generic/GenericIf.h"
#include "registry/MoxType.h"

namespace MOX_API Mox {

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

/// The functions of one attribute, beside its row of data. Keys, values and arguments are passed by
/// the address of what a carrier holds; entities by their own.
struct GenericRow {
  AttributeRow const* attribute = nullptr;

  /// The value or the target; of a collection the one under `key`.
  Ptr<GenericIf> (*get)(Entity&, void const* key, bool isConst) = nullptr;
  void (*set)(Entity&, void const* key, void* value) = nullptr;
  /// Takes a child or a value of a collection out, and hands it out.
  Ptr<GenericIf> (*del)(Entity&, void const* key, bool isConst) = nullptr;
  void (*call)(Entity&) = nullptr;

  // Of owned entities.
  Ptr<Entity> (*make)(Entity&, void* const* arguments) = nullptr;
  GenericArgumentType const* argumentTypes = nullptr;

  // Of collections.
  /// The hash of a key, reversed.
  std::uint32_t (*hash)(void const* key) = nullptr;
  HashMapGeneric& (*map)(Entity&) = nullptr;
  bool (*exists)(Entity&, void const* key) = nullptr;
  Ptr<GenericIf> (*memberKey)(PtrInterface& member) = nullptr;
  Ptr<GenericIf> (*memberValue)(PtrInterface& member, bool isConst) = nullptr;
  GenericCell (*cell)(PtrInterface::NotifieeConst& subscriber) = nullptr;

  AttributeId id() const { return attribute->id; }
  char const* name() const { return attribute->name; }
  AttributeKind kind() const { return attribute->kind; }
  /// Type of the value, of the target or of the members.
  MoxType* type() const { return attribute->type(); }
  MoxType* keyType() const { return attribute->keyType(); }
  /// What messages call a collection's key.
  String8 keyName() const;

  bool isCollection() const { return isCollectionKind(kind()); }
  /// Subscribers are notified of changes.
  bool isNotified() const { return isMutableKind(kind()); }
};

/// The rows of one type, in id order without gaps, and those of its base.
struct GenericRows {
  Table<GenericRow> rows;
  GenericRows const* base;
  /// The entity's key; null for a type without one.
  Ptr<GenericIf> (*key)(Entity&, bool isConst);

  GenericRow const* begin() const { return rows.begin(); }
  GenericRow const* end() const { return rows.end(); }
  /// The own row of an id; null for none.
  GenericRow const* findOwn(AttributeId id) const {
    if (rows.count == 0 || id < rows.rows->id()) return nullptr;
    auto const index = static_cast<std::size_t>(id - rows.rows->id());
    return index < rows.count ? rows.rows + index : nullptr;
  }
  /// The same, bases included.
  GenericRow const* find(AttributeId id) const {
    GenericRow const* const own = findOwn(id);
    return own || !base ? own : base->find(id);
  }
};

}  // namespace Mox
