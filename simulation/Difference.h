// A comparison of two trees that nobody subscribes to, over the generic interface.
#pragma once

#include <string>

#include "Mox/Entity.h"

namespace Mox::Simulation {

/// Where two trees differ first, with both values; empty if nowhere. Compares types, names, values,
/// constructor arguments, keys, and the paths of what references lead to.
std::string difference(Entity const& one, Entity const& other, std::string const& path);

}  // namespace Mox::Simulation
