// Enumerations over their table, on a hand-made one that reads as the generated ones do.
#include "values/EnumSupport.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>

#include "tests/values/thrown.h"

namespace Sample {

enum CoreType : std::int32_t { unknownCore = 0, warpCore = 1, falconCore = 2, eagleCore = 7 };

}  // namespace Sample

template <>
struct Mox::EnumTraits<Sample::CoreType> {
  static constexpr char typeName[] = "CoreType";
  static constexpr EnumEntry<Sample::CoreType> entries[] = {{Sample::unknownCore, "unknownCore"},
                                                            {Sample::warpCore, "warpCore"},
                                                            {Sample::falconCore, "falconCore"},
                                                            {Sample::eagleCore, "eagleCore"}};
};

namespace Sample {

inline Mox::String8 stringValue(CoreType value) { return Mox::enumStringValue(value); }
inline CoreType CoreTypeInstance(unsigned int number) {
  return Mox::enumInstance<CoreType>(number);
}
inline CoreType CoreTypeInstance(Mox::String8 name) { return Mox::enumInstance<CoreType>(name); }
inline Mox::String8 valueToStrep(CoreType const& value) { return Mox::enumToStrep(value); }
inline CoreType sequenceToValue(Mox::String8::IteratorConst& pos,
                                Mox::String8::IteratorConst const& end, CoreType*) {
  return Mox::enumFromSequence<CoreType>(pos, end);
}
inline std::ostream& operator<<(std::ostream& out, CoreType const& value) {
  return Mox::enumToStream(out, value);
}

}  // namespace Sample

namespace {

using Sample::CoreType;

std::string streamed(CoreType value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

TEST(EnumSupport, NumbersInAreStrictAndTextsOutAreLenient) {
  struct Case {
    unsigned int number;
    char const* name;
    bool isKnown;
  };
  Case const cases[] = {
      {0, "unknownCore", true},
      {1, "warpCore", true},
      {2, "falconCore", true},
      {3, "CoreType(3)", false},
      {6, "CoreType(6)", false},
      {7, "eagleCore", true},
      {8, "CoreType(8)", false},
      {0x7fffffff, "CoreType(2147483647)", false},
      {0xffffffff, "CoreType(-1)", false},
      {0x80000000, "CoreType(-2147483648)", false},
  };
  for (auto const& entry : cases) {
    // Plain names: a structured binding can't be captured.
    unsigned int const number = entry.number;
    char const* const name = entry.name;
    auto const value = static_cast<CoreType>(static_cast<std::int32_t>(number));
    EXPECT_EQ(stringValue(value), name);
    EXPECT_EQ(streamed(value), name);
    EXPECT_EQ(valueToStrep(value), ("'" + std::string(name) + "'").c_str());
    std::string const refusal = entry.isKnown ? "" : "CoreType";
    EXPECT_EQ(thrown([&] { EXPECT_EQ(Sample::CoreTypeInstance(number), value); }), refusal)
        << number;
    EXPECT_EQ(thrown([&] { EXPECT_EQ(Sample::CoreTypeInstance(Mox::String8(name)), value); }),
              refusal);
    EXPECT_EQ(thrown([&] { EXPECT_EQ(Mox::strepToValue<CoreType>(valueToStrep(value)), value); }),
              refusal);
  }
  static_assert(Mox::enumInstance<CoreType>(7) == Sample::eagleCore);
}

TEST(EnumSupport, NamesMatchWholeAndByCase) {
  using namespace std::string_literals;
  for (auto const& name : {""s, "warp"s, "warpCor"s, "warpCoree"s, "WARPCORE"s, "warpcore"s,
                           "warpCore\0"s, "'warpCore'"s, "1"s}) {
    EXPECT_EQ(thrown([&] { Sample::CoreTypeInstance(Mox::String8(name.data(), name.size())); }),
              "CoreType")
        << name;
  }
  EXPECT_EQ(Mox::strepToValue<CoreType>("warpCore"), Sample::warpCore);
  EXPECT_EQ(thrown([] { Mox::strepToValue<CoreType>("'warpCore' "); }),
            "junk at column 10 deserializing 'warpCore' ");
  EXPECT_EQ(thrown([] { Mox::strepToValue<CoreType>("warpCore+"); }),
            "junk at column 8 deserializing warpCore+");
  EXPECT_EQ(thrown([] { Mox::strepToValue<CoreType>("'warpCore"); }),
            "cannot convert 'warpCore to Mox::String8");
}

}  // namespace
