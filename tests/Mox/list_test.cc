// Raw lists, snapshots and the small containers of the same family. Looks for links that a removal
// breaks, members that a snapshot loses or leaks, and positions outside of a fixed container.
#include "Mox/ListRaw.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <random>
#include <sstream>
#include <string>

#include "AllocationGuard.h"
#include "Mox/BitSet.h"
#include "Mox/DynArray.h"
#include "Mox/LinkQueue.h"
#include "Mox/LinkedQueue.h"
#include "Mox/SnapshotIterator.h"

namespace Mox {
namespace {

class Member : public PtrInterface {
 public:
  explicit Member(int id) : id_(id) {}
  int id() const { return id_; }
  void moxNotifierGone() { wasTold = true; }
  Member* next = nullptr;
  bool wasTold = false;

 private:
  int id_;
};
using List = ListRaw<Member>;
using Snapshot = SnapshotIterator<List>;

std::string idsOf(List const& list) {
  std::ostringstream out;
  for (List::LrIterator it(&list); it; ++it) out << it->id() << ' ';
  return out.str();
}

TEST(ListRaw, FollowsAReferenceThroughRandomChanges) {
  std::mt19937 random(815);
  std::vector<Ptr<Member>> members;
  for (int id = 0; id < 12; ++id) members.emplace_back(new Member(id));
  auto held = std::make_unique<List>();
  List& list = *held;
  std::deque<Member*> reference;
  Ptr<Member> const silent(new Member(99)), taken(new Member(98));
  for (int step = 0; step < 20000; ++step) {
    Member* const member = members[random() % members.size()].get();
    std::uint32_t const version = list.version();
    if (step == 7) list.silentPush(silent.get());
    if (step % 2 == 0) {
      list.silentPush(taken.get());
      list.silentRemove(taken.get());
    }
    auto const at = std::find(reference.begin(), reference.end(), member);
    if (at != reference.end()) {
      ASSERT_TRUE(list.remove(member));
      ASSERT_EQ(member->next, nullptr);
      reference.erase(at);
    } else if (random() % 3 == 0) {
      ASSERT_FALSE(list.remove(member));
      ASSERT_EQ(list.version(), version);
      continue;
    } else if (random() % 2 == 0) {
      list.pushFront(member);
      reference.push_front(member);
    } else {
      list.pushBack(member);
      reference.push_back(member);
    }
    ASSERT_EQ(list.version(), version + 1);
    ASSERT_EQ(list.size(), reference.size());
    ASSERT_EQ(list.head(), reference.empty() ? nullptr : reference.front());
    ASSERT_EQ(list.tail(), reference.empty() ? nullptr : reference.back());
    Member* walked = list.head();
    for (Member* const expected : reference) {
      ASSERT_EQ(walked, expected);
      walked = walked->next;
    }
    ASSERT_EQ(walked, nullptr);
    for (Ptr<Member> const& counted : members) ASSERT_EQ(counted->references(), 1u);
  }
  reference.push_back(silent.get());
  held = nullptr;
  for (Member* const member : reference) {
    EXPECT_TRUE(member->wasTold && !member->next) << member->id();
    EXPECT_EQ(member->references(), 1u);
  }
  EXPECT_FALSE(taken->wasTold);
}

TEST(ListRaw, AnIteratorGoesOnBehindAMemberTakenOutUnderIt) {
  std::vector<Ptr<Member>> m;
  for (int id = 0; id < 5; ++id) m.emplace_back(new Member(id));
  List list;
  for (auto const& member : m) list.pushBack(member.get());
  List::LrIterator it(&list);
  ++it;
  EXPECT_EQ(it->id(), 1);
  list.remove(m[1].get());
  ++it;
  EXPECT_TRUE(it.memberWasDeleted());
  EXPECT_EQ(it->id(), 2);
  ++it;
  EXPECT_FALSE(it.memberWasDeleted());
  EXPECT_EQ(it->id(), 3);
  list.remove(m[2].get());
  list.remove(m[3].get());
  ++it;
  EXPECT_FALSE(it) << "member and predecessor are both gone";
  EXPECT_EQ(idsOf(list), "0 4 ");
  List::LrIterator first(&list);
  list.remove(m[0].get());
  ++first;
  EXPECT_EQ(first->id(), 4);
}

TEST(Snapshot, HoldsTheListOfItsStartAndPassesOverWhoeverDied) {
  auto* const a = new Member(0);
  std::vector<Ptr<Member>> m{a};
  for (int id = 1; id < 6; ++id) m.emplace_back(new Member(id));
  List list;
  for (auto const& member : m) list.pushBack(member.get());
  auto const drop = [&](std::size_t index) {
    list.remove(m[index].get());
    m[index] = nullptr;
  };
  Snapshot snapshot(list);
  EXPECT_EQ(m[0]->references(), 2u);
  std::string trace;
  while (snapshot) {
    int const id = snapshot.member()->id();
    trace += std::to_string(id) + ' ';
    if (id == 0) {
      drop(0);  // itself
      drop(1);
      m.emplace_back(new Member(6));
      list.pushBack(m.back().get());
    }
    if (id == 3) {
      m[4]->hasNotificationActiveIs(true);  // the flag doesn't look like a holder
      drop(4);
      drop(5);
    }
    snapshot.advance();
  }
  snapshot.advance();
  EXPECT_EQ(trace, "0 2 3 ");
  EXPECT_EQ(snapshot.member(), nullptr);
  EXPECT_EQ(idsOf(list), "2 3 6 ");
  for (auto const& member : m) {
    EXPECT_TRUE(!member || member->references() == 1);
  }
}

class AttributeLink : public LinkQueueLink<AttributeLink, unsigned int, Member> {
 public:
  using LinkQueueLink::LinkQueueLink;
};
using AttributeQueue = LinkQueue<AttributeLink, unsigned int, Member>;

TEST(LinkQueue, KeepsOrderFindsByKeyAndLetsTheFirstGoFirst) {
  long const before = allocationGuard::live;
  {
    AttributeQueue queue;
    std::uint32_t const version = queue.version();
    for (int id : {5, 3, 9, 3}) queue.enq(static_cast<unsigned int>(id), new Member(id));
    EXPECT_EQ(queue.size(), 4u);
    EXPECT_EQ(queue.version(), version + 4);
    auto const idsNow = [&queue] {
      std::string ids;
      for (AttributeQueue::IteratorConst it(&queue); it; ++it) ids += std::to_string(it->id());
      return ids;
    };
    EXPECT_EQ(idsNow(), "5393");
    EXPECT_EQ(queue[9]->id(), 9);
    EXPECT_EQ(queue[4], nullptr);
    EXPECT_EQ(queue.del(4), nullptr);
    EXPECT_EQ(queue.del(3)->references(), 1u);
    EXPECT_EQ(idsNow(), "593");
    EXPECT_EQ(queue.del(3)->id(), 3);
    queue.enq(8, new Member(8));
    EXPECT_EQ(idsNow(), "598");

    AttributeQueue::IteratorConst it(&queue);
    Ptr<Member> const held = it.ptr(False_);
    EXPECT_EQ(held->references(), 2u);
    ++it;
    EXPECT_FALSE(it.hasBookmark());
    it.bookmarkIs(true);
    EXPECT_TRUE(it.hasBookmark());
    EXPECT_FALSE(it);
    it.bookmarkIs(false);
    EXPECT_EQ(it.key(), 9u);
    it.bookmarkIs(true);
    queue.del(9);
    it.bookmarkIs(false);
    EXPECT_FALSE(it);

    EXPECT_EQ(queue.deq()->id(), 5);
    EXPECT_EQ(queue.deq()->id(), 8);
    EXPECT_EQ(queue.deq(), nullptr);
    for (unsigned int id = 0; id < 200000; ++id) queue.enq(id, held);
    EXPECT_EQ(held->references(), 200001u);
  }
  EXPECT_EQ(allocationGuard::live, before);
}

class ValueLink : public LinkedQueueLink<ValueLink, Member> {
 public:
  using LinkedQueueLink::LinkedQueueLink;
};
class ValueQueue : public LinkedQueue<ValueLink, Member, Ptr<Member>> {
 public:
  int misses = 0;

