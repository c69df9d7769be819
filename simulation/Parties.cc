#include "simulation/Parties.h"

#include "Mox/Exception.h"
#include "attrlog/link/Demuxer.h"
#include "simulation/Outline.h"

namespace Mox::Simulation {
namespace {

constexpr std::size_t keptOfEachType = 3;

bool isOf(Entity const& entity, MoxType const& type) {
  for (MoxType const* at = entity.fwkType(); at; at = at->baseType()) {
    if (at == &type) return true;
  }
  return false;
}

}  // namespace

Ptr<Entity> Parties::any(MoxType const& type, MoxType const& from, Chance& chance) {
  if (!areUsed_ || chance.oneIn(4)) return {};
  if (also_ && isOf(**also_, type) && !Outline::of(*also_->fwkType()).mayLeadTo(from)) return also_;
  if (Outline::of(type).mayLeadTo(from)) return {};
  auto const [at, isNew] = byType_.try_emplace(&type);
  if (isNew) {
    at->second.resize(keptOfEachType);
    order_.push_back(&type);
  }
  Ptr<Entity>& one = at->second[chance.below(keptOfEachType)];
  if (!one || chance.oneIn(8)) one = make(type, chance);
  return one;
}

/// A type without a factory by arguments is made as a message makes it, from the arguments' bytes.
/// References among them are null.
Ptr<Entity> Parties::make(MoxType const& type, Chance& chance) {
  if (type.isRootType()) return type.newEntity(Name(format("part%u", chance.fresh())), nullptr);
  std::string bytes;
  for (Argument const& argument : Outline::of(type).arguments()) {
    if (argument.values) {
      bytes += argument.values->wireBytes(chance);
    } else {
      bytes.append(8, '\0');
    }
  }
  Ptr<NboAttrLog::Demuxer> const reader(new NboAttrLog::Demuxer(NboAttrLog::LinkOptions{}));
  reader->in()->payloadIs(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
  Ptr<Entity> made;
  try {
    made = type.newEntity(reader->in(), PtrInterface::NotifieeConst::Mox_BitSet(0), 0, nullptr);
  } catch (Exception const&) {
    // Its arguments have bytes of their own form: nothing refers to entities of this type.
  }
  reader->close();
  return made;
}

Ptr<Entity> Parties::anyMade(Chance& chance) const {
  if (order_.empty()) return {};
  MoxType const* const type = order_[chance.below(static_cast<unsigned int>(order_.size()))];
  return byType_.at(type)[chance.below(keptOfEachType)];
}

void Parties::forEach(std::function<void(Entity const&)> const& visit) const {
  for (auto const& [type, parties] : byType_) {
    for (Ptr<Entity> const& party : parties) {
      if (party) visit(**party);
    }
  }
}

void Parties::clear() {
  byType_.clear();
  order_.clear();
  also_ = nullptr;
}

}  // namespace Mox::Simulation
