// What subscribers of a chip are called for, in which order, and what they see: at its end, through
// its base classes, and when its clock changes.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "Model.h"

namespace {

using Inventory::Arad::Arad;
using namespace Hardware::Sand;
using namespace model;

template <class Subscriber>
Ptr<Subscriber> bound(Ptr<Subscriber> const& subscriber, Ptr<Entity> const& entity) {
  subscriber->isRegisteredNotifieeIs(true);
  subscriber->notifierIs(Ptr<PtrInterface const>(entity));
  subscriber->isWeakReferenceIs(true);
  return subscriber;
}

/// Stays in the list while its chip is destroyed. "!": the child is still there.
class ChipEnd : public Arad::Notifiee {
 public:
  void onZeroReferences() override { heard += "zeroReferences "; }
#define MODEL_KEYED(x, X, Key)                                                 \
  void on##X(Key key) override { heard += #x + text(Mox::textOf(key)) + " "; } \
  using Arad::NotifieeConst::on##X;
#define MODEL_CHILD(x, X) \
  void on##X() override { heard += notifier()->x() ? #x "! " : #x " "; }
  MODEL_KEYED(serdes, Serdes, AradNifSerdesId)
  MODEL_KEYED(nifSerdesQuartet, NifSerdesQuartet, SerdesQuartetId)
  MODEL_KEYED(qsgmii, Qsgmii, QsgmiiId)
  MODEL_KEYED(xlge, Xlge, XlgeId)
  MODEL_KEYED(xlge2, Xlge2, Xlge2Id)
  MODEL_KEYED(cge, Cge, XlgeId)
  MODEL_KEYED(port, Port, unsigned short)
  MODEL_KEYED(elkPerUnits, ElkPerUnitsSocProperties, unsigned int)
  MODEL_KEYED(statsSerdes, StatsSerdes, AradStatsSerdesId)
  MODEL_KEYED(mdioAccelBlock, MdioAccelBlock, Hardware::VesperAccelId)
  MODEL_KEYED(elkConnection, ElkConnection, unsigned int)
  MODEL_KEYED(serdesQuartet, SerdesQuartet, SerdesQuartetId)
  MODEL_KEYED(ddrTuneSetting, DdrTuneSetting, String8)
  MODEL_CHILD(pciDevice, PciDevice)
  MODEL_CHILD(elkAllUnitsSocProperties, ElkAllUnitsSocProperties)
  MODEL_CHILD(elkGlobalSocProperties, ElkGlobalSocProperties)
#undef MODEL_KEYED
#undef MODEL_CHILD
  std::string heard;
};

TEST(Notifications, AChipTakesItsChildrenDownInTheirOrderAndItsValuesInSilence) {
  Ptr<Arad> arad(new Arad("fap0", 0));
  Ptr<Entity> const kept[] = {arad->elkConnectionIs(2).ptr(), arad->mdioAccelBlockIs(3, 0, 1).ptr(),
                              arad->pciDeviceIs("pci").ptr(), arad->serdesQuartetIs(1).ptr()};
  arad->elkConnectionIs(1);
  arad->statsSerdesIs(28, false);
  arad->elkGlobalSocPropertiesIs("g", 0);
  arad->elkPerUnitsSocPropertiesIs(0);
  arad->elkAllUnitsSocPropertiesIs("all", 0);
  arad->portIs(7, nullptr);
  arad->cgeIs(1);
  arad->xlge2Is(1);
  arad->xlgeIs(1);
  arad->qsgmiiIs(1);
  arad->nifSerdesQuartetIs(4);
  arad->serdesIs(5, false, false, 1, 1, 0);
  arad->ddrTuneSettingIs("k", "v");
  Ptr<ChipEnd> const end = bound(Ptr<ChipEnd>(new ChipEnd), arad);
  arad = nullptr;
  EXPECT_EQ(end->heard,
            "zeroReferences pciDevice serdes5 nifSerdesQuartet4 qsgmii1 xlge1 xlge21 cge1 port7 "
            "elkAllUnitsSocProperties elkPerUnits0 elkGlobalSocProperties statsSerdes28 "
            "mdioAccelBlock3 elkConnection2 elkConnection1 serdesQuartet1 ");
  for (auto const& child : kept) {
    EXPECT_FALSE(child->parent());
    EXPECT_EQ(count(**child), 1u);
  }
}

TEST(Notifications, AChipCallsEachClassOfSubscriberForWhatItCanHear) {
  Ptr<Arad> const arad(new Arad("fap0", 0));
  std::string heard;
  struct Component : Inventory::ComponentBase::Notifiee {
    void onDescription() override { *heard += "component "; }
    std::string* heard = nullptr;
  };
  struct Fap : Inventory::Sand::FapBase::Notifiee {
    void onDescription() override { *heard += "fap "; }
    void onNumCores() override { *heard += "cores "; }
    std::string* heard = nullptr;
  };
  struct Chip : Arad::Notifiee {
    void onDescription() override { *heard += "chip "; }
    void onFapRevMajor() override { *heard += "revision "; }
    std::string* heard = nullptr;
  };
  auto const component = bound(Ptr<Component>(new Component), arad);
  auto const fap = bound(Ptr<Fap>(new Fap), arad);
  auto const chip = bound(Ptr<Chip>(new Chip), arad);
  component->heard = fap->heard = chip->heard = &heard;
  arad->descriptionIs("d");
  arad->numCoresIs(2);
  arad->fapRevMajorIs(fapRevMajorA);
  EXPECT_EQ(heard, "component fap chip cores revision ");
  // Those that got no call are released as usual.
  EXPECT_EQ(count(**component), 1u);
  EXPECT_EQ(text(chip->name()), "fap0");
}

struct ClockListener : Arad::Notifiee {
  void onPllClock() override {
    std::fputs("called ", stderr);
    heard += "v" + std::to_string(notifier()->version()) + " reads " +
             std::to_string(notifier()->readCount());
    auto const clock = notifier()->pllClock();
    heard += clock ? " clock's " + std::to_string(clock->readCount()) + "\n" : " none\n";
  }
  std::string heard;
};

TEST(NotificationsDeathTest, AClockIsCheckedBeforeAnySubscriberIsCalled) {
  Ptr<Arad> const arad(new Arad("fap0", 0));
  auto const listener = bound(Ptr<ClockListener>(new ClockListener), arad);
  Ptr<Inventory::Si5327> const sync(new Inventory::Si5327("s", Hardware::Dpll::pllTimeSync()));
  Ptr<Inventory::Si5327> const alone(
      new Inventory::Si5327("a", Hardware::Dpll::pllTimeSyncStandalone()));
  for (auto const& clock : {Ptr<Inventory::Si5327>(), sync, sync, alone, {}})
    arad->pllClockIs(clock);
  EXPECT_EQ(listener->heard, "v2 reads 2 clock's 1\nv3 reads 6 clock's 2\nv4 reads 8 none\n");
  EXPECT_EXIT(
      arad->pllClockIs(new Inventory::Si5327("other", 2)), testing::KilledBySignal(SIGABRT),
      "^InvArad:10: void Inventory::Arad::Arad::handlePllClock\\(\\): Assertion "
      "'pllClock\\(\\)->pllRole\\(\\) == Hardware::Dpll::pllTimeSync\\(\\) \\|\\| "
      "pllClock\\(\\)->pllRole\\(\\) == Hardware::Dpll::pllTimeSyncStandalone\\(\\)' failed\\.\n");
}

}  // namespace
