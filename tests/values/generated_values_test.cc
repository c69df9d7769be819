// The model's own identifiers and enumerations: ranges, widths, nulls and exact texts in one table.
#include <InvArad.h>
#include <gtest/gtest.h>

#include <cctype>
#include <sstream>
#include <string>
#include <vector>

#include "tests/values/thrown.h"

namespace {

using namespace Hardware::Sand;
using Hardware::VesperAccelId;

/// The largest accepted number that is no real id, or none.
template <class Id>
int nullOf() {
  if constexpr (requires { Id::null; }) {
    return static_cast<int>(Id::null);
  } else {
    return -1;
  }
}

/// One identifier class, as numbers and functions.
struct IdClass {
  std::string name;
  std::size_t width;
  unsigned int min;
  unsigned int largest;
  int null;
  std::string message;

  std::size_t actualWidth;
  int actualNull;
  unsigned int defaultValue;
  std::string (*refusal)(unsigned int number);
};

template <class Id>
IdClass idClass(char const* name, std::size_t width, unsigned int min, unsigned int largest,
                int null, char const* message) {
  return {name,
          width,
          min,
          largest,
          null,
          message,
          sizeof(Id),
          nullOf<Id>(),
          Id().value(),
          [](unsigned int number) {
            return thrown([number] {
              EXPECT_EQ(Id(static_cast<typename Id::NumberType>(number)).value(), number);
              EXPECT_EQ(valueToStrep(Id(static_cast<typename Id::NumberType>(number))),
                        std::to_string(number).c_str());
            });
          }};
}

TEST(GeneratedValues, EveryIdentifierHasItsRangeWidthNullAndMessage) {
  auto const message = [](std::string const& name) {
    return name + "::value < " + name + "::min or > " + name + "::null not allowed";
  };
  IdClass const classes[] = {
      idClass<SerdesId>("SerdesId", 4, 0, 304, 304, ""),
      idClass<SerdesCurrent>("SerdesCurrent", 1, 0, 33, 33, ""),
      idClass<SerdesQuartetId>("SerdesQuartetId", 4, 0, 18, 18, ""),
      idClass<QsgmiiId>("QsgmiiId", 2, 0, 96, 96, ""),
      idClass<XlgeId>("XlgeId", 2, 0, 18, 18, ""),
      idClass<Xlge2Id>("Xlge2Id", 2, 0, 36, 36, ""),
      idClass<AradNifSerdesId>("AradNifSerdesId", 2, 0, 72, 72, ""),
      idClass<AradStatsSerdesId>("AradStatsSerdesId", 2, 28, 32, 32, ""),
      idClass<VesperAccelId>("VesperAccelId", 1, 0, 0x7f, -1,
                             "VesperAccelId::value > 0x7f not allowed"),
  };
  for (auto const& id : classes) {
    SCOPED_TRACE(id.name);
    std::string const expected = id.message.empty() ? message(id.name) : id.message;
    EXPECT_EQ(id.actualWidth, id.width);
    EXPECT_EQ(id.actualNull, id.null);
    EXPECT_EQ(id.defaultValue, id.null < 0 ? 0u : static_cast<unsigned int>(id.null));
    EXPECT_EQ(id.refusal(id.min), "");
    EXPECT_EQ(id.refusal(id.largest), "");
    EXPECT_EQ(id.refusal(id.largest + 1), expected);
    EXPECT_EQ(id.refusal(id.width == 1 ? 0xff : 0xffff), expected);
    if (id.min > 0) {
      EXPECT_EQ(id.refusal(id.min - 1), expected);
      EXPECT_EQ(id.refusal(0), expected);
    }
  }
}

TEST(GeneratedValues, EqualNumbersOfDifferentClassesHashTheSame) {
  EXPECT_EQ(Mox::KeyHash<XlgeId>::hash(XlgeId(7)), 7u);
  EXPECT_EQ(Mox::KeyHash<SerdesQuartetId>::hash(SerdesQuartetId(7)), 7u);
  EXPECT_EQ(Mox::KeyHash<VesperAccelId>::hash(VesperAccelId(7)), 7u);
}

/// `names` are the enumerators from 0 on; every other number is unknown.
template <class E>
void expectEnumeration(std::string const& type, std::vector<std::string> const& names,
                       E (*byNumber)(unsigned int), E (*byName)(Mox::String8)) {
  SCOPED_TRACE(type);
  auto const size = static_cast<unsigned int>(names.size());
  for (unsigned int const number : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 0x7fffffffu, 0xffffffffu}) {
    bool const isKnown = number < size;
    auto const value = static_cast<E>(number);
    std::string const name =
        isKnown ? names[number] : type + "(" + std::to_string(static_cast<int>(number)) + ")";
    std::ostringstream out;
    out << value;
    EXPECT_EQ(out.str(), name);
    EXPECT_EQ(stringValue(value), name.c_str());
    EXPECT_EQ(valueToStrep(value), ("'" + name + "'").c_str());
    std::string const refusal = isKnown ? "" : type;
    EXPECT_EQ(thrown([&] { EXPECT_EQ(byNumber(number), value); }), refusal);
    EXPECT_EQ(thrown([&] { EXPECT_EQ(byName(name.c_str()), value); }), refusal);
    EXPECT_EQ(thrown([&] { EXPECT_EQ(Mox::strepToValue<E>(valueToStrep(value)), value); }),
              refusal);
  }
  std::string upper = names.back();
  for (char& c : upper) c = static_cast<char>(std::toupper(c));
  EXPECT_EQ(thrown([&] { byName(upper.c_str()); }), type);
}

TEST(GeneratedValues, EnumeratorsHaveTheirNumbersAndTexts) {
  using namespace Inventory::Arad;
  expectEnumeration<SerdesCoreType>("SerdesCoreType",
                                    {"unknownCore", "warpCore", "falconCore", "eagleCore"},
                                    &SerdesCoreTypeInstance, &SerdesCoreTypeInstance);
  expectEnumeration<AradManagedPhy>(
      "AradManagedPhy",
      {"unknown", "noPhy", "externallyManagedPhy", "bcm84328", "bcm84848", "bcm84858"},
      &AradManagedPhyInstance, &AradManagedPhyInstance);
  static_assert(sizeof(SerdesCoreType) == 4 && sizeof(AradManagedPhy) == 4);
}

}  // namespace
