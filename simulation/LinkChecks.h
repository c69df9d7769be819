// What must hold of one end of a connection. All that the simulation knows of the log's inside is
// here.
#pragma once

#include <map>
#include <string>

#include "attrlog/link/Link.h"

namespace Mox::Simulation {

/// What holds at any moment: throws `Failure`. `isThorough`: also what takes a walk over all
/// adapters.
void checkEnd(NboAttrLog::Link const& link, bool isThorough);

/// Paths by entity id, of every entity that an end knows.
using KnownIds = std::map<EntityId, std::string>;

/// What an end may have counted though its peer is honest.
struct Allowed {
  bool strays = false;
  bool handlerExceptions = false;
};

/// What holds of an end at which nothing moves any more: throws `Failure`. `where` is added to it.
KnownIds checkQuietEnd(NboAttrLog::Link const& link, Allowed allowed, std::string const& where);

/// The first path whose id one end has and the other hasn't, or has for another path; empty for
/// none.
std::string strangeId(KnownIds const& one, KnownIds const& other);

/// True for a frame that changes an entity which this end itself exports: with one writer no peer
/// sends it.
bool isWriteToOwn(NboAttrLog::Demuxer const& demuxer, NboAttrLog::Frame const& frame);

}  // namespace Mox::Simulation
