// What subscribers of the real types hear, in which order, and what they see at that moment: whole
// traces as text. With subscribers that misbehave, and ends of entities that they still watch.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "SchemaTable.h"
#include "tests/attrlog/Mirror.h"

namespace {

using namespace Inventory::Arad;
using Mox::AttributeId;
using Mox::Entity;
using Mox::Name;
using Mox::Ptr;
using Mox::PtrInterface;
using Mox::String8;
using schemaTable::text;
using schemaTable::Watch;

using Lane = Hardware::Sand::AradNifSerdesId;

unsigned int count(PtrInterface const& object) {
  return object.references() & Mox::VFPtrInterface::countMask;
}

TEST(Notifications, ACollectionIsToldWithTheMemberInPlaceOrGone) {
  Ptr<AradSlice> const slice(new AradSlice("slice"));
  Watch sliceWatch(**slice, true);
  Ptr<Arad> const arad = slice->fapIs("fap0", 0);
  Watch aradWatch(**arad, true);
  arad->serdesIs(5, false, false, 1, 1, 0);
  arad->serdesIs(6, false, false, 1, 1, 0);
  arad->serdesIs(5, false, false, 1, 1, 0);
  Ptr<NifSerdes> const kept = arad->serdesDel(5);
  arad->serdesNotify(5);
  arad->serdesNotify(6);
  arad->serdesDelAll();
  // The removed member is its own master.
  kept->txSerdesIdIs(7);
  EXPECT_EQ(sliceWatch.take(), "fap[fap0] v1 child\n");
  EXPECT_EQ(aradWatch.take(),
            "serdes[5] v2 child\nserdes[6] v3 child\nserdes[5] v5 none\nserdes[5] v5 none\n"
            "serdes[6] v5 child\nserdes[6] v6 none\n");
  slice->fapDel("fap0");
  EXPECT_EQ(sliceWatch.take(), "fap[fap0] v2 none\n");

  Ptr<Xlge> const block(new Xlge(1));
  Watch blockWatch(**block, true);
  block->serdesIs(3, false);
  block->serdesIs(3, false);
  block->serdesIs(3, true);
  block->serdesDel(3);
  block->serdesDel(3);
  EXPECT_EQ(blockWatch.take(), "serdes[3] v1 false\nserdes[3] v2 true\nserdes[3] v3 none\n");

  Ptr<SocProperties> const bag(new SocProperties("bag", 0));
  Watch bagWatch(**bag, true);
  bag->propertyIs("", "");
  bag->propertyIs("k", "v");
  bag->propertyIs("k", "w");
  bag->propertyDel("");
  bag->propertyDelAll();
  EXPECT_EQ(bagWatch.take(),
            "property[''] v1 ''\nproperty['k'] v2 'v'\nproperty['k'] v3 'w'\n"
            "property[''] v4 none\nproperty['k'] v5 none\n");
}

// Ends of entities.

/// A weak subscriber that stays in the list while its entity is destroyed.
template <class Subscriber>
class UntilTheEnd : public Subscriber {
 public:
  template <class X>
  UntilTheEnd(Ptr<X> const& entity, std::string& heard) : heard_(heard) {
    this->isRegisteredNotifieeIs(true);
    this->notifierIs(Ptr<PtrInterface const>(entity));
    this->isWeakReferenceIs(true);
  }
  void onZeroReferences() override { heard_ += "zeroReferences\n"; }

