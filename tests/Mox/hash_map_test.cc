// Hash maps: one order in every size, iterators that survive everything, short chains. Looks for
// members seen twice or lost while the map changes, references that leak, and operations whose cost
// grows with the size of the map.
#include "Mox/HashMap.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "AllocationGuard.h"
#include "Mox/Entity.h"

namespace Mox {
namespace {

long keyReads = 0;

/// A bare member, with a reaction to its end.
class Item : public PtrInterface {
 public:
  explicit Item(unsigned int key) : key_(key) {}
  ~Item() override {
    if (onEnd) onEnd();
  }
  unsigned int key() const {
    ++keyReads;
    return key_;
  }
  std::function<void()> onEnd;
  Ptr<Item> next;

 private:
  unsigned int key_;
};
using Items = HashMap<Item, unsigned int>;

class Setting : public ValueMember<Setting, String8, String8> {
 public:
  using ValueMember::ValueMember;
};
class DirtyLane : public KeyMember<DirtyLane, unsigned short> {
 public:
  using KeyMember<DirtyLane, unsigned short>::KeyMember;
};
class Part : public Entity {
 public:
  explicit Part(unsigned short id) : Entity(""), id_(id) {}
  unsigned short key() const { return id_; }
  Ptr<Part> next;

 private:
  unsigned short id_;
};

/// A key of which many have one hash.
struct Crowded {
  unsigned int value;
  friend bool operator==(Crowded const&, Crowded const&) = default;
  friend bool operator<(Crowded const& a, Crowded const& b) { return a.value < b.value; }
};

std::string keysOf(Items const& map) {
  std::ostringstream out;
  for (auto it = map.iteratorConst(); it; ++it) out << it->key() << ' ';
  return out.str();
}

TEST(HashMap, TheOrderIsThatOfTheReversedKeyInEverySize) {
  for (unsigned int buckets : {0u, 1u, 2u, 3u, 4u, 64u, 1024u}) {
    SCOPED_TRACE(buckets);
    Items map(buckets);
    for (unsigned int key : {3u, 1u, 0u, 2u}) map.newMember(new Item(key));
    EXPECT_EQ(keysOf(map), "0 2 1 3 ");
    for (unsigned int key = 4; key < 200; ++key) map.newMember(new Item(key));
    std::string const before = keysOf(map);
    for (unsigned int key = 200; key < 5000; ++key) map.newMember(new Item(key));
    for (unsigned int key = 200; key < 5000; ++key) map.deleteMember(map[key]);
    EXPECT_EQ(keysOf(map), before);
    for (unsigned int key = 4; key < 200; ++key) map.deleteMember(map[key]);
    EXPECT_EQ(keysOf(map), "0 2 1 3 ");
  }
}

// Read in line from other modules: a typed map adds nothing to the generic one.
static_assert(sizeof(HashMapGeneric) <= 16 + 2 * sizeof(void*));
static_assert(sizeof(Items) == sizeof(HashMapGeneric));
static_assert(sizeof(Items::Iterator) == 8 + 2 * sizeof(void*));
static_assert(sizeof(Items::IteratorConst) == sizeof(Items::Iterator));

TEST(HashMap, AnEmptyMapAllocatesNothing) {
  HashMapVTableGeneric const* const vtable = Items().moxVTable();
  long const before = allocationGuard::live;
  Items map;
  EXPECT_EQ(map.moxVTable(), vtable);
  EXPECT_EQ(map[5], nullptr);
  EXPECT_FALSE(map.iterator());
  EXPECT_FALSE(map.iteratorConst(5));
  int bucket = 9;
  EXPECT_EQ(map.findNextG(nullptr, &bucket), nullptr);
  EXPECT_EQ(bucket, -1);
  map.deleteMember(new Item(5));
  map.emptyAllBuckets();
  EXPECT_EQ(map.version(), 0u);
  EXPECT_FALSE(Items::Iterator(static_cast<Items*>(nullptr)));
  EXPECT_FALSE(Items::IteratorConst());
  EXPECT_EQ(allocationGuard::live, before);
}

TEST(HashMapVTable, ItsFourOperationsKeepTheirContracts) {
  HashMapVTableGeneric const& items = *Items().moxVTable();
  Ptr<Item> const two(new Item(2)), three(new Item(3));
  EXPECT_EQ(items.hash(two.get()), 0x40000000u);
  unsigned int const key = 2;
  EXPECT_TRUE(items.keyEquals(&key, two.get()));
  EXPECT_FALSE(items.keyEquals(&key, three.get()));
  EXPECT_TRUE(items.keyLessThan(nullptr, three.get(), two.get()));
  EXPECT_FALSE(items.keyLessThan(&key, two.get(), three.get()));
  EXPECT_FALSE(items.keyLessThan(nullptr, two.get(), two.get()));
  EXPECT_TRUE(items.keyLessThan(&key, three.get(), nullptr));
  EXPECT_FALSE(items.keyLessThan(&key, two.get(), nullptr));
  EXPECT_TRUE(items.keyLessThan(nullptr, two.get(), nullptr));
  items.setNext(two.get(), three.get());
  EXPECT_EQ(two->next, three);
  EXPECT_EQ(three->references(), 2u);
  items.setNext(two.get(), nullptr);
  EXPECT_EQ(three->references(), 1u);

  // The version of an entity goes up, also when the link stays.
  HashMap<Part, unsigned short> const parts;
  Ptr<Part> const a(new Part(1)), b(new Part(2));
  parts.moxVTable()->setNext(a.get(), b.get());
  parts.moxVTable()->setNext(a.get(), b.get());
  EXPECT_EQ(a->version(), 2u);
  EXPECT_EQ(b->version(), 0u);
  EXPECT_EQ(a->readCount(), 0u);
  parts.moxVTable()->setNext(a.get(), nullptr);
}

TEST(HashMap, AReleasedMemberMayChangeTheMap) {
  // By the iterator's step, by emptyAllBuckets, and by the destructor.
  Items map;
  auto const fill = [&map] {
    for (unsigned int key = 0; key < 32; ++key) {
      Ptr<Item> const item(new Item(key));
      item->onEnd = [&map, key] {
        if (Item* const other = map[key + 16]) map.deleteMember(other);
        if (key < 8) map.newMember(new Item(1000 + key));
      };
      map.newMember(item);
    }
  };
  fill();
  std::set<unsigned int> seen;
  for (auto it = map.iterator(); it; it.advance()) {
    EXPECT_TRUE(seen.insert(it->key()).second);
    if (it->key() < 32) map.deleteMember(it.ptr());
  }
  for (unsigned int key = 0; key < 16; ++key) EXPECT_EQ(seen.count(key), 1u);
  map.emptyAllBuckets();
  EXPECT_EQ(map.size(), 0u);
  fill();
  map.emptyAllBuckets();
  EXPECT_EQ(map.size(), 8u) << "what was added while it was emptied stays";
  map.emptyAllBuckets();
}

/// A map of any kind beside a sorted reference of it, with iterators that stay alive.
template <class V, class K>
class Walk {
 public:
  using Map = HashMap<V, K>;
  using Position = std::pair<std::uint32_t, K>;

