// The hand-written reaction of a chip: what must be so before anybody hears of a new clock.
#include "InvArad/Arad.h"
#include "InvSiblings/Si5327.h"
#include "Mox/Assertion.h"

namespace Hardware::Dpll {

inline unsigned int pllTimeSync() { return 0; }
inline unsigned int pllTimeSyncStandalone() { return 1; }

}  // namespace Hardware::Dpll

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
