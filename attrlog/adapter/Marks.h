// Whose marks stand on the members of a collection. A transaction marks all members at its begin
// and deletes those still marked at its end; in a process between others two connections can have
// one open on the same collection, and each must see its own marks alone. So the marks of one are
// taken off, and kept, before a frame of another is applied. One thread's, like the entities.
#pragma once

#include <vector>

#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"

namespace MOX_API Mox {
namespace NboAttrLog {

struct AttrRow;
class AdapterHost;

/// Counted, so that a key which is made again isn't taken for the one that was marked.
using MarkedMembers = std::vector<Ptr<PtrInterface>>;

namespace Marks {

/// A frame of the connection about the collection is about to be applied.
void enter(Entity& entity, AttrRow const& row, AdapterHost const* connection);
/// The connection opens a transaction: it is about to mark all members.
void begin(Entity& entity, AttrRow const& row, AdapterHost const* connection);
/// Its transaction is through.
void end(Entity& entity, AttrRow const& row, AdapterHost const* connection);
/// Its transaction will never be through: nothing is deleted, no mark is left.
void drop(Entity& entity, AttrRow const& row, AdapterHost const* connection);
/// Collections with an open transaction.
std::size_t openCount();

}  // namespace Marks
}  // namespace NboAttrLog
}  // namespace Mox
