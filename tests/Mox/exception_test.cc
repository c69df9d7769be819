// The failure family: looks for wrong ids and texts, and for failures planned by the wrong scope.
#include "Mox/Exception.h"

#include <gtest/gtest.h>

#include <functional>

#include "Mox/Assertion.h"

namespace Mox {
namespace {

template <class E>
void throwIt(char const* text) {
  Exception::IdBitArray ids;
  ids.add(Exception::Id(63)).add(Exception::attrLogRecordId).add(Exception::Id(76));
  throw E(text, ids);
}

TEST(Exceptions, EachKindCarriesItsTextItsIdAndTheIdsGiven) {
  struct Case {
    std::function<void()> raise;
    char const* text;
    unsigned int id;
    bool keepsGivenIds;
  };
  std::vector<Case> const cases = {
      {[] { throwRangeException("null ValidPtr"); }, "null ValidPtr", 12, false},
      {[] { throwInternalException("entity reactor is already active"); },
       "entity reactor is already active", Exception::internalId, false},
      {[] { throwInternalException(String8("peer ") + "x"); }, "peer x", Exception::internalId,
       false},
      {[] { throwNameInUseException(" not allowed"); }, " not allowed", 16, false},
      {[] { throwIt<RangeException>("r"); }, "r", 12, true},
      {[] { throwIt<InternalException>("i"); }, "i", Exception::internalId, true},
      {[] { throwIt<NameInUseException>("n"); }, "n", 16, true},
      {[] { throwIt<AttrLogEntityException>("Entity is the wrong type"); },
       "Entity is the wrong type", 42, true},
      {[] { throwIt<AttrLogRecordException>(""); }, "", 48, true},
      {[] { throwIt<EntityIdUnavailableException>("u"); }, "u", Exception::entityIdUnavailableId,
       true},
      {[] { throwIt<TypeException>("t"); }, "t", Exception::typeId, true},
      {[] { throwIt<ConstException>("attempting to modify a const instance"); },
       "attempting to modify a const instance", Exception::constId, true},
      {[] { throwIt<UnknownArgException>("a"); }, "a", Exception::unknownArgId, true},
      {[] { throwIt<UnknownAttrException>("b"); }, "b", Exception::unknownAttrId, true},
      {[] { throwIt<BadIndexAttrException>("c"); }, "c", Exception::badIndexAttrId, true},
      {[] { throwIt<OpNotSupportedException>("d"); }, "d", Exception::opNotSupportedId, true}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    try {
      c.raise();
      FAIL();
    } catch (Exception const& caught) {
      Exception const copy(caught);
      std::exception const& plain = copy;
      EXPECT_STREQ(plain.what(), c.text);
      EXPECT_EQ(copy.message(), c.text);
      EXPECT_TRUE(copy.flag());
      EXPECT_FALSE(copy.isPlanned());
      for (unsigned int id = 0; id < 66; ++id) {
        bool const expected = id == c.id || (c.keepsGivenIds && (id == 63 || id == 48));
        EXPECT_EQ(copy.ids().contains(Exception::Id(id)), expected) << id;
      }
    }
  }
}

TEST(Exceptions, AnExpectScopeMarksExactlyItsKindAsPlanned) {
  auto const plannedNow = [] { return RangeException("x").isPlanned(); };
  EXPECT_FALSE(plannedNow());
  {
    Expect const nameInUse(Exception::nameInUseId);
    EXPECT_FALSE(plannedNow());
    {
      Expect const range(Exception::rangeId);
      EXPECT_TRUE(plannedNow());
      Expect const record(Exception::attrLogRecordId);
      EXPECT_TRUE(plannedNow());
    }
    EXPECT_FALSE(plannedNow());
    EXPECT_TRUE(NameInUseException("x").isPlanned()) << "the outer scope is open again";
    try {
      Expect const any(Exception::anyId);
      EXPECT_TRUE(plannedNow());
      throw 1;
    } catch (int) {
      // Closed by the unwinding, before the reaction.
      EXPECT_FALSE(plannedNow());
    }
  }
}

TEST(Assertions, AFailurePrintsItsPlaceAndAborts) {
  EXPECT_EXIT(assertionFailed("a == b", "InvArad", 10, "void f()"),
              testing::KilledBySignal(SIGABRT),
              "^InvArad:10: void f\\(\\): Assertion 'a == b' failed\\.\n");
}

}  // namespace
}  // namespace Mox
