// Cursors over collections: they go where typed iterators go, whatever happens on the way.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <random>

#include "generic/CursorState.h"
#include "generic/Text.h"
#include "tests/model/SchemaTable.h"

namespace {

using namespace Inventory::Arad;
using Hardware::Sand::AradNifSerdesId;
using Mox::AttributeWalk;
using Mox::CursorState;
using Mox::Entity;
using Mox::GenericIf;
using Mox::Ptr;
using Mox::String8;
using schemaTable::text;

/// A collection with small numbers for keys, and a typed iterator beside the generic cursor.
struct Collection {
  char const* name;
  Ptr<Entity> owner;
  Mox::AttributeId id;
  unsigned int keys;
  std::function<void(unsigned int)> add, del;
  /// Made anew at the first member; then a step; the key it stands on, "" at the end.
  std::function<void()> begin, step;
  std::function<std::string()> key;
};

template <class E, class Begin, class KeyOf>
Collection collection(char const* name, Ptr<E> const& owner, Mox::AttributeId id, unsigned int keys,
                      std::function<void(unsigned int)> add, Begin begin, KeyOf keyOf,
                      std::function<void(unsigned int)> del) {
  using Iterator = decltype(begin(owner));
  auto const at = std::make_shared<Iterator>();
  return {name,
          owner,
          id,
          keys,
          add,
          del,
          [=] { *at = begin(owner); },
          [=] { ++*at; },
          [=]() -> std::string { return *at ? text(keyOf(*at)) : ""; }};
}
#define CURSOR_COLLECTION(owner, x, id, keys, add, toKey)             \
  collection(                                                         \
      #x, owner, id, keys, [=](unsigned int i) { owner->x##Is add; }, \
      [](auto const& e) { return e->x##IteratorConst(); },            \
      [](auto const& at) { return Mox::textOf(at.key()); },           \
      [=](unsigned int i) { owner->x##Del(toKey); })

std::vector<Collection> collections() {
  auto const ofChip = [] { return Ptr<Arad>(new Arad("f", 1)); };
  Ptr<Xlge> const xlge(new Xlge(1));
  Ptr<NifSerdes> const lane(new NifSerdes(1, false, false, 0, 0, 0));
  Ptr<Arad> const ports = ofChip(), settings = ofChip(), fabric = ofChip();
  Ptr<AradSlice> const slice(new AradSlice("s"));
  auto const tuning = [](unsigned int i) {
    return static_cast<Hardware::Sand::JerichoNifSerdesTuningMode>(i);
  };
  auto const word = [](unsigned int i) { return String8(std::to_string(i * 7919).c_str()); };
  auto const id16 = [](unsigned int i) { return static_cast<unsigned short>(i); };
  return {
      CURSOR_COLLECTION(xlge, serdes, 260, 72, (AradNifSerdesId(id16(i)), true),
                        AradNifSerdesId(id16(i))),
      CURSOR_COLLECTION(lane, jerichoNifSerdesTuning, 266, 4, (tuning(i)), tuning(i)),
      CURSOR_COLLECTION(ports, port, 522, 300, (id16(i), nullptr), id16(i)),
      CURSOR_COLLECTION(settings, ddrTuneSetting, 523, 100, (word(i), "v"), word(i)),
      CURSOR_COLLECTION(fabric, fabricSerdes, 395, 300, (Hardware::Sand::SerdesId(i)),
                        Hardware::Sand::SerdesId(i)),
      CURSOR_COLLECTION(slice, fap, 259, 40, (Mox::Name(word(i)), 1), Mox::Name(word(i))),
  };
}

TEST(Cursor, GoesWhereTypedIteratorsGoUnderAnyChange) {
  char const* const chosen = std::getenv("CURSOR_SEED");
  unsigned int const seed = chosen ? std::atoi(chosen) : std::random_device()();
  RecordProperty("seed", static_cast<int>(seed));
  std::mt19937 random(seed);
  auto const below = [&](unsigned int bound) { return random() % bound; };
  for (Collection const& each : collections()) {
    SCOPED_TRACE(std::string(each.name) + " CURSOR_SEED=" + std::to_string(seed));
    Ptr<GenericIf> const object = Mox::genericOf(each.owner);
    for (int round = 0; round < 40; ++round) {
      for (unsigned int n = below(each.keys); n > 0; --n) each.add(below(each.keys));
      each.begin();
      AttributeWalk walk(object, each.id);
      unsigned int const rate = below(4);
      for (int steps = 0; steps < 2000; ++steps) {
        ASSERT_EQ(bool(walk), !each.key().empty());
        if (!walk) break;
        ASSERT_EQ(text(walk.key()->strRep()), each.key());
        EXPECT_TRUE(walk.key()->isConst());
        for (unsigned int n = below(rate * 3 + 1); n > 0; --n) {
          below(2) ? each.add(below(each.keys)) : each.del(below(each.keys));
        }
        if (below(8) == 0) walk = AttributeWalk(walk);
        each.step();
        ++walk;
      }
      ASSERT_FALSE(walk) << "a walk ends";
      for (unsigned int n = below(each.keys); n > 0; --n) each.del(below(each.keys));
    }
  }
}

TEST(Cursor, StateBlocksAreAsWideAsTheirPlace) {
  Ptr<Xlge> const xlge(new Xlge(1));
  Ptr<GenericIf> const object = Mox::genericOf(Ptr<Entity>(xlge), true);
  auto at = object->attributeIteratorConst(260);
  EXPECT_FALSE(object->attributeIterator_nonNull(at));
  EXPECT_EQ(CursorState::of(at)->bucket, -1);
  EXPECT_FALSE(object->attributeIterator_iterObj(at));
  EXPECT_FALSE(object->attributeIterator_iterKey(at));
  EXPECT_FALSE(object->attributeIterator_iterInc(at));
  EXPECT_FALSE(object->attributeIterator_iterDel(at));
  EXPECT_FALSE(object->attributeIterator_iterDel(at)) << "nothing left to free";

  for (unsigned short lane : {3, 40, 7}) xlge->serdesIs(lane, lane == 40);
  auto const keyOf = [](unsigned short lane) -> Ptr<GenericIf const> {
    return Mox::carrier(AradNifSerdesId(lane));
  };
  auto missing = object->attributeIteratorKeyConst(260, keyOf(8));
  CursorState const& end = *CursorState::of(missing);
  EXPECT_TRUE(end.stamp == 0 && end.bucket == -1 && !end.map && !end.member);
  object->attributeIterator_iterDel(missing);

  auto found = object->attributeIteratorKey(260, keyOf(40));
  ASSERT_TRUE(object->attributeIterator_nonNull(found));
  EXPECT_EQ(CursorState::of(found)->stamp, CursorState::of(found)->map->version());
  EXPECT_EQ(object->attributeIterator_iterObj(found)->strRep(), "true");
  EXPECT_TRUE(object->attributeIterator_iterObj(found)->isConst());
  GenericIf::AttributeIteratorConst copy{found.genericIf, found.attribute,
                                         object->attributeIterator_iterClone(found)};
  xlge->serdesDel(40);
  EXPECT_TRUE(object->attributeIterator_nonNull(found)) << "it keeps its place";
  object->attributeIterator_iterDel(found);
  EXPECT_EQ(object->attributeIterator_iterKey(copy)->strRep(), "40");
  object->attributeIterator_iterDel(copy);

  // The walk outlives the name that the object had for its entity.
  AttributeWalk walk(object, 260);
  object->notifierIs(nullptr);
  Ptr<Xlge const> const kept(xlge);
  ++walk;
  EXPECT_TRUE(walk);
}

TEST(Cursor, AKeyCountsAsAReadOfItsMember) {
  Ptr<NifSerdes> const lane(new NifSerdes(1, false, false, 0, 0, 0));
  Ptr<Arad> const chip(new Arad("f", 1));
  Ptr<Entity> const members[] = {
      Ptr<Entity>(*lane->jerichoNifSerdesTuningIs(Hardware::Sand::serdesTuningCopper)),
      Ptr<Entity>(*chip->portIs(3, nullptr))};
  AttributeWalk const walks[] = {{Mox::genericOf(Ptr<Entity>(lane)), 266},
                                 {Mox::genericOf(Ptr<Entity>(chip)), 522}};
  for (int i : {0, 1}) {
    auto const reads = members[i]->readCount();
    EXPECT_EQ(walks[i].key()->strRep(), i ? "3" : "'serdesTuningCopper'");
    EXPECT_EQ(members[i]->readCount(), reads + 1);
    EXPECT_EQ(entityOf(walks[i].value()), members[i]);
    EXPECT_EQ(members[i]->readCount(), reads + 1);
  }
}

TEST(Cursor, FailuresNameTheKey) {
  Ptr<Arad> const chip(new Arad("f", 1));
  Ptr<GenericIf> const object = Mox::genericOf(Ptr<Entity>(chip));
  auto const message = [&](Mox::AttributeId id, Ptr<GenericIf const> const& key) {
    try {
      object->attributeIteratorKeyConst(id, key);
    } catch (Mox::TypeException const& failure) {
      std::string const whole = text(failure.message());
      return whole.substr(whole.find(": ") + 2);
    }
    return std::string("none");
  };
  EXPECT_EQ(message(522, nullptr), "ethPortId");
  EXPECT_EQ(message(523, nullptr), "mox_index");
  EXPECT_EQ(message(394, nullptr), "id") << "a collection of the base";
  EXPECT_EQ(message(522, Mox::carrier(7u)), "U32");
  EXPECT_THROW(object->attributeIteratorConst(514), Mox::OpNotSupportedException);
  EXPECT_THROW(object->attributeIteratorConst(258), Mox::OpNotSupportedException);
  // A cursor in a collection of the base belongs to the base's object.
  chip->fabricSerdesIs(3);
  auto const at = object->attributeIteratorConst(395);
  EXPECT_EQ(at.genericIf->type()->qualifiedName(), "Inventory::Sand::FapBase");
  EXPECT_EQ(object->attributeIterator_iterKey(at)->strRep(), "3") << "and is moved by either";
  object->attributeIterator_iterDel(at);
}

}  // namespace
