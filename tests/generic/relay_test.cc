// What a generic object hears of its entity: at once, deferred and collapsed, switched off and on.
#include <gtest/gtest.h>

#include <functional>

#include "Mox/Activity.h"
#include "generic/Text.h"
#include "tests/model/SchemaTable.h"

namespace {

using namespace Inventory::Arad;
using Hardware::Sand::AradNifSerdesId;
using Mox::AttributeId;
using Mox::Entity;
using Mox::GenericIf;
using Mox::Ptr;
using schemaTable::text;
using Op = GenericIf::AttributeOp;
using Subscriber = Mox::PtrInterface::NotifieeConst;

/// Writes down what it hears.
template <class X>
class Client : public X::GenericIf_ {
 public:
  explicit Client(Ptr<X> const& entity, bool isConst = false) : X::GenericIf_(entity, isConst) {}
  void onAttribute(AttributeId id) override { hear(std::to_string(id)); }
  void onAttribute(AttributeId id, Ptr<GenericIf const> const& key) override {
    hear(std::to_string(id) + "[" + text(key->strRep()) + "]" + (key->isConst() ? "c" : ""));
  }
  void onNotification() override { hear("all"); }
  using X::GenericIf_::onNotificationException;
  void onNotificationException(AttributeId id) override { hear("!" + std::to_string(id)); }
  void onZeroReferences() override { hear("zero"); }
  std::string take() { return std::exchange(heard_, ""); }
  std::function<void()> then;

