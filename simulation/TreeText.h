// A tree of any model as text, for comparisons and for people.
#pragma once

#include <string>

#include "Mox/Entity.h"

namespace Mox::Simulation {

/// Every value of the tree, a line each, in an order that depends on nothing else. Empty for null.
std::string treeText(Ptr<Entity> const& root);

/// "place[key]".
std::string memberPlace(std::string const& place, std::string const& key);

}  // namespace Mox::Simulation
