// Strings, names, and the positions in them. Looks for bodies that are shared or freed wrongly, for
// comparisons that stop at a zero byte, and for an order of keys that differs between processes.
#include "Mox/String8.h"

#include <gtest/gtest.h>

#include <bit>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "AllocationGuard.h"
#include "Mox/Name.h"

namespace Mox {
namespace {

std::string bytesOf(String8 const& text) { return std::string(text.charPtr(), text.length()); }

TEST(Strings, EveryEmptyStringIsTheOneSharedBody) {
  long const before = allocationGuard::live;
  String8 const empties[] = {String8(),
                             String8(""),
                             String8(nullptr),
                             String8("x", std::size_t{0}),
                             String8(nullptr, std::size_t{0}),
                             String8("ab").substr(2),
                             String8("ab").substr(0, 0),
                             String8() + "",
                             String8() + nullptr};
  for (String8 const& empty : empties) {
    EXPECT_EQ(empty.data(), &String8::nullStringData_);
    EXPECT_EQ(empty.length(), 0u);
    EXPECT_STREQ(empty.charPtr(), "");
  }
  EXPECT_EQ(allocationGuard::live, before);
}

TEST(Strings, ComparisonGoesByLengthAndBytes) {
  std::string const zero("a\0b", 3);
  struct Case {
    String8 a, b;
    bool equal, less;
  };
  Case const cases[] = {{"", "", true, false},
                        {"", "a", false, true},
                        {"a", "ab", false, true},
                        {"b", "ab", false, false},
                        {"\x7f", "\x80", false, true},
                        {String8(zero), "a", false, false},
                        {String8(zero), String8(zero), true, false},
                        {String8(zero), String8("a\0c", 3), false, true}};
  for (Case const& c : cases) {
    EXPECT_EQ(c.a == c.b, c.equal);
    EXPECT_EQ(c.a != c.b, !c.equal);
    EXPECT_EQ(c.a < c.b, c.less);
    EXPECT_EQ(c.b < c.a, !c.less && !c.equal);
    if (c.equal) {
      EXPECT_EQ(c.a.hash(), c.b.hash());
    }
    EXPECT_EQ(c.a == c.b, c.equal) << "with the hashes known";
  }
  EXPECT_TRUE(String8() == static_cast<char const*>(nullptr));
  EXPECT_FALSE(String8("a") == static_cast<char const*>(nullptr));
  EXPECT_TRUE("abc" == String8("abc"));
  EXPECT_TRUE(Name("abc") == String8("abc"));
  EXPECT_FALSE(String8(zero) == "a");
}

TEST(Strings, TextsComeOutAsTheyShould) {
  struct Case {
    String8 text;
    std::string expected;
  };
  String8 const abcdef("abcdef");
  Case const cases[] = {{abcdef + "gh", "abcdefgh"},
                        {"gh" + abcdef, "ghabcdef"},
                        {abcdef + String8("\0x", 2), std::string("abcdef\0x", 8)},
                        {abcdef + static_cast<char const*>(nullptr), "abcdef"},
                        {static_cast<char const*>(nullptr) + abcdef, "abcdef"},
                        {abcdef.substr(2, 3), "cde"},
                        {abcdef.substr(4, 100), "ef"},
                        {abcdef.substr(-2, 3), "a"},
                        {abcdef.substr(-9, 3), ""},
                        {abcdef.substr(99, 3), ""},
                        {abcdef.substr(1), "bcdef"},
                        {abcdef.substr(std::numeric_limits<long long>::max(), 3), ""},
                        {abcdef.substr(std::numeric_limits<long long>::min()), ""},
                        {format("%d %s %lld|%5u", -3, abcdef.charPtr(), 1ll << 40, 7u),
                         "-3 abcdef 1099511627776|    7"},
                        {format("%s", std::string(1000, 'x').c_str()), std::string(1000, 'x')},
                        {format("%s", std::string(255, 'y').c_str()), std::string(255, 'y')},
                        {format("%s", std::string(256, 'z').c_str()), std::string(256, 'z')},
                        {String8(String8::IteratorConst(abcdef, 2)), "cdef"},
                        {String8(String8::IteratorConst(abcdef, 6)), ""},
                        {String8(String8::IteratorConst(abcdef, 7)), ""},
                        {String8(String8::IteratorConst(abcdef)), "abcdef"},
                        {String8(String8::IteratorConst()), ""},
                        {String8(String8::IteratorConst(String8(), 1)), ""}};
  for (Case const& c : cases) {
    EXPECT_EQ(bytesOf(c.text), c.expected);
    EXPECT_EQ(c.text.charPtr()[c.text.length()], '\0');
    std::ostringstream out;
    out << c.text;
    EXPECT_EQ(out.str(), c.expected);
  }
  String8 handle;
  handle.init("xxabc", 2, 3);
  EXPECT_EQ(handle, "abc");
  handle.init(nullptr, 0, 0);
  EXPECT_EQ(handle.data(), &String8::nullStringData_);
  EXPECT_THROW(String8("x", 0x80000000), std::length_error);
}

TEST(StringIterator, PiecesJoinWithoutTouchingAnyString) {
  std::mt19937 random(20250401);
  for (int round = 0; round < 200; ++round) {
    std::string expected(round % 3 ? "start" : "");
    String8 const origin(expected);
    String8::Iterator it(origin);
    std::vector<std::pair<String8, std::string>> taken;
    for (unsigned int piece = 0; piece < 20; ++piece) {
      std::string const bytes(random() % 40, static_cast<char>(random()));
      it.append(bytes.data(), bytes.size());
      expected += bytes;
      ASSERT_EQ(it.length(), expected.size());
      ASSERT_EQ(std::string(it.bytes(), it.length()), expected);
      ASSERT_EQ(it.bytes()[it.length()], '\0');
      if (random() % 4 == 0) taken.emplace_back(String8(it), expected);
      if (random() % 8 == 0) {
        // A copy goes its own way from here.
        String8::Iterator other(it);
        other.append("other", 5);
        taken.emplace_back(String8(other), expected + "other");
        ASSERT_EQ(std::string(it.bytes(), it.length()), expected);
      }
    }
    for (auto const& [text, bytes] : taken) {
      ASSERT_EQ(bytesOf(text), bytes);
      ASSERT_EQ(text.hash(), String8(bytes).hash());
    }
    ASSERT_EQ(bytesOf(origin), round % 3 ? "start" : "");
  }
}

TEST(StringIterator, AppendingIsAmortised) {
  String8::Iterator it;
  String8::Iterator const before(it);
  void const* body = nullptr;
  int moves = 0;
  for (int count = 0; count < 1 << 20; ++count) {
    it.append("x", 1);
    if (it.bytes() != body) ++moves;
    body = it.bytes();
  }
  EXPECT_LT(moves, 25);
  it.append(it.bytes(), it.length());
  EXPECT_EQ(it.length(), 2u << 20);
  long const live = allocationGuard::live;
  String8 const text(it);
  EXPECT_EQ(text.charPtr(), it.bytes()) << "the whole text is taken without a copy";
  EXPECT_EQ(allocationGuard::live, live);
}

TEST(Strings, HashAlikeInEveryProcessOfABuild) {
  // The number that the default key gives, computed elsewhere; little-endian words.
  if (std::endian::native == std::endian::little) {
    EXPECT_EQ(String8("payload").hash(), 0x5dd3a262u);
  }
  std::set<std::uint32_t> seen;
  for (std::size_t length = 0; length < 40; ++length) {
    String8 const text(std::string(length, 'q'));
    EXPECT_EQ(text.hash(), String8(text.view()).hash());
    seen.insert(text.hash());
  }
  EXPECT_EQ(seen.size(), 40u);
  EXPECT_FALSE(seen.contains(0));
}

TEST(Strings, AFailedAllocationLeavesEveryStringAsItWas) {
  String8 const long1(std::string(100, 'a'));
  struct Subject {
    String8 text{"before"};
    String8::Iterator it{String8("before")};
  };
  struct Case {
    std::function<void(Subject&)> run;
    int allocations;
  };
  std::vector<Case> const cases = {
      {[](Subject& s) { s.text = "after"; }, 1},
      {[&](Subject& s) { s.text = s.text + long1; }, 1},
      {[](Subject& s) { s.text = s.text.substr(1, 2); }, 1},
      {[](Subject& s) { s.text.init("zz", 0, 2); }, 1},
      {[](Subject& s) { s.it.append("zz", 2); }, 1},
      {[&](Subject& s) { s.text = format("%s%s%s", "x", long1.charPtr(), "y"); }, 1},
      {[&](Subject& s) { s.text = String8(String8::IteratorConst(long1, 3)); }, 1},
      {[&](Subject& s) { s.text = long1; }, 0}};
  for (Case const& c : cases) {
    EXPECT_EQ(allocationGuard::failEach([] { return Subject(); }, c.run,
                                        [](Subject& s, bool failed) {
                                          if (!failed) return;
                                          EXPECT_EQ(s.text, "before");
                                          EXPECT_EQ(s.it.length(), 6u);
                                        }),
              c.allocations);
  }
}

}  // namespace
}  // namespace Mox
