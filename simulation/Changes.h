// Random changes of a tree of any model, over the generic interface: values and references are set,
// members of collections are set and deleted, children are made, replaced and deleted. Keys come
// from a small space, so that they collide and come back.
#pragma once

#include "generic/GenericIf.h"
#include "simulation/Chance.h"
#include "simulation/Parties.h"

namespace Mox::Simulation {

/// Changes one attribute of the entity or of one that it owns. A setter's refusal (a range
/// exception) counts as a change; other exceptions pass through.
void change(Ptr<GenericIf> const& entity, Chance& chance, Parties& parties);

}  // namespace Mox::Simulation
