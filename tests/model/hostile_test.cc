// Clients that do everything at the wrong moment: typed, generic and deferred subscribers bind,
// unbind, go weak or silent, drop each other, add, delete, unparent and destroy entities and throw,
// from within each other's handlers. Finds memory that is used after its end, subscribers that are
// listed and not called, or called and not listed. Worth most under the address sanitizer.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "Model.h"
#include "Mox/Activity.h"

namespace {

using Inventory::Arad::Arad;
using Inventory::Arad::Qsgmii;
using namespace model;

class World;

/// What the handlers of both types of subscriber call.
struct Client {
  explicit Client(World& world) : world(world) { ++alive; }
  ~Client() { --alive; }
  World& world;
  unsigned int calls = 0;
  static inline int alive = 0;
};
struct BlockClient : Qsgmii::Notifiee, Client {
  using Client::Client;
  void onDescription() override;
  void onSerdes() override;
  void onZeroReferences() override;
};
struct ChipClient : Arad::Notifiee, Client {
  using Arad::NotifieeConst::onQsgmii;
  using Client::Client;
  void onDescription() override;
  void onQsgmii(Hardware::Sand::QsgmiiId) override;
  void onPciDevice() override;
  void onZeroReferences() override;
};

class World {
 public:
  explicit World(unsigned int seed) : random_(seed) {}
  ~World() {
    isQuiet_ = true;
    while (!subscribers_.empty()) take(subscribers_);
  }

  void step() {
    auto const chip = pick(chips_), other = pick(chips_);
    auto const block = pick(blocks_);
    auto const subscriber = pick(subscribers_);
    bool const yes = below(2) != 0;
    switch (below(16)) {
      case 0:
        if (chips_.size() < 6) chips_.emplace_back(new Arad("fap", 0));
        break;
      case 1:
      case 2:
        if (chip && blocks_.size() < 20) blocks_.push_back(chip->qsgmiiIs(below(8)));
        if (chip && yes) chip->pciDeviceIs(below(2) ? "a" : "b");
        break;
      case 3:
        yes ? static_cast<void>(take(chips_)) : static_cast<void>(take(blocks_));
        break;
      case 4:
        if (!chip) break;
        yes ? chip->qsgmiiDelAll() : static_cast<void>(chip->qsgmiiDel(below(8)));
        break;
      case 5:
        if (block) block->parentIs(yes ? Ptr<Entity>() : Ptr<Entity>(chip));
        if (other && chip && below(8) == 0) static_cast<void>(other->newPciDevice("stray"));
        break;
      case 6:
      case 7:
      case 8:
        if (block) block->descriptionIs(Mox::valueToStrep(below(1000)));
        if (block && yes) block->serdesIs(below(72));
        if (chip) chip->descriptionIs(Mox::valueToStrep(below(1000)));
        break;
      case 9:
      case 10:
        if (subscribers_.size() < 24) subscribe(chip, block);
        break;
      case 11:
        static_cast<void>(take(subscribers_));
        break;
      case 12:
        if (subscriber.object) subscriber.object->notifierIs(bindable(chip, block));
        break;
      case 13:
        if (subscriber.object) subscriber.object->isWeakReferenceIs(yes);
        break;
      case 14:
        if (!subscriber.object) break;
        below(2) ? subscriber.object->isRegisteredNotifieeIs(yes || subscriber.watch)
                 : subscriber.object->hasNotificationActiveIs(yes);
        break;
      default:
        if (below(8) == 0) activity_ = new Mox::Activity;
        activity_->isDeferringIs(yes);
        activity_->run();
    }
  }

  /// Called by every handler.
  void react(Client* client) {
    if (client) ++client->calls;
    if (isQuiet_ || depth_ > 3) return;
    struct Depth {
      explicit Depth(int& depth) : depth(++depth) {}
      ~Depth() { --depth; }
      int& depth;
    } const inside(depth_);
    for (unsigned int i = below(3); i > 0; --i) step();
    if (below(4) == 0) throw std::runtime_error("hostile");
  }

  void check() {
    isQuiet_ = true;
    for (auto const& block : blocks_) {
      EXPECT_NE(text(block->fullName()), "unknown");
      if (auto const parent = block->parent()) {
        EXPECT_NE(ptrCast<Arad>(parent), nullptr);
      }
    }
    if (auto const block = pick(blocks_)) {
      std::vector<std::pair<Ptr<BlockClient>, unsigned int>> all;
      for (auto const& one : subscribers_) {
        if (auto const client = ptrCast<BlockClient>(one.object)) {
          all.emplace_back(client, client->calls + (client->notifier() == block &&
                                                    client->isRegisteredNotifiee()));
          EXPECT_EQ(block->notifieeList().contains(client.get()),
                    client->notifier() == block && client->isRegisteredNotifiee());
        }
      }
      block->descriptionIs(block->description() + "!");
      for (auto const& [client, calls] : all) EXPECT_EQ(client->calls, calls);
    }
    isQuiet_ = false;
  }

