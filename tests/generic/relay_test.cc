// What generic objects receive of their entity. For faults in which a change is lost, doubled or
// delivered under another attribute (at once, deferred, across activities, switched off and on),
// and for callbacks that destroy, add, throw or change something within a delivery.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "Mox/Activity.h"
#include "generic/Text.h"
#include "tests/generic/Schema.h"

namespace {

using namespace Inventory::Arad;
using Mox::Activity;
using Mox::AttributeId;
using Mox::AttributeWatch;
using Mox::Entity;
using Mox::GenericIf;
using Mox::Ptr;
using schema::text;
using Subscriber = Mox::PtrInterface::NotifieeConst;

std::string shown(AttributeId id, Ptr<GenericIf const> const& key) {
  return std::to_string(id) + (key ? "[" + text(key->strRep()) + "] " : " ");
}

/// Writes down its notifications.
template <class X>
class Client : public X::GenericIf_ {
 public:
  explicit Client(Ptr<X> const& entity) : X::GenericIf_(entity, false) {}
  void onAttribute(AttributeId id) override { write(shown(id, nullptr)); }
  void onAttribute(AttributeId id, Ptr<GenericIf const> const& key) override {
    write(shown(id, key));
  }
  void onNotification() override { write("all "); }
  void onNotificationException() override { written_ += "! "; }
  void onNotificationException(AttributeId id) override {
    written_ += "!" + std::to_string(id) + " ";
  }
  void onZeroReferences() override { write("zero "); }
  std::string take() { return std::exchange(written_, ""); }
  std::function<void()> then;

 private:
  void write(std::string const& what) {
    written_ += what;
    if (then) std::exchange(then, nullptr)();
  }
  std::string written_;
};

/// A block with a client whose notifications are deferred.
class Deferred : public testing::Test {
 protected:
  Ptr<Xlge> xlge{new Xlge(1)};
  Ptr<Client<Xlge>> client{new Client<Xlge>(xlge)};
  Ptr<Activity> first{new Activity}, second{new Activity};
  Ptr<Activity> current;
  unsigned int texts = 0;