 protected:
  void hear(char const* what, String8 const& key, bool isThere) {
    heard_ += std::string(what) + "[" + text(key) + "]" + (isThere ? " there" : "") + "\n";
  }
  std::string& heard_;
};

class AradEnd : public UntilTheEnd<Arad::Notifiee> {
 public:
  using UntilTheEnd::UntilTheEnd;
#define MODEL_HEARS(x, X, Key)                                                            \
  void on##X(Key key) override { hear(#x, Mox::pathKey(key), bool(notifier()->x(key))); } \
  using Arad::NotifieeConst::on##X;
  MODEL_HEARS(serdes, Serdes, Lane)
  MODEL_HEARS(nifSerdesQuartet, NifSerdesQuartet, Hardware::Sand::SerdesQuartetId)
  MODEL_HEARS(qsgmii, Qsgmii, Hardware::Sand::QsgmiiId)
  MODEL_HEARS(xlge, Xlge, Hardware::Sand::XlgeId)
  MODEL_HEARS(xlge2, Xlge2, Hardware::Sand::Xlge2Id)
  MODEL_HEARS(cge, Cge, Hardware::Sand::XlgeId)
  MODEL_HEARS(port, Port, unsigned short)
  MODEL_HEARS(elkPerUnitsSocProperties, ElkPerUnitsSocProperties, unsigned int)
  MODEL_HEARS(statsSerdes, StatsSerdes, Hardware::Sand::AradStatsSerdesId)
  MODEL_HEARS(mdioAccelBlock, MdioAccelBlock, Hardware::VesperAccelId)
  MODEL_HEARS(elkConnection, ElkConnection, unsigned int)
#undef MODEL_HEARS
  void onDdrTuneSetting(String8 key) override { hear("ddrTuneSetting", key, true); }
  using Arad::NotifieeConst::onDdrTuneSetting;
  void onSerdesClockSocPropertyValue(String8 key) override {
    hear("serdesClockSocPropertyValue", key, true);
  }
  using Arad::NotifieeConst::onSerdesClockSocPropertyValue;
  void onPciDevice() override { hear("pciDevice", "", bool(notifier()->pciDevice())); }
  void onElkAllUnitsSocProperties() override {
    hear("elkAllUnitsSocProperties", "", bool(notifier()->elkAllUnitsSocProperties()));
  }
  void onElkGlobalSocProperties() override {
    hear("elkGlobalSocProperties", "", bool(notifier()->elkGlobalSocProperties()));
  }
  // The part of the chip that is still there.
  void onSerdesQuartet(Hardware::Sand::SerdesQuartetId key) override {
    hear("serdesQuartet", Mox::pathKey(key), false);
  }
  using Arad::NotifieeConst::onSerdesQuartet;
  void onFabricSerdes(Hardware::Sand::SerdesId key) override {
    hear("fabricSerdes", Mox::pathKey(key), false);
  }
  using Arad::NotifieeConst::onFabricSerdes;
  void onTempSensor(Hardware::SensorId key) override {
    hear("tempSensor", Mox::pathKey(key), false);
  }
  using Arad::NotifieeConst::onTempSensor;
};

TEST(Notifications, AChipTakesItsChildrenDownInTheirOrderAndItsValuesInSilence) {
  Ptr<Arad> arad(new Arad("fap0", 0));
  std::map<std::string, Ptr<Entity>> kept;
  kept["elkConnection"] = arad->elkConnectionIs(1).ptr();
  arad->elkConnectionIs(2);
  kept["mdioAccelBlock"] = arad->mdioAccelBlockIs(3, 0, 1).ptr();
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
  kept["serdes"] = arad->serdesIs(5, false, false, 1, 1, 0).ptr();
  kept["pciDevice"] = arad->pciDeviceIs("pci").ptr();
  arad->serdesQuartetIs(1);
  arad->fabricSerdesIs(2);
  arad->tempSensorIs(3);
  arad->ddrTuneSettingIs("k", "v");
  arad->serdesClockSocPropertyValueIs("k", "v");

  std::string heard;
  Ptr<AradEnd> const subscriber(new AradEnd(arad, heard));
  PtrInterface const* const gone = arad.get();
  arad = nullptr;
  EXPECT_EQ(heard,
            "zeroReferences\n"
            "pciDevice[]\nserdes[5]\nnifSerdesQuartet[4]\nqsgmii[1]\nxlge[1]\nxlge2[1]\ncge[1]\n"
            "port[7]\nelkAllUnitsSocProperties[]\nelkPerUnitsSocProperties[0]\n"
            "elkGlobalSocProperties[]\nstatsSerdes[28]\nmdioAccelBlock[3]\nelkConnection[2]\n"
            "elkConnection[1]\nserdesQuartet[1]\nfabricSerdes[2]\ntempSensor[3]\n");
  for (auto const& [name, child] : kept) {
    EXPECT_FALSE(child->parent()) << name;
    EXPECT_EQ(count(**child), 1u) << name;
  }
  // The pointer stays, out of the list, and nothing follows it.
  EXPECT_EQ(subscriber->moxNotifier(), gone);
  EXPECT_TRUE(subscriber->isRegisteredNotifiee());
  EXPECT_EQ(static_cast<Inventory::ComponentBase::NotifieeConst&>(**subscriber).next, nullptr);
  EXPECT_EQ(text(subscriber->name()), "");
}

class EthPortEnd : public UntilTheEnd<EthPort::Notifiee> {
 public:
  using UntilTheEnd::UntilTheEnd;
  void onTxConnection() override { hear("tx", "", bool(notifier()->txConnection())); }
  void onRxConnection() override { hear("rx", "", bool(notifier()->rxConnection())); }
};

class NifSerdesEnd : public UntilTheEnd<NifSerdes::Notifiee> {
 public:
  using UntilTheEnd::UntilTheEnd;
  void onJerichoNifSerdesTuning(Hardware::Sand::JerichoNifSerdesTuningMode key) override {
    hear("tuning", Mox::pathKey(key), bool(notifier()->jerichoNifSerdesTuning(key)));
  }
  using NifSerdes::NotifieeConst::onJerichoNifSerdesTuning;
};

class SliceEnd : public UntilTheEnd<AradSlice::Notifiee> {
 public:
  using UntilTheEnd::UntilTheEnd;
  void onFap(Name key) override { hear("fap", key, bool(notifier()->fap(key))); }
  using AradSlice::NotifieeConst::onFap;
};

class XlgeEnd : public UntilTheEnd<Xlge::Notifiee> {
 public:
  using UntilTheEnd::UntilTheEnd;
  void onSerdes(Lane key) override { hear("serdes", Mox::pathKey(key), true); }
  using Xlge::NotifieeConst::onSerdes;
};

TEST(Notifications, EveryTypeTakesItsChildrenDownWithNotifications) {
  std::string heard;
  Ptr<EthPort> port(new EthPort(1, nullptr));
  port->rxConnectionIs(2);
  port->txConnectionIs(1);
  Ptr<EthPortEnd> const portEnd(new EthPortEnd(port, heard));
  port = nullptr;
  EXPECT_EQ(std::exchange(heard, ""), "zeroReferences\ntx[]\nrx[]\n");

  Ptr<NifSerdes> lane(new NifSerdes(5, false, false, 1, 1, 0));
  lane->jerichoNifSerdesTuningIs(Hardware::Sand::serdesTuningCopper);
  lane->jerichoNifSerdesTuningIs(Hardware::Sand::serdesTuningOptical);
  Ptr<NifSerdesEnd> const laneEnd(new NifSerdesEnd(lane, heard));
  lane = nullptr;
  EXPECT_EQ(std::exchange(heard, ""),
            "zeroReferences\ntuning['serdesTuningCopper']\ntuning['serdesTuningOptical']\n");

  // The whole tree, from above: a chip's own children go when the chip goes.
  Ptr<AradSlice> slice(new AradSlice("slice"));
  Ptr<SliceEnd> const sliceEnd(new SliceEnd(slice, heard));
  std::string below;
  Ptr<AradEnd> const chipEnd(new AradEnd(slice->fapIs("fap0", 0).ptr(), below));
  slice->fap("fap0")->qsgmiiIs(3);
  Ptr<Arad> const kept = slice->fapIs("fap1", 1);
  kept->qsgmiiIs(4);
  heard = below = "";
  slice = nullptr;
  EXPECT_TRUE(heard == "zeroReferences\nfap[fap0]\nfap[fap1]\n" ||
              heard == "zeroReferences\nfap[fap1]\nfap[fap0]\n")
      << heard;
  EXPECT_EQ(below, "zeroReferences\nqsgmii[3]\n");
  EXPECT_FALSE(kept->parent());
  EXPECT_TRUE(kept->qsgmii(4));

  heard = "";
  Ptr<Xlge> block(new Xlge(1));
  block->serdesIs(3, true);
  Ptr<XlgeEnd> const blockEnd(new XlgeEnd(block, heard));
  block = nullptr;
  EXPECT_EQ(heard, "zeroReferences\n");
}

// The chip: two more classes in front of its own, and a reaction.

TEST(Notifications, AChipTellsEachClassOfSubscriberWhatItCanHear) {
  Ptr<Arad> const arad(new Arad("fap0", 0));
  std::string heard;
  struct Component : Inventory::ComponentBase::Notifiee {
    explicit Component(std::string& heard) : heard(heard) {}
    void onDescription() override { heard += "component description\n"; }
    std::string& heard;
  };
  struct Fap : Inventory::Sand::FapBase::Notifiee {
    explicit Fap(std::string& heard) : heard(heard) {}
    void onDescription() override { heard += "fap description\n"; }
    void onNumCores() override { heard += "fap numCores\n"; }
    std::string& heard;
  };
  struct Chip : Arad::Notifiee {
    explicit Chip(std::string& heard) : heard(heard) {}
    void onDescription() override { heard += "chip description\n"; }
    void onNumCores() override { heard += "chip numCores\n"; }
    void onFapRevMajor() override { heard += "chip fapRevMajor\n"; }
    void onSerdes(Lane) override { heard += "chip serdes\n"; }
    using Arad::NotifieeConst::onSerdes;
    std::string& heard;
  };
  Ptr<Component> const component(new Component(heard));
  Ptr<Fap> const fap(new Fap(heard));
  Ptr<Chip> const chip(new Chip(heard));
  for (PtrInterface::NotifieeConst* one :
       {static_cast<PtrInterface::NotifieeConst*>(component.get()),
        static_cast<PtrInterface::NotifieeConst*>(fap.get()),
        static_cast<PtrInterface::NotifieeConst*>(chip.get())}) {
    one->isRegisteredNotifieeIs(true);
    one->notifierIs(Ptr<PtrInterface const>(arad));
    EXPECT_EQ(text(one->name()), "fap0");
  }
  arad->descriptionIs("d");
  arad->numCoresIs(2);
  arad->fapRevMajorIs(Hardware::Sand::fapRevMajorA);
  arad->serdesIs(1, false, false, 1, 1, 0);
  EXPECT_EQ(heard,
            "component description\nfap description\nchip description\nfap numCores\n"
            "chip numCores\nchip fapRevMajor\nchip serdes\n");
  // Those that got no call are released as usual.
  EXPECT_EQ(count(**component), 1u);
  EXPECT_EQ(component->notifier(), Ptr<Inventory::ComponentBase const>(arad));
  EXPECT_EQ(chip->notifier(), arad);
  for (PtrInterface::NotifieeConst* one :
       {static_cast<PtrInterface::NotifieeConst*>(component.get()),
        static_cast<PtrInterface::NotifieeConst*>(fap.get()),
        static_cast<PtrInterface::NotifieeConst*>(chip.get())}) {
    one->notifierIs(nullptr);
  }
}

TEST(Notifications, AClockOfTheRightRoleIsLookedAtBeforeAnybodyHears) {
  Ptr<Arad> const arad(new Arad("fap0", 0));
  Ptr<Inventory::Si5327> const sync(new Inventory::Si5327("sync", 0));
  Ptr<Inventory::Si5327> const alone(new Inventory::Si5327("alone", 1));
  struct Listener : Arad::Notifiee {
    explicit Listener(Ptr<Arad> const& arad) {
      isRegisteredNotifieeIs(true);
      notifierIs(Ptr<PtrInterface const>(arad));
    }
    void onPllClock() override {
      heard += "v" + std::to_string(notifier()->version()) + " chip read " +
               std::to_string(notifier()->readCount());
      auto const clock = notifier()->pllClock();
      heard += clock ? " clock read " + std::to_string(clock->readCount()) + "\n" : " none\n";
    }
    std::string heard;
  };
  Ptr<Listener> const listener(new Listener(arad));
  arad->pllClockIs(nullptr);
  arad->pllClockIs(sync);
  arad->pllClockIs(sync);
  arad->pllClockIs(alone);
  arad->pllClockIs(nullptr);
  EXPECT_EQ(listener->heard,
            "v2 chip read 2 clock read 1\nv3 chip read 6 clock read 2\nv4 chip read 8 none\n");
  EXPECT_EQ(count(**sync), 1u);
  EXPECT_EQ(count(**alone), 1u);
  listener->notifierIs(nullptr);
}

TEST(NotificationsDeathTest, AClockOfAnotherRoleEndsTheProcessBeforeAnybodyHears) {
  struct Listener : Arad::Notifiee {
    void onPllClock() override { std::fputs("heard of it\n", stderr); }
  };
  Ptr<Arad> const arad(new Arad("fap0", 0));
  Ptr<Listener> const listener(new Listener);
  listener->isRegisteredNotifieeIs(true);
  listener->notifierIs(Ptr<PtrInterface const>(arad));
  EXPECT_EXIT(
      arad->pllClockIs(new Inventory::Si5327("other", 2)), testing::KilledBySignal(SIGABRT),
      "^InvArad:10: void Inventory::Arad::Arad::handlePllClock\\(\\): Assertion "
      "'pllClock\\(\\)->pllRole\\(\\) == Hardware::Dpll::pllTimeSync\\(\\) \\|\\| "
      "pllClock\\(\\)->pllRole\\(\\) == Hardware::Dpll::pllTimeSyncStandalone\\(\\)' failed\\.\n");
  listener->notifierIs(nullptr);
}

// Subscribers that misbehave, on real setters.

/// Does what its script says, and writes down who heard what.
class Hostile : public Qsgmii::Notifiee {
 public:
  using Script = std::function<void(Hostile&)>;
  Hostile(char const* name, std::string& heard) : label_(name), heard_(heard) {}
  void bind(Ptr<Qsgmii> const& block) {
    isRegisteredNotifieeIs(true);
    notifierIs(Ptr<PtrInterface const>(block));
  }
  void onDescription() override {
    hear("description " + text(notifier()->description()));
    Script const once = script;
    if (once) once(*this);
  }
  void onSerdes() override { hear("serdes " + std::to_string(notifier()->serdes().value())); }

