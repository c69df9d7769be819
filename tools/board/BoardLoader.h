// Builds the inventory of one chip from property files that have been read, through the model's
// ordinary typed operations. `inventoryd` calls it once, before it serves the tree.
#pragma once

#include <InvArad.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tools/board/PropertyFile.h"

namespace Board {

/// A line that was refused, by the parser or because its value doesn't fit its type.
struct BoardRefusal {
  std::string file;
  unsigned int number = 0;
  std::string cause;
};

/// How many lines of one other chip were passed over.
struct PassedOver {
  std::string chip;
  std::size_t lines = 0;
};

/// Counts are of lines. Every property line that was read is one of mapped, text, refused,
/// overridden, passed over; refused counts the parser's refusals too.
struct BoardSummary {
  std::string chip;  ///< empty if no line names a chip
  bool isChipGiven = false;
  std::size_t read = 0;        ///< all but blank lines and comments
  std::size_t mapped = 0;      ///< made or changed more than a property bag
  std::size_t text = 0;        ///< stand in a property bag alone
  std::size_t overridden = 0;  ///< the same property stands again, later or with a narrower scope
  std::vector<BoardRefusal> refusals;
  std::vector<PassedOver> passedOver;  ///< by chip id without regard to case
  std::size_t passedOverLines() const;
};

/// The chip id that most lines of `files` name, as its first line spells it; of several the one
/// named first. Empty if there is none.
std::string mostNamedChip(std::vector<PropertyFile> const& files);

/// Puts one `Arad` "fap0", unit 0, into `slice`, and into it what `files` say of `chip` (without
/// one, of `mostNamedChip`). `slice` must not have a "fap0" yet.
///
/// A property holds for everything, for a chip, or for a unit. Where one is given more than once
/// the chip's line wins over the line for everything, and otherwise the later line wins. Properties
/// of no unit stand in `elkGlobalSocProperties`, those of a unit in its `elkPerUnitsSocProperties`.
/// Beyond the bags, lines of no unit and of unit 0 (which wins) are understood so:
///
/// | property | effect |
/// |---|---|
/// | `ddr…`, `dram…`, `ext_ram…` | also a `ddrTuneSetting` |
/// | `serdes_…clk…` | also a `serdesClockSocPropertyValue` |
/// | `ucode_port_N=TYPEid[:core_c.p]` | `EthPort` N, and the block that serves it, see below |
/// | `lane_to_serdes_map_nif_laneN=rxA:txB` | `NifSerdes` N, with `rxSerdesId` A, `txSerdesId` B |
/// | `phy_rx_polarity_flip_phyN`, `pb_serdes_lane_swap_polarity_rx_phyN`, and with `tx` |
/// `NifSerdes` N, with `swapPolarityRx`, `swapPolarityTx`; N is the number as the file has it |
///
/// `CGE`, `CDGE` make a `Cge`, `XLGE` an `Xlge`, `QSGMII` a `Qsgmii`; `XE`, `10GBase-R` set `xgeId`
/// and `GE` sets `geId` to the lane. Ports of other types make nothing. A lane that is made has no
/// driver currents (`SerdesCurrent::null`) and no pre-emphasis, since these files don't tell them.
///
/// A value that doesn't fit is refused and stays a property. The type's null id names nothing, and
/// is refused as well.
BoardSummary loadBoard(std::vector<PropertyFile> const& files, std::string const& chip,
                       Mox::Ptr<Inventory::Arad::AradSlice> const& slice);

/// The summary as text of a few lines, refusals ahead: `FILE:LINE: cause`, then counts and chips.
std::string summaryText(BoardSummary const& summary);

}  // namespace Board
