#include "simulation/Difference.h"

#include "simulation/Replica.h"

namespace Mox::Simulation {
namespace {

class NoObserver final : public ReplicaObserver {
  void seen(Entity const&, Attribute const&, String8 const&, bool) override {}
  void notified(Ptr<GenericIf> const&, Attribute const&, Ptr<GenericIf const> const&) override {}
};

}  // namespace

std::string difference(Entity const& one, Entity const& other, std::string const& path) {
  NoObserver observer;
  TargetPairs targets;
  // A subscriber needs a changeable entity, and changes nothing.
  Replica const first(Ptr<Entity>(const_cast<Entity*>(&one)), observer);
  Replica const second(Ptr<Entity>(const_cast<Entity*>(&other)), observer);
  return first.difference(second, path, targets);
}

}  // namespace Mox::Simulation