  Script script;

 private:
  void hear(std::string const& what) {
    heard_ += label_ + ": " + what + " v" + std::to_string(notifier()->version()) + "\n";
  }
  std::string label_;
  std::string& heard_;
};

class HostileHandlers : public testing::Test {
 protected:
  HostileHandlers() {
    for (auto* one : {&a, &b, &c}) (*one)->bind(block);
  }
  ~HostileHandlers() override {
    for (auto* one : {&a, &b, &c}) {
      if (*one) (*one)->notifierIs(nullptr);
      *one = nullptr;
    }
  }
  std::string set(char const* description) {
    heard = "";
    block->descriptionIs(description);
    return heard;
  }
  std::string heard;
  Ptr<Arad> arad{new Arad("fap0", 0)};
  Ptr<Qsgmii> block = arad->qsgmiiIs(5).ptr();
  Ptr<Hostile> a{new Hostile("a", heard)}, b{new Hostile("b", heard)}, c{new Hostile("c", heard)};
};

TEST_F(HostileHandlers, ASetterInsideAHandlerFinishesFirst) {
  // The walk inside goes to everybody; the walk outside goes on and shows the newest value.
  a->script = [](Hostile& self) { self.notifier()->serdesIs(7); };
  EXPECT_EQ(set("x"),
            "a: description x v1\na: serdes 7 v2\nb: serdes 7 v2\nc: serdes 7 v2\n"
            "b: description x v2\nc: description x v2\n");
  a->script = [](Hostile& self) { self.notifier()->descriptionIs("mine"); };
  EXPECT_EQ(set("y"),
            "a: description y v3\na: description mine v4\nb: description mine v4\n"
            "c: description mine v4\nb: description mine v4\nc: description mine v4\n");
}

TEST_F(HostileHandlers, AHandlerMayTakeItsSubjectAndTheWholeTreeAway) {
  a->script = [&](Hostile& self) {
    Ptr<Qsgmii> const removed = arad->qsgmiiDel(5);
    EXPECT_EQ(removed, self.notifier());
    EXPECT_FALSE(self.notifier()->parent());
    arad = nullptr;
    block = nullptr;
  };
  // The rest holds it as strong subscribers and hears the rest.
  heard = "";
  block->descriptionIs("x");
  EXPECT_EQ(heard, "a: description x v1\nb: description x v1\nc: description x v1\n");
  heard = "";
  a->script = nullptr;
  for (auto* one : {&a, &b}) (*one)->notifierIs(nullptr);
  EXPECT_EQ(heard, "");
  // The last subscriber lets the last reference go.
  c->notifierIs(nullptr);
  EXPECT_EQ(heard, "");
}

/// Hears a collection of a chip.
struct ChipListener : Arad::Notifiee {
  ChipListener(Ptr<Arad> const& arad, std::function<void(Arad&, unsigned int)> script)
      : script(std::move(script)) {
    isRegisteredNotifieeIs(true);
    notifierIs(Ptr<PtrInterface const>(arad));
  }
  void onElkConnection(unsigned int key) override {
    auto const arad = notifier();
    heard += std::to_string(key) + (arad->elkConnection(key) ? "+" : "-") + " ";
    if (script) script(**arad, key);
  }
  using Arad::NotifieeConst::onElkConnection;
  std::function<void(Arad&, unsigned int)> script;
  std::string heard;
};

TEST(HostileCollections, MembersMayGoAndComeUnderTheirOwnNotification) {
  Ptr<Arad> const arad(new Arad("fap0", 0));
  using Fru::ConnectionEndpoint;
  struct Row {
    char const* what;
    std::function<void(Arad&, unsigned int)> script;
    char const* heard;
    unsigned int left;
  };
  Row const rows[] = {
      {"deletes the new member", [](Arad& at, unsigned int key) { at.elkConnectionDel(key); },
       "3+ 3- ", 0},
      {"makes the deleted member again once",
       [made = 0](Arad& at, unsigned int key) mutable {
         if (!at.elkConnection(key) && made++ == 0) at.elkConnectionIs(key);
       },
       "3+ 3- 3+ ", 1},
      {"adds a sibling",
       [](Arad& at, unsigned int key) {
         if (key == 3) at.elkConnectionIs(key + 1);
       },
       "3+ 4+ 3- ", 1},
      {"deletes all", [](Arad& at, unsigned int) { at.elkConnectionDelAll(); }, "3+ 3- ", 0},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.what);
    Ptr<ChipListener> const listener(new ChipListener(arad, row.script));
    // The setter gives back what it made, even if it is gone by then.
    Ptr<ConnectionEndpoint> const made = arad->elkConnectionIs(3);
    ASSERT_TRUE(made);
    EXPECT_EQ(made->id(), 3u);
    if (Ptr<ConnectionEndpoint> const removed = arad->elkConnectionDel(3)) {
      EXPECT_EQ(removed, made);
      EXPECT_FALSE(removed->parent());
    }
    EXPECT_EQ(listener->heard, row.heard);
    EXPECT_EQ(arad->elkConnectionCount(), row.left);
    listener->notifierIs(nullptr);
    arad->elkConnectionDelAll();
  }
}

