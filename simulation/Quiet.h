// What must hold when nothing moves in a world any more: all trees are equal, every subscriber was
// notified of everything, and nothing is left over.
#pragma once

#include "simulation/State.h"

namespace Mox::Simulation {

/// Throws `Failure`. Leaves the trees alone.
void checkQuiet(State const& state);

}  // namespace Mox::Simulation