  Deferred() {
    for (auto const& each : {first, second}) each->isDeferringIs(true);
    to(first);
  }
  void to(Ptr<Activity> const& activity) {
    client->moxFwkActivityIs(activity);
    current = activity;
  }
  /// A letter for each change: d for 259, l for 262, a digit for that member of 260.
  void change(std::string const& steps) {
    for (char const step : steps) {
      if (step == 'd') xlge->descriptionIs(std::to_string(++texts).c_str());
      if (step == 'l') xlge->laneWithLowMDIOAddrInQuadIs(++texts);
      if (step >= '0' && step <= '9') xlge->serdesNotify(static_cast<unsigned short>(step - '0'));
    }
  }
  std::string run() {
    EXPECT_EQ(client->take(), "");
    current->run();
    EXPECT_EQ(client->moxPendingAttribute() != 0, client->moxIsWaiting());
    return client->take();
  }
};

TEST_F(Deferred, ChangesCollapse) {
  std::pair<char const*, char const*> const table[] = {
      {"", ""},
      {"d", "259 "},
      {"dd", "259 "},
      {"5", "260[5] "},
      {"56", "260 "},
      {"55", "260 "},
      {"dl", "all 259 261 262 "},
      {"4d", "all 259 260[4] 261 262 "},
      {"d45", "all 259 260 261 262 "},
  };
  for (auto const& [steps, wanted] : table) {
    change(steps);
    EXPECT_EQ(run(), wanted) << steps;
  }
  for (int i = 0; i < 300; ++i) change("9");
  EXPECT_EQ(run(), "260 ") << "the count doesn't wrap";
  unsigned int const before = first->actsm()->dispatches();
  change("dl");
  EXPECT_EQ(run(), "all 259 261 262 ");
  EXPECT_EQ(first->actsm()->dispatches(), before + 4) << "one for every handler";
  client->moxPendingAttributeIs(Subscriber::allAttributesWhole);
  client->handleNotification(nullptr);
  EXPECT_EQ(client->take(), "all 259 260 261 262 ");
  client->moxPendingAttributeIs(258);
  client->handleNotification(nullptr);
  EXPECT_EQ(client->take(), "258 ") << "by the base: the key has no handler";
  client->then = [&] { change("d"); };
  change("d");
  for (char const* const wanted : {"259 ", "259 ", ""}) EXPECT_EQ(run(), wanted);
  change("5");
  first->isDeferringIs(false);
  change("6");
  EXPECT_EQ(client->take(), "260[6] ");
  EXPECT_EQ(run(), "260 ") << "the key that waited isn't replaced by another";
}

TEST_F(Deferred, AThrowingHandlerCostsNothingButItsOwnAttribute) {
  auto const fails = [] { throw 1; };
  change("dl4");
  client->then = fails;
  EXPECT_EQ(run(), "all ! 259 260[4] 261 262 ");
  change("4");
  client->then = fails;
  EXPECT_EQ(run(), "260[4] !260 ");
  change("dl");
  client->then = [&] { client->then = fails; };
  EXPECT_EQ(run(), "all 259 !259 261 262 ");
}

TEST_F(Deferred, WhatWaitsOutlivesItsActivityAndMovesWithTheObject) {
  change("4d");
  to(second);
  EXPECT_EQ(first->run(), 0u);
  EXPECT_EQ(run(), "all 259 260[4] 261 262 ");
  change("5");
  to(nullptr);
  EXPECT_EQ(client->take(), "260[5] ") << "without an activity nothing waits";
  change("d");
  EXPECT_EQ(client->take(), "259 ");
  std::pair<char const*, char const*> const next[] = {
      {"d", "all 259 260[4] 261 262 "}, {"5", "260 "}, {"", "260[4] "}};
  for (auto const& [step, wanted] : next) {
    to(Ptr<Activity>(new Activity));
    current->isDeferringIs(true);
    change("4");
    current = nullptr;
    EXPECT_EQ(client->moxFwkActivity(), nullptr) << "objects don't keep their activity alive";
    EXPECT_EQ(client->references() & 0x1fffffff, 1u);
    change(step);
    if (!*step) client->moxFwkActivityIs(Ptr<Activity>(new Activity));
    EXPECT_EQ(client->take(), wanted) << "comes with the next change or activity";
  }
  to(first);
  change("d");
  EXPECT_EQ(run(), "259 ");
  // An entry is taken out during a run; what its handlers add waits for the next.
  Ptr<Client<Xlge>> const other(new Client<Xlge>(xlge));
  other->moxFwkActivityIs(first);
  change("d");
  client->then = [&] {
    other->hasNotificationActiveIs(false);
    change("d");
  };
  for (char const* const wanted : {"259 ", "259 ", ""}) EXPECT_EQ(run(), wanted);
  EXPECT_EQ(other->take(), "");
}

TEST_F(Deferred, NothingIsDeliveredToWhatIsSwitchedOffMarkedOrElsewhere) {
  std::pair<char const*, std::function<void(bool)>> const ways[] = {
      {"inactive", [&](bool off) { client->hasNotificationActiveIs(!off); }},
      {"zombie", [&](bool off) { client->moxDoZombieReactors(off); }},
      {"marked", [&](bool off) { client->moxMarkedForDeletionIs(off); }},
      {"of another",
       [&](bool off) {
         client->notifierIs(off ? Ptr<Mox::PtrInterface const>(new Xlge(2)) : xlge);
       }},
  };
  for (auto const& [name, way] : ways) {
    change("d4");
    way(true);
    EXPECT_EQ(run(), "") << name;
    way(false);
    EXPECT_EQ(run(), "") << name;
    change("5");
    EXPECT_EQ(run(), "260[5] ") << name << ": no count is left of what was discarded";
  }
  change("dl");
  client->then = [&] { client->hasNotificationActiveIs(false); };
  EXPECT_EQ(run(), "all ") << "by its own handler, within the run";
}

TEST(Relay, TheWalkOfAChipBeginsWithItsBases) {
  Ptr<Arad> const chip(new Arad("f", 1));
  Ptr<Client<Arad>> const client(new Client<Arad>(chip));
  client->moxPendingAttributeIs(Subscriber::allAttributesWhole);
  client->handleNotification(nullptr);
  std::string wanted = "all ";
  for (auto const& [from, to] : {std::pair(258, 268), std::pair(387, 397), std::pair(514, 542)}) {
    for (int id = from; id <= to; ++id) {
      if (id != 537) wanted += std::to_string(id) + " ";
    }
  }
  EXPECT_EQ(client->take(), wanted);
  chip->fabricSerdesIs(3);
  chip->modelNameIs("m");
  EXPECT_EQ(client->take(), "395[3] 259 ");
  // The object of the base, made by a read, is no second subscriber.
  client->attributeOp({259, GenericIf::AttributeOp::attrGet}, nullptr, nullptr);
  EXPECT_EQ(client->baseGenericIf()->type()->qualifiedName(), "Inventory::Sand::FapBase");
  EXPECT_EQ(chip->notifieeList().size(), 1u);
}

TEST(Relay, TheObjectAndItsAdapterAreActiveTogether) {
  Ptr<Qsgmii> const block(new Qsgmii(1));
  Ptr<Client<Qsgmii>> const client(new Client<Qsgmii>(block));
  auto& list = block->notifieeList();
  auto* const adapter = list.head();
  auto next = [&, n = 0]() mutable {
    block->descriptionIs(std::to_string(++n).c_str());
    return client->take();
  };
  EXPECT_EQ(next(), "259 ");
  EXPECT_EQ(client->mox_bitSet().word(), 0x4000000u);
  EXPECT_TRUE(!client->isRegisteredNotifiee() && adapter->isWeakReference());
  for (Subscriber* const side :
       {static_cast<Subscriber*>(client.get()), static_cast<Subscriber*>(adapter)}) {
    side->hasNotificationActiveIs(false);
    EXPECT_FALSE(client->hasNotificationActive() || adapter->hasNotificationActive());
    EXPECT_TRUE(adapter->mox_bitSet().contains(Subscriber::registrationMemoryMask));
    EXPECT_TRUE(next().empty() && list.size() == 0);
    side->hasNotificationActiveIs(true);
    EXPECT_EQ(next(), "259 ");
  }
  for (bool const zombie : {true, true, false}) {
    client->moxDoZombieReactors(zombie);
    EXPECT_TRUE(client->moxMarkedForDeletion() == zombie &&
                adapter->moxMarkedForDeletion() == zombie);
    EXPECT_EQ(next(), zombie ? "" : "259 ");
  }
  client->notifierIs(Ptr<Mox::PtrInterface const>(new Xlge(1)));
  EXPECT_TRUE(!client->obj() && next().empty()) << "an entity of another type";
  client->notifierIs(block);
  EXPECT_EQ(next(), "259 ");
  Ptr<GenericIf> const twin = client->clone();
  EXPECT_EQ(list.size(), 2u);
  EXPECT_EQ(twin->references() & 0x1fffffff, 1u);
}

TEST(Relay, ObjectsEndInAnyOrderWithTheirEntity) {
  for (bool const isWeak : {false, true})
    for (bool const isSilent : {false, true})
      for (bool const isEntityFirst : {false, true})
        for (bool const isAdapterHeld : {false, true}) {
          Ptr<Qsgmii> block(new Qsgmii(1));
          Ptr<Client<Qsgmii>> client(new Client<Qsgmii>(block));
          Ptr<Qsgmii::NotifieeConst> const adapter(isAdapterHeld ? block->notifieeList().head()
                                                                 : nullptr);
          client->isWeakReferenceIs(isWeak);
          client->hasNotificationActiveIs(!isSilent);
          EXPECT_EQ(block->references() & 0x1fffffff, isWeak ? 1u : 2u);
          if (isEntityFirst) {
            block = nullptr;
            EXPECT_EQ(client->take(), isWeak && !isSilent ? "zero " : "");
            EXPECT_EQ(bool(client->obj()), !isWeak);
            client->hasNotificationActiveIs(isSilent);
            client->notifierIs(Ptr<Mox::PtrInterface const>());
          }
          client = nullptr;
          if (adapter) {
            adapter->onSerdes();
            adapter->onZeroReferences();
          }
        }
  // A client that drops itself in a handler.
  Ptr<Qsgmii> const block(new Qsgmii(1));
  Ptr<Client<Qsgmii>> client(new Client<Qsgmii>(block));
  client->then = [&] { client = nullptr; };
  block->serdesIs(4);
  EXPECT_EQ(block->notifieeList().size(), 0u);
}

TEST(Watches, OfOneObjectAreIndependentWhateverTheirCallbacksDo) {
  Ptr<Qsgmii> block(new Qsgmii(1));
  Ptr<GenericIf> object = Mox::genericOf(Ptr<Entity>(block));
  std::string seen;
  std::unique_ptr<AttributeWatch> watches[4];
  std::function<void()> then;
  auto const make = [&](int i) {
    watches[i] = std::make_unique<AttributeWatch>(
        object,
        [&seen, &then, i](GenericIf&, AttributeId, Ptr<GenericIf const> const&) {
          seen += std::to_string(i) + " ";
          if (i == 1 && then) then();
        },
        [&seen, i](GenericIf&, AttributeId id) {
          seen += std::to_string(i) + "!" + std::to_string(id) + " ";
        },
        [&seen, i](GenericIf&) { seen += std::to_string(i) + "end "; });
  };
  std::tuple<char const*, std::function<void()>, char const*, char const*> const table[] = {
      {"nothing", [] {}, "0 1 2 ", "0 1 2 "},
      {"throws", [] { throw 1; }, "0 1 1!260 2 ", "0 1 1!260 2 "},
      {"ends itself", [&] { watches[1] = nullptr; }, "0 1 2 ", "0 2 "},
      {"ends an earlier one", [&] { watches[0] = nullptr; }, "0 1 2 ", "1 2 "},
      {"ends a later one", [&] { watches[2] = nullptr; }, "0 1 ", "0 1 "},
      {"adds one", [&] { watches[3] ? void() : make(3); }, "0 1 2 ", "0 1 2 3 "},
      {"ends all",
       [&] {
         for (auto& each : watches) each = nullptr;
       },
       "0 1 ", ""},
  };
  unsigned short lane = 0;
  for (auto const& [name, action, now, later] : table) {
    for (auto& each : watches) each = nullptr;
    for (int i : {0, 1, 2}) make(i);
    then = action;
    for (char const* const wanted : {now, later}) {
      block->serdesIs(++lane);
      EXPECT_EQ(std::exchange(seen, ""), wanted) << name;
    }
  }
  for (int i : {0, 1}) make(i);
  object->isWeakReferenceIs(true);
  block = nullptr;
  EXPECT_EQ(seen, "0end 1end ");
}

}  // namespace
