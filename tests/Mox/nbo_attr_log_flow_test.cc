// The single slots of the attribute log: looks for items that leak or are given out twice, and for
// a slot that is silently filled twice.
#include "Mox/NboAttrLogFlow.h"

#include <gtest/gtest.h>

#include "AllocationGuard.h"

namespace Mox {
namespace {

/// What the slots need of a FlowOut and of a FlowIn.
class Flow {
 public:
  void* bookmark() const { return bookmark_; }
  void bookmarkIs(void* item) { bookmark_ = item; }
  void* valueIter() const { return valueIter_; }
  void valueIterIs(void* item) { valueIter_ = item; }
  void* valueIterKey() const { return valueIterKey_; }
  void valueIterKeyIs(void* item) { valueIterKey_ = item; }
  AttributeId aid() const { return aid_; }
  void aidIs(AttributeId id) { aid_ = id; }
  void* iter() const { return iter_; }
  void iterIs(void* item) { iter_ = item; }
  void* idx() const { return idx_; }
  void idxIs(void* item) { idx_ = item; }

 private:
  void* bookmark_ = nullptr;
  void* valueIter_ = nullptr;
  void* valueIterKey_ = nullptr;
  AttributeId aid_ = 0;
  void* iter_ = nullptr;
  void* idx_ = nullptr;
};
using Position = String8::IteratorConst;
using Joined = String8::Iterator;

TEST(FlowSlots, GiveBackWhatWasPutInOnceAndADefaultThen) {
  long const before = allocationGuard::live;
  {
    Flow flow;
    String8 const text("text");
    EXPECT_EQ(moxFlowOutBookmarkDeq<unsigned int>(flow), 0u);
    moxFlowOutBookmarkEnq(flow, 7u);
    EXPECT_EQ(moxFlowOutBookmarkDeq<unsigned int>(flow), 7u);
    EXPECT_EQ(flow.bookmark(), nullptr);
    moxFlowOutBookmarkEnq(flow, text);
    EXPECT_EQ(moxFlowOutBookmarkDeq<String8>(flow), text);
    EXPECT_EQ(moxFlowOutBookmarkDeq<String8>(flow), "");

    moxFlowOutValueEnq(flow, Position(text, 2));
    EXPECT_EQ(text.data()->references(), 2u);
    EXPECT_TRUE(moxFlowOutValueDeq<Position>(flow) == Position(text, 2));
    EXPECT_TRUE(moxFlowOutValueDeq<Position>(flow) == Position());

    EXPECT_FALSE(moxFlowOutValueKeyMatches<String8>(flow, ""));
    moxFlowOutValueKeyEnq(flow, text);
    EXPECT_TRUE(moxFlowOutValueKeyMatches<String8>(flow, "text"));
    EXPECT_FALSE(moxFlowOutValueKeyMatches<String8>(flow, "other"));
    EXPECT_EQ(moxFlowOutValueKeyDeq<String8>(flow), text);
    EXPECT_EQ(moxFlowOutValueKeyDeq<String8>(flow), "");

    EXPECT_EQ(moxFlowInIterator<Joined>(&flow, 259, true), nullptr);
    moxFlowInIterator<Joined>(&flow, 259, false)->append("ab", 2);
    EXPECT_EQ(flow.aid(), 259);
    EXPECT_EQ(moxFlowInIterator<Joined>(&flow, 300, true)->length(), 2u);
    EXPECT_EQ(flow.aid(), 259);
    moxFlowInIteratorDel<Joined>(&flow, 259);
    moxFlowInIteratorDel<Joined>(&flow, 259);
    EXPECT_EQ(flow.aid(), 0);
    moxFlowInIteratorIs(&flow, 260, Joined(text));
    EXPECT_EQ(moxFlowInIterator<Joined>(&flow, 260, false)->length(), 4u);
    moxFlowInIteratorDel<Joined>(&flow, 260);

    EXPECT_FALSE(moxFlowInIdxMatches<String8>(&flow, ""));
    moxFlowInIdxEnq(&flow, text);
    EXPECT_TRUE(moxFlowInIdxMatches<String8>(&flow, "text"));
    EXPECT_EQ(moxFlowInIdxDeq<String8>(&flow), text);
    EXPECT_EQ(moxFlowInIdxDeq<String8>(&flow), "");
  }
  EXPECT_EQ(allocationGuard::live, before);
}

TEST(FlowSlots, FillingOneTwiceEndsTheProcess) {
  Flow flow;
  moxFlowOutBookmarkEnq(flow, 1u);
  moxFlowOutValueEnq(flow, Position());
  moxFlowOutValueKeyEnq(flow, String8("k"));
  moxFlowInIterator<Joined>(&flow, 1, false);
  moxFlowInIdxEnq(&flow, String8("k"));
  EXPECT_DEATH(moxFlowOutBookmarkEnq(flow, 2u),
               "^Mox/NboAttrLogFlow:23: .*: Assertion '!rsc->bookmark\\(\\)' failed\\.");
  EXPECT_DEATH(moxFlowOutValueEnq(flow, Position()),
               "^Mox/NboAttrLogFlow:51: .*: Assertion '!rsc->valueIter\\(\\)' failed\\.");
  EXPECT_DEATH(moxFlowOutValueKeyEnq(flow, String8("k")),
               "^Mox/NboAttrLogFlow:84: .*: Assertion '!rsc->valueIterKey\\(\\)' failed\\.");
  EXPECT_DEATH(moxFlowInIteratorIs(&flow, 1, Joined()),
               "^Mox/NboAttrLogFlow:128: .*: Assertion '!rrc->iter\\(\\)' failed\\.");
  EXPECT_DEATH(moxFlowInIdxEnq(&flow, String8("k")),
               "^Mox/NboAttrLogFlow:195: .*: Assertion '!rsc->idx\\(\\)' failed\\.");
  moxFlowOutBookmarkDeq<unsigned int>(flow);
  moxFlowOutValueDeq<Position>(flow);
  moxFlowOutValueKeyDeq<String8>(flow);
  moxFlowInIteratorDel<Joined>(&flow, 1);
  moxFlowInIdxDeq<String8>(&flow);
}

}  // namespace
}  // namespace Mox
