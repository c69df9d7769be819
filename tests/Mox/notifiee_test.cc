// Subscribers: who is called, in which order, and what a walk does when its subscribers misbehave.
// Looks for wrong places in the list, counts that a weak subscriber changes, an entity that is
// followed after its end, and walks that a hostile handler bends.
#include "Mox/ForwardingNotifiee.h"
#include "Mox/Hooks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
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
  class Notifiee;
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
  using Entity::NotifieeConst::NotifieeConst;
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

class Board::Notifiee : public Board::NotifieeConst {
 protected:
  using NotifieeConst::NotifieeConst;
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
  std::function<void()> onEvent, onException, onZero, onEnd;
  bool isAdapter = false;

 private:
  std::string id_;
};
using Actor = BasicActor<Board::NotifieeConst>;

/// What generic objects and adapters are: bound by themselves, and called through a forwarder.
class Server;
class Forwarder : public ForwardingNotifiee<Board, Server> {
 public:
  explicit Forwarder(Server* server) : ForwardingNotifiee(server) {}
  void onLevel() override;
};
class Server : public PtrInterface::Notifiee {
 public:
  explicit Server(Ptr<Board> const& board) : forwarder(new Forwarder(this)) {
    forwarder->bind(board);
    isWeakReferenceIs(true);
    notifierIs(board);
  }
  ~Server() override { forwarder->reactorIs(nullptr); }
  void onLevel() {
    trace += "server ";
    if (isThrowing) throw 1;
  }
  void onNotificationException(AttributeId id) override {
    trace += "server!" + std::to_string(id) + " ";
  }
  void onZeroReferences() override { trace += "server:zero "; }
  bool isThrowing = false;
  Ptr<Forwarder> forwarder;
};
void Forwarder::onLevel() {
  if (reactor()) reactor()->onLevel();
}

class Notifiees : public testing::Test {
 protected:
  void SetUp() override {
    trace.clear();
    hook_ = std::exchange(Hook, &isAdapter);
  }
  void TearDown() override {
    trace.clear();
    Hook = hook_;
  }

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

 private:
  static constexpr auto& Hook = hooks.isStreamAdapter;
  static bool isAdapter(PtrInterface const* reactor) {
    auto const* const actor = dynamic_cast<Actor const*>(reactor);
    return dynamic_cast<Server const*>(reactor) || (actor && actor->isAdapter);
  }
  bool (*hook_)(PtrInterface const*) = nullptr;
};

/// Calls in any order on a few subscribers and boards, beside a plain model of both.
class AnyOrder {
 public:
  explicit AnyOrder(unsigned int seed) : random_(seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (int at = 0; at < 6; ++at) made(at);
    for (int at = 0; at < 3; ++at) boards_.push_back(make());
    for (int times = 0; times < 3000 && !testing::Test::HasFailure(); ++times) step();
    for (Subscriber& each : subscribers_) each.actor = nullptr;
  }

 private:
  struct BoardState {
    Ptr<Board> held;
    Board* raw;
    bool isAlive = true;
    std::deque<int> listed;
  };
  struct Subscriber {
    Ptr<Actor> actor;
    int bound = -1;
    bool isGone = false, isWeak = false, isRegistered = false, isActive = true, memory = false;
  };

  BoardState make() {
    Ptr<Board> const board(new Board("b"));
    return {board, board.get(), true, {}};
  }
  void made(int at) {
    subscribers_[at] = {};
    subscribers_[at].actor = new Actor(std::to_string(at).c_str());
  }
  bool coin() { return random_() % 2 == 0; }

  void step() {
    trace.clear();
    expected_.clear();
    int const at = static_cast<int>(random_() % 6);
    Subscriber& one = subscribers_[at];
    Actor& actor = **one.actor;
    std::size_t const place = random_() % boards_.size();
    BoardState& board = boards_[place];
    switch (random_() % 10) {
      case 0:
      case 1:
      case 2: {
        int const bound = coin() && board.isAlive ? static_cast<int>(place) : -1;
        bind(at, bound);
        actor.notifierIs(bound >= 0 ? Ptr<PtrInterface const>(board.raw)
                         : coin()   ? Ptr<PtrInterface const>(new Crate)
                                    : Ptr<PtrInterface const>());
        break;
      }
      case 3:
        one.isWeak = coin();
        actor.isWeakReferenceIs(one.isWeak);
        break;
      case 4: {
        bool const registered = coin();
        registerIt(at, registered);
        actor.isRegisteredNotifieeIs(registered);
        break;
      }
      case 5: {
        bool const active = coin();
        if (active != one.isActive) {
          one.isActive = active;
          if (!active) one.memory = one.isRegistered;
          if (!active || one.memory) registerIt(at, active);
        }
        actor.hasNotificationActiveIs(active);
        break;
      }
      case 6:
        actor.isAdapter = coin();
        break;
      case 7:
        if (random_() % 3 != 0) return;
        expected_ = "~" + std::to_string(at) + " ";
        bind(at, -1);
        made(at);
        break;
      case 8:
        if (coin()) {
          board.held = nullptr;
        } else if (!board.isAlive && boards_.size() < 40) {
          boards_.push_back(make());
        }
        break;
      default:
        if (!board.isAlive) return;
        board.raw->levelIs(++level_);
        for (int const each : board.listed) {
          expected_ += std::to_string(each) + "=" + std::to_string(level_) + " ";
        }
    }
    for (BoardState& each : boards_) endIfUnheld(each);
    ASSERT_EQ(trace, expected_);
    audit();
  }

