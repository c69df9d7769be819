// The hand-written reaction of a chip: the check of a new clock, before any subscriber is called.
#include "InvArad/Arad.h"
#include "InvSiblings/Dpll.h"
#include "InvSiblings/Si5327.h"
#include "Mox/Assertion.h"

namespace Inventory::Arad {

bool Arad::handlePllClockTakes(Mox::Ptr<Si5327 const> const& clock) {
  return !clock || clock->pllRole() == Hardware::Dpll::pllTimeSync() ||
         clock->pllRole() == Hardware::Dpll::pllTimeSyncStandalone();
}

void Arad::handlePllClock() noexcept {
  if (!pllClock()) return;
  if (pllClock()->pllRole() == Hardware::Dpll::pllTimeSync()) return;
  if (pllClock()->pllRole() == Hardware::Dpll::pllTimeSyncStandalone()) return;
  Mox::assertionFailed(
      "pllClock()->pllRole() == Hardware::Dpll::pllTimeSync() || pllClock()->pllRole() == "
      "Hardware::Dpll::pllTimeSyncStandalone()",
      "InvArad", 10, "void Inventory::Arad::Arad::handlePllClock()");
}

}  // namespace Inventory::Arad
