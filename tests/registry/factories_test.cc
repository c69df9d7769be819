// The factories of the types. For arguments read in another order or untested, and for children
// that are bound to the wrong attribute's adapter.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../attrlog/Mirror.h"
#include "InvArad.h"
#include "attrlog/link/Demuxer.h"

namespace {

using namespace Inventory::Arad;
using Mox::MoxType;
using Mox::Name;
using Mox::Ptr;
using Mox::NboAttrLog::Demuxer;
using Mox::NboAttrLog::test::Mirror;
using Bytes = std::vector<unsigned char>;

class Factory : public testing::Test {
 protected:
  /// What the type makes of the bytes.
  template <class T>
  Ptr<T> make(Bytes const& bytes) {
    demuxer_->in()->positionIs(bytes.data());
    demuxer_->in()->endMarkIs(bytes.data() + bytes.size());
    Ptr<Mox::Entity> const entity = T::_fwkType()->newEntity(
        demuxer_->in(), Mox::PtrInterface::NotifieeConst::Mox_BitSet(), 1, nullptr);
    EXPECT_EQ(demuxer_->in()->bytesAvailable(), 0u);
    EXPECT_EQ(entity->references(), 1u);
    return Mox::ptrCast<T>(entity);
  }
  template <class T>
  std::string refusal(Bytes const& bytes) {
    try {
      make<T>(bytes);
    } catch (Mox::RangeException const& refused) {
      return refused.what();
    }
    return "none";
  }

  Ptr<Demuxer> demuxer_{new Demuxer(Mox::NboAttrLog::LinkOptions())};
};

TEST_F(Factory, ReadsTheConstructorArgumentsInTheirOrder) {
  auto const lane = make<NifSerdes>({0, 5, 1, 0, 3, 4, 1, 2});
  EXPECT_EQ(lane->id().value(), 5);
  EXPECT_TRUE(lane->swapPolarityTx() && !lane->swapPolarityRx());
  EXPECT_EQ(lane->preDriverCurrent().value(), 3);
  EXPECT_EQ(lane->driverCurrent().value(), 4);
  EXPECT_EQ(lane->preEmphasis(), 0x102);
  EXPECT_EQ(lane->txSerdesId(), lane->id()) << "what follows from the arguments";
  auto const properties = make<SocProperties>({0, 0, 0, 1, 'p', 0, 0, 0, 9});
  EXPECT_EQ(properties->name(), "p");
  EXPECT_EQ(properties->unitId(), 9u);
  EXPECT_FALSE(make<EthPort>({0, 3, 0, 0, 0, 0, 0, 0, 0, 0})->ethPort()) << "a null reference";
}

TEST_F(Factory, TestsEachArgumentBeforeAnythingIsMade) {
  EXPECT_EQ(refusal<StatsSerdes>({0, 27, 1}), Hardware::Sand::AradStatsSerdesId::rangeMessage);
  EXPECT_EQ(refusal<Qsgmii>({0, 97}), Hardware::Sand::QsgmiiId::rangeMessage);
  EXPECT_EQ(refusal<NifSerdes>({0, 5, 1, 0, 34, 4, 1, 2}),
            Hardware::Sand::SerdesCurrent::rangeMessage);
  EXPECT_THROW(make<StatsSerdes>({0}), Mox::NboAttrLog::StreamException)
      << "a stream that ends too early";
}

TEST_F(Factory, MakesRootsAloneByName) {
  EXPECT_EQ(AradSlice::_fwkType()->newEntity(Name("s"), nullptr)->name(), "s");
  EXPECT_FALSE(Arad::_fwkType()->newEntity(Name("s"), nullptr));
  EXPECT_FALSE(Inventory::Sand::FapBase::_fwkType()->newEntity(
      demuxer_->in(), Mox::PtrInterface::NotifieeConst::Mox_BitSet(), 1, nullptr));
}

TEST(ChildAttrLog, BindsAChildThatNobodyWasToldOf) {
  Ptr<AradSlice> const slice(new AradSlice("slice"));
  Ptr<Arad> const chip = slice->fapIs("fap0", 0);
  Mirror mirror(slice);
  mirror.connect();
  mirror.settle();
  auto const copy = Mox::ptrCast<AradSlice>(mirror.copy())->fap("fap0");
  struct Case {
    MoxType* type;
    char const* attribute;
    Ptr<Mox::Entity> child;
  };
  // By the type's own attribute, by one of the type that it inherits, and a singleton.
  Case const cases[] = {
      {Arad::_fwkType(), "qsgmii", chip->newQsgmii(5)},
      {Inventory::Sand::FapBase::_fwkType(), "tempSensor", chip->newTempSensor(4)},
      {Arad::_fwkType(), "pciDevice", chip->newPciDevice("p")}};
  mirror.settle();
  for (auto const& [type, attribute, child] : cases) {
    ASSERT_FALSE(child->moxNboAttrLogSa(Ptr<Mox::NboAttrLog::Out const>(mirror.out().out())));
    auto const attr = Mox::Ptr<Mox::MoxAttr const>(type->attributes().attr(attribute));
    Arad::_fwkType()->childAttrLogIs(attr, child, mirror.out().out());
    EXPECT_TRUE(child->moxNboAttrLogSa(Ptr<Mox::NboAttrLog::Out const>(mirror.out().out())));
  }
  mirror.settle();
  EXPECT_TRUE(copy->qsgmii(5));
  EXPECT_TRUE(copy->tempSensor(4));
  EXPECT_TRUE(copy->pciDevice());
}

}  // namespace