  Walk(unsigned int seed, std::vector<K> keys) : random_(seed), keys_(std::move(keys)) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (int step = 0; step < 6000 && !testing::Test::HasFailure(); ++step) {
      // Long runs of mostly insertions and mostly deletions, so that the table grows and shrinks.
      bool const isFilling = step / 700 % 2 == 0;
      switch (random_() % 8) {
        case 0:
        case 1:
        case 2:
          isFilling ? insert() : remove();
          break;
        case 3:
          isFilling ? remove() : insert();
          break;
        case 4:
          start();
          break;
        default:
          advance();
      }
      if (step % 97 == 0) audit();
      if (random_() % 1500 == 0) empty();
    }
    audit();
  }

  std::uint8_t largestBits() const { return largestBits_; }

 private:
  struct Live {
    typename Map::IteratorConst it;
    std::optional<Position> at;
  };

  static Position positionOf(K const& key) { return {bitReverse(KeyHash<K>::hash(key)), key}; }
  K anyKey() { return keys_[random_() % keys_.size()]; }

  void insert() {
    K const key = anyKey();
    auto const [at, isNew] = reference_.try_emplace(positionOf(key));
    V* const known = map_[key];
    ASSERT_EQ(known == nullptr, isNew);
    if (!isNew) {
      ASSERT_EQ(known, at->second.get());
      return;
    }
    at->second = new V(key);
    std::uint32_t const version = map_.version();
    // The typed and the untyped side, as it comes.
    if (random_() % 2 == 0) {
      map_.newMemberG(at->second, &key);
    } else {
      map_.newMember(at->second);
    }
    ASSERT_NE(map_.version(), version);
    ASSERT_EQ(map_[key], at->second.get());
    largestBits_ = std::max(largestBits_, map_.bits());
  }