 protected:
  void onDeleteMemberNotFound() override { ++misses; }
};

TEST(LinkedQueue, CarriesMembersInOrderAndTellsOfAMissingOne) {
  ValueQueue queue;
  Ptr<Member> const a(new Member(1)), b(new Member(2));
  queue.enq(a);
  queue.enq(b);
  queue.enq(a);
  EXPECT_EQ(queue.size(), 3u);
  EXPECT_EQ(queue.version(), 3u);
  std::string ids;
  for (ValueQueue::Iterator it(&queue); it; ++it) ids += std::to_string(it->id());
  EXPECT_EQ(ids, "121");
  EXPECT_TRUE(queue.del(a.get()));
  EXPECT_FALSE(queue.del(Ptr<Member>(new Member(1)).get()));
  EXPECT_EQ(queue.misses, 1);
  EXPECT_EQ(queue.deq(), b);
  EXPECT_EQ(queue.size(), 1u);
  std::uint32_t const version = queue.version();
  queue.deleteAll();
  EXPECT_EQ(queue.version(), version + 1);
  EXPECT_EQ(queue.size(), 0u);
  EXPECT_EQ(queue.deq(), nullptr);
  queue.enq(b);
  EXPECT_EQ(queue.head()->member(), b);
  EXPECT_EQ(a->references(), 1u);
}

TEST(BoundChecks, ABitSetTakesItsPositionsAndNoOther) {
  using Set = BitSet<29, unsigned int>;
  EXPECT_EQ(Set(28).word(), 1u << 28);
  EXPECT_EQ(Set(0).word(), 1u);
  Set set(3);
  set.set(5);
  set.reset(3);
  EXPECT_TRUE(set.contains(5));
  EXPECT_FALSE(set.contains(3));
  EXPECT_FALSE(set.contains(29));
  EXPECT_DEATH(Set(29), "^Mox/BitSet:37: .*: Assertion 'pos>=0 && pos<bits' failed\\.");
  EXPECT_DEATH(set.set(-1), "^Mox/BitSet:37: .*: Assertion 'pos>=0 && pos<bits' failed\\.");
  EXPECT_DEATH(set.reset(29), "^Mox/BitSet:43: .*: Assertion 'pos>=0 && pos<bits' failed\\.");
}

TEST(BoundChecks, ADynArrayMustHaveGivenItsDynamicPartBack) {
  DynArray<bool, unsigned int, 6, 0> fixed;
  EXPECT_EQ(fixed.size(), 6u);
  fixed[5u] = true;
  EXPECT_FALSE(fixed == (DynArray<bool, unsigned int, 6, 0>()));
  EXPECT_TRUE(fixed == fixed);
  EXPECT_FALSE(fixed.dynamicEnq(true));
  using Array = DynArray<int, unsigned int, 2, 1>;
  Array array;
  EXPECT_TRUE(array.dynamicEnq(7));
  EXPECT_FALSE(array.dynamicEnq(8));
  EXPECT_EQ(array[2u], 7);
  EXPECT_TRUE(array.dynamicDeq());
  EXPECT_FALSE(array.dynamicDeq());
  EXPECT_DEATH(
      {
        Array used;
        used.dynamicEnq(1);
      },
      "^Mox/DynArray:69: .*: Assertion 'N == 0' failed\\.");
}

}  // namespace
}  // namespace Mox