  void unlink(int at) {
    if (subscribers_[at].bound < 0 || subscribers_[at].isGone) return;
    std::erase(boards_[subscribers_[at].bound].listed, at);
  }
  void link(int at) {
    Subscriber const& one = subscribers_[at];
    if (one.bound < 0 || one.isGone || !one.isRegistered) return;
    std::deque<int>& listed = boards_[one.bound].listed;
    one.actor->isAdapter ? listed.push_front(at) : listed.push_back(at);
  }
  void bind(int at, int bound) {
    Subscriber& one = subscribers_[at];
    if (one.bound == bound && !one.isGone) return;
    unlink(at);
    one.bound = bound;
    one.isGone = false;
    link(at);
  }
  void registerIt(int at, bool registered) {
    Subscriber& one = subscribers_[at];
    if (registered == one.isRegistered) return;
    unlink(at);
    one.isRegistered = registered;
    link(at);
  }
  unsigned int countOf(BoardState const& board) const {
    unsigned int count = board.held ? 1 : 0;
    for (Subscriber const& each : subscribers_) {
      count += each.bound >= 0 && !each.isWeak && !each.isGone && &boards_[each.bound] == &board;
    }
    return count;
  }
  void endIfUnheld(BoardState& board) {
    if (!board.isAlive || countOf(board) != 0) return;
    board.isAlive = false;
    for (int const each : board.listed) expected_ += std::to_string(each) + ":zero ";
    board.listed.clear();
    for (Subscriber& each : subscribers_) {
      each.isGone |= each.bound >= 0 && &boards_[each.bound] == &board;
    }
  }
  void audit() {
    for (BoardState const& each : boards_) {
      if (!each.isAlive) continue;
      ASSERT_EQ(each.raw->references(), countOf(each));
      ASSERT_EQ(each.raw->notifieeList().size(), each.listed.size());
    }
    for (Subscriber const& each : subscribers_) {
      bool const isLive = each.bound >= 0 && !each.isGone;
      ASSERT_EQ(each.actor->name(), isLive ? "b" : "");
      ASSERT_EQ(each.actor->notifier().get(), isLive ? boards_[each.bound].raw : nullptr);
      ASSERT_EQ(each.actor->moxNotifier() != nullptr, each.bound >= 0) << "the pointer is kept";
      ASSERT_EQ(each.actor->isRegisteredNotifiee(), each.isRegistered);
      ASSERT_EQ(each.actor->mox_bitSet().contains(0x80000), each.memory);
    }
  }

  std::mt19937 random_;
  Subscriber subscribers_[6];
  std::deque<BoardState> boards_;
  unsigned int level_ = 0;
  std::string expected_;
};

TEST_F(Notifiees, AnyOrderOfCallsKeepsPlacesAndCountsAndFollowsNoDeadEntity) {
  for (unsigned int seed = 70; seed < 90; ++seed) AnyOrder const run(seed);
}

TEST_F(Notifiees, AForwarderServesAReactorThatMayOutliveTheEntity) {
  auto const a = actor("a");
  Ptr<Server> server(new Server(board));
  EXPECT_EQ(next(), "server a=1 ") << "the reactor decides the place, also while it is being made";
  server->isThrowing = true;
  EXPECT_EQ(next(), "server server!258 a=2 ");
  server->isThrowing = false;
  Forwarder& forwarder = **server->forwarder;
  forwarder.hasNotificationActiveIs(false);
  EXPECT_FALSE(server->hasNotificationActive());
  EXPECT_EQ(next(), "a=3 ");
  forwarder.hasNotificationActiveIs(true);
  EXPECT_TRUE(server->hasNotificationActive());
  forwarder.moxDoZombieReactors(true);
  EXPECT_EQ(next(), "a=4 ");
  forwarder.moxDoZombieReactors(false);
  EXPECT_FALSE(server->hasNotificationActive()) << "its own mark is taken back by its owner";
  EXPECT_EQ(next(), "server a=5 ");
  auto const plain = heard([&] { Ptr<Server>(new Server(board)) = nullptr; });
  EXPECT_EQ(next(), "server a=6 ") << plain;

  // Listed or silent: when the entity ends, neither follows it any more.
  for (bool const isSilent : {false, true}) {
    board = new Board("b");
    server = new Server(board);
    server->forwarder->hasNotificationActiveIs(!isSilent);
    server->forwarder->moxMarkedForDeletionIs(isSilent);
    EXPECT_EQ(count(), 1u);
    EXPECT_EQ(heard([this] { board = nullptr; }), isSilent ? "" : "server:zero ");
    EXPECT_TRUE(server->moxIsNotifierGone());
    EXPECT_EQ(server->forwarder->name(), "");
  }
}

TEST_F(Notifiees, AWalkForADerivedTypePassesOverTheOthers) {
  class Special : public BasicActor<Board::SpecialNotifiee> {
   public:
    using BasicActor::BasicActor;
    void onSpecial() override {
      trace += "special ";
      throw 1;
    }
  };
  auto const a = actor("a");
  Ptr<Special> const special(new Special("s"));
  special->isRegisteredNotifieeIs(true);
  special->notifierIs(board);
  EXPECT_EQ(heard([this] { board->specialNotify(); }), "special s!600 ");
}

TEST_F(Notifiees, OfEntitiesInGeneralBindToNothing) {
  class Any : public Entity::NotifieeConst {
   public:
    void onNotification() override { trace += "notification "; }
    void onNotificationException() override { trace += "exception "; }
  };
  Ptr<Any> const any(new Any);
  any->isRegisteredNotifieeIs(true);
  any->notifierIs(board);
  EXPECT_EQ(any->moxNotifier(), nullptr);
  EXPECT_EQ(next(), "");
  any->onAttribute(7);
  any->onCollectionNotification("key");
  any->PtrInterface::NotifieeConst::onNotificationException(7);
  any->handleNotificationException(7);
  any->handleNotification(nullptr);
  EXPECT_EQ(trace, "notification notification exception exception ");
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
