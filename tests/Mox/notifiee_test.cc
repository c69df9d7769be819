// Subscribers: binding, list places, and what a walk does when its subscribers misbehave.
#include "Mox/NotifieeList.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "AllocationGuard.h"
#include "Mox/Notify.h"

namespace Mox {
namespace {

constexpr AttributeId levelId = 258;
constexpr AttributeId laneId = 259;

/// An entity type as they are generated, with a scalar and a keyed attribute.
class Board : public Entity {
 public:
  class NotifieeConst;
  class SpecialNotifiee;
  explicit Board(char const* name) : Entity(name) {}
  void zeroReferencesIs(bool) override;
  void levelIs(unsigned int level);
  unsigned int level() const {
    moxReadCountInc();
    return level_;
  }
  void laneNotify(unsigned short lane);
  void specialNotify();
  ListRaw<NotifieeConst>& notifieeList() const { return notifieeList_; }

 private:
  unsigned int level_ = 0;
  mutable ListRaw<NotifieeConst> notifieeList_;
};

class Board::NotifieeConst : public Entity::NotifieeConst {
 public:
  NotifieeConst() = default;
  ~NotifieeConst() override { notifieeDestroy<Board>(*this); }
  void isRegisteredNotifieeIs(bool registered) const override {
    Mox::isRegisteredNotifieeIs<Board>(*this, registered);
  }
  Name name() const override { return notifierName<Board>(*this); }
  void notifierIs(Ptr<PtrInterface const> const& notifier) override {
    Mox::notifierIs<Board>(*this, notifier);
  }
  virtual void onLevel() {}
  virtual void onLane(unsigned short) {}
  virtual void onLanemoxImmediate() {}
  virtual void onLane() {}
  Ptr<Board const> notifier() const { return notifierOf<Board>(*this); }
  NotifieeConst* next = nullptr;
};

/// The subscriber of a derived type, whose entity keeps its list in the base.
class Board::SpecialNotifiee : public Board::NotifieeConst {
 public:
  virtual void onSpecial() {}
};

void Board::zeroReferencesIs(bool) { notifyZeroReferences(notifieeList_); }
void Board::levelIs(unsigned int level) {
  if (level == level_) return;
  level_ = level;
  moxVersionInc();
  notifyAll<&NotifieeConst::onLevel>(notifieeList_, levelId);
}
void Board::laneNotify(unsigned short lane) {
  notifyAll<static_cast<void (NotifieeConst::*)(unsigned short)>(&NotifieeConst::onLane)>(
      notifieeList_, laneId, lane);
}
void Board::specialNotify() { notifyAll<&SpecialNotifiee::onSpecial>(notifieeList_, 600); }

class Crate : public Entity {
 public:
  Crate() : Entity("crate") {}
};

std::string trace;

template <class Base>
class BasicActor : public Base {
 public:
  explicit BasicActor(char const* id) : id_(id) {}
  ~BasicActor() override {
    if (onEnd) onEnd();
    trace += "~" + id_ + " ";
  }
  void onLevel() override {
    trace += id_ + "=" + (this->notifier() ? std::to_string(this->notifier()->level()) : "?") + " ";
    if (onEvent) onEvent();
  }
  void onLane(unsigned short lane) override {
    trace += id_ + "[" + std::to_string(lane) + "] ";
    if (onEvent) onEvent();
  }
  void onNotificationException(AttributeId attribute) override {
    trace += id_ + "!" + std::to_string(attribute) + " ";
    if (onException) onException();
  }
  void onZeroReferences() override {
    trace += id_ + ":zero ";
    if (onZero) onZero();
  }
  bool isStreamAdapter() const override { return isAdapter; }
  std::function<void()> onEvent, onException, onZero, onEnd;
  bool isAdapter = false;

