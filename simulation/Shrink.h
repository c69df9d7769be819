// From a failing history to the shortest one that still fails.
#pragma once

#include <functional>
#include <string>

#include "simulation/Plan.h"

namespace Mox::Simulation {

/// Plays a history; the text of what is wrong, empty for nothing.
using Play = std::function<std::string(History const&)>;

struct Shrunk {
  History history;
  std::string failure;
  unsigned int stepsBefore;
};

/// Leaves out planted changes and steps as long as the history still fails, in whatever way.
/// `stepCount`: those of the whole history. Plays at most `mostPlays` histories.
Shrunk shrink(History history, unsigned int stepCount, std::string failure, Play const& play,
              unsigned int mostPlays = 1500);

/// "1-3,7", and back. `stepsFromText` throws std::invalid_argument.
std::string stepsText(std::vector<unsigned int> const& steps);
std::vector<unsigned int> stepsFromText(std::string const& text);

}  // namespace Mox::Simulation
