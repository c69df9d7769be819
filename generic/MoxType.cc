// The generic factories of a type: the forms of a type that has none, and their front ends.
#include "registry/MoxType.h"

#include "generic/GenericIf.h"

namespace Mox {

GenericIf::~GenericIf() = default;

Ptr<GenericIf> MoxType::genericIf(void const*, bool) const { return {}; }
Ptr<GenericIf> MoxType::genericIf(GenericIf const*, bool) const { return {}; }
Ptr<GenericIf> MoxType::genericIf(String8 const&, bool) const { return {}; }
Ptr<GenericIf> MoxType::genericIf_(PtrInterface*, bool) const { return {}; }

Ptr<GenericIf> MoxType::genericIf(PtrInterface* instance, bool isConst) const {
  MoxType const* const type = instance ? instance->fwkType() : nullptr;
  return (type ? type : this)->genericIf_(instance, isConst);
}
Ptr<GenericIf> MoxType::genericIf(PtrInterface const* instance) const {
  return genericIf(const_cast<PtrInterface*>(instance), true);
}

}  // namespace Mox
