// A client of the model from start to end: build a slice, subscribe, change, remove. Read this
// first.
#include <InvArad.h>

#include <iostream>

using Hardware::Sand::AradNifSerdesId;
using Hardware::Sand::SerdesCurrent;
using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Inventory::Arad::EthPort;
using Inventory::Arad::NifSerdes;

namespace {

/// Subscribers override the handlers that matter to them. A handler runs inside the setter that
/// made the change and sees the new state; it may read, set, subscribe and remove as it likes.
class ChipWatcher : public Arad::Notifiee {
 public:
  void onSerdes(AradNifSerdesId id) override {
    // One handler for coming and going: a removed member is gone by now.
    std::cout << "  lane " << id.value() << (notifier()->serdes(id) ? " is there" : " is gone")
              << "\n";
  }
  void onPort(unsigned short id) override {
    std::cout << "  port " << id << (notifier()->port(id) ? " is there" : " is gone") << "\n";
  }
  void onSerdesClockSocPropertyValue(Mox::String8 key) override {
    std::cout << "  clock setting " << key << " = " << notifier()->serdesClockSocPropertyValue(key)
              << "\n";
  }
  using Arad::Notifiee::onPort;
  using Arad::Notifiee::onSerdes;
  using Arad::Notifiee::onSerdesClockSocPropertyValue;
};

class PortWatcher : public EthPort::Notifiee {
 public:
  void onXgeId() override {
    std::cout << "  port " << notifier()->ethPortId() << " uses lane "
              << notifier()->xgeId().value() << " at 10G\n";
  }
  void onManagedPhy() override { std::cout << "  PHY: " << notifier()->managedPhy() << "\n"; }
};

}  // namespace

int main() {
  // Children are made through their parent, which owns them. Asking again for the same child gives
  // the one that is there.
  std::cout << "Building\n";
  Mox::Ptr<AradSlice> slice(new AradSlice("linecard"));
  Mox::Ptr<Arad> chip = slice->fapIs("fap0", 0);
  Mox::Ptr<ChipWatcher> chipWatcher(new ChipWatcher);
  chipWatcher->notifierIs(chip);
  chipWatcher->isRegisteredNotifieeIs(true);

  Mox::Ptr<NifSerdes> lane = chip->serdesIs(4, false, true, SerdesCurrent(2), SerdesCurrent(7), 12);
  chip->serdesIs(4, false, true, SerdesCurrent(2), SerdesCurrent(7), 12);
  Mox::Ptr<EthPort> port = chip->portIs(17, nullptr);
  std::cout << "  " << lane->fullName() << ", " << port->fullName() << "\n";

  std::cout << "Changing\n";
  Mox::Ptr<PortWatcher> portWatcher(new PortWatcher);
  portWatcher->notifierIs(port);
  portWatcher->isRegisteredNotifieeIs(true);
  port->xgeIdIs(4);
  port->xgeIdIs(4);  // No change: nobody hears of it.
  port->managedPhyIs(Inventory::Arad::bcm84848);
  chip->serdesClockSocPropertyValueIs("nif", "156");

  std::cout << "What the model refuses\n";
  try {
    chip->serdesIs(4, false, true, SerdesCurrent(2), SerdesCurrent(7), 13);
  } catch (Mox::NameInUseException const& failure) {
    std::cout << "  " << failure.what() << "\n";
  }
  try {
    port->xgeIdIs(73);
  } catch (Mox::RangeException const& failure) {
    std::cout << "  " << failure.what() << "\n";
  }

  // Collections are walked by iterators, which survive whatever happens meanwhile.
  std::cout << "Walking\n";
  chip->serdesIs(5, false, false, SerdesCurrent(2), SerdesCurrent(7), 12);
  for (auto at = chip->serdesIteratorConst(); at; ++at) {
    std::cout << "  lane " << at.key().value() << ", pre-emphasis " << at->preEmphasis() << "\n";
  }

  // A removed child lives on for as long as somebody holds it; it has no parent any more.
  std::cout << "Removing\n";
  chip->serdesDel(4);
  std::cout << "  lane " << lane->id().value() << (lane->parent() ? " has" : " has no")
            << " parent\n";
  slice->fapDel("fap0");
  std::cout << "  " << slice->fapCount() << " chips\n";
}
