// Every allocation of every conversion fails once: nothing leaks, and no position has moved.
#include <InvArad.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "InvSiblings/DramConfig.h"
#include "InvSiblings/Units.h"
#include "tests/Mox/AllocationGuard.h"
#include "tests/values/thrown.h"
#include "values/EntityPath.h"
#include "values/ValueText.h"

namespace {

using Mox::Ptr;
using Mox::String8;
using Mox::valueToStrep;

constexpr char longText[] = "'a text that is too long for a small buffer \\x41 and that ends here'";

class Root : public Mox::Entity {
 public:
  Root() : Entity("root") {}
};

struct Case {
  char const* name;
  std::function<void()> run;
  int fewest;
};

/// Counts on one case at a time: the operation alone allocates between the preparation and the
/// check.
void expectCleanFailures(std::vector<Case> const& cases) {
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    c.run();  // what is made once in a process
    int const failed =
        allocationGuard::failEach([] { return 0; }, [&c](int) { c.run(); }, [](int, bool) {});
    EXPECT_GE(failed, c.fewest);
  }
}

TEST(Allocation, NoShownValueLeaksWhenItFails) {
  using namespace Inventory::Arad;
  String8 const text(std::string(300, '\''));
  Ptr<Mox::Entity> const entity(new Root);
  expectCleanFailures({
      {"bool", [] { valueToStrep(true); }, 1},
      {"number", [] { valueToStrep(12ull); }, 1},
      {"double", [] { valueToStrep(0.1); }, 1},
      {"text", [&] { valueToStrep(text); }, 2},
      {"name", [&] { valueToStrep(Mox::Name(text)); }, 2},
      {"reference", [&] { valueToStrep(entity); }, 1},
      {"identifier", [] { valueToStrep(Hardware::Sand::XlgeId(3)); }, 1},
      {"enumerator", [] { valueToStrep(warpCore); }, 2},
      {"unknown enumerator", [] { stringValue(static_cast<SerdesCoreType>(4)); }, 1},
      {"interfaces", [] { valueToStrep(Hardware::Sand::DramConfig::fromBits(0x3f)); }, 6},
      {"frequency", [] { valueToStrep(Units::Megahertz(1.5)); }, 1},
  });
}

TEST(Allocation, NoRefusalLeaksWhenItFails) {
  using namespace Inventory::Arad;
  auto const refused = [](auto call) { return [call] { EXPECT_NE(thrown(call), ""); }; };
  expectCleanFailures({
      {"out of range", refused([] { Hardware::Sand::XlgeId(19); }), 1},
      {"no enumerator", refused([] { SerdesCoreTypeInstance(4); }), 1},
      {"no enumerator's name", refused([] { SerdesCoreTypeInstance("x"); }), 2},
      {"junk", refused([] { Mox::strepToValue<String8>("x "); }), 3},
      {"not a number", refused([] { Mox::strepToValue<int>("x"); }), 2},
      {"no string", refused([] { Mox::strepToValue<String8>("'x"); }), 2},
      {"null", refused([] { Mox::ValidPtr<Mox::Entity>(Ptr<Mox::Entity>()); }), 1},
  });
}

/// Reads a `T` from the middle of a text.
template <class T>
int failuresOfReading(std::string const& strep) {
  std::string const padded = "__" + strep;
  String8 const text(padded.c_str(), padded.size());
  String8::IteratorConst const start(text, 2);
  String8::IteratorConst const end(text, static_cast<int>(text.length()));
  return allocationGuard::failEach(
      [&] { return String8::IteratorConst(start); },
      [&](String8::IteratorConst& pos) { sequenceToValue(pos, end, static_cast<T*>(nullptr)); },
      [&](String8::IteratorConst& pos, bool failed) {
        EXPECT_EQ(pos.pos(), failed ? 2 : end.pos()) << strep;
      });
}

TEST(Allocation, APositionMovesOnlyIfTheValueWasRead) {
  Ptr<Mox::Entity> const entity(new Root);
  Mox::EntityRoot const root(entity);
  EXPECT_EQ(failuresOfReading<int>("-12"), 0);
  EXPECT_EQ(failuresOfReading<double>("1.25"), 0);
  EXPECT_EQ(failuresOfReading<bool>("true"), 0);
  EXPECT_EQ(failuresOfReading<Hardware::Sand::QsgmiiId>("96"), 0);
  EXPECT_EQ(failuresOfReading<String8>("word"), 1);
  EXPECT_EQ(failuresOfReading<String8>("'quoted'"), 1);
  EXPECT_GE(failuresOfReading<String8>(longText), 2);
  EXPECT_GE(failuresOfReading<Mox::Name>(longText), 2);
  EXPECT_EQ(failuresOfReading<Inventory::Arad::SerdesCoreType>("'warpCore'"), 1);
  EXPECT_GE(failuresOfReading<Hardware::Sand::DramConfig>("'0:1:4'"), 1);
  EXPECT_GE(failuresOfReading<Ptr<Mox::Entity>>("'root'"), 1);
  EXPECT_GE(failuresOfReading<Ptr<Mox::Entity>>("'root/child[3]'"), 1);
}

}  // namespace
