// Links everything that the package offers, and exits 0 if a change of the own model is told.
#include <Consumer.h>
#include <InvArad.h>

#include <iostream>

namespace {

class Watcher : public Consumer::Mast::Notifiee {
 public:
  void onHeight() override { ++heights; }
  void onLimit(Mox::Name) override { ++limits; }
  int heights = 0;
  int limits = 0;
};

}  // namespace

int main() {
  Mox::Ptr<Consumer::Mast> mast(new Consumer::Mast("mast"));
  Mox::Ptr<Watcher> watcher(new Watcher);
  watcher->notifierIs(mast);
  watcher->isRegisteredNotifieeIs(true);
  mast->heightIs(3.5);
  mast->limitIs("wind", 90);
  Mox::Ptr<Inventory::Arad::AradSlice> slice(new Inventory::Arad::AradSlice("slice"));
  std::cout << mast->name().charPtr() << " " << mast->height() << " " << slice->name().charPtr()
            << " " << watcher->heights << " " << watcher->limits << "\n";
  return watcher->heights == 1 && watcher->limits == 1 ? 0 : 1;
}