  void remove() {
    if (reference_.empty()) return;
    // Often the member under an iterator.
    auto at = reference_.lower_bound(positionOf(anyKey()));
    if (random_() % 2 == 0 && !live_.empty()) {
      Live const& victim = live_[random_() % live_.size()];
      if (victim.at) at = reference_.lower_bound(*victim.at);
    }
    if (at == reference_.end()) at = reference_.begin();
    std::uint32_t const version = map_.version();
    if (random_() % 2 == 0) {
      map_.deleteMember(Ptr<PtrInterface>(at->second));
    } else {
      map_.deleteMember(at->second);
    }
    ASSERT_NE(map_.version(), version);
    ASSERT_FALSE(at->second->next);
    ASSERT_EQ(map_[at->first.second], nullptr);
    reference_.erase(at);
  }

  void start() {
    Live live;
    typename std::map<Position, Ptr<V>>::const_iterator expected;
    if (random_() % 2 == 0) {
      live.it = map_.iteratorConst();
      expected = reference_.begin();
    } else {
      K const key = anyKey();
      live.it = map_.iteratorConst(key);
      expected = reference_.lower_bound(positionOf(key));
    }
    expect(live, expected);
    if (live_.size() < 12) {
      live_.push_back(live);
    } else {
      live_[random_() % live_.size()] = live;
    }
  }

  void advance() {
    if (live_.empty()) return;
    Live& live = live_[random_() % live_.size()];
    live.it.advance();
    if (live.at) expect(live, reference_.upper_bound(*live.at));
  }

  void expect(Live& live, typename std::map<Position, Ptr<V>>::const_iterator expected) {
    if (expected == reference_.end()) {
      ASSERT_FALSE(live.it);
      live.at.reset();
    } else {
      ASSERT_TRUE(live.it);
      ASSERT_EQ(*live.it, expected->second.get());
      live.at = expected->first;
    }
  }

  void empty() {
    map_.emptyAllBuckets();
    reference_.clear();
  }

  void audit() {
    ASSERT_EQ(map_.size(), reference_.size());
    auto expected = reference_.begin();
    for (auto it = map_.iterator(); it; it.advance(), ++expected) {
      ASSERT_NE(expected, reference_.end());
      ASSERT_EQ(*it, expected->second.get());
      unsigned int held = 3;  // map, reference, this iterator
      for (Live const& live : live_) held += *live.it == *it;
      ASSERT_EQ(it->references(), held);
    }
    ASSERT_EQ(expected, reference_.end());
    ASSERT_LE(map_.bucketCount(), std::max(4u, 16 * 8 * map_.size()));
  }

  std::mt19937 random_;
  std::vector<K> keys_;
  Map map_;
  std::map<Position, Ptr<V>> reference_;
  std::vector<Live> live_;
  std::uint8_t largestBits_ = 0;
};

}  // namespace

template <>
struct KeyHash<Crowded> {
  static std::uint32_t hash(Crowded const& key) { return key.value % 5 << 30; }
};

