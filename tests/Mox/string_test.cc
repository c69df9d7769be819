// Strings, names, and the positions in them.
#include "Mox/String8.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <unordered_set>

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

TEST(Strings, CopiesShareOneBodyAndTheLastOneFreesIt) {
  long const before = allocationGuard::live;
  {
    String8 const a("twenty-four bytes of text");
    EXPECT_EQ(a.data()->references(), 1u);
    String8 b(a);
    Name const n(a);
    EXPECT_EQ(a.data()->references(), 3u);
    EXPECT_EQ(allocationGuard::live, before + 1);
    b = "other";
    EXPECT_EQ(a.data()->references(), 2u);
    b = a;
    b = *&b;
    EXPECT_EQ(b.data(), a.data());
    EXPECT_EQ(a.data()->references(), 3u);
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

TEST(Strings, EndOfTextIsAtTheLengthAndNotBeforeTheStart) {
  String8 const text("abc");
  std::string trace;
  for (int pos = -1; pos <= 4; ++pos) {
    trace += String8::IteratorConst(text, pos).eot() ? 'E' : '.';
  }
  EXPECT_EQ(trace, "....EE");
  EXPECT_TRUE(String8::Iterator().eot());
  EXPECT_EQ(String8::Iterator().pos(), 0);
  String8::IteratorConst it{String8("kept")};
  std::string read;
  for (; !it.eot(); ++it) read += static_cast<char>(*it);
  EXPECT_EQ(read, "kept");
  EXPECT_TRUE(it == String8::IteratorConst(it));
  EXPECT_FALSE(it == String8::IteratorConst(text, 4));
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

TEST(StringHash, EqualStringsHashEqualAndTheSeedDecidesTheRest) {
  stringHashSeedIs(0x0706050403020100, 0x0f0e0d0c0b0a0908);
  std::vector<String8> texts;
  for (std::size_t length = 0; length < 40; ++length) {
    texts.emplace_back(std::string(length, 'q'));
  }
  std::map<std::uint32_t, int> seen;
  for (String8 const& text : texts) {
    EXPECT_EQ(text.hash(), String8(text.view()).hash());
    EXPECT_NE(text.hash(), 0u);
    ++seen[text.hash()];
  }
  EXPECT_EQ(seen.size(), texts.size());
  std::uint32_t const first = String8("payload").hash();
  stringHashSeedIs(1, 2);
  EXPECT_NE(String8("payload").hash(), first);
  EXPECT_EQ(String8().hash(), String8("").hash());
  stringHashSeedIs(0x0706050403020100, 0x0f0e0d0c0b0a0908);
  EXPECT_EQ(String8("payload").hash(), first);
  std::unordered_set<String8> const set{String8("a"), String8("a"), String8("b")};
  EXPECT_EQ(set.size(), 2u);
}

TEST(Strings, AFailedAllocationLeavesEveryStringAsItWas) {
  String8 const long1(std::string(100, 'a'));
  struct Subject {
    String8 text{"before"};
    String8::Iterator it{String8("before")};
  };
  auto const prepare = [] { return Subject(); };
  auto const same = [](Subject& s, bool failed) {
    if (!failed) return;
    EXPECT_EQ(s.text, "before");
    EXPECT_EQ(s.it.length(), 6u);
  };
  using allocationGuard::failEach;
  EXPECT_EQ(failEach(
                prepare, [](Subject& s) { s.text = "after"; }, same),
            1);
  EXPECT_EQ(failEach(
                prepare, [&](Subject& s) { s.text = s.text + long1; }, same),
            1);
  EXPECT_EQ(failEach(
                prepare, [&](Subject& s) { s.text = s.text.substr(1, 2); }, same),
            1);
  EXPECT_EQ(failEach(
                prepare, [&](Subject& s) { s.text.init("zz", 0, 2); }, same),
            1);
  EXPECT_EQ(failEach(
                prepare, [&](Subject& s) { s.it.append("zz", 2); }, same),
            1);
  EXPECT_EQ(failEach(
                prepare, [&](Subject& s) { s.text = format("%s%s", "x", long1.charPtr()); }, same),
            1);
  EXPECT_EQ(failEach(
                prepare,
                [&](Subject& s) {
                  s.text = format("%s%s%s", long1.charPtr(), long1.charPtr(), long1.charPtr());
                },
                same),
            2);
  EXPECT_EQ(
      failEach(
          prepare, [&](Subject& s) { s.text = String8(String8::IteratorConst(long1, 3)); }, same),
      1);
  EXPECT_EQ(failEach(
                prepare, [&](Subject& s) { s.text = long1; }, same),
            0);
}

}  // namespace
}  // namespace Mox
