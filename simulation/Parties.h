// The entities without a parent that one process refers to: a few of each type, at times a new one.
// They are made from the registry's factories, and live as long as the process or a reference.
#pragma once

#include <functional>
#include <unordered_map>
#include <vector>

#include "Mox/Entity.h"
#include "simulation/Chance.h"

namespace Mox::Simulation {

class Parties {
 public:
  /// A target for a reference to `type` that an entity of type `from` keeps; null where the process
  /// may not refer to any, and now and then. References never close a circle.
  Ptr<Entity> any(MoxType const& type, MoxType const& from, Chance& chance);
  /// False: every target drawn is null.
  void areUsed(bool used) { areUsed_ = used; }
  /// Until the next call, entities drawn are at times this one if its type fits; null for none.
  void alsoIs(Ptr<Entity> const& entity) { also_ = entity; }
  /// One that can be changed; null for none.
  Ptr<Entity> anyMade(Chance& chance) const;

  void forEach(std::function<void(Entity const&)> const& visit) const;
  void clear();

 private:
  static Ptr<Entity> make(MoxType const& type, Chance& chance);

  bool areUsed_ = false;
  Ptr<Entity> also_;
  std::unordered_map<MoxType const*, std::vector<Ptr<Entity>>> byType_;
  std::vector<MoxType const*> order_;  ///< of first use, the same in every replay
};

}  // namespace Mox::Simulation
