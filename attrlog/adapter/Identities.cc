// The register of ids.
#include "attrlog/adapter/Identities.h"

#include <vector>

#include "Mox/Hooks.h"

namespace Mox::NboAttrLog {
namespace {

std::vector<Identities*>& registers() {
  static std::vector<Identities*> all;
  return all;
}

}  // namespace

Identities::Identities() {
  registers().push_back(this);
  hooks.destroyed = &handleDestroyed;
}

Identities::~Identities() { std::erase(registers(), this); }

EntityId Identities::idOf(Entity const& entity) const {
  auto const at = ids_.find(&entity);
  return at == ids_.end() ? EntityId() : at->second;
}

Entity* Identities::entity(EntityId id) const {
  auto const at = entities_.find(id.value());
  return at == entities_.end() ? nullptr : at->second.entity;
}

bool Identities::isOwn(EntityId id) const {
  auto const at = entities_.find(id.value());
  return at != entities_.end() && at->second.isOwn;
}

void Identities::idIs(Entity& entity, EntityId id, bool isOwn) {
  if (Entity* const before = this->entity(id); before && before != &entity) erase(*before);
  if (idOf(entity) != id) erase(entity);
  entity.moxIsIdentifiedIs();
  ids_[&entity] = id;
  entities_[id.value()] = {&entity, isOwn};
}

void Identities::erase(Entity const& entity) {
  auto const at = ids_.find(&entity);
  if (at == ids_.end()) return;
  entities_.erase(at->second.value());
  ids_.erase(at);
}

void Identities::handleDestroyed(Entity const& entity) {
  for (Identities* const all : registers()) all->erase(entity);
}

}  // namespace Mox::NboAttrLog
