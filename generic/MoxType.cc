// The generic factories of a type: the forms of a type that has none of its own, and their front
// ends.
#include "registry/MoxType.h"

#include "generic/GenericIfEntity.h"

namespace Mox {
namespace {

bool isEntityType(MoxType const* type) {
  while (type && type != Entity::_fwkType()) type = type->baseType();
  return type != nullptr;
}

}  // namespace

Ptr<GenericIf> MoxType::genericIf(void const*, bool) const { return {}; }
Ptr<GenericIf> MoxType::genericIf(GenericIf const*, bool) const { return {}; }
Ptr<GenericIf> MoxType::genericIf(String8 const&, bool) const { return {}; }
Ptr<GenericIf> MoxType::genericIf_(PtrInterface* instance, bool isConst) const {
  if (!isEntityType(this)) return {};
  return new GenericIfEntity(Ptr<Entity>(dynamic_cast<Entity*>(instance)), isConst);
}

Ptr<GenericIf> MoxType::genericIf(PtrInterface* instance, bool isConst) const {
  MoxType const* const type = instance ? instance->fwkType() : nullptr;
  return (type ? type : this)->genericIf_(instance, isConst);
}
Ptr<GenericIf> MoxType::genericIf(PtrInterface const* instance) const {
  return genericIf(const_cast<PtrInterface*>(instance), true);
}

}  // namespace Mox