 private:
  std::string id_;
};
using Actor = BasicActor<Board::NotifieeConst>;

class SpecialActor : public BasicActor<Board::SpecialNotifiee> {
 public:
  using BasicActor::BasicActor;
  void onSpecial() override {
    trace += "special ";
    if (onEvent) onEvent();
  }
};

class Notifiees : public testing::Test {
 protected:
  void SetUp() override { trace.clear(); }
  void TearDown() override { trace.clear(); }

  Ptr<Actor> actor(char const* id, bool isAdapter = false) {
    Ptr<Actor> const made(new Actor(id));
    made->isAdapter = isAdapter;
    made->isRegisteredNotifieeIs(true);
    made->notifierIs(board);
    return made;
  }
  std::string heard(std::function<void()> const& change) {
    trace.clear();
    change();
    return trace;
  }
  std::string next() {
    return heard([this] { board->levelIs(++level_); });
  }
  std::uint32_t count() const { return board->references() & VFPtrInterface::countMask; }

  Ptr<Board> board{new Board("b")};
  unsigned int level_ = 0;
};

TEST_F(Notifiees, StreamAdaptersComeFirstTheLastOneBeforeAll) {
  auto const a = actor("a"), b = actor("b");
  auto const s = actor("s", true), t = actor("t", true);
  auto const c = actor("c");
  EXPECT_EQ(next(), "t=1 s=1 a=1 b=1 c=1 ");
  EXPECT_EQ(heard([this] { board->laneNotify(7); }), "t[7] s[7] a[7] b[7] c[7] ");
  EXPECT_EQ(board->version(), 1u);
}

TEST_F(Notifiees, OnlyALongSnapshotCostsAnAllocation) {
  EXPECT_EQ(allocationGuard::failEach([] { return 0; }, [this](int) { next(); }, [](int, bool) {}),
            0);
  auto const a = actor("a");
  auto const allocations = [&] {
    return allocationGuard::failEach(
        [] { return 0; }, [this](int) { board->levelIs(++level_); },
        [&](int, bool) { EXPECT_EQ(a->references() & 0x1fffffff, 1u); });
  };
  EXPECT_EQ(allocations(), 0);
  std::vector<Ptr<Actor>> many;
  for (int i = 0; i < 16; ++i) many.push_back(actor("m"));
  trace.reserve(1000);
  std::uint32_t const version = board->version();
  EXPECT_EQ(allocations(), 1) << "the snapshot is the one allocation of a notification";
  EXPECT_EQ(board->version(), version + 2) << "stored and counted before anybody is told";
}

TEST_F(Notifiees, BindingKeepsTheMarkAndMovesTheLink) {
  auto const a = actor("a");
  EXPECT_EQ(count(), 2u);
  std::uint32_t const version = board->notifieeList().version();
  a->notifierIs(board);
  EXPECT_EQ(board->notifieeList().version(), version) << "the same notifier: no list change";
  a->notifierIs(nullptr);
  EXPECT_TRUE(a->isRegisteredNotifiee());
  EXPECT_EQ(count(), 1u);
  EXPECT_EQ(next(), "");
  EXPECT_EQ(a->name(), "");
  a->notifierIs(board);
  EXPECT_EQ(a->name(), "b");
  EXPECT_EQ(next(), "a=2 ");
  a->isRegisteredNotifieeIs(false);
  a->isRegisteredNotifieeIs(false);
  EXPECT_EQ(next(), "");
  Ptr<Board> const other(new Board("o"));
  a->notifierIs(other);
  EXPECT_EQ(other->notifieeList().size(), 0u);
  EXPECT_EQ(a->name(), "o");
  a->isRegisteredNotifieeIs(true);
  EXPECT_EQ(other->notifieeList().size(), 1u);
  a->notifierIs(new Crate);
  EXPECT_EQ(a->moxNotifier(), nullptr) << "another type counts as null";
  EXPECT_EQ(other->notifieeList().size(), 0u);
  EXPECT_EQ(other->references(), 1u);
}

TEST_F(Notifiees, AWeakSubscriberNeverChangesTheCountInAnyOrderOfCalls) {
  std::mt19937 random(99);
  Ptr<Board> const other(new Board("o"));
  for (int round = 0; round < 300; ++round) {
    Ptr<Actor> a(new Actor("a"));
    bool weak = false, registered = false;
    Board* bound = nullptr;
    for (int step = 0; step < 12; ++step) {
      switch (random() % 3) {
        case 0:
          a->isWeakReferenceIs(weak = random() % 2);
          break;
        case 1:
          a->isRegisteredNotifieeIs(registered = random() % 2);
          break;
        default:
          bound = random() % 3 == 0 ? nullptr : random() % 2 ? board.get() : other.get();
          a->notifierIs(bound);
      }
      for (Board* const each : {board.get(), other.get()}) {
        ASSERT_EQ(each->references(), each == bound && !weak ? 2u : 1u);
        ASSERT_EQ(each->notifieeList().size(), each == bound && registered ? 1u : 0u);
      }
    }
    a = nullptr;
    ASSERT_EQ(board->references(), 1u);
    ASSERT_EQ(other->references(), 1u);
    ASSERT_EQ(board->notifieeList().size() + other->notifieeList().size(), 0u);
  }
}

TEST_F(Notifiees, SwitchingOffRemembersWhoWasListed) {
  auto const a = actor("a"), b = actor("b"), silent = actor("silent");
  silent->isRegisteredNotifieeIs(false);
  EXPECT_TRUE(a->hasNotificationActive());
  for (auto const& each : {a, silent}) each->hasNotificationActiveIs(false);
  EXPECT_EQ(next(), "b=1 ");
  EXPECT_TRUE(a->mox_bitSet().contains(0x80000));
  EXPECT_FALSE(silent->mox_bitSet().contains(0x80000));
  for (auto const& each : {a, silent}) each->hasNotificationActiveIs(true);
  EXPECT_EQ(next(), "b=2 a=2 ") << "back at the tail";
  a->hasNotificationActiveIs(true);
  EXPECT_EQ(next(), "b=3 a=3 ");
}

TEST_F(Notifiees, FlagsMergeUnderTheirMask) {
  using Bits = PtrInterface::NotifieeConst::Mox_BitSet;
  Bits bits(0xffffffff);
  bits.notificationFlagsIs(0);
  EXPECT_EQ(bits.word(), 0x5700000u);
  bits.notificationFlagsIs(0xffffffff);
  EXPECT_EQ(bits.word(), 0xffffffffu);
  bits = Bits(0x100000);
  bits.notificationFlagsIs(0x5700011);
  EXPECT_EQ(bits.word(), 0x100011u);
  EXPECT_TRUE(bits != Bits(0x100010));
  auto const a = actor("a");
  a->mox_bitSetIs(0x4000000);
  EXPECT_EQ(a->mox_bitSet().word(), 0x4000000u);
}

TEST_F(Notifiees, TheEntityTellsOfItsEndAndClearsTheLinks) {
  auto const strong = actor("strong");
  Ptr<Actor> const weak = actor("weak");
  weak->isWeakReferenceIs(true);
  auto const unbinding = actor("unbinding");
  unbinding->isWeakReferenceIs(true);
  unbinding->onZero = [&] { unbinding->notifierIs(nullptr); };
  Board const* const raw = board.get();
  EXPECT_EQ(heard([this] { board = nullptr; }), "") << "the strong one still holds it";
  EXPECT_EQ(heard([&] { strong->notifierIs(nullptr); }), "weak:zero unbinding:zero ");
  EXPECT_EQ(weak->next, nullptr);
  EXPECT_EQ(weak->moxNotifier(), raw) << "kept, and never followed again";
  EXPECT_TRUE(weak->moxIsNotifierGone());
  EXPECT_EQ(unbinding->moxNotifier(), nullptr);
  EXPECT_FALSE(unbinding->moxIsNotifierGone());
  EXPECT_EQ(weak->name(), "");
  weak->isRegisteredNotifieeIs(false);
  weak->hasNotificationActiveIs(false);
  weak->isWeakReferenceIs(false);
  weak->isWeakReferenceIs(true);
  weak->isRegisteredNotifieeIs(true);
  board = new Board("again");
  weak->notifierIs(board);
  EXPECT_EQ(board->references(), 1u);
  EXPECT_EQ(next(), "weak=1 ");
}

TEST_F(Notifiees, AMarkedSubscriberIsNotUnlinkedByItsDestructor) {
  auto a = actor("a");
  auto const b = actor("b");
  // As a zombie's owner does it: out of the list first, then the mark.
  a->hasNotificationActiveIs(false);
  a->moxMarkedForDeletionIs(true);
  std::uint32_t const version = board->notifieeList().version();
  a = nullptr;
  EXPECT_EQ(board->notifieeList().version(), version);
  EXPECT_EQ(count(), 2u);
  EXPECT_EQ(next(), "b=1 ");

  // Without the first step its place would stay: the mark says that the list is not to be touched.
  static Board* abandoned;
  abandoned = board.get();
  abandoned->referencesInc();
  Ptr<Actor> listed = actor("listed");
  listed->moxMarkedForDeletionIs(true);
  listed = nullptr;
  EXPECT_EQ(abandoned->notifieeList().size(), 2u);
}

TEST_F(Notifiees, HostileHandlersHaveExactlyTheseTraces) {
  // Four subscribers, a to d; each case gives one of them something to do while it is called.
  struct Case {
    char const* name;
    std::function<void(std::vector<Ptr<Actor>>&)> arm;
    char const* first;
    char const* second;
  };
  Ptr<Actor> late;
  std::vector<Case> const cases = {
      {"takes itself out",
       [](auto& m) { m[1]->onEvent = [&m] { m[1]->isRegisteredNotifieeIs(false); }; },
       "a=1 b=1 c=1 d=1 ", "a=2 c=2 d=2 "},
      {"takes an earlier one out",
       [](auto& m) { m[1]->onEvent = [&m] { m[0]->isRegisteredNotifieeIs(false); }; },
       "a=1 b=1 c=1 d=1 ", "b=2 c=2 d=2 "},
      {"takes a later one out that somebody holds: still called",
       [](auto& m) { m[1]->onEvent = [&m] { m[2]->isRegisteredNotifieeIs(false); }; },
       "a=1 b=1 c=1 d=1 ", "a=2 b=2 d=2 "},
      {"drops the last reference of the next",
       [](auto& m) { m[1]->onEvent = [&m] { m[2] = nullptr; }; }, "a=1 b=1 ~c d=1 ",
       "a=2 b=2 d=2 "},
      {"drops itself", [](auto& m) { m[1]->onEvent = [&m] { m[1] = nullptr; }; },
       "a=1 b=1 ~b c=1 d=1 ", "a=2 c=2 d=2 "},
      {"drops the two behind", [](auto& m) { m[1]->onEvent = [&m] { m[2] = m[3] = nullptr; }; },
       "a=1 b=1 ~c ~d ", "a=2 b=2 "},
      {"drops all", [](auto& m) { m[0]->onEvent = [&m] { m.clear(); }; }, "a=1 ~a ~b ~c ~d ", ""},
      {"drops an earlier one", [](auto& m) { m[2]->onEvent = [&m] { m[0] = nullptr; }; },
       "a=1 b=1 c=1 ~a d=1 ", "b=2 c=2 d=2 "},
      {"switches a later one off and on",
       [](auto& m) {
         m[0]->onEvent = [&m] {
           m[1]->hasNotificationActiveIs(false);
           m[1]->hasNotificationActiveIs(true);
         };
       },
       "a=1 b=1 c=1 d=1 ", "a=2 c=2 d=2 b=2 "},
      {"adds one",
       [&, this](auto& m) {
         m[1]->onEvent = [&, this] {
           if (!late) late = actor("late");
         };
       },
       "a=1 b=1 c=1 d=1 ", "a=2 b=2 c=2 d=2 late=2 "},
      {"adds a stream adapter",
       [&, this](auto& m) {
         m[1]->onEvent = [&, this] {
           if (!late) late = actor("late", true);
         };
       },
       "a=1 b=1 c=1 d=1 ", "late=2 a=2 b=2 c=2 d=2 "},
      {"writes the same value",
       [this](auto& m) { m[1]->onEvent = [this] { board->levelIs(level_); }; }, "a=1 b=1 c=1 d=1 ",
       "a=2 b=2 c=2 d=2 "},
      {"writes another value once",
       [this](auto& m) {
         m[1]->onEvent = [this] {
           if (level_ == 1) board->levelIs(level_ = 9);
         };
       },
       "a=1 b=1 a=9 b=9 c=9 d=9 c=9 d=9 ", "a=10 b=10 c=10 d=10 "},
      {"throws", [](auto& m) { m[1]->onEvent = [] { throw std::runtime_error("x"); }; },
       "a=1 b=1 b!258 c=1 d=1 ", "a=2 b=2 b!258 c=2 d=2 "},
      {"throws no exception class", [](auto& m) { m[3]->onEvent = [] { throw 5; }; },
       "a=1 b=1 c=1 d=1 d!258 ", "a=2 b=2 c=2 d=2 d!258 "},
      {"throws after dropping itself",
       [](auto& m) {
         m[1]->onEvent = [&m] {
           m[1] = nullptr;
           throw 5;
         };
       },
       "a=1 b=1 b!258 ~b c=1 d=1 ", "a=2 c=2 d=2 "},
      {"unbinds itself", [](auto& m) { m[1]->onEvent = [&m] { m[1]->notifierIs(nullptr); }; },
       "a=1 b=1 c=1 d=1 ", "a=2 c=2 d=2 "},
      {"unbinds a later one", [](auto& m) { m[1]->onEvent = [&m] { m[2]->notifierIs(nullptr); }; },
       "a=1 b=1 c=? d=1 ", "a=2 b=2 d=2 "}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    board = new Board("b");
    level_ = 0;
    std::vector<Ptr<Actor>> members;
    for (char const* id : {"a", "b", "c", "d"}) members.push_back(actor(id));
    c.arm(members);
    EXPECT_EQ(next(), c.first);
    EXPECT_EQ(next(), c.second);
    EXPECT_EQ(heard([this] { board->laneNotify(1); }).empty(), *c.second == '\0');
    for (auto const& member : members) {
      if (member) member->onEvent = nullptr;
    }
    late = nullptr;
    members.clear();
    EXPECT_EQ(count(), 1u);
    EXPECT_EQ(board->notifieeList().size(), 0u);
  }
}

TEST_F(Notifiees, AnExceptionOutOfTheExceptionHandlerLeavesTheSetter) {
  auto const a = actor("a"), b = actor("b"), c = actor("c");
  b->onEvent = [] { throw 1; };
  b->onException = [] { throw std::runtime_error("second"); };
  EXPECT_THROW(board->levelIs(4), std::runtime_error);
  EXPECT_EQ(trace, "a=4 b=4 b!258 ");
  EXPECT_EQ(board->level(), 4u);
  EXPECT_EQ(board->version(), 1u);
  for (auto const& each : {a, b, c}) EXPECT_EQ(each->references() & 0x1fffffff, 2u);
}

TEST_F(Notifiees, OnlyHandlersAreCalledInAScopeForExpectedExceptions) {
  auto const tells = [](char const* where) {
    return [where] { trace += RangeException("x").isPlanned() ? where : std::string("-") + where; };
  };
  auto const a = actor("a");
  auto dies = actor("dies");
  auto const c = actor("c");
  a->onEvent = [&] {
    tells("handler ")();
    Expect const inner(Exception::anyId);
    dies = nullptr;
    throw 1;
  };
  a->onException = tells("reaction ");
  dies->onEnd = tells("end ");
  c->onEvent = tells("handler ");
  EXPECT_EQ(next(), "a=1 handler a!258 -reaction -end ~dies c=1 handler ");
  tells("after ")();
  EXPECT_EQ(trace.substr(trace.size() - 7), "-after ");
}

TEST_F(Notifiees, ASubscriberThatDestroysTheSubjectHearsTheRestOfTheWalk) {
  // All weak, so that the board is the test's alone.
  std::vector<Ptr<Actor>> members;
  for (char const* id : {"a", "b"}) {
    members.push_back(actor(id));
    members.back()->isWeakReferenceIs(true);
    members.back()->onZero = [&members, at = members.size() - 1] {
      members[at]->notifierIs(nullptr);
    };
  }
  auto* const raw = board.get();
  Ptr<Board> held(board);  // what a careful caller of a setter has
  members[0]->onEvent = [this] { board = nullptr; };
  EXPECT_EQ(heard([raw] { raw->levelIs(3); }), "a=3 b=3 ");
  EXPECT_EQ(heard([&] { held = nullptr; }), "a:zero b:zero ");
}

TEST_F(Notifiees, ZeroReferencesReachesEverySubscriberUnderItsOwnId) {
  auto const a = actor("a"), b = actor("b");
  for (auto const& each : {a, b}) each->isWeakReferenceIs(true);
  a->onZero = [] { throw 1; };
  EXPECT_EQ(heard([this] { board = nullptr; }), "a:zero a!5 b:zero ");
  // Whoever takes a reference there and keeps it keeps the entity, bound as before.
  board = new Board("kept");
  Ptr<Board> keeper;
  a->onZero = [&, raw = board.get()] {
    if (!keeper) keeper = raw;
  };
  a->notifierIs(board);
  b->onZero = [&] { b->notifierIs(nullptr); };
  EXPECT_EQ(heard([this] { board = nullptr; }), "a:zero ");
  EXPECT_EQ(heard([&] { keeper->levelIs(2); }), "a=2 ");
  a->onZero = nullptr;
  EXPECT_EQ(heard([&] { keeper = nullptr; }), "a:zero ");
}

TEST_F(Notifiees, AWalkForADerivedTypePassesOverTheOthers) {
  auto const a = actor("a");
  Ptr<SpecialActor> const special(new SpecialActor("s"));
  special->isRegisteredNotifieeIs(true);
  special->notifierIs(board);
  EXPECT_EQ(heard([this] { board->specialNotify(); }), "special ");
  EXPECT_EQ(next(), "a=1 s=1 ");
  special->onEvent = [] { throw 1; };
  EXPECT_EQ(heard([this] { board->specialNotify(); }), "special s!600 ");
}

TEST_F(Notifiees, TheReactorDecidesThePlace) {
  class Relay : public Board::NotifieeConst {
   public:
    ~Relay() override { trace += "~relay "; }
    Ptr<PtrInterface::NotifieeConst> moxReactor() const override { return reactor; }
    PtrInterface::NotifieeConst* moxRawReactor() const override { return reactor; }
    void onLevel() override { trace += "relay "; }
    PtrInterface::NotifieeConst* reactor = nullptr;
  };
  auto const a = actor("a");
  Ptr<Actor> const adapter(new Actor("adapter"));
  adapter->isAdapter = true;
  Ptr<Relay> const relay(new Relay);
  relay->isRegisteredNotifieeIs(true);
  relay->notifierIs(board);
  EXPECT_EQ(next(), "a=1 relay ") << "without a reactor it is a plain subscriber";
  relay->isRegisteredNotifieeIs(false);
  relay->reactor = adapter.get();
  relay->isRegisteredNotifieeIs(true);
  EXPECT_EQ(next(), "relay a=2 ");
}

TEST_F(Notifiees, TheDefaultsOfTheBaseHandOn) {
  class Plain : public Entity::NotifieeConst {
   public:
    using Entity::NotifieeConst::onNotificationException;
    void onNotification() override { trace += "notification "; }
    void onNotificationException() override { trace += "exception "; }
  };
  Ptr<Plain> const plain(new Plain);
  plain->onAttribute(7);
  plain->onCollectionNotification("key");
  plain->onNotificationException(7);
  plain->handleNotificationException(7);
  plain->handleNotificationException();
  plain->onZeroReferences();
  plain->onParent();
  plain->onVersion();
  plain->handleNotification(nullptr);
  EXPECT_EQ(trace, "notification notification exception exception exception ");
  EXPECT_EQ(plain->name(), "");
  EXPECT_EQ(plain->moxReactor(), plain);
  EXPECT_EQ(plain->moxRawReactor(), plain.get());
  EXPECT_FALSE(plain->isStreamAdapter());
  EXPECT_FALSE(plain->activityPtr());
  EXPECT_EQ(plain->actsm(), nullptr);
  EXPECT_FALSE(plain->moxOnAttribute(7, nullptr));
  plain->notifierIs(board);
  plain->isRegisteredNotifieeIs(true);
  EXPECT_EQ(count(), 2u);
  EXPECT_EQ(board->notifieeList().size(), 0u) << "the base only stores";
}

TEST_F(Notifiees, AnActivityDefersAndCollapses) {
  class Deferred : public PtrInterface::Notifiee {
   public:
    explicit Deferred(Ptr<Activity> const& activity) : activity_(activity) {}
    Activity* moxFwkActivity() override { return activity_.get(); }
    void handleNotification(ActivityConfig* config) override {
      trace += std::to_string(moxPendingAttribute()) + " ";
      redispatch(actsm());
      Notifiee::handleNotification(config);
      if (again) again();
    }
    void onAttribute(AttributeId attribute) override {
      trace += "a" + std::to_string(attribute) + " ";
    }
    void onNotification() override { trace += "all "; }
    void onNotificationException() override { trace += "exception "; }
    std::function<void()> again;

   private:
    Ptr<Activity> activity_;
  };
  Ptr<Activity> const activity(new Activity);
  Ptr<Deferred> const one(new Deferred(activity)), two(new Deferred(activity));
  EXPECT_FALSE(one->moxOnAttribute(258, nullptr));
  activity->isDeferringIs(true);
  unsigned char keys = 0, many = 254;
  EXPECT_TRUE(one->moxOnAttribute(258, nullptr));
  EXPECT_TRUE(one->moxOnAttribute(258, &keys));
  EXPECT_TRUE(two->moxOnAttribute(258, &keys));
  EXPECT_TRUE(two->moxOnAttribute(260, &many));
  EXPECT_TRUE(two->moxOnAttribute(258, &many));
  EXPECT_EQ(keys, 2);
  EXPECT_EQ(many, 255) << "doesn't wrap";
  EXPECT_EQ(trace, "");
  one->again = [&] {
    one->again = nullptr;
    one->moxOnAttribute(259, nullptr);
    throw 1;
  };
  EXPECT_EQ(activity->run(), 2u);
  EXPECT_EQ(trace, "258 a258 exception -1 all ");
  EXPECT_TRUE(activity->hasWaiting());
  trace.clear();
  EXPECT_EQ(activity->run(), 1u);
  EXPECT_EQ(trace, "259 a259 ");
  EXPECT_EQ(activity->actsm()->dispatches(), 3u);
  EXPECT_EQ(one->references() & 0x1fffffff, 1u);
}

}  // namespace
}  // namespace Mox