namespace {

class CrowdedItem : public ValueMember<CrowdedItem, Crowded, int> {
 public:
  using ValueMember::ValueMember;
};

TEST(HashMapModel, NoMemberTwiceNoneThatStaysLostThoseAddedBehindSeen) {
  unsigned int const base = 4711;
  for (unsigned int seed = base; seed < base + 6; ++seed) {
    std::vector<unsigned int> dense, strided, scattered;
    std::vector<unsigned short> ids;
    std::vector<String8> texts;
    std::vector<Crowded> crowded;
    std::mt19937 random(seed);
    for (unsigned int index = 0; index < 900; ++index) {
      dense.push_back(index);
      strided.push_back(index << (seed % 12));
      scattered.push_back(static_cast<unsigned int>(random()));
      ids.push_back(static_cast<unsigned short>(index));
      texts.push_back(format("prop.%08x.%u", static_cast<unsigned int>(random()), index));
      crowded.push_back({index});
    }
    EXPECT_GE((Walk<Item, unsigned int>(seed, dense).largestBits()), 8);
    Walk<Item, unsigned int>(seed, strided);
    Walk<Item, unsigned int>(seed, scattered);
    Walk<Part, unsigned short>(seed, ids);
    Walk<DirtyLane, unsigned short>(seed, ids);
    Walk<Setting, String8>(seed, texts);
    Walk<CrowdedItem, Crowded>(seed, crowded);
  }
}

TEST(HashMap, ChainsStayShort) {
  struct Case {
    char const* name;
    std::function<unsigned int(unsigned int)> key;
    std::uint32_t longest;
  };
  std::vector<Case> const cases = {
      {"consecutive", [](unsigned int i) { return i; }, 1},
      {"consecutive from far", [](unsigned int i) { return i + 1000000007; }, 1},
      {"odd stride", [](unsigned int i) { return i * 2654435761u; }, 1},
      {"stride 2", [](unsigned int i) { return i * 2; }, 2},
      {"stride 8", [](unsigned int i) { return i * 8; }, 8},
      {"stride 16", [](unsigned int i) { return i * 16; }, 10},
      {"stride 100", [](unsigned int i) { return i * 100; }, 8},
      {"stride 128", [](unsigned int i) { return i * 128; }, 10},
      {"stride 256", [](unsigned int i) { return i * 256; }, 16},
      {"stride 1000", [](unsigned int i) { return i * 1000; }, 8},
      {"slot and port", [](unsigned int i) { return i / 128 << 16 | i % 128; }, 20}};
  for (Case const& c : cases) {
    for (unsigned int count : {72u, 1000u, 40000u}) {
      Items map;
      for (unsigned int index = 0; index < count; ++index) map.newMember(new Item(c.key(index)));
      std::uint32_t const longest = map.longestChain();
      RecordProperty(std::string(c.name) + "/" + std::to_string(count), static_cast<int>(longest));
      EXPECT_LE(longest, c.longest) << c.name << ' ' << count;
      EXPECT_LE(map.bucketCount(), 40 * count) << c.name << ' ' << count;
    }
  }
}

TEST(HashMap, NoOrderOfDeletionAndNoSharedHashCostsMoreThanItMust) {
  constexpr unsigned int count = 100000;
  using Empty = std::function<void(Items&)>;
  std::vector<Empty> const ways = {[](Items& map) {
                                     for (auto it = map.iterator(); it; it.advance())
                                       map.deleteMember(it.ptr());
                                   },
                                   [](Items& map) {
                                     while (auto it = map.iterator()) map.deleteMember(it.ptr());
                                   },
                                   [](Items& map) { map.emptyAllBuckets(); }};
  for (Empty const& empty : ways) {
    Items map;
    for (unsigned int key = 0; key < count; ++key) map.newMember(new Item(key));
    keyReads = 0;
    empty(map);
    EXPECT_EQ(map.size(), 0u);
    EXPECT_LE(keyReads, 10l * count);
    // The place where the search for the first member begins follows members that return.
    for (unsigned int key : {5u, 1u, 0u}) {
      map.newMember(new Item(key));
      EXPECT_EQ(map.iterator().key(), key);
    }
  }
  // Members that share a chain whatever the table: an insertion passes those before it, once.
  Items map;
  for (unsigned int key = 0; key < 1000; ++key) map.newMember(new Item(key << 22));
  keyReads = 0;
  map.newMember(new Item(0xffffffff));
  EXPECT_LE(keyReads, 20);
}

TEST(HashMap, AnEndThatThrowsLeaksNobody) {
  class Thrower : public Item {
   public:
    using Item::Item;
    void zeroReferencesIs(bool) override { throw static_cast<int>(key()); }
  };
  long const before = allocationGuard::live;
  Items map;
  for (unsigned int key = 0; key < 20; ++key) {
    map.newMember(key % 5 == 3 ? Ptr<Item>(new Thrower(key)) : Ptr<Item>(new Item(key)));
  }
  try {
    map.emptyAllBuckets();
    FAIL();
  } catch (int key) {
    EXPECT_EQ(key, 8) << "the first in the order of the map";
  }
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(allocationGuard::live, before);
}

/// A key whose comparison fails when it is told to.
struct Fragile {
  unsigned int value;
  static inline bool isBroken = false;
  friend bool operator==(Fragile const& a, Fragile const& b) {
    if (isBroken) throw 1;
    return a.value == b.value;
  }
  friend bool operator<(Fragile const& a, Fragile const& b) {
    if (isBroken) throw 1;
    return a.value < b.value;
  }
};

}  // namespace

