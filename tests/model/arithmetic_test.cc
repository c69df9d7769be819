// What each operation of each kind of attribute does to version, read count, parent and
// subscribers: first and repeated calls, misses, deletions, iterators. Tables over the whole
// schema.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "SchemaTable.h"

namespace {

using namespace Inventory::Arad;
using Mox::AttributeText;
using Mox::Entity;
using Mox::Ptr;
using Mox::String8;
using schemaTable::Attribute;
using schemaTable::Board;
using schemaTable::make;
using schemaTable::operations;
using schemaTable::samples;
using schemaTable::text;
using schemaTable::Type;
using schemaTable::Watch;

/// What one call did to an entity, as text: "v+1 r+0 description v1".
class Effect {
 public:
  explicit Effect(Entity& entity) : entity_(entity), watch_(entity) { take(); }
  std::string take() {
    std::string const heard = watch_.take();
    std::ostringstream out;
    out << "v+" << entity_.version() - version_ << " r+" << entity_.readCount() - reads_;
    std::vector<std::string> lines;
    std::istringstream all(heard);
    for (std::string line; std::getline(all, line);) lines.push_back(line);
    for (std::size_t i = 0; i < lines.size(); ++i) {
      out << " " << lines[i].substr(0, lines[i].rfind(" v"));
      // Each change counts before anybody is told of it.
      std::size_t const version = entity_.version() - (lines.size() - 1 - i);
      EXPECT_EQ(lines[i].substr(lines[i].rfind(" v")), " v" + std::to_string(version)) << lines[i];
    }
    version_ = entity_.version();
    reads_ = entity_.readCount();
    return out.str();
  }
  /// The effect of `call`, with nothing from before.
  template <class Call>
  std::string of(Call const& call) {
    take();
    call();
    return take();
  }

