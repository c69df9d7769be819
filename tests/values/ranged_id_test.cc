// Identifiers, on hand-made classes that read as the generated ones do: ranges, nulls, texts.
#include "values/RangedId.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include "tests/values/thrown.h"
#include "values/ValueText.h"

namespace Sample {

class XlgeId : public Mox::RangedId<XlgeId, unsigned short, 0, 18> {
 public:
  static constexpr char rangeMessage[] =
      "XlgeId::value < XlgeId::min or > XlgeId::null not allowed";
  using RangedId::RangedId;
};

class SerdesId : public Mox::RangedId<SerdesId, unsigned int, 0, 304> {
 public:
  static constexpr char rangeMessage[] =
      "SerdesId::value < SerdesId::min or > SerdesId::null not allowed";
  using RangedId::RangedId;
};

class StatsId : public Mox::RangedId<StatsId, unsigned short, 28, 32> {
 public:
  static constexpr char rangeMessage[] =
      "StatsId::value < StatsId::min or > StatsId::null not allowed";
  using RangedId::RangedId;
};

class AccelId : public Mox::LimitedId<AccelId, unsigned char, 0x7f> {
 public:
  static constexpr char rangeMessage[] = "AccelId::value > 0x7f not allowed";
  using LimitedId::LimitedId;
};

class AnyId : public Mox::LimitedId<AnyId, unsigned char, 0xff> {
 public:
  static constexpr char rangeMessage[] = "AnyId::value > 0xff not allowed";
  using LimitedId::LimitedId;
};

}  // namespace Sample

namespace {

template <class Id>
concept HasNull = requires {
  Id::null;
};

template <class Id>
class RangedId : public testing::Test {};
using Ids = testing::Types<Sample::XlgeId, Sample::SerdesId, Sample::StatsId, Sample::AccelId,
                           Sample::AnyId>;
TYPED_TEST_SUITE(RangedId, Ids);

TYPED_TEST(RangedId, AcceptsExactlyItsRangeAtEachEntrance) {
  using Number = typename TypeParam::NumberType;
  unsigned long long const candidates[] = {0,
                                           1,
                                           17,
                                           18,
                                           19,
                                           27,
                                           28,
                                           31,
                                           32,
                                           33,
                                           0x7f,
                                           0x80,
                                           0xff,
                                           0x100,
                                           303,
                                           304,
                                           305,
                                           0xffff,
                                           0x10000,
                                           0x10012,
                                           0xffffffff,
                                           0x100000000,
                                           std::numeric_limits<unsigned long long>::max()};
  for (auto const number : candidates) {
    bool const isInRange = TypeParam::least <= number && number <= TypeParam::largest;
    std::string const refusal = isInRange ? "" : TypeParam::rangeMessage;
    EXPECT_EQ(thrown([&] {
                EXPECT_EQ(Mox::strepToValue<TypeParam>(std::to_string(number).c_str()).value(),
                          number);
              }),
              refusal)
        << number;
    if (number > std::numeric_limits<Number>::max()) continue;
    EXPECT_EQ(thrown([&] { EXPECT_EQ(TypeParam(static_cast<Number>(number)).value(), number); }),
              refusal)
        << number;
  }
  EXPECT_EQ(thrown([] { Mox::strepToValue<TypeParam>("99999999999999999999999"); }),
            TypeParam::rangeMessage);
}

TYPED_TEST(RangedId, IsAPlainValueOfItsWidth) {
  using Number = typename TypeParam::NumberType;
  static_assert(sizeof(TypeParam) == sizeof(Number));
  static_assert(std::is_trivially_copyable_v<TypeParam>);
  static_assert(std::is_standard_layout_v<TypeParam>);
  constexpr TypeParam low(TypeParam::least);
  constexpr TypeParam high(TypeParam::largest);
  static_assert(low < high && !(high < low) && !(low < low) && low != high && low == low);
  EXPECT_EQ(valueToStrep(high), Mox::valueToStrep(0ull + high.value()));
  EXPECT_EQ(Mox::strepToValue<TypeParam>(valueToStrep(high)), high);
  if constexpr (HasNull<TypeParam>) {
    static_assert(TypeParam() == TypeParam(TypeParam::null));
  } else {
    static_assert(TypeParam().value() == 0);
  }
}

TEST(RangedIds, OnlyIdentifiersWithANullNameOne) {
  static_assert(HasNull<Sample::XlgeId> && HasNull<Sample::StatsId>);
  static_assert(!HasNull<Sample::AccelId> && !HasNull<Sample::AnyId>);
  static_assert(Sample::StatsId::min == 28 && Sample::StatsId::null == 32);
  static_assert(!std::is_convertible_v<Sample::XlgeId, Sample::SerdesId>);
}

}  // namespace
