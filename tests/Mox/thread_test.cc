// The thread-safe mode: counts and bodies shared by four threads. Looks for lost counts, and for
// objects destroyed twice or never; run it under tsan.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "Mox/HashMap.h"
#include "Mox/Ptr.h"
#include "Mox/String8.h"

namespace Mox {
namespace {

constexpr int threadCount = 4;

/// Runs `work(index)` on every thread at once.
void onThreads(std::function<void(int)> const& work) {
  std::vector<std::thread> threads;
  std::atomic<int> waiting = threadCount;
  for (int index = 0; index < threadCount; ++index) {
    threads.emplace_back([&, index] {
      --waiting;
      while (waiting != 0) std::this_thread::yield();
      work(index);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

std::atomic<int> alive = 0;
std::atomic<int> zeros = 0;

class Shared : public PtrInterface {
 public:
  Shared() { ++alive; }
  ~Shared() override {
    EXPECT_EQ(content, 7);
    --alive;
  }
  void zeroReferencesIs(bool) override {
    ++zeros;
    if (onZero) onZero(this);
  }
  std::function<void(Shared*)> onZero;
  int content = 7;
};

/// Switches the mode while there is one thread alone, before and behind each test.
class ThreadSafePointers : public testing::Test {
 protected:
  void SetUp() override { VFPtrInterface::enableThreadSafePointers = true; }
  void TearDown() override { VFPtrInterface::enableThreadSafePointers = false; }
};

TEST_F(ThreadSafePointers, CopiesAndAssignmentsLoseNoCount) {
  std::array<Ptr<Shared>, 3> const objects{new Shared, new Shared, new Shared};
  onThreads([&](int index) {
    std::mt19937 random(static_cast<unsigned int>(index));
    std::array<Ptr<Shared>, 8> mine;
    for (int step = 0; step < 30000; ++step) {
      Ptr<Shared>& target = mine[random() % mine.size()];
      switch (random() % 5) {
        case 0:
          target = objects[random() % objects.size()];
          break;
        case 1:
          target = mine[random() % mine.size()];
          break;
        case 2:
          target = nullptr;
          break;
        case 3: {
          Ptr<Shared const> const copy(target);
          Ptr<Shared> moved(std::move(target));
          target = std::move(moved);
          break;
        }
        default:
          if (target) target->moxMarkedForDeletionIs(step % 2 == 0);
      }
    }
  });
  for (auto const& object : objects) {
    EXPECT_EQ(object->references() & VFPtrInterface::countMask, 1u);
  }
}

TEST_F(ThreadSafePointers, AnObjectKeptInItsZeroHandlingIsReleasedByAnotherThread) {
  // The handling hands a reference to a thread that drops it at once, often before the handling has
  // come to its end: exactly one of the two has to destroy the object.
  constexpr int rounds = 500;
  std::atomic<Shared*> handed = nullptr;
  std::atomic<bool> isOver = false;
  std::thread dropper([&] {
    while (!isOver || handed) {
      if (Shared* const object = handed.exchange(nullptr)) {
        ptrDec(object);
      } else {
        std::this_thread::yield();
      }
    }
  });
  int const before = zeros;
  for (int round = 0; round < rounds; ++round) {
    Ptr<Shared> object(new Shared);
    object->onZero = [&](Shared* self) {
      self->onZero = nullptr;
      ptrInc(self);
      handed = self;
    };
    object = nullptr;
    while (handed) std::this_thread::yield();
  }
  isOver = true;
  dropper.join();
  EXPECT_EQ(alive, 0);
  EXPECT_GE(zeros - before, rounds);
  EXPECT_LE(zeros - before, 2 * rounds);
}

TEST_F(ThreadSafePointers, StringBodiesAreReadAndHashedByAll) {
  std::vector<String8> const texts{String8(), String8("one"), String8("two of them"),
                                   String8(std::string(300, 'x'))};
  std::array<std::uint32_t, threadCount> sums{};
  onThreads([&](int index) {
    std::uint32_t sum = 0;
    for (int step = 0; step < 5000; ++step) {
      String8 const text = texts[static_cast<std::size_t>(step) % texts.size()];
      String8::IteratorConst const it(text, 1);
      String8 const whole(it);
      sum += text.hash() + (text == texts[3]) + (text < texts[2]) + whole.length();
    }
    sums[static_cast<std::size_t>(index)] = sum;
  });
  for (std::uint32_t const sum : sums) EXPECT_EQ(sum, sums[0]);
  EXPECT_EQ(texts[1].data()->references(), 1u);
}

class Item : public ValueMember<Item, unsigned int, unsigned int> {
 public:
  using ValueMember::ValueMember;
};

TEST_F(ThreadSafePointers, AMemberOutlivesItsRemovalInTheHandsOfOthers) {
  HashMap<Item, unsigned int> map;
  for (unsigned int key = 0; key < 512; ++key) map.newMember(new Item(key, key * 3));
  std::vector<Ptr<Item>> members;
  for (auto it = map.iterator(); it; ++it) members.push_back(it.ptr());
  onThreads([&](int index) {
    if (index == 0) {
      // One thread changes the map; the others hold members and read what never changes in them.
      for (auto it = map.iterator(); it; it.advance()) map.deleteMember(it.ptr());
    } else {
      for (Ptr<Item> const& member : members) {
        Ptr<Item> const held(member);
        EXPECT_EQ(held->value(), held->key() * 3);
      }
    }
  });
  EXPECT_EQ(map.size(), 0u);
  for (Ptr<Item> const& member : members) EXPECT_EQ(member->references(), 1u);
}

}  // namespace
}  // namespace Mox
