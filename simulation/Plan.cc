#include "simulation/Plan.h"

namespace Mox::Simulation {

std::vector<Plan> const& plans() {
  static std::vector<Plan> const all = {
      {"pair", {{0, 1}}, false},          {"star", {{0, 1}, {0, 2}}, false},
      {"both", {{0, 1}}, true},           {"starBoth", {{0, 1}, {0, 2}}, true},
      {"chain", {{0, 1}, {1, 2}}, false}, {"chainBoth", {{0, 1}, {1, 2}}, true},
  };
  return all;
}

}  // namespace Mox::Simulation
