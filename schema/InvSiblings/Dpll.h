// The uses of a clock chip with a phase-locked loop, as `Inventory::Si5327::pllRole` tells them.
#pragma once

namespace Hardware::Dpll {

/// Time synchronisation.
inline unsigned int pllTimeSync() { return 0; }
/// The same without a partner.
inline unsigned int pllTimeSyncStandalone() { return 1; }

}  // namespace Hardware::Dpll