 private:
  struct Subscriber {
    Ptr<PtrInterface::NotifieeConst> object;
    std::shared_ptr<Mox::AttributeWatch> watch;  ///< of a generic object
  };

  unsigned int below(unsigned int limit) { return static_cast<unsigned int>(random_() % limit); }
  template <class T>
  T pick(std::vector<T> const& from) {
    return from.empty() ? T() : from[below(static_cast<unsigned int>(from.size()))];
  }
  /// Out of the pool first: what the release calls may change the pool.
  template <class T>
  T take(std::vector<T>& from) {
    if (from.empty()) return T();
    std::swap(from[below(static_cast<unsigned int>(from.size()))], from.back());
    T taken = std::move(from.back());
    from.pop_back();
    return taken;
  }
  Ptr<PtrInterface const> bindable(Ptr<Arad> const& chip, Ptr<Qsgmii> const& block) {
    if (below(5) == 0) return {};
    return below(2) ? Ptr<PtrInterface const>(chip) : Ptr<PtrInterface const>(block);
  }
  void subscribe(Ptr<Arad> const& chip, Ptr<Qsgmii> const& block) {
    Subscriber made;
    unsigned int const kind = below(4);
    if (!chip || !block) return;
    if (kind < 2) {
      made.object = kind ? Ptr<PtrInterface::NotifieeConst>(new BlockClient(*this))
                         : Ptr<PtrInterface::NotifieeConst>(new ChipClient(*this));
      made.object->isRegisteredNotifieeIs(true);
      made.object->notifierIs(kind ? Ptr<PtrInterface const>(block)
                                   : Ptr<PtrInterface const>(chip));
    } else {
      Ptr<GenericIf> const object =
          Mox::genericOf(below(2) ? Ptr<Entity>(chip) : Ptr<Entity>(block));
      if (kind == 3) object->moxFwkActivityIs(activity_);
      made.object = object;
      made.watch = std::make_shared<Mox::AttributeWatch>(
          object,
          [this](GenericIf&, Mox::AttributeId, Ptr<GenericIf const> const&) { react(nullptr); });
    }
    made.object->isWeakReferenceIs(below(2) != 0);
    subscribers_.push_back(std::move(made));
  }

  std::mt19937 random_;
  int depth_ = 0;
  bool isQuiet_ = false;
  Ptr<Mox::Activity> activity_{new Mox::Activity};
  std::vector<Ptr<Arad>> chips_;
  std::vector<Ptr<Qsgmii>> blocks_;
  std::vector<Subscriber> subscribers_;
};

void BlockClient::onDescription() { world.react(this); }
void BlockClient::onSerdes() { world.react(nullptr); }
void BlockClient::onZeroReferences() { world.react(nullptr); }
void ChipClient::onDescription() { world.react(this); }
void ChipClient::onQsgmii(Hardware::Sand::QsgmiiId id) {
  // A chip that is being destroyed gets another child.
  if (auto const chip = notifier(); chip && !chip->qsgmii(id)) chip->qsgmiiIs(id.value() / 2);
  world.react(nullptr);
}
void ChipClient::onPciDevice() { world.react(nullptr); }
void ChipClient::onZeroReferences() { world.react(nullptr); }

// HOSTILE_SEED repeats a history, HOSTILE_STEPS makes it longer.
TEST(Model, HostileClientsHarmOnlyThemselves) {
  auto const given = [](char const* name, unsigned int otherwise) {
    char const* const value = std::getenv(name);
    return value ? static_cast<unsigned int>(std::strtoul(value, nullptr, 10)) : otherwise;
  };
  unsigned int const steps = given("HOSTILE_STEPS", 20000);
  for (unsigned int seed = given("HOSTILE_SEED", 1), last = seed + 3; seed < last; ++seed) {
    std::printf("HOSTILE_SEED=%u HOSTILE_STEPS=%u\n", seed, steps);
    World world(seed);
    for (unsigned int i = 0; i < steps / 3 && !HasFailure(); ++i) {
      SCOPED_TRACE(i);
      world.step();
      world.check();
    }
  }
  EXPECT_EQ(Client::alive, 0);
}

}  // namespace
