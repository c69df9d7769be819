// What wide types cost: the inventory's own tree of one slice with a number of chips, all with
// their lanes, blocks, ports and property bags, carried from one session to another in one thread,
// and what it takes in memory.
//   bench_chips [CHIPS]
#include <InvArad.h>
#include <malloc.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>

#include "Mox/Dir.h"
#include "attrlog/link/Session.h"
#include "transport/MemoryLink.h"

namespace {

using namespace Mox::NboAttrLog;
using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Mox::Ptr;

constexpr unsigned int lanes = 72, ports = 128, properties = 400;

void bagIs(Ptr<Inventory::Arad::SocProperties> const& bag) {
  for (unsigned int i = 0; i < properties; ++i) {
    bag->propertyIs(Mox::format("property.%015u", i), Mox::format("%016u", i * 7));
  }
}

void fill(Arad& chip) {
  chip.descriptionIs("a forwarding chip of this");
  for (unsigned int id = 0; id < lanes; ++id) {
    auto const lane = chip.serdesIs(id, false, true, 3, 5, 7);
    lane->txPhaseInterpolationIs(id + 1);
    if (id % 4 == 0) chip.qsgmiiIs(id / 4)->descriptionIs("a block of four 1G ports");
    if (id % 4 == 1) {
      auto const block = chip.xlgeIs(id / 4);
      block->descriptionIs("a block of a 40G port, 1");
      for (unsigned int i = 0; i < 4; ++i) block->serdesIs(id / 4 * 4 + i, i % 2 == 0);
    }
    if (id % 12 == 2) {
      auto const block = chip.cgeIs(id / 12);
      block->descriptionIs("a block of a 100G port,1");
      for (unsigned int i = 0; i < 10; ++i) block->serdesUsedIs((id + i) % lanes, true);
    }
  }
  for (unsigned int number = 0; number < ports; ++number) {
    auto const port = chip.portIs(static_cast<unsigned short>(number), nullptr);
    port->xgeIdIs(number % lanes);
    port->numQPairsIs(8);
    port->laneIs(3);
    port->txAlwaysEnabledAt10gIs(true);
  }
  bagIs(chip.elkAllUnitsSocPropertiesIs("all", 0));
  bagIs(chip.elkGlobalSocPropertiesIs("global", 0));
  bagIs(chip.elkPerUnitsSocPropertiesIs(0));
}

std::size_t allocated() {
  struct mallinfo2 const info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

double seconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

}  // namespace

int main(int argc, char** argv) {
  unsigned int const chips = argc > 1 ? static_cast<unsigned int>(std::atoi(argv[1])) : 1;
  std::size_t const before = allocated();
  double const began = seconds();
  Ptr<AradSlice> const slice(new AradSlice("slice"));
  for (unsigned int i = 0; i < chips; ++i) {
    Ptr<Arad> const chip = slice->fapIs(Mox::format("fap%u", i), i);
    fill(**chip);
  }
  double const built = seconds();
  std::size_t const bytes = allocated() - before;

  Session server("server");
  server.exportIs(slice);
  server.exportsDone();
  Ptr<Mox::Dir> const roots(new Mox::Dir);
  Session client("client");
  client.importDirIs(roots);
  auto ends = MemoryLink::pair();
  Ptr<Link> const from = server.linkIs(std::move(ends.first));
  Ptr<Link> const to = client.linkIs(std::move(ends.second));
  while (!to->demuxer().inStep()) {
    server.service(0);
    client.service(0);
    if (from->state() == Link::State::closed) return 1;
  }
  double const carried = seconds();
  auto const copy = Mox::ptrCast<AradSlice>(roots->entry("slice")->target());
  Ptr<Arad const> const last = copy->fap(Mox::format("fap%u", chips - 1));
  if (last->portCount() != ports ||
      last->elkPerUnitsSocProperties(0)->propertyCount() != properties)
    return 1;

  std::size_t const objects = to->demuxer().reactorCount();
  auto const line = [chips](char const* metric, double value) {
    std::printf("{\"workload\":\"chips-%u\",\"peer\":\"mox\",\"metric\":\"%s\",\"value\":%.6g}\n",
                chips, metric, value);
  };
  line("objects", double(objects));
  line("build_us_per_object", (built - began) * 1e6 / double(objects));
  line("bytes_per_object", double(bytes) / double(objects));
  line("carry_us_per_object", (carried - built) * 1e6 / double(objects));
  line("frames_per_s", double(from->stats().framesSent) / (carried - built));
  line("wire_bytes", double(from->stats().bytesSent));
}
