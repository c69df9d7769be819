// A collection of each kind through its own operations, the refusal texts, and links to parents:
// finds wrong counts and notifications, iterators that reach the wrong member, wrong words,
// dangling links.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

#include "Model.h"

namespace {

using namespace Inventory::Arad;
using namespace Hardware::Sand;
using namespace model;

/// What one call did to an entity, as text: "v+1 r+0 description". Each notification shows the
/// version that its change led to.
class Effect {
 public:
  explicit Effect(Entity& entity) : entity_(entity), watch_(Ptr<Entity>(&entity)) {}
  template <class Call>
  std::string of(Call const& call) {
    std::uint32_t const version = entity_.version();
    std::uint32_t const reads = entity_.readCount();
    watch_.take();
    call();
    std::ostringstream out;
    out << "v+" << entity_.version() - version << " r+" << entity_.readCount() - reads;
    std::istringstream lines(watch_.take());
    for (std::string what, at; lines >> what >> at;) out << " " << what;
    return out.str();
  }

 private:
  Entity& entity_;
  Watch watch_;
};

#define MODEL_COLLECTION(Owner_, x, X)                                                       \
  struct Owner_##X {                                                                         \
    using Owner = Owner_;                                                                    \
    static constexpr char const* name = #x;                                                  \
    static bool has(Owner const& o, auto const& key) {                                       \
      return static_cast<bool>(o.mox##X##Member(key));                                       \
    }                                                                                        \
    static void get(Owner const& o, auto const& key) { o.x(key); }                           \
    static void is(Owner& o, auto const&... args) { o.x##Is(args...); }                      \
    static void make(Owner& o, auto const&... args) { o.new##X(args...); }                   \
    static auto del(Owner& o, auto const& keyOrIterator) { return o.x##Del(keyOrIterator); } \
    static void delAll(Owner& o) { o.x##DelAll(); }                                          \
    static void notify(Owner& o, auto const& key) { o.x##Notify(key); }                      \
    static auto iterator(Owner& o) { return o.x##Iterator(); }                               \
    static auto from(Owner const& o, auto const& key) { return o.x##IteratorConst(key); }    \
    static unsigned int count(Owner const& o) { return o.x##Count(); }                       \
  };
MODEL_COLLECTION(Arad, serdes, Serdes)
MODEL_COLLECTION(Arad, nifSerdesQuartet, NifSerdesQuartet)
MODEL_COLLECTION(Arad, port, Port)
MODEL_COLLECTION(Arad, tempSensor, TempSensor)
MODEL_COLLECTION(AradSlice, fap, Fap)
MODEL_COLLECTION(NifSerdes, jerichoNifSerdesTuning, JerichoNifSerdesTuning)
MODEL_COLLECTION(SocProperties, property, Property)
MODEL_COLLECTION(Xlge, serdes, Serdes)
#undef MODEL_COLLECTION

template <class Owner>
Ptr<Owner> make() {
  if constexpr (std::is_same_v<Owner, Inventory::Arad::Arad>) {
    return new Owner("fap0", 5);
  } else if constexpr (std::is_same_v<Owner, NifSerdes>) {
    return new Owner(5, true, false, 1, 2, 300);
  } else if constexpr (std::is_same_v<Owner, AradSlice>) {
    return new Owner("slice");
  } else if constexpr (std::is_same_v<Owner, SocProperties>) {
    return new Owner("bag", 3);
  } else {
    return new Owner(5);
  }
}

/// Two keys, `a` in front of `b` in the map's order, and what else makes a member.
template <class Ops, class Key, class... Args>
void checkCollection(Key const& a, Key const& b, Args const&... args) {
  SCOPED_TRACE(Ops::name);
  auto const ownerPtr = make<typename Ops::Owner>();
  auto& owner = **ownerPtr;
  Effect effect(owner);
  auto const told = [&](Key const& key) {
    return effect.of([&] { Ops::notify(owner, key); }).substr(std::strlen("v+0 r+0"));
  };
  std::string const onA = told(a), onB = told(b);
  EXPECT_TRUE(onA.starts_with(std::string(" ") + Ops::name + "[")) << onA;
  EXPECT_NE(onA, onB);

  // Misses.
  EXPECT_EQ(effect.of([&] { Ops::get(owner, a); }), "v+0 r+1");
  EXPECT_EQ(effect.of([&] { Ops::del(owner, a); }), "v+0 r+0");
  EXPECT_EQ(effect.of([&] { Ops::del(owner, Ops::iterator(owner)); }), "v+0 r+0");
  EXPECT_EQ(effect.of([&] { Ops::delAll(owner); }), "v+0 r+0");

  // Made, found again, made without a count.
  using Result = decltype(Ops::del(owner, a));
  constexpr bool isOfEntities = std::is_constructible_v<Ptr<Entity>, Result>;
  EXPECT_EQ(effect.of([&] { Ops::is(owner, a, args...); }), "v+1 r+0" + onA);
  EXPECT_EQ(effect.of([&] { Ops::is(owner, a, args...); }), isOfEntities ? "v+1 r+0" : "v+0 r+0");
  EXPECT_EQ(effect.of([&] { Ops::make(owner, b, args...); }), "v+0 r+0");
  EXPECT_EQ(Ops::count(owner), 2u);
#ifndef NDEBUG
  EXPECT_DEATH(Ops::make(owner, b, args...), "the key is free");
#endif

  // By iterator: of another collection, over a member that is out, over its successor by key.
  auto const other = make<typename Ops::Owner>();
  Ops::is(**other, a, args...);
  auto at = Ops::iterator(owner);
  EXPECT_EQ(Ops::from(owner, a), at);
  auto const refused = [&](auto const& of) {
    EXPECT_EQ(effect.of([&] { EXPECT_THROW(Ops::del(owner, of), Mox::RangeException); }),
              "v+0 r+0");
  };
  refused(Ops::iterator(**other));
  EXPECT_EQ(Ops::count(**other), 1u);
  EXPECT_EQ(effect.of([&] { Ops::del(owner, at); }), "v+1 r+0" + onA);
  refused(at);
  EXPECT_EQ(effect.of([&] { Ops::is(owner, a, args...); }), "v+1 r+0" + onA);
  refused(at);
  EXPECT_TRUE(Ops::has(owner, a));
  ++at;
  EXPECT_EQ(at.key(), b);
  EXPECT_EQ(effect.of([&] { Ops::delAll(owner); }), "v+2 r+0" + onA + onB);
  EXPECT_EQ(Ops::count(owner), 0u);
}

TEST(Model, ACollectionOfEachKindCountsNotifiesAndRefusesForeignIterators) {
  testing::FLAGS_gtest_death_test_style = "fast";
  using Current = SerdesCurrent;
  using Lane = AradNifSerdesId;
  using Id = unsigned short;
  Ptr<Inventory::Port> const port(new Inventory::Port("p"));
  checkCollection<AradSerdes>(Lane(6), Lane(5), true, false, Current(1), Current(2), Id(300));
  checkCollection<AradNifSerdesQuartet>(SerdesQuartetId(6), SerdesQuartetId(5));
  checkCollection<AradPort>(Id(6), Id(5), port);
  checkCollection<AradTempSensor>(Hardware::SensorId(6), Hardware::SensorId(5));
  Mox::Name a("a"), b("b");
  if (Mox::isReversedLess(b.hash(), a.hash())) std::swap(a, b);
  checkCollection<AradSliceFap>(a, b, 7u);
  checkCollection<NifSerdesJerichoNifSerdesTuning>(serdesTuningCopper, serdesTuningOptical);
  checkCollection<SocPropertiesProperty>(String8(a), String8(b), String8("v"));
  checkCollection<XlgeSerdes>(Lane(72), Lane(3), false);
}

TEST(Model, AMemberIsNotMadeAgainWithOtherParameters) {
  Ptr<AradSlice> const slice(new AradSlice("slice"));
  Ptr<Inventory::Arad::Arad> const arad = slice->fapIs("fap0", 1);
  Ptr<Inventory::Port> const port(new Inventory::Port("port1"));
  arad->serdesIs(5, true, false, 1, 2, 300);
  arad->statsSerdesIs(28, false);
  arad->portIs(1, port);
  arad->mdioAccelBlockIs(1, 7, 2.5);
  auto const lane = [&](bool tx, bool rx, int pre, int driver, unsigned short emphasis) {
    return [=] { arad->serdesIs(5, tx, rx, SerdesCurrent(pre), SerdesCurrent(driver), emphasis); };
  };
  struct Row {
    std::function<void()> again;
    char const* name;
    char const *parameter, *given, *stored;
  };
  // The first difference in declared order is reported, the new value first.
  Row const rows[] = {
      {lane(false, true, 3, 4, 5), "''", "_swapPolarityTx", "false", "true"},
      {lane(true, true, 3, 4, 5), "''", "_swapPolarityRx", "true", "false"},
      {lane(true, false, 3, 4, 5), "''", "_preDriverCurrent", "3", "1"},
      {lane(true, false, 1, 33, 5), "''", "_driverCurrent", "33", "2"},
      {lane(true, false, 1, 2, 5), "''", "_preEmphasis", "5", "300"},
      {[&] { arad->statsSerdesIs(28, true); }, "''", "_swapPolarityTx", "true", "false"},
      {[&] { arad->portIs(1, nullptr); }, "''", "_ethPort", "''", "'port1'"},
      {[&] { arad->mdioAccelBlockIs(1, 8, 5); }, "''", "_offset", "8", "7"},
      {[&] { arad->mdioAccelBlockIs(1, 7, 25); }, "''", "_busSpeed", "25", "2.5"},
      {[&] { slice->fapIs("fap0", 2); }, "'fap0'", "_fapId", "2", "1"},
  };
  Effect effect(**arad);
  for (Row const& row : rows) {
    std::string message;
    std::string const done = effect.of([&] {
      try {
        row.again();
      } catch (Mox::NameInUseException const& refused) {
        message = refused.what();
        EXPECT_TRUE(refused.ids().contains(Mox::Exception::nameInUseId));
      }
    });
    EXPECT_EQ(message, std::string("Reinstantiating the entity with name ") + row.name +
                           " where constructor parameter attribute " + row.parameter +
                           " has a different value of " + row.given +
                           " than the current value of " + row.stored + " not allowed");
    EXPECT_TRUE(done == "v+0 r+0" || row.parameter == std::string("_fapId")) << done;
  }
}

TEST(Model, ALinkToAParentNeverDangles) {
  Ptr<Inventory::Arad::Arad> arad(new Inventory::Arad::Arad("fap0", 0));
  // Made by a factory alone; linked by hand, from elsewhere and while it has an owner; unlinked.
  Ptr<Entity> const device = arad->newPciDevice("pci");
  Ptr<Entity> const elsewhere(new Xlge(1));
  elsewhere->parentIs(arad);
  Ptr<Qsgmii> const owned = arad->qsgmiiIs(1);
  Ptr<Entity> const home(new Cge(1));
  owned->parentIs(home);
  Ptr<Entity> const unlinked = arad->xlgeIs(2).ptr();
  unlinked->parentIs(nullptr);
  for (auto const& child : {device, elsewhere}) EXPECT_EQ(child->parent(), arad);
  EXPECT_EQ(text(device->fullName()), "fap0/pciDevice");
  Ptr<Entity> short_(new Xlge(9));
  short_->parentIs(arad);
  short_ = nullptr;

  // Added by a subscriber while the parent is being destroyed, behind and in front of its place.
  struct Adder : Inventory::Arad::Arad::Notifiee {
    using Inventory::Arad::Arad::NotifieeConst::onQsgmii;
    void onQsgmii(QsgmiiId) override {
      EXPECT_FALSE(removed->parent());  // The link goes before the notification.
      for (int i = 0; i < 2; ++i)
        added.push_back(notifier()->pciDeviceIs(i ? "again" : "once").ptr());
      added.push_back(notifier()->serdesIs(7, false, false, 1, 1, 0).ptr());
      added.push_back(notifier()->elkConnectionIs(3).ptr());
    }
    Ptr<Entity> removed;
    std::vector<Ptr<Entity>> added;
  };
  Ptr<Adder> const adder(new Adder);
  adder->removed = owned;
  adder->isRegisteredNotifieeIs(true);
  adder->notifierIs(Ptr<PtrInterface const>(arad));
  adder->isWeakReferenceIs(true);
  arad = nullptr;
  adder->removed = nullptr;
  ASSERT_EQ(adder->added.size(), 4u);
  adder->added.insert(adder->added.end(), {device, elsewhere, unlinked, Ptr<Entity>(owned)});
  for (auto const& child : adder->added) {
    EXPECT_FALSE(child->parent());
    EXPECT_EQ(child->fullName(), child->name());
    EXPECT_EQ(count(**child),
              1u + (child == device || child == elsewhere || child == unlinked || child == owned));
  }
}

TEST(Model, AWrapperThatAClientChangesIsReportedOnceAndRemoved) {
  Ptr<NifSerdes> const lane = make<NifSerdes>();
  Ptr<JerichoNifSerdesTuning> const optical = lane->jerichoNifSerdesTuningIs(serdesTuningOptical);
  auto wrapper = lane->newJerichoNifSerdesTuning(serdesTuningCopper);
  Ptr<JerichoNifSerdesTuning> const copper = lane->jerichoNifSerdesTuning(serdesTuningCopper);
  EXPECT_EQ(wrapper->child(), copper);
  // Its own setter compares name and mode, and puts another child in the place of a different one.
  EXPECT_EQ(wrapper->jerichoNifSerdesTuningIs(copper->name(), serdesTuningCopper).ptr(), copper);
  Ptr<Entity> const renamed = wrapper->jerichoNifSerdesTuningIs("x", serdesTuningCopper).ptr();
  EXPECT_NE(renamed, copper);
  EXPECT_FALSE(copper->parent());

  // Emptied, it is no member, raises once in `xIs`, and goes with all others.
  for (bool const byDelAll : {false, true}) {
    EXPECT_TRUE(wrapper->jerichoNifSerdesTuningDel());
    EXPECT_FALSE(wrapper->jerichoNifSerdesTuningDel());
    std::uint32_t const version = lane->version();
    EXPECT_FALSE(lane->jerichoNifSerdesTuning(serdesTuningCopper));
    EXPECT_FALSE(lane->jerichoNifSerdesTuningDel(serdesTuningCopper));
    if (!byDelAll) {
      EXPECT_THROW(lane->jerichoNifSerdesTuningIs(serdesTuningCopper), Mox::RangeException);
      EXPECT_EQ(lane->version(), version);
      EXPECT_EQ(lane->jerichoNifSerdesTuningCount(), 1u);
      EXPECT_TRUE(lane->jerichoNifSerdesTuningIs(serdesTuningCopper));
      wrapper = lane->moxJerichoNifSerdesTuningMember(serdesTuningCopper);
      continue;
    }
    lane->jerichoNifSerdesTuningDelAll();
    EXPECT_EQ(lane->version(), version + 1);
    EXPECT_EQ(lane->jerichoNifSerdesTuningCount(), 0u);
    EXPECT_FALSE(optical->parent());
  }
  // With a child of another mode it is found by the iterator.
  wrapper = lane->newJerichoNifSerdesTuning(serdesTuningCopper);
  wrapper->jerichoNifSerdesTuningIs("x", serdesTuningBackplane);
  EXPECT_TRUE(lane->jerichoNifSerdesTuningDel(lane->jerichoNifSerdesTuningIterator()));
  EXPECT_EQ(lane->jerichoNifSerdesTuningCount(), 0u);
}

}  // namespace
