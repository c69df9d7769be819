// Two entities without a parent, made of the same arguments, that were announced on one connection:
// by both ends, or by a process that had its own and got another one from elsewhere. Such twins may
// swap when the connection is made anew, so that a second transfer of the same state is notified.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "simulation/State.h"

namespace Mox::Simulation {

class Twins {
 public:
  /// Ids by what an announcement shows of the entity: one for each connection.
  using Announced = std::map<std::string, std::string>;

  /// `line`: a frame that announces an entity, as text.
  void announced(std::string const& line, std::vector<Root> const& roots, Announced& known) {
    for (Root const& root : roots) {
      if (line.starts_with("root " + std::string(root.name.view()) + ":")) return;
    }
    std::size_t const end = line.find(" id ");
    std::string const id = line.substr(end, line.find(' ', end + 4) - end);
    if (known.emplace(line.substr(0, end), id).first->second != id) wereSeen_ = true;
  }
  bool wereSeen() const { return wereSeen_; }

 private:
  bool wereSeen_ = false;
};

}  // namespace Mox::Simulation
