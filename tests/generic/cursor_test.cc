// Cursors over collections. For walks that skip, repeat or never end when the collection changes
// under them, and for state blocks that leak, dangle or lose their place.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <random>
#include <set>

#include "generic/CursorState.h"
#include "generic/Text.h"
#include "tests/generic/Schema.h"

namespace {

using namespace Inventory::Arad;
using Hardware::Sand::AradNifSerdesId;
using Mox::AttributeWalk;
using Mox::CursorState;
using Mox::Entity;
using Mox::GenericIf;
using Mox::Ptr;
using schema::text;
using Op = GenericIf::AttributeOp;

/// Keys that a random walk uses, of any collection: its samples, or many.
std::vector<Ptr<GenericIf>> keysOf(schema::Attribute const& attribute) {
  std::vector<Ptr<GenericIf>> keys;
  auto const add = [&](std::string const& value) {
    keys.push_back(schema::ofText(attribute.row->keyType(), value));
  };
  bool const isText = attribute.keyType == "String8" || attribute.keyType == "Name";
  if (!isText && attribute.keyType[0] != 'U') {
    for (auto const& sample : schema::samples(attribute.keyType)) add(sample);
  } else {
    for (int i = 0; i < 80; ++i) {
      std::string const number = std::to_string(i * 791);
      add(isText ? "'" + number + "'" : number);
    }
  }
  return keys;
}

TEST(Cursor, AWalkMeetsWhatStaysAndNothingTwiceUnderAnyChange) {
  schema::Board const board;
  char const* const chosen = std::getenv("CURSOR_SEED");
  unsigned int const seed = chosen ? std::atoi(chosen) : std::random_device()();
  std::mt19937 random(seed);
  auto const below = [&](std::size_t bound) { return random() % bound; };
  for (auto const& make : schema::makers()) {
    Ptr<Entity> const entity = make();
    Ptr<GenericIf> const object = Mox::genericOf(entity);
    for (schema::Attribute const& attribute : schema::attributes(*entity->fwkType())) {
      if (!attribute.isCollection()) continue;
      SCOPED_TRACE(attribute.name + " CURSOR_SEED=" + std::to_string(seed));
      auto const keys = keysOf(attribute);
      std::set<std::string> stayed, was;
      auto const change = [&] {
        auto const& key = keys[below(keys.size())];
        std::string const name = text(key->strRep());
        if (below(2)) {
          stayed.erase(name);
          object->attributeOp({attribute.id, Op::attrDel}, key, {});
        } else if (schema::isMaking(attribute)) {
          was.insert(name);
          object->attributeOp({attribute.id, Op::attrSet}, {},
                              schema::arguments(attribute, 1, name));
        } else {
          was.insert(name);
          auto const& value = schema::samples(attribute.type)[1];
          object->attributeOp({attribute.id, Op::attrSet}, key,
                              schema::ofText(attribute.row->type(), value));
        }
      };
      for (int round = 0; round < 20; ++round) {
        for (std::size_t n = below(keys.size()); n > 0; --n) change();
        stayed.clear();
        for (AttributeWalk at(object, attribute.id); at; ++at) {
          stayed.insert(text(at.key()->strRep()));
        }
        was = stayed;
        std::set<std::string> met;
        std::size_t const rate = below(4);
        for (AttributeWalk walk(object, attribute.id); walk; ++walk) {
          std::string const key = text(walk.key()->strRep());
          EXPECT_TRUE(walk.key()->isConst() && was.contains(key)) << key;
          ASSERT_TRUE(met.insert(key).second) << key << " twice";
          for (std::size_t n = below(rate * 2 + 1); n > 0; --n) change();
          if (below(8) == 0) walk = AttributeWalk(walk);
        }
        for (std::string const& key : stayed) EXPECT_TRUE(met.contains(key)) << key;
      }
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

  // A walk keeps its entity alive, whatever becomes of the object.
  AttributeWalk walk(object, 260);
  object->notifierIs(nullptr);
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
