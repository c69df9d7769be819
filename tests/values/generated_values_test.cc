// The model's own identifiers and enumerations: looks for wrong ranges, widths and texts, and for
// numbers that are narrowed before they are tested.
#include <InvArad.h>
#include <gtest/gtest.h>

#include <cctype>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "attrlog/wire/WireValue.h"
#include "tests/values/thrown.h"

namespace {

/// No enumeration of the model has a gap.
enum Sparse : std::int32_t { near = 0, far = 7 };

}  // namespace

template <>
struct Mox::EnumTraits<Sparse> {
  static constexpr char typeName[] = "Sparse";
  static constexpr EnumEntry<Sparse> entries[] = {{near, "near"}, {far, "far"}};
};

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
  std::string (*refusal)(unsigned long long number);
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
          [](unsigned long long number) {
            using Number = typename Id::NumberType;
            static_assert(sizeof(Id) == sizeof(Number) && std::is_trivially_copyable_v<Id>);
            std::string const text = std::to_string(number);
            std::string const refused =
                thrown([&] { EXPECT_EQ(Mox::strepToValue<Id>(text.c_str()).value(), number); });
            EXPECT_EQ(thrown([&] {
                        Id const id = number;
                        EXPECT_EQ(id.value(), number);
                        EXPECT_EQ(valueToStrep(id), text.c_str());
                      }),
                      refused);
            EXPECT_EQ(thrown([&] { Id(static_cast<signed char>(-1)); }) != "", true);
            EXPECT_NE(Id::_fwkType(), nullptr);
            return refused;
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
      idClass<Hardware::SensorId>("SensorId", 1, 0, 0xff, -1, "SensorId::value > 0xff not allowed"),
  };
  for (auto const& id : classes) {
    SCOPED_TRACE(id.name);
    std::string const expected = id.message.empty() ? message(id.name) : id.message;
    EXPECT_EQ(id.actualWidth, id.width);
    EXPECT_EQ(id.actualNull, id.null);
    EXPECT_EQ(id.defaultValue, id.null < 0 ? 0u : static_cast<unsigned int>(id.null));
    EXPECT_EQ(id.refusal(id.min), "");
    EXPECT_EQ(id.refusal(id.largest), "");
    for (unsigned long long const beyond :
         {id.largest + 1ull, 0xffffull, 0x10000ull + id.min, 0x100000000ull + id.min,
          std::numeric_limits<unsigned long long>::max()}) {
      EXPECT_EQ(id.refusal(beyond), expected) << beyond;
    }
    if (id.min > 0) {
      EXPECT_EQ(id.refusal(id.min - 1), expected);
      EXPECT_EQ(id.refusal(0), expected);
    }
  }
  EXPECT_EQ(thrown([] { Mox::strepToValue<XlgeId>("99999999999999999999999"); }),
            message("XlgeId"));
  static_assert(!std::is_convertible_v<XlgeId, SerdesId>);
  static_assert(!std::is_convertible_v<double, XlgeId>);
}

/// What a value's `operator<<` puts on the stream, in hex, and read back the same.
template <class T>
std::string wireOf(T const& value) {
  Mox::Ptr<Mox::NboAttrLog::Out> const out(new Mox::NboAttrLog::Out({}, nullptr, nullptr, 4096));
  constexpr unsigned char behind = 0xa5;
  out << value << behind;
  Mox::Ptr<Mox::NboAttrLog::In> const in(new Mox::NboAttrLog::In({}));
  in->payloadIs(out->committed(), 64);
  EXPECT_EQ(Mox::NboAttrLog::WireValue<T>::read(**in), value);
  auto const width = in->position() - out->committed();
  EXPECT_EQ(out->committed()[width], behind);
  std::string hex;
  for (auto at = out->committed(); at != in->position(); ++at)
    hex += Mox::format("%02x", *at).view();
  return hex;
}

/// The refusal of a number that a peer sent.
template <class Id>
std::string wireRefusal(std::initializer_list<unsigned char> bytes) {
  Mox::Ptr<Mox::NboAttrLog::In> const in(new Mox::NboAttrLog::In({}));
  in->payloadIs(bytes.begin(), bytes.size());
  return thrown([&] { Mox::NboAttrLog::WireValue<Id>::read(**in); });
}

TEST(GeneratedValues, TheWireFormIsTheNumberAtItsWidth) {
  EXPECT_EQ(wireOf(SerdesId(304)), "00000130");
  EXPECT_EQ(wireOf(SerdesCurrent(33)), "21");
  EXPECT_EQ(wireOf(AradStatsSerdesId(28)), "001c");
  EXPECT_EQ(wireOf(VesperAccelId(0x7f)), "7f");
  EXPECT_EQ(wireOf(Fru::SlotId(0xfffefdfc)), "fffefdfc");
  EXPECT_EQ(wireOf(Units::Megahertz(156.25)), "4063880000000000");
  EXPECT_EQ(wireOf(DramConfig::fromBits(0x29)), "29");
  EXPECT_EQ(wireOf(Inventory::Arad::falconCore), "00000002");
  EXPECT_EQ(wireRefusal<AradStatsSerdesId>({0, 27}),
            "AradStatsSerdesId::value < AradStatsSerdesId::min or > AradStatsSerdesId::null not "
            "allowed");
  EXPECT_EQ(wireRefusal<SerdesQuartetId>({0, 0, 0, 19}),
            "SerdesQuartetId::value < SerdesQuartetId::min or > SerdesQuartetId::null not allowed");
  EXPECT_EQ(wireRefusal<VesperAccelId>({0x80}), "VesperAccelId::value > 0x7f not allowed");
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
  static_assert(Mox::enumInstance<Sparse>(7) == far);
  for (unsigned int const number : {1u, 6u, 8u}) {
    EXPECT_EQ(thrown([number] { Mox::enumInstance<Sparse>(number); }), "Sparse") << number;
  }
}

}  // namespace
