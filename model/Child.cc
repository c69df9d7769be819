// The words of the reinstantiation error.
#include "model/Child.h"

namespace Mox {

void throwReinstantiation(Name const& childName, char const* parameter, String8 const& newValue,
                          String8 const& oldValue) {
  throwNameInUseException(messages::reinstantiating + valueToStrep(childName) +
                          messages::reinstantiatingWhere + String8(parameter) +
                          messages::reinstantiatingNew + newValue + messages::reinstantiatingOld +
                          oldValue + messages::reinstantiatingEnd);
}

}  // namespace Mox
