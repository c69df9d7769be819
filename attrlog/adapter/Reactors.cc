// The table of reactors, and the ids that lead to none.
#include "attrlog/adapter/Reactors.h"

namespace Mox::NboAttrLog {

bool Reactors::idsDiffer_ = false;

Ptr<Entity> Reactors::entity(EntityId id) const {
  Sa* const adapter = reactor(id);
  return adapter && adapter->isAnnounced() ? adapter->moxNotifierEntity() : Ptr<Entity>();
}

Naming Reactors::naming(EntityId id) const {
  if (entity(id)) return Naming::known;
  if (isRefused(id)) return Naming::refused;
  return isGone(id) ? Naming::gone : Naming::unknown;
}

void Reactors::forEach(std::function<void(Sa&)> const& visit) const {
  for (auto adapter = table_.iteratorConst(); adapter; ++adapter) {
    visit(const_cast<Sa&>(**adapter));
  }
}

std::vector<Ptr<Reactors::Sa>> Reactors::all() const {
  std::vector<Ptr<Sa>> adapters;
  forEach([&adapters](Sa& adapter) { adapters.emplace_back(&adapter); });
  return adapters;
}

Ptr<Reactors::Sa> Reactors::remove(EntityId id) {
  Ptr<Sa> const adapter(reactor(id));
  if (!adapter) return {};
  table_.deleteMember(adapter);
  ++outside_;
  return adapter;
}

void Reactors::goneSentIs(std::uint64_t committed) {
  for (EntityId const id : goneOwed_) goneSent_.emplace_back(committed, id);
  goneOwed_.clear();
}

void Reactors::goneForget() {
  auto const at = gone_.find(goneSent_.front().second.value());
  if (--at->second == 0) gone_.erase(at);
  goneSent_.pop_front();
}

void Reactors::clear() {
  refused_.clear();
  gone_.clear();
  goneOwed_.clear();
  goneSent_.clear();
}

std::string Reactors::brokenInvariant() const {
  std::string broken;
  forEach([&](Sa& adapter) {
    if (adapter.isRetired()) broken = "R1: a retired adapter is in the table";
    if (reactor(adapter.entityId()) != &adapter) broken = "R1: an adapter is under another id";
  });
  std::size_t gone = 0;
  for (auto const& [id, times] : gone_) gone += times;
  if (gone != goneOwed_.size() + goneSent_.size()) {
    broken = "R2: an id that is gone waits for nothing";
  }
  return broken;
}

}  // namespace Mox::NboAttrLog
