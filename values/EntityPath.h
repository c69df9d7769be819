// From the text of a reference back to the entity: the roots that this process knows by name, and
// the steps from an entity to its children. `sequenceToValueOfPtr` asks here. One thread.
#pragma once

#include <vector>

#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Mox/String8.h"

namespace MOX_API Mox {

/// Makes a tree known under its root's name for as long as this object lives, and keeps the root
/// alive meanwhile. Of two roots with one name the one announced first is found.
class EntityRoot {
 public:
  explicit EntityRoot(Ptr<Entity> const& root);
  ~EntityRoot();
  EntityRoot(EntityRoot const&) = delete;
  EntityRoot& operator=(EntityRoot const&) = delete;

 private:
  friend class EntityPath;
  Ptr<Entity> root_;
  EntityRoot* next_ = nullptr;
};

/// Paths as `Entity::fullName()` writes them: the root's name, then for each step `/attribute` for
/// a singleton and `/attribute[key]` for a member of a collection.
class EntityPath {
 public:
  /// One step down: the child that `parent` holds in `attribute`, under `key` if it isn't null (the
  /// key's text as it stands between the brackets). Null when there is none. It belongs to whoever
  /// knows attributes by name; without one only roots are found.
  using ChildStep = Ptr<Entity> (*)(Entity& parent, String8 const& attribute, String8 const* key);
  static void childStepIs(ChildStep step);

  /// The entity with this path, null if there is none. A key may hold `/` and `]`.
  static Ptr<Entity> entity(String8 const& path);

  /// The roots that paths begin at, in the order in which they were announced.
  static std::vector<Ptr<Entity>> roots();
};

}  // namespace Mox