TEST(HostileCollections, DeletingAllMeetsEachMemberOnceWhateverHandlersDo) {
  for (int victim = 0; victim < 4; ++victim) {
    Ptr<Arad> const arad(new Arad("fap0", 0));
    for (unsigned int id = 0; id < 8; ++id) arad->elkConnectionIs(id);
    // Order: 0 4 2 6 1 5 3 7. At the second, take out one that stands before, under, behind.
    unsigned int const victims[] = {0, 4, 2, 7};
    Ptr<ChipListener> const listener(new ChipListener(arad, [&](Arad& at, unsigned int key) {
      if (key == 4) at.elkConnectionDel(victims[victim]);
    }));
    arad->elkConnectionDelAll();
    char const* const expected[] = {"0- 4- 2- 6- 1- 5- 3- 7- ", "0- 4- 2- 6- 1- 5- 3- 7- ",
                                    "0- 4- 2- 6- 1- 5- 3- 7- ", "0- 4- 7- 2- 6- 1- 5- 3- "};
    EXPECT_EQ(listener->heard, expected[victim]) << victims[victim];
    EXPECT_EQ(arad->elkConnectionCount(), 0u);
    EXPECT_EQ(arad->version(), 1u + 8 + 8);
    listener->notifierIs(nullptr);
  }
}