template <>
struct KeyHash<Fragile> {
  static std::uint32_t hash(Fragile const&) { return 5; }
};

namespace {

class FragileItem : public ValueMember<FragileItem, Fragile, int> {
 public:
  using ValueMember::ValueMember;
};

TEST(HashMap, AComparisonThatThrowsPassesThroughAndChangesNothing) {
  HashMap<FragileItem, Fragile> map;
  std::vector<Ptr<FragileItem>> items;
  for (unsigned int value : {1u, 2u, 3u}) {
    items.emplace_back(new FragileItem(Fragile{value}));
    map.newMember(items.back());
  }
  Ptr<FragileItem> const spare(new FragileItem(Fragile{4}));
  auto it = map.iteratorConst();
  std::uint32_t const version = map.version();
  Fragile::isBroken = true;
  EXPECT_THROW(map[Fragile{3}], int);
  EXPECT_THROW(map.newMember(spare), int);
  EXPECT_THROW(map.iteratorConst(Fragile{2}), int);
  Fragile::isBroken = false;
  map.newMember(spare);
  map.deleteMember(spare);
  Fragile::isBroken = true;
  EXPECT_THROW(it.advance(), int);
  Fragile::isBroken = false;
  EXPECT_EQ(map.version(), version + 2);
  EXPECT_EQ(items[0]->references(), 3u);
  std::string walk;
  for (; it; it.advance()) walk += std::to_string(it.key().value);
  EXPECT_EQ(walk, "123");
  for (auto const& item : items) EXPECT_EQ(item->references(), 2u);
  EXPECT_EQ(spare->references(), 1u);
}

TEST(HashMap, AFailedAllocationCostsSpeedAtMost) {
  using allocationGuard::failEach;
  struct Subject {
    Items map;
    std::vector<Ptr<Item>> spare;
  };
  for (unsigned int count : {0u, 3u, 4u, 8u, 1000u, 1024u}) {
    auto const prepare = [count] {
      auto subject = std::make_unique<Subject>();
      for (unsigned int key = 0; key < count; ++key) subject->map.newMember(new Item(key));
      subject->spare.emplace_back(new Item(count));
      return subject;
    };
    failEach(
        prepare, [](auto& s) { s->map.newMember(s->spare[0]); },
        [count](auto& s, bool failed) {
          // Only the first table is indispensable.
          EXPECT_EQ(failed, failed && count == 0);
          EXPECT_EQ(s->map.size(), count + (failed ? 0 : 1));
          EXPECT_EQ(s->spare[0]->references(), failed ? 1u : 2u);
          EXPECT_EQ(s->map[count], failed ? nullptr : s->spare[0].get());
          std::size_t seen = 0;
          for (auto it = s->map.iterator(); it; ++it) ++seen;
          EXPECT_EQ(seen, s->map.size());
        });
    failEach(
        prepare,
        [](auto& s) {
          while (Item* const item = static_cast<Item*>(s->map.findNextG(nullptr, nullptr))) {
            s->map.deleteMember(item);
          }
        },
        [](auto& s, bool failed) {
          EXPECT_FALSE(failed) << "a deletion needs no memory";
          EXPECT_EQ(s->map.size(), 0u);
        });
  }
}

}  // namespace
}  // namespace Mox
