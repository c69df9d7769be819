// The model in a few lines: make a tree, subscribe to one entity, change it.
#include <InvArad.h>

#include <iostream>

using Inventory::Arad::AradSlice;
using Inventory::Arad::Qsgmii;

/// Hears of every change of one port block, whether this process makes it or a peer.
class BlockWatcher : public Qsgmii::Notifiee {
 public:
  void onDescription() override {
    std::cout << "now: " << notifier()->description().charPtr() << "\n";
  }
};

int main() {
  Mox::Ptr<AradSlice> card(new AradSlice("linecard"));
  Mox::Ptr<Qsgmii> block = card->fapIs("fap0", 0)->qsgmiiIs(3);
  Mox::Ptr<BlockWatcher> watcher(new BlockWatcher);
  watcher->notifierIs(block);
  watcher->isRegisteredNotifieeIs(true);

  block->descriptionIs("uplink");
  block->descriptionIs("uplink");  // An equal value is no change: nobody hears of it.
  block->descriptionIs("spare");
}
