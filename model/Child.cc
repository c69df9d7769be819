// The words of the reinstantiation error.
#include "model/Child.h"

namespace Mox {

void throwReinstantiation(Name const& childName, char const* parameter, String8 const& newValue,
                          String8 const& oldValue) {
  throwNameInUseException("Reinstantiating the entity with name " + valueToStrep(childName) +
                          " where constructor parameter attribute _" + String8(parameter) +
                          " has a different value of " + newValue + " than the current value of " +
                          oldValue + " not allowed");
}

}  // namespace Mox
