// Two trees in step: what one end exports, the other one mirrors, initial state and every change.
// Here both ends are in one thread and joined in memory; between processes a SocketLink takes the
// place of the MemoryLink, and a PollLoop that of the turns (see tools/inventoryctl/).
#include <InvArad.h>

#include <iostream>

#include "Mox/Dir.h"
#include "attrlog/link/Session.h"
#include "transport/MemoryLink.h"

using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;

namespace {

/// Hears of the blocks of a mirrored chip.
class ChipWatcher : public Arad::Notifiee {
 public:
  void onQsgmii(Hardware::Sand::QsgmiiId id) override {
    std::cout << "block " << id.value() << (notifier()->qsgmii(id) ? " came" : " went") << "\n";
  }
};

}  // namespace

int main() {
  // One end has a tree and shows it.
  Mox::Ptr<AradSlice> card(new AradSlice("linecard"));
  Mox::Ptr<Arad> chip = card->fapIs("fap0", 0);
  chip->descriptionIs("the only chip");
  Mox::NboAttrLog::Session server("server");
  server.exportIs(card);
  server.exportsDone();

  // The other one has a place for what it is shown.
  Mox::Ptr<Mox::Dir> roots(new Mox::Dir);
  Mox::NboAttrLog::Session client("client");
  client.importDirIs(roots);

  auto ends = Mox::NboAttrLog::MemoryLink::pair();
  server.linkIs(std::move(ends.first));
  Mox::Ptr<Mox::NboAttrLog::Link> link = client.linkIs(std::move(ends.second));
  auto turn = [&] {
    server.service(0);
    client.service(0);
  };
  while (!link->demuxer().inStep()) turn();

  auto mirrored = Mox::ptrCast<AradSlice>(roots->entry("linecard")->target());
  std::cout << mirrored->fap("fap0")->description().charPtr() << "\n";
  Mox::Ptr<ChipWatcher> watcher(new ChipWatcher);
  watcher->notifierIs(mirrored->fap("fap0"));
  watcher->isRegisteredNotifieeIs(true);

  chip->qsgmiiIs(3);
  turn();
  chip->qsgmiiDel(3);
  turn();
}
