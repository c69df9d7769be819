// The unified ids of the entities without a parent that a process has announced or imported, for as
// long as they live: a connection that is made anew names the same entities by the same ids. A
// session owns one; its connections share it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "Mox/Entity.h"
#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class Identities {
 public:
  Identities();
  ~Identities();
  Identities(Identities const&) = delete;
  Identities& operator=(Identities const&) = delete;

  /// The id of an entity; 0 for none.
  EntityId idOf(Entity const& entity) const;
  /// The live entity with the id; null for none.
  Entity* entity(EntityId id) const;
  /// True for an id that this process has given to an entity.
  bool isOwn(EntityId id) const;
  /// Enters an entity, in place of what it or the id had before. `isOwn`: this process chose it.
  void idIs(Entity& entity, EntityId id, bool isOwn);
  std::size_t size() const { return ids_.size(); }

 private:
  struct Named {
    Entity* entity;
    bool isOwn;
  };

  static void handleDestroyed(Entity const& entity);
  void erase(Entity const& entity);

  std::unordered_map<Entity const*, EntityId> ids_;
  std::unordered_map<std::uint64_t, Named> entities_;
};

}  // namespace NboAttrLog
}  // namespace Mox
