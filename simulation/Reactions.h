// What subscribers do that write: they correct what they were notified of, write elsewhere,
// delete an arriving child, or the entity itself. Which attribute has which reaction follows from
// the type alone, and every chain of reactions ends.
#pragma once

#include "generic/GenericIf.h"
#include "simulation/Chance.h"
#include "simulation/Outline.h"

namespace Mox::Simulation {

/// `key`: that of a changed member; null for all else.
void react(Ptr<GenericIf> const& entity, Attribute const& attribute,
           Ptr<GenericIf const> const& key, Chance& chance);

}  // namespace Mox::Simulation
