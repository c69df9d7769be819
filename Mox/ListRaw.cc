#include "Mox/ListRaw.h"

namespace Mox {

BaseCollection::~BaseCollection() = default;

}  // namespace Mox
