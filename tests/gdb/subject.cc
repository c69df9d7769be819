// A small tree to look at in a debugger.
#include "InvArad.h"

using namespace Inventory::Arad;

[[gnu::noinline]] void look(Mox::Ptr<AradSlice> const& slice) { asm volatile("" : : "r"(&slice)); }

int main() {
  Mox::Ptr<AradSlice> slice(new AradSlice("slice"));
  slice->numPortsIs(12);
  Mox::Ptr<Arad> chip = slice->fapIs("fap0", 7);
  chip->descriptionIs("line card");
  chip->qsgmiiIs(3)->serdesIs(5);
  chip->xlgeIs(1)->serdesIs(9, true);
  chip->ddrTuneSettingIs("speed", "fast");
  look(slice);
}
