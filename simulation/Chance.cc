#include "simulation/Chance.h"

#include <algorithm>
#include <string>

namespace Mox::Simulation {

String8 Chance::text(unsigned int most) {
  unsigned int length = below(12);
  if (oneIn(6)) length = below(64u << below(14));
  length = std::min({length, longestText_, most});
  std::string const part = std::to_string(fresh()) + ",";
  std::string bytes;
  bytes.reserve(length + part.size());
  while (bytes.size() < length) bytes += part;
  return String8(bytes.data(), bytes.size());
}

}  // namespace Mox::Simulation