TEST(HostileCollections, AReplacedSingletonMayBeReplacedAgainByItsSubscriber) {
  Ptr<Arad> const arad(new Arad("fap0", 0));
  struct Listener : Arad::Notifiee {
    void onPciDevice() override {
      auto const device = notifier()->pciDevice();
      heard += (device ? text(device->name()) : "none") + " v" +
               std::to_string(notifier()->version()) + "\n";
      if (device && device->name() == Name("b")) notifier()->pciDeviceIs("c");
    }
    std::string heard;
  };
  Ptr<Listener> const listener(new Listener);
  listener->isRegisteredNotifieeIs(true);
  listener->notifierIs(Ptr<PtrInterface const>(arad));
  Ptr<Inventory::PciDevice> const a = arad->pciDeviceIs("a");
  Ptr<Inventory::PciDevice> const b = arad->pciDeviceIs("b");
  EXPECT_EQ(text(b->name()), "b");
  EXPECT_FALSE(b->parent());
  EXPECT_FALSE(a->parent());
  EXPECT_EQ(listener->heard, "a v2\nb v4\nc v6\n");
  EXPECT_EQ(text(arad->pciDevice()->name()), "c");
  listener->notifierIs(nullptr);
}

TEST(Bindings, TheLogHearsBeforeAllOthersAndTheLastConnectionFirst) {
  Ptr<AradSlice> const slice(new AradSlice("slice"));
  Ptr<Qsgmii> const block = slice->fapIs("fap0", 0)->qsgmiiIs(1).ptr();
  std::string heard;
  Ptr<Hostile> const a(new Hostile("a", heard)), b(new Hostile("b", heard));
  a->bind(block);
  b->bind(block);
  using Subscribers = std::vector<Qsgmii::NotifieeConst*>;
  auto const subscribers = [&] {
    Subscribers all;
    for (auto* at = block->notifieeList().head(); at; at = at->next) all.push_back(at);
    return all;
  };
  {
    Mox::NboAttrLog::test::Mirror first(slice);
    first.connect();
    first.settle();
    Subscribers const one = subscribers();
    ASSERT_EQ(one.size(), 3u);
    EXPECT_TRUE(one[0]->moxRawReactor()->isStreamAdapter());
    EXPECT_EQ(one[1], a.get());
    EXPECT_EQ(one[2], b.get());

    Mox::NboAttrLog::test::Mirror second(slice);
    second.connect();
    second.settle();
    Subscribers const two = subscribers();
    ASSERT_EQ(two.size(), 4u);
    EXPECT_TRUE(two[0]->moxRawReactor()->isStreamAdapter());
    EXPECT_EQ(Subscribers(two.begin() + 1, two.end()), one);
  }
  EXPECT_EQ(subscribers(), (Subscribers{a.get(), b.get()}));
  a->notifierIs(nullptr);
  b->notifierIs(nullptr);
}

}  // namespace
