// The kinds of world, and which history plays in one of them.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "registry/MoxType.h"

namespace Mox::Simulation {

/// Processes and the connections between them.
struct Plan {
  char const* name;
  std::vector<std::pair<int, int>> cables;  ///< exporter and importer
  bool manyWriters;                         ///< every process may write every tree
};

/// pair, star, both, starBoth, chain, chainBoth.
std::vector<Plan> const& plans();

/// Something that must hold did not; the text says what.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One history: it follows from these values alone.
struct History {
  Plan const* plan = nullptr;
  std::uint64_t seed = 1;
  std::vector<MoxType const*> rootTypes;  ///< what the trees are made of
  /// The steps that are played, in order; without a value all of them.
  std::optional<std::vector<unsigned int>> steps = {};
  /// Most changes of a new tree before it is exported.
  unsigned int mostPlanted = std::numeric_limits<unsigned int>::max();
  /// Writes each action, notification and frame to standard error.
  bool isTraced = false;
};

}  // namespace Mox::Simulation