 private:
  void hear(std::string const& what) {
    heard_ += what + " ";
    if (then) std::exchange(then, nullptr)();
  }
  std::string heard_;
};

TEST(Relay, TellsEveryAttributeOfEveryTypeOnce) {
  schemaTable::Board const board;
  for (schemaTable::Type const& type : schemaTable::types()) {
    Ptr<Entity> const entity = schemaTable::make(type.name);
    if (!entity) continue;
    std::string heard;
    Mox::AttributeWatch const watch(
        Mox::genericOf(entity), [&](GenericIf&, AttributeId id, Ptr<GenericIf const> const& key) {
          heard += std::to_string(id) + (key ? "[" + text(key->strRep()) + "]" : "") + " ";
        });
    Ptr<GenericIf> const object = Mox::genericOf(entity);
    for (schemaTable::Attribute const& attribute : schemaTable::attributes(type)) {
      if (attribute.isConstant()) continue;
      Mox::MoxAttr const* const described = entity->fwkType()->attr(attribute.id);
      std::string wanted = std::to_string(attribute.id);
      Ptr<GenericIf const> key;
      Ptr<GenericIf> value;
      if (!attribute.arguments.empty()) {
        std::vector<Mox::NamedText> arguments;
        for (auto const& argument : attribute.arguments) {
          arguments.push_back(
              {argument.name.c_str(), schemaTable::samples(argument.type)[1].c_str()});
        }
        value = argumentsFromText(*described, arguments);
      } else {
        auto const& samples = schemaTable::samples(attribute.type);
        bool const isDefault = schemaTable::defaultOf(type.name, attribute, "5") == samples[1];
        value =
            described->type()->genericIf(Mox::String8(samples[isDefault ? 0 : 1].c_str()), false);
      }
      if (attribute.isCollection()) {
        std::string const text = schemaTable::samples(attribute.keyType)[1];
        wanted += "[" + text + "]";
        if (attribute.arguments.empty()) {
          key = described->keyType()->genericIf(Mox::String8(text.c_str()), false);
        }
      }
      heard.clear();
      object->attributeOp({attribute.id, Op::attrSet}, key, value);
      EXPECT_EQ(heard, wanted + " ") << type.name << "." << attribute.name;
    }
  }
}

TEST(Relay, DeferredChangesCollapse) {
  Ptr<Xlge> const xlge(new Xlge(1));
  Ptr<Client<Xlge>> const client(new Client<Xlge>(xlge, true));
  Ptr<Mox::Activity> const activity(new Mox::Activity);
  client->moxFwkActivityIs(activity);
  xlge->serdesIs(4, true);
  EXPECT_EQ(client->take(), "260[4]c ") << "an activity that doesn't defer";
  activity->isDeferringIs(true);
  auto const ran = [&] {
    EXPECT_EQ(client->take(), "");
    activity->run();
    EXPECT_EQ(client->moxPendingAttribute() != 0, activity->hasWaiting());
    return client->take();
  };
  xlge->serdesIs(5, true);
  EXPECT_EQ(ran(), "260[5]c ");
  xlge->serdesIs(6, true);
  xlge->serdesIs(7, true);
  EXPECT_EQ(ran(), "260 ") << "two keys are the whole collection";
  for (unsigned short lane = 8; lane < 72; ++lane) xlge->serdesIs(lane, true);
  for (int i = 0; i < 300; ++i) xlge->serdesNotify(9);
  EXPECT_EQ(ran(), "260 ");
  xlge->descriptionIs("a");
  xlge->descriptionIs("b");
  EXPECT_EQ(ran(), "259 ");
  // Several attributes: the walk tells all that have a handler, and of collections what waits.
  xlge->laneWithLowMDIOAddrInQuadIs(3);
  xlge->descriptionIs("c");
  unsigned int const before = activity->actsm()->dispatches();
  EXPECT_EQ(ran(), "all 259 261 262 ");
  EXPECT_EQ(activity->actsm()->dispatches(), before + 4) << "one for every handler";
  xlge->phyLaneSwapIs(true);
  xlge->serdesIs(4, false);
  EXPECT_EQ(ran(), "all 259 260[4]c 261 262 ");
  // As the framework asks for everything.
  client->moxPendingAttributeIs(Subscriber::allAttributesWhole);
  client->handleNotification(nullptr);
  EXPECT_EQ(client->take(), "all 259 260 261 262 ");
  client->moxPendingAttributeIs(258);
  client->handleNotification(nullptr);
  EXPECT_EQ(client->take(), "258 ") << "by the base: the key has no handler";
  // What a handler changes waits for the next run, and what it throws ends the run of its object.
  client->then = [&] { xlge->descriptionIs("d"); };
  xlge->descriptionIs("e");
  EXPECT_EQ(ran(), "259 ");
  EXPECT_EQ(ran(), "259 ");
  EXPECT_EQ(ran(), "");
}

TEST(Relay, TheWalkOfAChipBeginsWithItsBases) {
  Ptr<Arad> const chip(new Arad("f", 1));
  Ptr<Client<Arad>> const client(new Client<Arad>(chip));
  client->moxPendingAttributeIs(Subscriber::allAttributesWhole);
  client->handleNotification(nullptr);
  std::string wanted = "all ";
  for (int id = 258; id <= 268; ++id) wanted += std::to_string(id) + " ";
  for (int id = 387; id <= 397; ++id) wanted += std::to_string(id) + " ";
  for (int id = 514; id <= 542; ++id) {
    if (id != 537) wanted += std::to_string(id) + " ";
  }
  EXPECT_EQ(client->take(), wanted);
  chip->fabricSerdesIs(3);
  chip->modelNameIs("m");
  EXPECT_EQ(client->take(), "395[3] 259 ");
  // Asking the base makes an object that hears nothing.
  auto const listed = chip->notifieeList().size();
  EXPECT_EQ(client->attributeOp({259, Op::attrGet}, nullptr, nullptr)->strRep(), "'m'");
  EXPECT_EQ(client->baseGenericIf()->type()->qualifiedName(), "Inventory::Sand::FapBase");
  EXPECT_EQ(chip->notifieeList().size(), listed);
  client->attributeOp({259, Op::attrSet}, nullptr, Mox::carrier(Mox::String8("n")));
  EXPECT_EQ(client->take(), "259 ");
}

TEST(Relay, TheObjectAndItsAdapterAreActiveTogether) {
  Ptr<Qsgmii> const block(new Qsgmii(1));
  Ptr<Client<Qsgmii>> const client(new Client<Qsgmii>(block));
  auto& list = block->notifieeList();
  ASSERT_EQ(list.size(), 1u);
  auto* const adapter = list.head();
  auto next = [&, n = 0]() mutable {
    block->descriptionIs(std::to_string(++n).c_str());
    return client->take();
  };
  EXPECT_EQ(next(), "259 ");
  EXPECT_EQ(client->mox_bitSet().word(), 0x4000000u);
  EXPECT_FALSE(client->isRegisteredNotifiee());
  EXPECT_TRUE(adapter->isWeakReference());
  for (Subscriber* const side :
       {static_cast<Subscriber*>(client.get()), static_cast<Subscriber*>(adapter)}) {
    side->hasNotificationActiveIs(false);
    EXPECT_FALSE(client->hasNotificationActive() || adapter->hasNotificationActive());
    EXPECT_TRUE(adapter->mox_bitSet().contains(Subscriber::registrationMemoryMask));
    EXPECT_EQ(list.size(), 0u);
    EXPECT_EQ(next(), "");
    side->hasNotificationActiveIs(true);
    EXPECT_TRUE(client->hasNotificationActive() && adapter->hasNotificationActive());
    EXPECT_EQ(next(), "259 ");
  }
  client->moxDoZombieReactors(true);
  EXPECT_TRUE(client->moxMarkedForDeletion() && adapter->moxMarkedForDeletion());
  EXPECT_EQ(next(), "");
  client->moxDoZombieReactors(true);
  client->moxDoZombieReactors(false);
  EXPECT_FALSE(client->moxMarkedForDeletion() || adapter->moxMarkedForDeletion());
  EXPECT_TRUE(client->hasNotificationActive());
  EXPECT_EQ(next(), "259 ");

  // Another entity, something else, and back.
  Ptr<Qsgmii> const other(new Qsgmii(2));
  client->notifierIs(other);
  EXPECT_EQ(client->obj(), other);
  EXPECT_EQ(next(), "");
  other->serdesIs(4);
  EXPECT_EQ(client->take(), "260 ");
  client->notifierIs(Ptr<Mox::PtrInterface const>(new Xlge(1)));
  EXPECT_FALSE(client->obj());
  EXPECT_THROW(client->attributeOp({259, Op::attrGet}, nullptr, nullptr), Mox::TypeException);
  client->notifierIs(block);
  EXPECT_EQ(next(), "259 ");

  Ptr<GenericIf> const twin = client->clone();
  EXPECT_EQ(list.size(), 2u);
  EXPECT_EQ(twin->references() & 0x1fffffff, 1u);
  EXPECT_FALSE(twin->isConst());
}

TEST(Relay, LivesAndDies) {
  Ptr<Qsgmii> block(new Qsgmii(1));
  Qsgmii* const raw = block.get();
  Ptr<Client<Qsgmii>> client(new Client<Qsgmii>(block));
  EXPECT_EQ(raw->references() & 0x1fffffff, 2u) << "held by the object, not by its adapter";
  block = nullptr;
  EXPECT_EQ(client->obj(), raw);
  block = raw;
  // A client that lets go of itself in a handler, that throws, that breaks the link.
  client->then = [&] { client = nullptr; };
  raw->serdesIs(4);
  EXPECT_EQ(raw->notifieeList().size(), 0u);
  EXPECT_EQ(raw->references() & 0x1fffffff, 1u);
  client = new Client<Qsgmii>(block);
  client->then = [] { throw 1; };
  raw->serdesIs(5);
  EXPECT_EQ(client->take(), "260 !260 ");
  // An adapter that outlives its object is silent.
  Ptr<Qsgmii::NotifieeConst> const adapter(raw->notifieeList().head());
  client = nullptr;
  adapter->onSerdes();
  adapter->onNotificationException(260);
  adapter->onZeroReferences();
  // A weak object doesn't keep its entity, and forgets it in time.
  client = new Client<Qsgmii>(block);
  client->isWeakReferenceIs(true);
  EXPECT_EQ(raw->references() & 0x1fffffff, 1u);
  block = nullptr;
  EXPECT_EQ(client->take(), "zero ");
  EXPECT_FALSE(client->obj());
  EXPECT_EQ(client->strRep(), "''");
  client = nullptr;
  // Deferred and gone.
  block = new Qsgmii(1);
  Ptr<Mox::Activity> const activity(new Mox::Activity);
  activity->isDeferringIs(true);
  client = new Client<Qsgmii>(block);
  client->moxFwkActivityIs(activity);
  block->serdesIs(5);
  client = nullptr;
  block = nullptr;
  EXPECT_EQ(activity->run(), 1u) << "what waits is held";
}

}  // namespace
