// The root of the reflective objects: what clients read, change and watch the model with that don't
// know its classes.
#pragma once

#include "Mox/Notifiee.h"
#include "Mox/Ptr.h"

namespace Mox {

class GenericIf : public PtrInterface::Notifiee {
 public:
  ~GenericIf() override;
};

}  // namespace Mox
