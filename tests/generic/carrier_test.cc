// Carriers, lists, the objects of entities, and the texts for tools. For values that change on the
// way through a carrier, objects that answer for the wrong entity or type, slots out of order, and
// texts that name another place or another cause.
#include <gtest/gtest.h>

#include <cstring>

#include "generic/Text.h"
#include "tests/generic/Schema.h"

namespace {

using namespace Inventory::Arad;
using Mox::carrier;
using Mox::Entity;
using Mox::GenericIf;
using Mox::MoxType;
using Mox::Name;
using Mox::Ptr;
using Mox::String8;
using schema::text;
using Op = GenericIf::AttributeOp;

std::string failure(std::function<void()> const& action) {
  try {
    action();
    return "none";
  } catch (Mox::Exception const& thrown) {
    return text(thrown.message());
  }
}

TEST(Carrier, OfEveryValueTypeHoldsWhatItsTextSays) {
  std::map<std::string, MoxType const*> types;
  for (auto const& make : schema::makers()) {
    for (schema::Attribute const& attribute : schema::attributes(*make()->fwkType())) {
      types[attribute.type] = attribute.row->type();
    }
  }
  MoxType const* const other = Mox::typeOf<unsigned long long>();
  for (auto const& [name, type] : types) {
    if (type->isEntity()) continue;
    SCOPED_TRACE(name);
    for (std::string const& sample : schema::samples(name)) {
      Ptr<GenericIf> const made = type->genericIf(String8(sample.c_str()), true);
      EXPECT_EQ(text(made->strRep()), sample);
      EXPECT_TRUE(made->isConst() && made->isRegisteredNotifiee() && made->hasNotificationActive());
      EXPECT_EQ(made->mox_bitSet().word(), 0x4000000u);
      EXPECT_EQ(made->type(), type);
      Ptr<GenericIf> const twin = made->clone();
      EXPECT_EQ(text(twin->strRep()), sample);
      EXPECT_TRUE(twin->isConst());
      Ptr<MoxType const> const own(type);
      Ptr<GenericIf> const copy = type->genericIf(made->voidPtrIs(own), false);
      EXPECT_EQ(text(copy->strRep()), sample);
      EXPECT_NE(copy->voidPtrIs(own), made->voidPtrIs(own));
      EXPECT_EQ(failure([&] { made->voidPtrIs(Ptr<MoxType const>(other)); }),
                "value missing or of the wrong type: " + text(type->name()));
      // One attribute, whatever the operation.
      for (auto const op : {Op::attrGet, Op::attrSet, static_cast<Op::OpId>(77)}) {
        Ptr<GenericIf> const value = made->attributeOp({1, op}, copy, nullptr);
        EXPECT_EQ(text(value->strRep()), sample);
        EXPECT_FALSE(value->isConst());
      }
      EXPECT_EQ(failure([&] {
                  made->attributeOp({2, Op::attrGet}, nullptr, nullptr);
                }),
                "no such attribute: " + text(type->name()));
      EXPECT_EQ(made->attributeId("value"), 1);
      EXPECT_EQ(failure([&] { made->attributeId("other"); }), "no such attribute: other");
    }
    EXPECT_EQ(text(type->genericIf(static_cast<void const*>(nullptr), false)->strRep()),
              name.ends_with("StatsSerdesId") ? "32" : schema::samples(name).front());
    EXPECT_NE(failure([&, type = type] { type->genericIf(String8("\x01"), false); }), "none");
  }
  SerdesCoreType_GenericIf_ core(falconCore, true);
  EXPECT_EQ(core.enumValue(), falconCore);
  core.valIs(eagleCore);
  EXPECT_EQ(core.strRep(), "'eagleCore'");
  EXPECT_EQ(core.attributeId("warpCore"), warpCore);
}

TEST(Carrier, AValueLargerThanItsRoomIsHeldElsewhere) {
  struct Wide {
    String8 a, b, c;
  };
  static Mox::ValueOps const ops{
      sizeof(Wide),
      [](void* room, void const* value) { new (room) Wide(*static_cast<Wide const*>(value)); },
      [](void*, String8 const&) { throw 1; },
      [](void* value) { static_cast<Wide*>(value)->~Wide(); },
      [](void const* value) { return static_cast<Wide const*>(value)->c; },
      false};
  auto* const type = new Mox::PlainValueType("Wide", "test::Wide", ops);
  type->referencesLeak();
  Wide const wide{"a", "b", "c"};
  EXPECT_EQ(type->genericIf(static_cast<void const*>(&wide), false)->clone()->strRep(), "c");
  EXPECT_THROW(type->genericIf(String8("x"), false), int);
}

TEST(Carrier, ListsCountTheirChanges) {
  GenericIf::List list;
  list.enq(carrier(1u));
  list.enq(Ptr<GenericIf>());
  EXPECT_TRUE(list.version() == 2 && list.size() == 2);
  GenericIf::List_ const carried(list, true);
  EXPECT_EQ(carried.strRep(), "(1, null)");
  EXPECT_EQ(carried.type(), GenericIf::List::_fwkType());
  list.deleteAll();
  EXPECT_TRUE(list.version() == 3 && list.size() == 0);
  EXPECT_EQ(carried.list().size(), 2u);
}

TEST(GenericObject, IsWhatItsEntityDerivesFrom) {
  Ptr<Arad> const chip(new Arad("f", 1));
  Ptr<GenericIf> const object = Mox::genericOf(Ptr<Entity>(chip), true);
  auto const seenAs = [&](MoxType const* type) {
    return object->voidPtrIs(Ptr<MoxType const>(type));
  };
  for (MoxType const* type :
       {Arad::_fwkType(), Inventory::Sand::FapBase::_fwkType(),
        Inventory::ComponentBase::_fwkType(), Entity::_fwkType(), Mox::PtrInterface::_fwkType()}) {
    EXPECT_EQ(seenAs(type), chip.get()) << type->name();
  }
  EXPECT_EQ(failure([&] { seenAs(Qsgmii::_fwkType()); }),
            "value missing or of the wrong type: Arad");
  EXPECT_EQ(object->strRep(), "'f'");
  EXPECT_EQ(object->attributeId("fapId"), 386);
  EXPECT_EQ(failure([&] { object->attributeId("nothing"); }), "no such attribute: nothing");
  EXPECT_EQ(failure([&] {
              object->attributeOp({999, Op::attrGet}, nullptr, nullptr);
            }),
            "no such attribute: 999");
  EXPECT_EQ(failure([&] {
              object->attributeOp({999, Op::attrSet}, nullptr, nullptr);
            }),
            "attempting to modify a const instance");
  auto const get = [&](Mox::AttributeId id) {
    return text(object->attributeOp({id, Op::attrGet}, nullptr, nullptr)->strRep());
  };
  EXPECT_EQ(get(0) + get(2) + get(3) + get(8) + get(0x9a), "'f''f'''136true");
  EXPECT_EQ(failure([&] {
              object->attributeOp({2, Op::attrGet}, carrier(1u), nullptr);
            }),
            "attribute takes no index: name");
  // An object for nothing.
  Ptr<GenericIf> const nothing =
      Arad::_fwkType()->genericIf_(Ptr<Entity>(new Qsgmii(1)).get(), false);
  EXPECT_EQ(nothing->voidPtrIs(Ptr<MoxType const>(Entity::_fwkType())), nullptr);
  EXPECT_EQ(nothing->strRep(), "''");
  EXPECT_EQ(failure([&] {
              nothing->attributeOp({514, Op::attrGet}, nullptr, nullptr);
            }),
            "value missing or of the wrong type: fapRevMajor");
  EXPECT_THROW(nothing->attributeOp({2, Op::attrGet}, nullptr, nullptr), Mox::TypeException);
  EXPECT_THROW(nothing->attributeIteratorConst(516), Mox::TypeException);
  // An entity of a type without generated code.
  Ptr<GenericIf> const type = Mox::genericOf(Ptr<Entity>(Arad::_fwkType()));
  EXPECT_EQ(type->attributeOp({2, Op::attrGet}, nullptr, nullptr)->strRep(), "'Arad'");
  EXPECT_FALSE(Mox::PtrInterface::_fwkType()->genericIf_(chip.get(), false));
}

TEST(GenericObject, RedirectsToWhatASubclassSays) {
  struct Redirected : Arad::GenericIf_ {
    using GenericIf_::GenericIf_;
    Ptr<Arad> obj() const override { return target; }
    Ptr<Arad> obj() override { return target; }
    Ptr<Arad> target{new Arad("there", 9)};
  };
  Ptr<Arad> const chip(new Arad("here", 1));
  auto const version = chip->version();
  Ptr<Redirected> const object(new Redirected(chip, false));
  object->attributeOp({541, Op::attrSet}, nullptr, carrier(7u));
  object->attributeOp({258, Op::attrSet}, nullptr, carrier(String8("text")));
  EXPECT_EQ(object->target->lunetPeerAddr(), 7u);
  EXPECT_EQ(object->target->description(), "text") << "an attribute of the base";
  EXPECT_EQ(chip->version(), version);
  EXPECT_EQ(object->attributeOp({0, Op::attrGet}, nullptr, nullptr)->strRep(), "'there'");
  object->target->fabricSerdesIs(3);
  EXPECT_TRUE(Mox::AttributeWalk(object, 395));
}

TEST(GenericObject, RootsAreMadeOfLists) {
  auto const make = [](std::initializer_list<Ptr<GenericIf>> arguments) {
    Ptr<GenericIf const> const list(new GenericIf::List_(arguments));
    return AradSlice::_fwkType()->genericIf(list.get(), true);
  };
  EXPECT_EQ(make({carrier(Name("s"))})->strRep(), "'s'");
  EXPECT_EQ(failure([&] { make({}); }), "value missing or of the wrong type: name");
  EXPECT_EQ(failure([&] {
              make({carrier(Name("s")), carrier(1u)});
            }),
            "too many arguments: AradSlice");
}

TEST(Slots, OfAGenericObject) {
  auto const slot = [](auto operation) {
    std::uintptr_t word = 0;
    std::memcpy(&word, &operation, sizeof word);
    return static_cast<int>(word / sizeof(void*));
  };
  using G = GenericIf;
  using At = G::AttributeIteratorConst const&;
  int const slots[] = {
      slot(&G::type),
      slot(&G::voidPtrIs),
      slot(&G::attributeString),
      slot(&G::attributeId),
      slot(&G::attributeOp),
      slot(&G::strRep),
      slot(&G::moxDoZombieReactors),
      slot(&G::attributeIteratorConst),
      slot(&G::attributeIteratorKeyConst),
      slot(static_cast<Ptr<G> (G::*)(At)>(&G::attributeIterator_iterObj)),
      slot(static_cast<Ptr<G> (G::*)(At) const>(&G::attributeIterator_iterObj)),
      slot(&G::attributeIterator_iterInc),
      slot(&G::attributeIterator_iterKey),
      slot(&G::attributeIterator_iterClone),
      slot(&G::attributeIterator_nonNull),
      slot(&G::attributeIterator_iterDel),
      slot(&G::attributeIterator),
      slot(&G::attributeIteratorKey),
      slot(static_cast<Ptr<G> (G::*)()>(&G::clone)),
      slot(static_cast<void (G::*)(Mox::AttributeId, Ptr<G const> const&)>(&G::onAttribute)),
      slot(static_cast<Ptr<Qsgmii> (Qsgmii::GenericIf_::*)() const>(&Qsgmii::GenericIf_::obj)),
      slot(static_cast<Ptr<Qsgmii> (Qsgmii::GenericIf_::*)()>(&Qsgmii::GenericIf_::obj))};
  int next = slot(&Mox::PtrInterface::NotifieeConst::actsm) + 1;
  for (int const each : slots) EXPECT_EQ(each, next++);
  EXPECT_EQ(slot(&Qsgmii::GenericIf_::GenericIf_Adapter_::moxDoZombieReactors),
            slot(&Qsgmii::Notifiee::onSerdes) + 1);
}

TEST(Texts, PlacesAreFoundReadAndChanged) {
  Ptr<AradSlice> const slice(new AradSlice("slice"));
  Mox::EntityRoot const root{Ptr<Entity>(slice)};
  schema::Board const board;
  auto const add = [](char const* path, std::vector<Mox::NamedText> const& arguments) {
    return text(attributeAdd(Mox::attributePlace(path), arguments)->strRep());
  };
  auto const get = [](char const* path) {
    return text(attributeGet(Mox::attributePlace(path, true))->strRep());
  };
  auto const set = [](char const* path, char const* value) {
    attributeSet(Mox::attributePlace(path), value);
  };
  EXPECT_EQ(add("slice/fap", {{"fapId", "7"}, {"name", "'a]/b.c'"}}), "'slice/fap[a]/b.c]'");
  EXPECT_EQ(add("slice/fap[a]/b.c]/port", {{"ethPortId", "17"}}), "'slice/fap[a]/b.c]/port[17]'");
  EXPECT_EQ(add("slice/fap[a]/b.c].port", {{"ethPort", "'portA'"}, {"ethPortId", "18"}}),
            "'slice/fap[a]/b.c]/port[18]'");
  EXPECT_EQ(get("slice/fap[a]/b.c]/port[18].ethPort"), "'portA'");
  EXPECT_EQ(Mox::EntityPath::entity("slice/fap[a]/b.c]/port[17]"), slice->fap("a]/b.c")->port(17));
  set("slice/fap[a]/b.c]/port[17].xlgeId", "5");
  EXPECT_EQ(get("slice/fap[a]/b.c]/port[17].xlgeId"), "5");
  set("slice/fap[a]/b.c].ddrTuneSetting['x.y/z']", "'v'");
  EXPECT_EQ(get("slice/fap[a]/b.c].ddrTuneSetting['x.y/z']"), "'v'");
  set("slice/fap[a]/b.c]/port[17].xcvrSlot", "'slotB'");
  EXPECT_EQ(get("slice/fap[a]/b.c]/port[17].xcvrSlot"), "'slotB'");
  EXPECT_TRUE(attributeDel(Mox::attributePlace("slice/fap[a]/b.c]/port[17]")));
  EXPECT_FALSE(attributeDel(Mox::attributePlace("slice/fap[a]/b.c]/port[17]")));
  EXPECT_TRUE(attributeDel(Mox::attributePlace("slice/fap[a]/b.c].ddrTuneSetting['x.y/z']")));

  std::pair<std::string, std::function<void()>> const refused[] = {
      {"no such entity: other.x", [&] { get("other.x"); }},
      {"no such attribute: slice.x", [&] { get("slice.x"); }},
      {"no such entity: slice/fap[z].fapId", [&] { get("slice/fap[z].fapId"); }},
      {"fap: a collection, expected [KEY]", [&] { get("slice.fap"); }},
      {"numPorts: no collection, expected no [KEY]", [&] { get("slice.numPorts[1]"); }},
      {"numPorts: expected U32, got 'many': cannot convert many to unsigned int",
       [&] { set("slice.numPorts", "many"); }},
      {"managedPhy: expected one of unknown, noPhy, externallyManagedPhy, bcm84328, bcm84848, "
       "bcm84858, got 'nobody': AradManagedPhy",
       [&] { set("slice.managedPhy", "nobody"); }},
      {"port[]: expected U16, got 'x': cannot convert x to unsigned short",
       [&] { get("slice/fap[a]/b.c]/port[x]"); }},
      {"xcvrSlot: expected Inventory::Xcvr::Slot, got 'nowhere'",
       [&] { set("slice/fap[a]/b.c]/port[18].xcvrSlot", "nowhere"); }},
      {"fap: can't be set", [&] { set("slice.fap[x]", "1"); }},
      {"numPorts: takes no child", [&] { add("slice.numPorts", {}); }},
      {"fap: fapId is missing, expected U32",
       [&] {
         add("slice.fap", {{"name", "x"}});
       }},
      {"fap: no such argument: id, expected name, fapId",
       [&] {
         add("slice.fap", {{"name", "x"}, {"fapId", "1"}, {"id", "2"}});
       }},
      {"fap: argument given twice: name, expected name, fapId",
       [&] {
         add("slice.fap", {{"name", "x"}, {"fapId", "1"}, {"name", "y"}});
       }},
      {"numPorts: nothing to delete", [&] { attributeDel(Mox::attributePlace("slice.numPorts")); }},
  };
  auto const version = slice->version();
  for (auto const& [message, action] : refused) EXPECT_EQ(failure(action), message);
  EXPECT_EQ(slice->version(), version);
}

TEST(Texts, TheFormsOfValues) {
  std::pair<MoxType const*, Mox::ValueForm> const values[] = {
      {Mox::typeOf<Name>(), Mox::ValueForm::text},
      {Mox::typeOf<bool>(), Mox::ValueForm::boolean},
      {Mox::typeOf<double>(), Mox::ValueForm::number},
      {Mox::typeOf<SerdesCoreType>(), Mox::ValueForm::word},
      {Arad::_fwkType(), Mox::ValueForm::reference}};
  for (auto const& [type, form] : values) EXPECT_EQ(valueForm(*type), form) << type->name();
}

}  // namespace
