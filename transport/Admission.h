// Who gets a connection when there can't be more: one origin's many don't keep the others out. A
// server asks it for each connection that it accepts.
#pragma once

#include <cstddef>

#include "attrlog/link/Session.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// False: the session has `most` links, and `from` has at least as many of them as any other
/// origin. Otherwise there is room, made if need be at the expense of the origin that has the most
/// links: its newest is ended in the next `service`, of those that have not greeted if there are
/// any.
bool admits(Session& session, Origin const& from, std::size_t most);

/// Connections that this process may have beside the descriptors that it needs for all else.
std::size_t descriptorRoom();

}  // namespace NboAttrLog
}  // namespace Mox
