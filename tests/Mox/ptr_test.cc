// Counted pointers: what every operation does to the counts, and what happens at zero. Looks for
// counts lost or kept, objects destroyed twice or never, and stacks that a long chain overflows.
#include "Mox/Ptr.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "AllocationGuard.h"
#include "Mox/Exception.h"
#include "Mox/PtrTrack.h"

namespace Mox {
namespace {

std::string trace;

class Object : public PtrInterface {
 public:
  explicit Object(char const* name) : name_(name) {}
  ~Object() override { trace += std::string("~") + name_ + " "; }
  void zeroReferencesIs(bool) override {
    trace += std::string("zero:") + name_ + " ";
    if (onZero) onZero();
  }
  unsigned int moxAuditErrors(unsigned int limit) const override {
    ++audits;
    return limit + 1;
  }
  std::function<void()> onZero;
  mutable int audits = 0;

 private:
  char const* name_;
};
class Derived : public Object {
 public:
  using Object::Object;
  char more[1000] = {};
};
class Other : public PtrInterface {};
/// A class that inherits the reference word virtually.
class Shared : public virtual PtrInterface {
 public:
  ~Shared() override { trace += "~shared "; }
  int value = 7;
};
class SharedDerived : public Shared {
 public:
  long more[40] = {};
};
std::uint32_t countOf(PtrInterface const& object) {
  return object.references() & VFPtrInterface::countMask;
}

class Ptrs : public testing::Test {
 protected:
  void SetUp() override {
    trace.clear();
    live_ = allocationGuard::live;
  }
  /// Runs the steps one by one: the counts of a and b behind each, and what was heard meanwhile.
  struct Step {
    char const* name;
    std::function<void()> run;
  };
  std::string countsOf(std::vector<Step> const& steps, Object& a, Object& b) {
    std::ostringstream out;
    for (Step const& step : steps) {
      step.run();
      out << step.name << ' ' << countOf(a) << ' ' << countOf(b) << '\n';
    }
    return out.str();
  }
  long live_ = 0;
};

TEST_F(Ptrs, EveryOperationMovesExactlyItsCounts) {
  Ptr<Derived> a(new Derived("a"));
  Ptr<Derived> b(new Derived("b"));
  Ptr<Object> p, q;
  Ptr<Object const> c;
  std::vector<Ptr<Object>> box;
  std::string const counts =
      countsOf({{"start", [] {}},
                {"assign-raw", [&] { p = a.get(); }},
                {"assign-same-raw", [&] { p = a.get(); }},
                {"ptrAssign-same", [&] { p.ptrAssign(a.get()); }},
                {"assign-derived-ptr", [&] { q = b; }},
                {"assign-ptr", [&] { q = p; }},
                {"assign-same-ptr", [&] { q = p; }},
                {"assign-self", [&] { q = *&q; }},
                {"const-from-ptr", [&] { c = q; }},
                {"ptrAssign-other", [&] { q.ptrAssign(b.get()); }},
                {"construct-copy", [&] { box.push_back(q); }},
                {"construct-raw", [&] { box.emplace_back(a.get()); }},
                {"move-construct", [&] { box.emplace_back(std::move(q)); }},
                {"move-from-null", [&] { p = std::move(q); }},
                {"move-assign", [&] { p = std::move(box[0]); }},
                {"move-assign-same", [&] { p = std::move(box[2]); }},
                {"move-self", [&] { p = std::move(*&p); }},
                {"cast", [&] { box.push_back(ptrCast<Derived>(p)); }},
                {"cast-fails", [&] { EXPECT_FALSE(ptrCast<Other>(p)); }},
                {"temporary", [&] { EXPECT_TRUE(Ptr<Object>(a.get())); }},
                {"valid", [&] { EXPECT_EQ(ValidPtr<Object>(a)->audits, 0); }},
                {"const-null", [&] { c = nullptr; }},
                {"clear", [&] { box.clear(); }},
                {"null", [&] { p = nullptr; }},
                {"null-again", [&] { p = nullptr; }}},
               *a.get(), *b.get());
  EXPECT_EQ(counts,
            "start 1 1\n"
            "assign-raw 2 1\n"
            "assign-same-raw 2 1\n"
            "ptrAssign-same 2 1\n"
            "assign-derived-ptr 2 2\n"
            "assign-ptr 3 1\n"
            "assign-same-ptr 3 1\n"
            "assign-self 3 1\n"
            "const-from-ptr 4 1\n"
            "ptrAssign-other 3 2\n"
            "construct-copy 3 3\n"
            "construct-raw 4 3\n"
            "move-construct 4 3\n"
            "move-from-null 3 3\n"
            "move-assign 3 3\n"
            "move-assign-same 3 2\n"
            "move-self 3 2\n"
            "cast 3 3\n"
            "cast-fails 3 3\n"
            "temporary 3 3\n"
            "valid 3 3\n"
            "const-null 2 3\n"
            "clear 1 2\n"
            "null 1 1\n"
            "null-again 1 1\n");
  EXPECT_EQ(trace, "");
  a = nullptr;
  b = nullptr;
  EXPECT_EQ(trace, "zero:a ~a zero:b ~b ");
}

TEST_F(Ptrs, FlagsDecideWhatReachesZeroHandling) {
  struct Case {
    char const* name;
    std::uint32_t flags;
    char const* heard;
  };
  for (Case const& c :
       {Case{"none", 0, "zero:a ~a "}, Case{"notification active", 0x20000000, "zero:a ~a "},
        Case{"marked", 0x80000000, "zero:a ~a "}, Case{"both", 0xa0000000, "zero:a ~a "}}) {
    trace.clear();
    Ptr<Object> a(new Object("a"));
    a->hasNotificationActiveIs((c.flags & 0x20000000) != 0);
    a->moxMarkedForDeletionIs((c.flags & 0x80000000) != 0);
    EXPECT_EQ(a->references(), c.flags + 1) << c.name;
    EXPECT_EQ(a->hasNotificationActive(), (c.flags & 0x20000000) != 0);
    EXPECT_EQ(a->moxMarkedForDeletion(), (c.flags & 0x80000000) != 0);
    EXPECT_EQ(countOf(*a.get()), 1u) << c.name;
    a = nullptr;
    EXPECT_EQ(trace, c.heard) << c.name;
  }
  // Bit 30 is set while the notifiees are told, and it alone keeps the zero test from being true.
  class Probe : public PtrInterface {
   public:
    explicit Probe(std::uint32_t& word) : word_(word) {}
    ~Probe() override {
      word_ |= references();
      Ptr<Probe>{this};
    }
    void zeroReferencesIs(bool zero) override {
      EXPECT_TRUE(zero);
      word_ = references();
      referencesInc();
      EXPECT_NE(referencesDec(), 0u);
    }

   private:
    std::uint32_t& word_;
  };
  std::uint32_t word = 0;
  Ptr<Probe>(new Probe(word));
  EXPECT_EQ(word, 0x40000000u);
}

TEST_F(Ptrs, WhoeverKeepsAReferenceInZeroHandlingKeepsTheObject) {
  Ptr<Object> keeper;
  Ptr<Object> a(new Object("a"));
  Object* const raw = a.get();
  a->onZero = [&keeper, raw] {
    Ptr<Object>{raw};  // taken and dropped: nothing happens twice
    keeper = raw;
  };
  a = nullptr;
  EXPECT_EQ(trace, "zero:a ");
  EXPECT_EQ(raw->references(), 1u);
  keeper = nullptr;
  EXPECT_EQ(trace, "zero:a zero:a ");
  raw->onZero = nullptr;
  keeper = nullptr;
  EXPECT_EQ(trace, "zero:a zero:a zero:a ~a ");
}

TEST_F(Ptrs, AReleaseInADestructorThatThrowsEndsTheProcess) {
  EXPECT_DEATH(
      {
        Ptr<Object> a(new Object("a"));
        a->onZero = [] { throw 1; };
      },
      "terminate");
}

TEST_F(Ptrs, MemoryGoesBackWithTheSizeOfTheMostDerivedClass) {
  long const sizedBefore = allocationGuard::sizedFrees;
  {
    Ptr<PtrInterface> base(new Derived("d"));
    Ptr<PtrInterface> throughVirtualBase(new SharedDerived);
    Ptr<Shared> shared(new SharedDerived);
    Ptr<PtrInterface> plain(new Other);
  }
#ifdef __cpp_sized_deallocation
  EXPECT_EQ(allocationGuard::sizedFrees - sizedBefore, 4);
#else
  EXPECT_EQ(allocationGuard::sizedFrees, sizedBefore);
#endif
  class Thrower : public PtrInterface {
   public:
    Thrower() { throw 2; }
    char more[333] = {};
  };
  EXPECT_THROW(new Thrower, int);
  EXPECT_EQ(allocationGuard::live, live_);
  allocationGuard::failIn = 1;
  EXPECT_THROW(new Derived("x"), std::bad_alloc);
  EXPECT_EQ(allocationGuard::live, live_);
}

TEST_F(Ptrs, ValidPtrRefusesNullAndReleasesOnTheWay) {
  struct Half {
    explicit Half(Ptr<Object> const& object, Ptr<Object> const& second)
        : first(object), checked(second) {}
    Ptr<Object> first;
    ValidPtr<Object> checked;
  };
  Ptr<Object> const a(new Object("a"));
  try {
    Half const half(a, nullptr);
    FAIL();
  } catch (RangeException const& e) {
    EXPECT_STREQ(e.what(), "null ValidPtr");
    EXPECT_TRUE(e.ids().contains(Exception::rangeId));
  }
  EXPECT_EQ(countOf(*a.get()), 1u);
  Half const half(a, a);
  EXPECT_EQ(countOf(*a.get()), 3u);
  Ptr<PtrInterface> const base(half.checked);
  EXPECT_EQ(countOf(*a.get()), 4u);
}

TEST_F(Ptrs, TheTrackerKnowsWhatLivesAndForgetsWhatIsImmortal) {
  Ptr<Object> const before(new Object("before"));
  before->referencesLeak();
  EXPECT_EQ(before->references(), 2u);
  before->referencesDec();
  ptrifTrackOn_ = true;
  std::size_t const known = PtrTrack::count();
  Ptr<Object> a(new Object("a"));
  Ptr<Object> const b(new Object("b"));
  EXPECT_EQ(PtrTrack::count(), known + 2);
  b->referencesLeak();
  EXPECT_EQ(b->references(), 2u);
  EXPECT_EQ(PtrTrack::count(), known + 1);
  bool found = false;
  PtrTrack::forEach([&](PtrInterface const* object) { found = found || object == a.get(); });
  EXPECT_TRUE(found);
  a = nullptr;
  EXPECT_EQ(PtrTrack::count(), known);
  // An object that can't be entered isn't made.
  EXPECT_EQ(allocationGuard::failEach([] { return Ptr<Object>(); },
                                      [](Ptr<Object>& made) { made = new Object("c"); },
                                      [&](Ptr<Object>& made, bool failed) {
                                        EXPECT_EQ(!made, failed);
                                        EXPECT_EQ(PtrTrack::count(), known + !failed);
                                      }),
            2);
  ptrifTrackOn_ = false;
  b->referencesDec();
}

/// A link in a chain that only its predecessor holds.
class Link : public PtrInterface {
 public:
  explicit Link(int& alive) : alive_(alive) { ++alive_; }
  ~Link() override { --alive_; }
  Ptr<Link> next;
  Ptr<Link> branch;

 private:
  int& alive_;
};

TEST_F(Ptrs, AChainOfAnyLengthIsReleasedOnABoundedStack) {
  int alive = 0;
  {
    Ptr<Link> head;
    for (int count = 0; count < 1000000; ++count) {
      Ptr<Link> const link(new Link(alive));
      link->next = std::move(head);
      if (count % 3 == 0) link->branch = new Link(alive);
      head = link;
    }
    EXPECT_GT(alive, 1000000);
  }
  EXPECT_EQ(alive, 0);
  // Down to the depth at which destructions begin to wait, an object is gone when its last
  // reference is.
  Ptr<Link> shallow(new Link(alive));
  for (int count = 0; count < 50; ++count) {
    Ptr<Link> const link(new Link(alive));
    link->next = std::move(shallow);
    shallow = link;
  }
  shallow = nullptr;
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(allocationGuard::live, live_);
}

}  // namespace
}  // namespace Mox
