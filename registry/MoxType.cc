// The types of the process by name.
#include "registry/MoxType.h"

#include <map>

#include "attrlog/In.h"

namespace Mox {
namespace {

std::map<Name, MoxType const*>& nodes() {
  static auto* const nodes = new std::map<Name, MoxType const*>;
  return *nodes;
}

}  // namespace

MoxType::MoxType(Name const& name, MoxType const* base) : Entity(name), base_(base) {}
MoxType::~MoxType() = default;

Ptr<Entity> MoxType::newEntity(Name const&, Dir*) const { return {}; }
Ptr<Entity> MoxType::newEntity(Ptr<NboAttrLog::In> const&, PtrInterface::NotifieeConst::Mox_BitSet,
                               unsigned int, PtrInterface*) const {
  return {};
}

MoxType const* MoxType::typeNodeIs(MoxType* type, Name const& qualifiedName) {
  type->referencesLeak();
  type->qualifiedName_ = qualifiedName;
  nodes().emplace(qualifiedName, type);
  return type;
}

MoxType const* MoxType::typeNode(Name const& qualifiedName) {
  auto const node = nodes().find(qualifiedName);
  return node == nodes().end() ? nullptr : node->second;
}

MoxType* Entity::_fwkType() {
  static auto* const type = [] {
    auto* made = new MoxType("Entity", nullptr);
    MoxType::typeNodeIs(made, "Mox::Entity");
    return made;
  }();
  return type;
}

}  // namespace Mox