 private:
  Entity& entity_;
  Watch watch_;
  std::uint32_t version_ = 0;
  std::uint32_t reads_ = 0;
};

std::string keyOf(Entity const& entity) {
  auto const keyText = entity.fwkType()->keyText();
  return text(keyText ? keyText(entity) : entity.name());
}

TEST(Model, EveryTypeAnswersTheNamesOfItsAttributesAndOfItsBases) {
  int count = 0;
  for (Type const& type : schemaTable::types()) {
    Ptr<Entity> const entity = make(type.name);
    if (!entity) continue;
    SCOPED_TRACE(type.name);
    std::set<Mox::AttributeId> known;
    for (Type const* at = &type;; at = &schemaTable::type(at->base)) {
      for (Attribute const& attribute : at->attributes) {
        EXPECT_EQ(text(entity->attributeString(attribute.id)), attribute.name) << attribute.id;
        known.insert(attribute.id);
        ++count;
      }
      if (at->base == "Mox::Entity") break;
    }
    for (Mox::AttributeId id = -2; id < 0x300; ++id) {
      if (!known.contains(id) && id != 0 && id != 0x9a) {
        EXPECT_EQ(text(entity->attributeString(id)), "unknown") << id;
      }
    }
    // Both ways: the type has no attribute beside these.
    std::vector<Attribute> const expected = schemaTable::attributes(type);
    std::size_t at = 0;
    entity->fwkType()->typeText()->forEach([&](AttributeText const& attribute) {
      ASSERT_LT(at, expected.size()) << attribute.name;
      EXPECT_EQ(attribute.name, expected[at].name);
      EXPECT_EQ(attribute.id, expected[at].id) << attribute.name;
      ++at;
    });
    EXPECT_EQ(at, expected.size());
  }
  EXPECT_EQ(count, 146);  // Of twenty-two types; a chip with those of both its bases.
}

TEST(Model, ANewEntityHasItsDefaultsAndItsArguments) {
  std::map<std::string, std::string> const arguments = {
      {"SocProperties.unitId", "3"},
      {"NifSerdes.id", "5"},
      {"NifSerdes.swapPolarityTx", "true"},
      {"NifSerdes.swapPolarityRx", "false"},
      {"NifSerdes.preDriverCurrent", "1"},
      {"NifSerdes.driverCurrent", "2"},
      {"NifSerdes.preEmphasis", "300"},
      {"EthPort.ethPort", "''"},
      {"StatsSerdes.id", "28"},
      {"StatsSerdes.swapPolarityTx", "true"},
      {"Arad.fapId", "5"},
      {"JerichoNifSerdesTuning.tuningMode", "'serdesTuningCopper'"},
      {"AccelBlock.offset", "7"},
      {"AccelBlock.busSpeed", "2.5"},
      {"Si5327.pllRole", "1"},
  };
  for (Type const& type : schemaTable::types()) {
    Ptr<Entity> const entity = make(type.name);
    if (!entity) continue;
    SCOPED_TRACE(type.name);
    // The chip sets its own family, through the ordinary setter.
    EXPECT_EQ(entity->version(), type.name == "Inventory::Arad::Arad" ? 1u : 0u);
    EXPECT_EQ(entity->readCount(), 0u);
    EXPECT_EQ(entity->entityFlags(), 136u);
    EXPECT_FALSE(entity->parent());
    EXPECT_EQ(entity->parentAttrId(), 0);
    EXPECT_TRUE(entity->moxHasAttrLogInterface());
    bool const isNamed = type.arguments.size() > 0 && type.arguments[0].name == "name";
    EXPECT_EQ(entity->name().empty(), !isNamed);

    std::string const shortName = type.name.substr(type.name.rfind(':') + 1);
    for (Attribute const& attribute : schemaTable::attributes(type)) {
      SCOPED_TRACE(attribute.name);
      AttributeText const& by = operations(**entity, attribute.id);
      std::uint32_t const reads = entity->readCount();
      if (attribute.kind.starts_with("constructor")) {
        auto const argument = arguments.find(shortName + "." + attribute.name);
        std::string const expected = argument == arguments.end() ? "5" : argument->second;
        EXPECT_EQ(text(by.value(**entity)), expected);
        EXPECT_EQ(by.set, nullptr);
        EXPECT_EQ(entity->readCount(), reads + 1);
      } else if (attribute.kind == "value" || attribute.kind == "reference") {
        EXPECT_EQ(text(by.value(**entity)),
                  schemaTable::defaultOf(type.name, attribute, keyOf(**entity)));
        EXPECT_EQ(entity->readCount(), reads + 1);
      } else if (attribute.kind == "child") {
        EXPECT_FALSE(by.child(**entity));
        EXPECT_EQ(entity->readCount(), reads + 1);
      } else {
        by.members(**entity, [](Mox::MemberText const&) { ADD_FAILURE(); });
      }
    }
  }
}

TEST(Model, AValueOrReferenceCountsAndTellsOnlyWhenItChanges) {
  Board const board;
  int count = 0;
  for (Type const& type : schemaTable::types()) {
    Ptr<Entity> const entity = make(type.name);
    if (!entity) continue;
    Effect effect(**entity);
    for (Attribute const& attribute : schemaTable::attributes(type)) {
      if (attribute.kind != "value" && attribute.kind != "reference") continue;
      ++count;
      SCOPED_TRACE(type.name + "." + attribute.name);
      AttributeText const& by = operations(**entity, attribute.id);
      auto const set = [&](std::string const& value) {
        // A text of its own each time: contents are compared, not bodies.
        return effect.of([&] { by.set(**entity, String8(), String8(value.c_str())); });
      };
      auto const get = [&] { return text(by.value(**entity)); };
      std::string const initial = schemaTable::defaultOf(type.name, attribute, keyOf(**entity));
      // The chip looks at a new clock before it tells of it: once whether there is one, then its
      // role, up to the one that it has.
      auto const told = [&](std::string const& value) {
        int const looks = attribute.name != "pllClock" ? 0
                          : value == "'clockA'"        ? 2
                          : value == "'clockB'"        ? 3
                                                       : 1;
        return "v+1 r+" + std::to_string(looks) + " " + attribute.name;
      };

      EXPECT_EQ(set(initial), "v+0 r+0");
      std::string last = initial;
      for (std::string const& value : samples(attribute.type)) {
        if (value == last) continue;
        EXPECT_EQ(set(value), told(value)) << value;
        EXPECT_EQ(effect.of([&] { EXPECT_EQ(get(), value); }), "v+0 r+1");
        EXPECT_EQ(set(value), "v+0 r+0") << value;
        last = value;
      }
      if (last != initial) {
        EXPECT_EQ(set(initial), told(initial));
      }
      EXPECT_EQ(get(), initial);
    }
  }
  EXPECT_EQ(count, 73);
}

TEST(Model, AReferenceHoldsItsTargetAndLeavesItsParentAlone) {
  Ptr<EthPort> const port(new EthPort(1, nullptr));
  Ptr<Inventory::Xcvr::Slot> const slot(new Inventory::Xcvr::Slot("s"));
  Ptr<Mox::Dir> const home(new Mox::Dir("home"));
  home->entryIs("s", slot);
  auto const count = [&] { return slot->references() & Mox::VFPtrInterface::countMask; };
  auto const before = count();
  port->xcvrSlotIs(slot);
  EXPECT_EQ(count(), before + 1);
  EXPECT_EQ(slot->parent(), Ptr<Entity>(home));
  port->xcvrSlotIs(slot);
  EXPECT_EQ(count(), before + 1);
  {
    auto const read = port->xcvrSlot();
    EXPECT_EQ(count(), before + 2);
  }
  port->xcvrSlotIs(nullptr);
  EXPECT_EQ(count(), before);
  EXPECT_EQ(slot->version(), 0u);
}

/// Arguments by text that make a member, and others for the same attribute.
std::vector<String8> arguments(Attribute const& attribute, std::size_t sample) {
  std::vector<String8> all;
  for (auto const& argument : attribute.arguments) {
    auto const& values = samples(argument.type);
    all.push_back(values[sample % values.size()].c_str());
  }
  return all;
}

TEST(Model, ASingletonIsReplacedAndCountsTwiceThen) {
  int count = 0;
  for (Type const& type : schemaTable::types()) {
    Ptr<Entity> const entity = make(type.name);
    if (!entity) continue;
    Effect effect(**entity);
    for (Attribute const& attribute : schemaTable::attributes(type)) {
      if (attribute.kind != "child") continue;
      ++count;
      SCOPED_TRACE(type.name + "." + attribute.name);
      AttributeText const& by = operations(**entity, attribute.id);
      Ptr<Entity> made;
      auto const is = [&](std::vector<String8> const& with) {
        return effect.of([&] { made = by.add(**entity, with); });
      };
      auto const del = [&] { return effect.of([&] { by.del(**entity, String8()); }); };
      std::string const toldOnce = "v+1 r+0 " + attribute.name;

      EXPECT_EQ(del(), "v+0 r+0");
      EXPECT_EQ(is(arguments(attribute, 1)), toldOnce);
      Ptr<Entity> const first = made;
      EXPECT_EQ(first->parent(), entity);
      EXPECT_EQ(first->parentAttrId(), attribute.id);
      EXPECT_EQ(effect.of([&] { EXPECT_EQ(by.child(**entity), first); }), "v+0 r+1");

      bool const isKeyed = attribute.arguments.back().name != "name";
      std::uint32_t reads = first->readCount();
      EXPECT_EQ(is(arguments(attribute, 1)), "v+1 r+0");
      EXPECT_EQ(made, first);
      EXPECT_EQ(first->readCount(), reads + (isKeyed ? 1u : 0u));
      EXPECT_EQ(first->version(), 0u);

      // Each argument by itself makes it another child.
      Ptr<Entity> last = first;
      for (std::size_t differs = 0; differs < attribute.arguments.size(); ++differs) {
        SCOPED_TRACE(attribute.arguments[differs].name);
        auto with = arguments(attribute, 1);
        with[differs] = arguments(attribute, 2)[differs];
        Ptr<Entity> const replaced = last;
        EXPECT_EQ(is(with), "v+2 r+0 " + attribute.name);
        EXPECT_NE(made, replaced);
        EXPECT_FALSE(replaced->parent());
        EXPECT_EQ(made->parent(), entity);
        last = made;
      }
      made = nullptr;
      EXPECT_EQ(del(), toldOnce);
      EXPECT_FALSE(last->parent());
      EXPECT_EQ(last->references() & Mox::VFPtrInterface::countMask, 1u);
      EXPECT_FALSE(by.child(**entity));
      EXPECT_EQ(del(), "v+0 r+0");
    }
  }
  EXPECT_EQ(count, 5);
}

TEST(Model, ANewBagOfPropertiesIsEmptyAndTheOldOneLeavesWithItsProperties) {
  Ptr<Arad> const arad(new Arad("fap0", 0));
  Ptr<SocProperties> const first = arad->elkGlobalSocPropertiesIs("g", 0);
  first->propertyIs("k", "v");
  Ptr<SocProperties> const second = arad->elkGlobalSocPropertiesIs("g", 1);
  EXPECT_NE(first, second);
  EXPECT_EQ(second->propertyCount(), 0u);
  EXPECT_EQ(text(first->property("k")), "v");
  EXPECT_EQ(text(second->name()), "g");
  EXPECT_NE(arad->elkGlobalSocPropertiesIs("h", 1).ptr(), second);
}

// Collections with their own types. `Ops` names the operations of one of them; the tests below
// run on every one.
#define MODEL_COLLECTION(Owner_, x, X)                                                       \
  struct Owner_##X {                                                                         \
    using Owner = Owner_;                                                                    \
    static constexpr char const* owner = #Owner_;                                            \
    static constexpr char const* name = #x;                                                  \
    static auto get(Owner const& o, auto const& key) { return o.x(key); }                    \
    static auto is(Owner& o, auto const&... args) { return o.x##Is(args...); }               \
    static auto make(Owner& o, auto const&... args) { return o.new##X(args...); }            \
    static auto del(Owner& o, auto const& keyOrIterator) { return o.x##Del(keyOrIterator); } \
    static void delAll(Owner& o) { o.x##DelAll(); }                                          \
    static void notify(Owner& o, auto const& key) { o.x##Notify(key); }                      \
    static auto iterator(Owner& o) { return o.x##Iterator(); }                               \
    static unsigned int count(Owner const& o) { return o.x##Count(); }                       \
  };

MODEL_COLLECTION(Arad, serdes, Serdes)
MODEL_COLLECTION(Arad, nifSerdesQuartet, NifSerdesQuartet)
MODEL_COLLECTION(Arad, qsgmii, Qsgmii)
MODEL_COLLECTION(Arad, xlge, Xlge)
MODEL_COLLECTION(Arad, xlge2, Xlge2)
MODEL_COLLECTION(Arad, cge, Cge)
MODEL_COLLECTION(Arad, port, Port)
MODEL_COLLECTION(Arad, elkPerUnitsSocProperties, ElkPerUnitsSocProperties)
MODEL_COLLECTION(Arad, statsSerdes, StatsSerdes)
MODEL_COLLECTION(Arad, mdioAccelBlock, MdioAccelBlock)
MODEL_COLLECTION(Arad, elkConnection, ElkConnection)
MODEL_COLLECTION(Arad, serdesQuartet, SerdesQuartet)
MODEL_COLLECTION(Arad, fabricSerdes, FabricSerdes)
MODEL_COLLECTION(Arad, tempSensor, TempSensor)
MODEL_COLLECTION(AradSlice, fap, Fap)
MODEL_COLLECTION(NifSerdes, jerichoNifSerdesTuning, JerichoNifSerdesTuning)
MODEL_COLLECTION(Arad, ddrTuneSetting, DdrTuneSetting)
MODEL_COLLECTION(Arad, serdesClockSocPropertyValue, SerdesClockSocPropertyValue)
MODEL_COLLECTION(SocProperties, property, Property)
MODEL_COLLECTION(Xlge, serdes, Serdes)
MODEL_COLLECTION(Xlge2, serdes, Serdes)
MODEL_COLLECTION(Cge, serdesAllocated, SerdesAllocated)
MODEL_COLLECTION(Cge, serdesUsed, SerdesUsed)
#undef MODEL_COLLECTION

template <class Ops>
Ptr<typename Ops::Owner> makeOwner() {
  return ptrCast<typename Ops::Owner>(make(std::string("Inventory::Arad::") + Ops::owner));
}

/// A collection of children: two keys, and what else makes a member. `paramReads`: how many
/// parameters a second call compares. `memberName`: that of the member with the first key.
template <class Ops, class Key, class... Params>
void checkChildren(std::size_t paramReads, char const* memberName, Key const& a, Key const& b,
                   Params const&... params) {
  SCOPED_TRACE(std::string(Ops::owner) + "." + Ops::name);
  auto const ownerPtr = makeOwner<Ops>();
  auto& owner = **ownerPtr;
  Effect effect(owner);
  std::string const name = Ops::name;
  auto const told = [&](Key const& key) {
    return "v+1 r+0 " + name + "[" + text(Mox::pathKey(key)) + "]";
  };
  auto const attribute = [&] {
    for (Attribute const& one : schemaTable::attributes(
             schemaTable::type(std::string("Inventory::Arad::") + Ops::owner))) {
      if (one.name == name) return one;
    }
    return Attribute{};
  }();
  ASSERT_EQ(attribute.kind, "child collection");

  // Misses.
  EXPECT_EQ(effect.of([&] { EXPECT_FALSE(Ops::get(owner, a)); }), "v+0 r+1");
  EXPECT_EQ(effect.of([&] { EXPECT_FALSE(Ops::del(owner, a)); }), "v+0 r+0");
  EXPECT_EQ(effect.of([&] { EXPECT_FALSE(Ops::del(owner, Ops::iterator(owner))); }), "v+0 r+0");
  EXPECT_EQ(effect.of([&] { Ops::delAll(owner); }), "v+0 r+0");

  // The first call makes a member, the second finds it.
  Ptr<Entity> member;
  EXPECT_EQ(effect.of([&] { member = Ops::is(owner, a, params...).ptr(); }), told(a));
  EXPECT_EQ(member->parent(), Ptr<Entity>(ownerPtr));
  EXPECT_EQ(member->parentAttrId(), attribute.id);
  EXPECT_EQ(text(member->name()), memberName);
  std::uint32_t const reads = member->readCount();
  std::uint32_t const version = member->version();
  EXPECT_EQ(effect.of([&] { EXPECT_EQ(Ops::is(owner, a, params...).ptr(), member); }), "v+1 r+0");
  EXPECT_EQ(member->readCount(), reads + paramReads);
  EXPECT_EQ(member->version(), version);
  EXPECT_EQ(effect.of([&] { EXPECT_EQ(Ops::get(owner, a), member); }), "v+0 r+1");

  // A key can be announced again, whether it is there or not.
  EXPECT_EQ(effect.of([&] { Ops::notify(owner, a); }), "v+0 r+0 " + told(a).substr(8));
  EXPECT_EQ(effect.of([&] { Ops::notify(owner, b); }), "v+0 r+0 " + told(b).substr(8));

  // The factory alone counts and tells nothing.
  Ptr<Mox::PtrInterface> factored;
  EXPECT_EQ(effect.of([&] { factored = Ptr<Mox::PtrInterface>(Ops::make(owner, b, params...)); }),
            "v+0 r+0");
  EXPECT_EQ(Ops::count(owner), 2u);
  Ptr<Entity> const other = Ops::get(owner, b);
  ASSERT_TRUE(other);
  EXPECT_EQ(other->parent(), Ptr<Entity>(ownerPtr));
  EXPECT_EQ(other->parentAttrId(), attribute.id);
  factored = nullptr;

  // By key, the removed member stays with the caller.
  EXPECT_EQ(effect.of([&] { EXPECT_EQ(Ops::del(owner, a), member); }), told(a));
  EXPECT_FALSE(member->parent());
  EXPECT_EQ(member->references() & Mox::VFPtrInterface::countMask, 1u);
  EXPECT_EQ(effect.of([&] { EXPECT_FALSE(Ops::del(owner, a)); }), "v+0 r+0");
  // A removed member doesn't come back.
  EXPECT_EQ(effect.of([&] { EXPECT_NE(Ops::is(owner, a, params...).ptr(), member); }), told(a));

  // By iterator, which goes on from where it stood.
  auto at = Ops::iterator(owner);
  Key const first = at.key();
  Key const second = first == a ? b : a;
  EXPECT_EQ(effect.of([&] { EXPECT_TRUE(Ops::del(owner, at)); }), told(first));
  ++at;
  ASSERT_TRUE(at);
  EXPECT_EQ(at.key(), second);
  // All, one by one, in the map's order.
  effect.of([&] { Ops::is(owner, first, params...); });
  EXPECT_EQ(effect.of([&] { Ops::delAll(owner); }),
            "v+2" + told(first).substr(3) + told(second).substr(7));
  EXPECT_EQ(Ops::count(owner), 0u);
}

TEST(Model, ACollectionOfChildrenGivesBackWhatIsThereAndCounts) {
  using namespace Hardware::Sand;
  using Params = SerdesCurrent;
  checkChildren<AradSerdes>(5, "", AradNifSerdesId(5), AradNifSerdesId(6), true, false, Params(1),
                            Params(2), static_cast<unsigned short>(300));
  checkChildren<AradNifSerdesQuartet>(0, "5", SerdesQuartetId(5), SerdesQuartetId(6));
  checkChildren<AradQsgmii>(0, "", QsgmiiId(5), QsgmiiId(6));
  checkChildren<AradXlge>(0, "", XlgeId(5), XlgeId(6));
  checkChildren<AradXlge2>(0, "", Xlge2Id(5), Xlge2Id(6));
  checkChildren<AradCge>(0, "", XlgeId(5), XlgeId(6));
  checkChildren<AradPort>(1, "", static_cast<unsigned short>(5), static_cast<unsigned short>(6),
                          Ptr<Inventory::Port>(new Inventory::Port("p")));
  checkChildren<AradElkPerUnitsSocProperties>(0, "5", 5u, 6u);
  checkChildren<AradStatsSerdes>(1, "", AradStatsSerdesId(29), AradStatsSerdesId(30), true);
  checkChildren<AradMdioAccelBlock>(2, "", Hardware::VesperAccelId(5), Hardware::VesperAccelId(6),
                                    7u, Units::Megahertz(2.5));
  checkChildren<AradElkConnection>(0, "", 5u, 6u);
  checkChildren<AradSerdesQuartet>(0, "5", SerdesQuartetId(5), SerdesQuartetId(6));
  checkChildren<AradFabricSerdes>(0, "", SerdesId(5), SerdesId(6));
  checkChildren<AradTempSensor>(0, "", Hardware::SensorId(5), Hardware::SensorId(6));
  checkChildren<AradSliceFap>(1, "fap0", Mox::Name("fap0"), Mox::Name("fap1"), 7u);
  // The wrapper reads the mode out of the member, which counts there.
  checkChildren<NifSerdesJerichoNifSerdesTuning>(1, "'serdesTuningOptical'", serdesTuningOptical,
                                                 serdesTuningCopper);
}

/// A collection of values: two keys, the type's default and two values.
template <class Ops, class Key, class Value>
void checkValues(Key const& a, Key const& b, Value const& none, Value const& one,
                 Value const& two) {
  SCOPED_TRACE(std::string(Ops::owner) + "." + Ops::name);
  auto const ownerPtr = makeOwner<Ops>();
  auto& owner = **ownerPtr;
  Effect effect(owner);
  auto const told = [&](Key const& key) {
    return std::string("v+1 r+0 ") + Ops::name + "[" + text(Mox::pathKey(key)) + "]";
  };
  auto const is = [&](Key const& key, Value const& value) {
    return effect.of([&] { Ops::is(owner, key, value); });
  };
  auto const get = [&](Key const& key, Value const& expected) {
    EXPECT_EQ(effect.of([&] { EXPECT_EQ(Ops::get(owner, key), expected); }), "v+0 r+1");
  };
  auto const del = [&](auto const& keyOrIterator, Value const& expected) {
    return effect.of([&] { EXPECT_EQ(Ops::del(owner, keyOrIterator), expected); });
  };

  get(a, none);
  EXPECT_EQ(del(a, none), "v+0 r+0");
  EXPECT_EQ(del(Ops::iterator(owner), none), "v+0 r+0");
  EXPECT_EQ(effect.of([&] { Ops::delAll(owner); }), "v+0 r+0");

  // The default is a value like any other: it makes a member.
  EXPECT_EQ(is(a, none), told(a));
  EXPECT_EQ(Ops::count(owner), 1u);
  EXPECT_EQ(is(a, none), "v+0 r+0");
  EXPECT_EQ(is(a, one), told(a));
  EXPECT_EQ(is(a, one), "v+0 r+0");
  get(a, one);
  EXPECT_EQ(is(a, two), told(a));
  EXPECT_EQ(Ops::count(owner), 1u);
  EXPECT_EQ(effect.of([&] { Ops::notify(owner, b); }), "v+0" + told(b).substr(3));
  EXPECT_EQ(effect.of([&] { Ops::make(owner, b, one); }), "v+0 r+0");
  EXPECT_EQ(Ops::count(owner), 2u);
  get(b, one);

  EXPECT_EQ(del(a, two), told(a));
  EXPECT_EQ(del(a, none), "v+0 r+0");
  get(a, none);
  is(a, two);
  auto at = Ops::iterator(owner);
  Key const first = at.key();
  Key const second = first == a ? b : a;
  EXPECT_EQ(del(at, at.value()), told(first));
  ++at;
  ASSERT_TRUE(at);
  EXPECT_EQ(at.key(), second);
  is(first, two);
  EXPECT_EQ(effect.of([&] { Ops::delAll(owner); }),
            "v+2" + told(first).substr(3) + told(second).substr(7));
  EXPECT_EQ(Ops::count(owner), 0u);
}

TEST(Model, ACollectionOfValuesCountsAndTellsOnlyWhenItChanges) {
  using Lane = Hardware::Sand::AradNifSerdesId;
  String8 const empty, one("one"), two("two");
  checkValues<AradDdrTuneSetting>(one, empty, empty, one, two);
  checkValues<AradSerdesClockSocPropertyValue>(one, two, empty, one, two);
  checkValues<SocPropertiesProperty>(empty, two, empty, one, two);
  checkValues<XlgeSerdes>(Lane(3), Lane(72), false, true, false);
  checkValues<Xlge2Serdes>(Lane(0), Lane(71), false, true, false);
  checkValues<CgeSerdesAllocated>(Lane(1), Lane(2), false, true, false);
  checkValues<CgeSerdesUsed>(Lane(1), Lane(2), false, true, false);
}

/// The text of the refusal to make a member again, empty if there was none.
template <class Call>
std::string refusal(Call const& call) {
  try {
    call();
  } catch (Mox::NameInUseException const& refused) {
    EXPECT_TRUE(refused.ids().contains(Mox::Exception::nameInUseId));
    return refused.what();
  }
  return "";
}

TEST(Model, AMemberIsNotMadeAgainWithOtherParameters) {
  using Current = Hardware::Sand::SerdesCurrent;
  Ptr<AradSlice> const slice(new AradSlice("slice"));
  Ptr<Arad> const arad = slice->fapIs("fap0", 1);
  Ptr<Inventory::Port> const port(new Inventory::Port("port1"));
  Ptr<Inventory::Port> const same(new Inventory::Port("port1"));
  Ptr<NifSerdes> const lane = arad->serdesIs(5, true, false, 1, 2, 300);
  arad->statsSerdesIs(28, false);
  arad->portIs(1, port);
  arad->mdioAccelBlockIs(1, 7, 2.5);
  auto const lanes = [&](bool tx, bool rx, Current pre, Current driver, unsigned short emphasis) {
    return [=] { arad->serdesIs(5, tx, rx, pre, driver, emphasis); };
  };
  struct Row {
    std::function<void()> again;
    char const* name;
    char const* words;
  };
  // The new value first, the stored one second. The first difference in declared order is told.
  Row const rows[] = {
      {lanes(false, true, 3, 4, 5), "''", "_swapPolarityTx|false|true"},
      {lanes(true, true, 3, 4, 5), "''", "_swapPolarityRx|true|false"},
      {lanes(true, false, 3, 4, 5), "''", "_preDriverCurrent|3|1"},
      {lanes(true, false, 1, 33, 5), "''", "_driverCurrent|33|2"},
      {lanes(true, false, 1, 2, 5), "''", "_preEmphasis|5|300"},
      {[&] { arad->statsSerdesIs(28, true); }, "''", "_swapPolarityTx|true|false"},
      {[&] { arad->portIs(1, same); }, "''", "_ethPort|'port1'|'port1'"},
      {[&] { arad->portIs(1, nullptr); }, "''", "_ethPort|''|'port1'"},
      {[&] { arad->mdioAccelBlockIs(1, 8, 5); }, "''", "_offset|8|7"},
      {[&] { arad->mdioAccelBlockIs(1, 7, 25); }, "''", "_busSpeed|25|2.5"},
      {[&] { slice->fapIs("fap0", 2); }, "'fap0'", "_fapId|2|1"},
  };
  Effect effect(**arad);
  Effect sliceEffect(**slice);
  for (Row const& row : rows) {
    SCOPED_TRACE(row.words);
    std::string const words = row.words;
    auto const newAt = words.find('|');
    auto const oldAt = words.find('|', newAt + 1);
    std::string message;
    std::string const done = effect.of([&] { message = refusal(row.again); });
    EXPECT_EQ(message,
              std::string("Reinstantiating the entity with name ") + row.name +
                  " where constructor parameter attribute " + words.substr(0, newAt) +
                  " has a different value of " + words.substr(newAt + 1, oldAt - newAt - 1) +
                  " than the current value of " + words.substr(oldAt + 1) + " not allowed");
    // Only the chip's own number is read of it.
    EXPECT_EQ(done, words.starts_with("_fapId") ? "v+0 r+1" : "v+0 r+0");
    EXPECT_EQ(sliceEffect.take(), "v+0 r+0");
  }
  // Parameters are read one by one, up to the first that differs.
  std::uint32_t reads = lane->readCount();
  refusal(lanes(true, false, 1, 33, 5));
  EXPECT_EQ(lane->readCount(), reads + 4);
  EXPECT_EQ(lane->preEmphasis(), 300);
  EXPECT_EQ(lane->driverCurrent(), Current(2));
}

TEST(Model, TheNumberOfABlockIsFreeInEachCollection) {
  Ptr<Arad> const arad(new Arad("fap0", 0));
  Ptr<Xlge> const xlge = arad->xlgeIs(1);
  Ptr<Cge> const cge = arad->cgeIs(1);
  EXPECT_EQ(xlge->id(), cge->id());
  cge->serdesUsedIs(7, true);
  EXPECT_EQ(cge->serdesAllocatedCount(), 0u);
  EXPECT_EQ(arad->xlge(1), xlge);
  EXPECT_EQ(arad->cge(1), cge);
  Ptr<EthPort> const port = arad->portIs(9, nullptr);
  // A port may name what isn't there, and the same number twice.
  port->qsgmiiIdIs(95);
  port->xlgeIdIs(1);
  port->cgeIdIs(1);
  EXPECT_EQ(port->cgeId(), port->xlgeId());
}

TEST(Model, AWrapperWhoseMemberWasTakenOutByHandIsNoMember) {
  using namespace Hardware::Sand;
  Ptr<NifSerdes> const lane(new NifSerdes(5, false, false, 1, 1, 0));
  Ptr<JerichoNifSerdesTuning> const optical = lane->jerichoNifSerdesTuningIs(serdesTuningOptical);
  auto const wrapper = lane->newJerichoNifSerdesTuning(serdesTuningCopper);
  Ptr<JerichoNifSerdesTuning> const copper = lane->jerichoNifSerdesTuning(serdesTuningCopper);
  EXPECT_EQ(wrapper->child(), copper);
  EXPECT_EQ(wrapper->key(), serdesTuningCopper);
  // The wrapper's own setter compares name and mode, and puts another child in its place.
  std::uint32_t const reads = copper->readCount();
  EXPECT_EQ(wrapper->jerichoNifSerdesTuningIs(copper->name(), serdesTuningCopper).ptr(), copper);
  EXPECT_EQ(copper->readCount(), reads + 1);
  Ptr<JerichoNifSerdesTuning> const renamed =
      wrapper->jerichoNifSerdesTuningIs("other", serdesTuningCopper);
  EXPECT_NE(renamed, copper);
  EXPECT_FALSE(copper->parent());

  std::uint32_t const version = lane->version();
  EXPECT_EQ(wrapper->jerichoNifSerdesTuningDel(), renamed);
  EXPECT_FALSE(wrapper->jerichoNifSerdesTuningDel());
  try {
    lane->jerichoNifSerdesTuningIs(serdesTuningCopper);
    ADD_FAILURE();
  } catch (Mox::RangeException const& refused) {
    EXPECT_STREQ(refused.what(), "null ValidPtr");
  }
  EXPECT_EQ(lane->version(), version);
  EXPECT_FALSE(lane->jerichoNifSerdesTuning(serdesTuningCopper));
  EXPECT_FALSE(lane->jerichoNifSerdesTuningDel(serdesTuningCopper));
  lane->jerichoNifSerdesTuningDelAll();
  EXPECT_FALSE(optical->parent());
  EXPECT_EQ(lane->version(), version + 1);
}

TEST(Model, AnIteratorFindsItsPlaceByKeyAndCountsNoRead) {
  Ptr<Arad> const arad(new Arad("fap0", 0));
  for (unsigned int id : {1u, 2u, 5u, 8u}) arad->elkConnectionIs(id);
  std::uint32_t const reads = arad->readCount();
  std::string order;
  for (auto at = arad->elkConnectionIterator(); at; ++at) order += std::to_string(at.key()) + " ";
  EXPECT_EQ(order, "8 2 1 5 ");
  auto const at = arad->elkConnectionIteratorConst(2);
  EXPECT_EQ(at.key(), 2u);
  // The order is that of the reversed bits: 4 would stand between 8 and 2, and 7 last.
  auto const behind = arad->elkConnectionIteratorConst(4);
  EXPECT_EQ(behind.key(), 2u);
  EXPECT_FALSE(arad->elkConnectionIteratorConst(7));
  EXPECT_EQ(arad->readCount(), reads);
}

}  // namespace
