// Value text: looks for values that don't survive the way to text and back, reading that stops at
// the wrong place or moves after a refusal, and paths that lead to another entity.
#include "values/ValueText.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>

#include "InvSiblings/DramConfig.h"
#include "InvSiblings/SlotId.h"
#include "InvSiblings/Units.h"
#include "Mox/Hooks.h"
#include "tests/values/thrown.h"
#include "values/EntityPath.h"

namespace {

using Mox::Name;
using Mox::Ptr;
using Mox::strepToValue;
using Mox::String8;
using Mox::valueToStrep;

std::string text(String8 const& value) { return {value.charPtr(), value.length()}; }

/// The value that `strep` reads as, shown again; or the refusal.
template <class T>
std::string reread(std::string const& strep) {
  std::string result;
  std::string const refusal = thrown(
      [&] { result = text(valueToStrep(strepToValue<T>(String8(strep.data(), strep.size())))); });
  return refusal.empty() ? result : refusal;
}

TEST(ValueText, EveryTypeReadsItsForms) {
  using namespace std::string_literals;
  struct Case {
    std::function<std::string(std::string const&)> reread;
    std::string strep;
    std::string expected;
  };
  using Strep = String8;
  Case const cases[] = {
      {reread<bool>, "true", "true"},
      {reread<bool>, "false", "false"},
      {reread<bool>, "1", "true"},
      {reread<bool>, "0", "false"},
      {reread<bool>, "2", "cannot convert 2 to bool"},
      {reread<bool>, "True", "cannot convert True to bool"},
      {reread<bool>, "", "cannot convert  to bool"},
      {reread<bool>, "1 ", "junk at column 1 deserializing 1 "},
      {reread<bool>, "10", "cannot convert 10 to bool"},

      {reread<unsigned char>, "255", "255"},
      {reread<unsigned char>, "256", "cannot convert 256 to unsigned char"},
      {reread<unsigned short>, "65535", "65535"},
      {reread<unsigned short>, "65536", "cannot convert 65536 to unsigned short"},
      {reread<unsigned int>, "4294967295", "4294967295"},
      {reread<unsigned int>, "0xffffffff", "4294967295"},
      {reread<unsigned int>, "0Xa", "10"},
      {reread<unsigned int>, "4294967296", "cannot convert 4294967296 to unsigned int"},
      {reread<unsigned int>, "-1", "cannot convert -1 to unsigned int"},
      {reread<unsigned int>, "007", "7"},
      {reread<unsigned int>, "7,8", "junk at column 1 deserializing 7,8"},
      {reread<unsigned int>, "0x", "junk at column 1 deserializing 0x"},
      {reread<unsigned int>, "0xg", "junk at column 1 deserializing 0xg"},
      {reread<unsigned int>, " 7", "cannot convert  7 to unsigned int"},
      {reread<unsigned int>, "+7", "cannot convert +7 to unsigned int"},
      {reread<unsigned long long>, "18446744073709551615", "18446744073709551615"},
      {reread<unsigned long long>, "18446744073709551616",
       "cannot convert 18446744073709551616 to unsigned long long"},
      {reread<int>, "-2147483648", "-2147483648"},
      {reread<int>, "2147483647", "2147483647"},
      {reread<int>, "-0x10", "-16"},
      {reread<int>, "2147483648", "cannot convert 2147483648 to int"},
      {reread<int>, "-2147483649", "cannot convert -2147483649 to int"},
      {reread<int>, "-", "cannot convert - to int"},

      {reread<double>, "12.5", "12.5"},
      {reread<double>, "100", "100"},
      {reread<double>, "-1e3", "-1000"},
      {reread<double>, "inf", "inf"},
      {reread<double>, "1e999", "cannot convert 1e999 to double"},
      {reread<double>, "1.5.2", "junk at column 3 deserializing 1.5.2"},
      {reread<double>, "x", "cannot convert x to double"},
      {reread<Units::Megahertz>, "156.25", "156.25"},
      {reread<Fru::SlotId>, "7", "7"},

      {reread<Strep>, "abc", "'abc'"},
      {reread<Strep>, "a_b.c-d:e/F9", "'a_b.c-d:e/F9'"},
      {reread<Strep>, "''", "''"},
      {reread<Strep>, "'a b'", "'a b'"},
      {reread<Strep>, R"('\'\\\"')", R"('\'\\"')"},
      {reread<Strep>, R"('\n\r\t\x00\x7f\xFf')", "'\\n\\r\\t\\x00\\x7f\xff'"},
      {reread<Strep>, "'a\0b'"s, R"('a\x00b')"},
      {reread<Strep>, "", "cannot convert  to Mox::String8"},
      {reread<Strep>, " a", "cannot convert  a to Mox::String8"},
      {reread<Strep>, "'a", "cannot convert 'a to Mox::String8"},
      {reread<Strep>, R"('a\')", R"(cannot convert 'a\' to Mox::String8)"},
      {reread<Strep>, R"('\q')", R"(cannot convert '\q' to Mox::String8)"},
      {reread<Strep>, R"('\x4')", R"(cannot convert '\x4' to Mox::String8)"},
      {reread<Strep>, R"('\x)", R"(cannot convert '\x to Mox::String8)"},
      {reread<Strep>, "abc ", "junk at column 3 deserializing abc "},
      {reread<Strep>, "'a b' ", "junk at column 5 deserializing 'a b' "},
      {reread<Strep>, "\xc3\xa9", "cannot convert \xc3\xa9 to Mox::String8"},
      {reread<Name>, "Ethernet3/1", "'Ethernet3/1'"},
      {reread<Name>, "name ", "junk at column 4 deserializing name "},
      {reread<Name>, "", "cannot convert  to Mox::Name"},

      {reread<Hardware::Sand::DramConfig>, "none", "none"},
      {reread<Hardware::Sand::DramConfig>, "5", "5"},
      {reread<Hardware::Sand::DramConfig>, "'4:0:4'", "0:4"},
      {reread<Hardware::Sand::DramConfig>, "0:6", "DramInterfaceId::value > 5 not allowed"},
      {reread<Hardware::Sand::DramConfig>,
       "0:", "cannot convert  to Hardware::Sand::DramInterfaceId"},
      {reread<Hardware::Sand::DramConfig>, "0-1",
       "cannot convert 0-1 to Hardware::Sand::DramConfig"},
      {reread<Hardware::Sand::DramConfig>, "0:1,2", "junk at column 3 deserializing 0:1,2"},
  };
  for (auto const& [read, strep, expected] : cases) EXPECT_EQ(read(strep), expected) << strep;
}

TEST(ValueText, AnyStringAndNumberSurvivesTheRoundTrip) {
  auto const seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937_64 random(seed);
  for (int round = 0; round < 20000; ++round) {
    std::string bytes;
    for (auto length = random() % 12; length > 0; --length) {
      bytes += static_cast<char>(random() % 3 ? random() % 256 : "'\\x0\n"[random() % 5]);
    }
    String8 const string(bytes.data(), bytes.size());
    ASSERT_EQ(strepToValue<String8>(valueToStrep(string)), string) << text(valueToStrep(string));
    // Whatever the bytes, reading ends in a value or a range exception, behind no more than there
    // is.
    thrown([&] { strepToValue<String8>(string); });
    thrown([&] { strepToValue<String8>("'" + string); });

    auto const number = random() >> random() % 64;
    ASSERT_EQ(strepToValue<unsigned long long>(valueToStrep(number)), number);
    ASSERT_EQ(strepToValue<int>(valueToStrep(static_cast<int>(number))), static_cast<int>(number));
    auto const real = std::bit_cast<double>(random());
    if (!std::isnan(real)) {
      ASSERT_EQ(strepToValue<double>(valueToStrep(real)), real);
    }
  }
}

TEST(ValueText, ReadingMovesBehindTheValueAndARefusalMovesNothing) {
  String8 const line("12,'a b',x/y;300");
  String8::IteratorConst pos(line, 0);
  String8::IteratorConst const end(line, static_cast<int>(line.length()));
  auto const read = [&]<class T>(T*) {
    return sequenceToValue(pos, end, static_cast<T*>(nullptr));
  };
  EXPECT_EQ(read(static_cast<int*>(nullptr)), 12);
  EXPECT_EQ(pos.pos(), 2);
  EXPECT_NE(thrown([&] { read(static_cast<String8*>(nullptr)); }), "");
  EXPECT_EQ(pos.pos(), 2);
  pos.posIs(3);
  EXPECT_EQ(read(static_cast<String8*>(nullptr)), "a b");
  EXPECT_EQ(pos.pos(), 8);
  pos.posIs(9);
  EXPECT_EQ(read(static_cast<Name*>(nullptr)), "x/y");
  EXPECT_EQ(pos.pos(), 12);
  pos.posIs(13);
  EXPECT_NE(thrown([&] { read(static_cast<unsigned char*>(nullptr)); }), "");
  EXPECT_EQ(pos.pos(), 13);
  // A value ends where the caller says, even inside a word.
  String8::IteratorConst const early(line, 15);
  EXPECT_EQ(sequenceToValue(pos, early, static_cast<int*>(nullptr)), 30);
  EXPECT_EQ(pos.pos(), 15);
  String8 const escape("'\\x41'");
  for (int stop = 0; stop < 6; ++stop) {
    pos = String8::IteratorConst(escape, 0);
    String8::IteratorConst const cut(escape, stop);
    EXPECT_NE(thrown([&] { sequenceToValue(pos, cut, static_cast<String8*>(nullptr)); }), "")
        << stop;
  }
  pos = String8::IteratorConst(line, 0);
  // Positions outside of the text have nothing to read.
  for (int const outside : {-1, 16, 17, std::numeric_limits<int>::max()}) {
    pos.posIs(outside);
    EXPECT_EQ(thrown([&] { read(static_cast<int*>(nullptr)); }), "cannot convert  to int");
  }
}

TEST(DramConfig, BytesHoldOneBitAnInterface) {
  using Hardware::Sand::DramConfig;
  for (unsigned int bits = 0; bits < 256; ++bits) {
    std::string const refusal = bits < 64 ? "" : "DramConfig::bits > 0x3f not allowed";
    EXPECT_EQ(thrown([&] {
                auto const config = DramConfig::fromBits(static_cast<unsigned char>(bits));
                EXPECT_EQ(config.bits(), bits);
                EXPECT_EQ(strepToValue<DramConfig>(valueToStrep(config)), config);
                EXPECT_EQ(config == DramConfig(), bits == 0);
              }),
              refusal);
  }
  DramConfig config;
  config.usedIs(2, true);
  EXPECT_EQ(config.bits(), 4);
}

// A small tree: every entity is known to its parent by attribute and key.
class Node : public Mox::Entity {
 public:
  Node(Name const& name, char const* attribute, char const* key)
      : Entity(name), attribute_(attribute), key_(key) {}
  Ptr<Node> add(char const* attribute, char const* key) {
    Ptr<Node> child(new Node("", attribute, key));
    child->parentAttrIdIs(258);
    child->parentIs(Ptr<Mox::Entity>(this));
    children_.push_back(child);
    return child;
  }
  /// The step from a parent to a node, and back.
  static String8 pathStep(Mox::Entity const& child) {
    Node const& node = static_cast<Node const&>(child);
    return node.key_.empty() ? node.attribute_ : node.attribute_ + "[" + node.key_ + "]";
  }
  static Ptr<Mox::Entity> step(Mox::Entity& parent, String8 const& attribute, String8 const* key) {
    for (auto const& child : dynamic_cast<Node&>(parent).children_) {
      if (child->attribute_ == attribute && (key != nullptr) == !child->key_.empty() &&
          (!key || *key == child->key_)) {
        return child;
      }
    }
    return {};
  }

 private:
  String8 attribute_;
  String8 key_;
  std::vector<Ptr<Node>> children_;
};

class Leaf : public Mox::Entity {
 public:
  Leaf() : Entity("leaf") {}
};

TEST(EntityPath, ReferencesAreReadByPath) {
  Ptr<Node> const root(new Node("slice", "", ""));
  Ptr<Node> const fap = root->add("fap", "fap0");
  Ptr<Node> const odd = root->add("fap", "a]/b[c]");
  Ptr<Node> const plain = root->add("fap", "p]/q");
  Ptr<Node> const decoy = root->add("fap", "a");
  Ptr<Node> const lane = fap->add("serdes", "5");
  Ptr<Node> const single = odd->add("pciDevice", "");
  Ptr<Leaf> const leaf(new Leaf);
  struct Case {
    char const* strep;
    Node* expected;
  };
  Case const cases[] = {
      {"slice", root.get()},
      {"'slice'", root.get()},
      {"'slice/fap[fap0]'", fap.get()},
      {"'slice/fap[fap0]/serdes[5]'", lane.get()},
      {"'slice/fap[a]/b[c]]'", odd.get()},
      {"'slice/fap[a]/b[c]]/pciDevice'", single.get()},
      {"'slice/fap[a]'", decoy.get()},
      {"'slice/fap[p]/q]'", plain.get()},
      {"''", nullptr},
      {"slic", nullptr},
      {"slices", nullptr},
      {"slice/", nullptr},
      {"'slice[fap0]'", nullptr},
      {"'slice/fap'", nullptr},
      {"'slice/fap[]'", nullptr},
      {"'slice/fap[fap0'", nullptr},
      {"'slice/fap[fap0]serdes[5]'", nullptr},
      {"'slice/fap[fap0]/serdes[6]'", nullptr},
      {"'slice/fap[fap0]/serdes[5]/x'", nullptr},
      {"'/slice'", nullptr},
  };
  for (auto const& [strep, expected] : cases) {
    EXPECT_EQ(strepToValue<Ptr<Node>>(strep).get(), nullptr) << strep;
  }
  {
    Mox::EntityRoot const known(root);
    Mox::EntityRoot const other(leaf);
    EXPECT_EQ(Mox::EntityPath::roots(), (std::vector<Ptr<Mox::Entity>>{root, leaf}));
    EXPECT_EQ(strepToValue<Ptr<Node>>("'slice/fap[fap0]'").get(), nullptr);
    Mox::EntityPath::childStepIs(&Node::step);
    for (auto const& [strep, expected] : cases) {
      EXPECT_EQ(strepToValue<Ptr<Node>>(strep).get(), expected) << strep;
    }
    EXPECT_EQ(strepToValue<Ptr<Leaf>>("leaf"), leaf);
    EXPECT_EQ(strepToValue<Ptr<Leaf const>>("leaf"), leaf);
    EXPECT_NE(thrown([] { strepToValue<Ptr<Leaf>>("'slice'"); }).find("cannot convert 'slice' to "),
              std::string::npos);
    EXPECT_EQ(thrown([] { strepToValue<Ptr<Node>>("'slice' x"); }),
              "junk at column 7 deserializing 'slice' x");
    EXPECT_EQ(text(valueToStrep(Ptr<Node>())), "''");
    EXPECT_EQ(text(valueToStrep(root)), "'slice'");
    auto* const hook = Mox::hooks.pathStep;
    Mox::hooks.pathStep = &Node::pathStep;
    EXPECT_EQ(strepToValue<Ptr<Node>>(valueToStrep(lane)), lane);
    Mox::hooks.pathStep = hook;
  }
  EXPECT_EQ(strepToValue<Ptr<Node>>("slice").get(), nullptr);
  Mox::EntityPath::childStepIs(nullptr);
}

}  // namespace
