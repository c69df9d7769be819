// The order of virtual operations, which is part of the interface: of entities, of subscribers, and
// of the handlers of every type.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "InvArad.h"

namespace {

using namespace Inventory::Arad;
using Mox::AttributeId;
using Mox::Entity;
using Mox::Name;
using Mox::PtrInterface;
using Mox::String8;

/// The place of a virtual operation in its table, as a pointer to a member holds it.
template <class Operation>
int slot(Operation operation) {
  std::uintptr_t word = 0;
  static_assert(sizeof operation >= sizeof word);
  std::memcpy(&word, &operation, sizeof word);
  return static_cast<int>(word / sizeof(void*));
}

struct Operation {
  char const* name;
  int slot;
};

/// They stand one behind the other, the first one at `first`.
void expectInOrder(int first, std::vector<Operation> const& operations) {
  for (Operation const& operation : operations)
    EXPECT_EQ(operation.slot, first++) << operation.name;
}

#define MODEL_SLOT(Class, x) \
  { #x, slot(&Class::x) }
#define MODEL_SLOT_OF(Class, x, Result, ...) \
  { #x #__VA_ARGS__, slot(static_cast <Result(Class::*) __VA_ARGS__>(&Class::x)) }
/// The handler of a scalar, reference or singleton, and the three of a collection.
#define MODEL_ON(X) MODEL_SLOT(N, on##X)
#define MODEL_ON_KEY(X, Key)                                                \
  MODEL_SLOT_OF(N, on##X, void, (Key)), MODEL_SLOT(N, on##X##moxImmediate), \
      MODEL_SLOT_OF(N, on##X, void, ())

TEST(Slots, OfAnEntity) {
  using namespace Mox;
  using Out = Ptr<NboAttrLog::Out const> const&;
  expectInOrder(0, {MODEL_SLOT(Entity, hasNotificationActiveIs), MODEL_SLOT(Entity, moxAuditErrors),
                    MODEL_SLOT(Entity, auditErrors), MODEL_SLOT(Entity, zeroReferencesIs),
                    MODEL_SLOT(Entity, fwkType)});
  // Two destructors between.
  expectInOrder(
      7, {MODEL_SLOT(Entity, name), MODEL_SLOT_OF(Entity, parent, Ptr<Entity const>, () const),
          MODEL_SLOT_OF(Entity, parent, Ptr<Entity>, ()), MODEL_SLOT(Entity, parentIs),
          MODEL_SLOT(Entity, parentAttr), MODEL_SLOT(Entity, parentAttrId),
          MODEL_SLOT(Entity, parentAttrIdIs), MODEL_SLOT(Entity, uriPath),
          MODEL_SLOT(Entity, fullName), MODEL_SLOT(Entity, attributeString),
          MODEL_SLOT(Entity, moxNotifieeAdapterIs), MODEL_SLOT(Entity, handleParent),
          MODEL_SLOT_OF(Entity, moxNboAttrLogSa, Ptr<Entity::MoxNboAttrLogSa const>, (Out) const),
          MODEL_SLOT(Entity, moxHasAttrLogInterface),
          MODEL_SLOT_OF(Entity, moxNboAttrLogSa, Ptr<Entity::MoxNboAttrLogSa>, (Out)),
          MODEL_SLOT(Entity, moxNboAttrLogSaForMsgChannel), MODEL_SLOT(Entity, moxNboAttrLogSaIs),
          MODEL_SLOT(Entity, moxNboAttrLogSaDel)});
}

TEST(Slots, OfWhatAChipInherits) {
  // The setters of the bases stand behind the log's operations; the chip itself adds none.
  int const first = slot(&Arad::descriptionIs);
  EXPECT_GT(first, slot(&Entity::moxNboAttrLogSaDel));
  expectInOrder(first, {MODEL_SLOT(Arad, descriptionIs), MODEL_SLOT(Arad, modelNameIs),
                        MODEL_SLOT(Arad, vendorTypeIs), MODEL_SLOT(Arad, hardwareRevIs),
                        MODEL_SLOT(Arad, firmwareRevIs), MODEL_SLOT(Arad, serialNumIs),
                        MODEL_SLOT(Arad, mfgNameIs), MODEL_SLOT(Arad, mfgDateIs),
                        MODEL_SLOT(Arad, apiIs), MODEL_SLOT(Arad, requirementIs),
                        MODEL_SLOT(Arad, uNumIs), MODEL_SLOT(Arad, fapTypeIs),
                        MODEL_SLOT(Arad, numCoresIs), MODEL_SLOT(Arad, coreClockFreqKhzIs),
                        MODEL_SLOT(Arad, fabricModeIs), MODEL_SLOT(Arad, nifRefClockIs),
                        MODEL_SLOT(Arad, fabricRefClockIs), MODEL_SLOT(Arad, comboRefClockIs)});
  EXPECT_LT(slot(&Arad::comboRefClockIs), slot(&Arad::serdesQuartetIs));
  EXPECT_LT(slot(&Arad::serdesQuartetIs), slot(&Arad::fabricSerdesIs));
  EXPECT_LT(slot(&Arad::fabricSerdesIs), slot(&Arad::tempSensorIs));
  EXPECT_LT(slot(&Arad::tempSensorIs), slot(&Arad::dramConfigIs));
}

TEST(Slots, OfASubscriber) {
  using Mox::Activity;
  using N = Entity::NotifieeConst;
  expectInOrder(
      0, {MODEL_SLOT(N, hasNotificationActiveIs), MODEL_SLOT(N, moxAuditErrors),
          MODEL_SLOT(N, auditErrors), MODEL_SLOT(N, zeroReferencesIs), MODEL_SLOT(N, fwkType)});
  expectInOrder(7, {MODEL_SLOT(N, moxReactor),
                    MODEL_SLOT(N, moxRawReactor),
                    MODEL_SLOT(N, isStreamAdapter),
                    MODEL_SLOT(N, isRegisteredNotifieeIs),
                    MODEL_SLOT(N, mox_bitSetIs),
                    MODEL_SLOT(N, name),
                    MODEL_SLOT(N, notifierIs),
                    MODEL_SLOT(N, handleNotification),
                    MODEL_SLOT(N, handleDefault),
                    MODEL_SLOT(N, onAttribute),
                    MODEL_SLOT(N, onNotification),
                    MODEL_SLOT(N, onCollectionNotification),
                    MODEL_SLOT_OF(N, onNotificationException, void, ()),
                    MODEL_SLOT_OF(N, onNotificationException, void, (AttributeId)),
                    MODEL_SLOT_OF(N, handleNotificationException, void, (AttributeId)),
                    MODEL_SLOT_OF(N, handleNotificationException, void, ()),
                    MODEL_SLOT(N, onZeroReferences),
                    MODEL_SLOT(N, activityPtr),
                    MODEL_SLOT_OF(N, moxFwkActivity, Activity*, ()),
                    MODEL_SLOT_OF(N, moxFwkActivity, Activity const*, () const),
                    MODEL_SLOT(N, actsm),
                    MODEL_SLOT(N, onParent),
                    MODEL_SLOT(N, onVersion)});
  EXPECT_EQ(slot(&N::onVersion), 29);
}

TEST(Slots, OfTheHandlersOfEveryType) {
  constexpr int first = 30;
  using Lane = Hardware::Sand::AradNifSerdesId;
  {
    using N = Qsgmii::NotifieeConst;
    expectInOrder(first, {MODEL_ON(Description), MODEL_ON(Serdes)});
  }
  {
    using N = Xlge::NotifieeConst;
    expectInOrder(first, {MODEL_ON(Description), MODEL_ON_KEY(Serdes, Lane), MODEL_ON(PhyLaneSwap),
                          MODEL_ON(LaneWithLowMDIOAddrInQuad)});
  }
  {
    using N = Xlge2::NotifieeConst;
    expectInOrder(first,
                  {MODEL_ON(Description), MODEL_ON(SerdesSpeed), MODEL_ON_KEY(Serdes, Lane)});
  }
  {
    using N = Cge::NotifieeConst;
    expectInOrder(first, {MODEL_ON(Description), MODEL_ON_KEY(SerdesAllocated, Lane),
                          MODEL_ON_KEY(SerdesUsed, Lane)});
  }
  {
    using N = NifSerdes::NotifieeConst;
    expectInOrder(first,
                  {MODEL_ON(TxSerdesId), MODEL_ON(RxSerdesId),
                   MODEL_ON_KEY(JerichoNifSerdesTuning, Hardware::Sand::JerichoNifSerdesTuningMode),
                   MODEL_ON(TxPhaseInterpolation)});
  }
  {
    using N = SocProperties::NotifieeConst;
    expectInOrder(first, {MODEL_ON_KEY(Property, String8)});
  }
  {
    using N = EthPort::NotifieeConst;
    expectInOrder(
        first,
        {MODEL_ON(XcvrSlot), MODEL_ON(QsgmiiId), MODEL_ON(GeId), MODEL_ON(XgeId), MODEL_ON(XlgeId),
         MODEL_ON(Xlge2Id), MODEL_ON(CgeId), MODEL_ON(ManagedPhy), MODEL_ON(LedManagedByPhy),
         MODEL_ON(NumQPairs), MODEL_ON(Bringup10GigButXgeNotSupported), MODEL_ON(SerdesCoreType),
         MODEL_ON(Lane), MODEL_ON(TxAlwaysEnabledAt10g), MODEL_ON(FecManagedByFap),
         MODEL_ON(Xge25gSupported), MODEL_ON(TxConnection), MODEL_ON(RxConnection)});
  }
  {
    using N = AradSlice::NotifieeConst;
    expectInOrder(first, {MODEL_ON(NumPorts), MODEL_ON_KEY(Fap, Name), MODEL_ON(UseMdio),
                          MODEL_ON(ManagedPhy), MODEL_ON(Accelerate100gVoq), MODEL_ON(CellIsAlone),
                          MODEL_ON(MacsecIsSupported)});
  }
  {
    using namespace Hardware::Sand;
    using N = Arad::NotifieeConst;
    expectInOrder(first, {MODEL_ON(Description),
                          MODEL_ON(ModelName),
                          MODEL_ON(VendorType),
                          MODEL_ON(HardwareRev),
                          MODEL_ON(FirmwareRev),
                          MODEL_ON(SerialNum),
                          MODEL_ON(MfgName),
                          MODEL_ON(MfgDate),
                          MODEL_ON(Api),
                          MODEL_ON(Requirement),
                          MODEL_ON(UNum),
                          MODEL_ON(FapType),
                          MODEL_ON(NumCores),
                          MODEL_ON(CoreClockFreqKhz),
                          MODEL_ON(FabricMode),
                          MODEL_ON(NifRefClock),
                          MODEL_ON(FabricRefClock),
                          MODEL_ON(ComboRefClock),
                          MODEL_ON_KEY(SerdesQuartet, SerdesQuartetId),
                          MODEL_ON_KEY(FabricSerdes, SerdesId),
                          MODEL_ON_KEY(TempSensor, Hardware::SensorId),
                          MODEL_ON(DramConfig),
                          MODEL_ON(FapRevMajor),
                          MODEL_ON(PciDevice),
                          MODEL_ON_KEY(Serdes, Lane),
                          MODEL_ON_KEY(NifSerdesQuartet, SerdesQuartetId),
                          MODEL_ON_KEY(Qsgmii, QsgmiiId),
                          MODEL_ON_KEY(Xlge, XlgeId),
                          MODEL_ON_KEY(Xlge2, Xlge2Id),
                          MODEL_ON_KEY(Cge, XlgeId),
                          MODEL_ON_KEY(Port, unsigned short),
                          MODEL_ON_KEY(DdrTuneSetting, String8),
                          MODEL_ON(ElkAllUnitsSocProperties),
                          MODEL_ON_KEY(ElkPerUnitsSocProperties, unsigned int),
                          MODEL_ON(ElkGlobalSocProperties),
                          MODEL_ON_KEY(SerdesClockSocPropertyValue, String8),
                          MODEL_ON_KEY(StatsSerdes, AradStatsSerdesId),
                          MODEL_ON(TolminMbId),
                          MODEL_ON(TolminMbUnit),
                          MODEL_ON(SlotId),
                          MODEL_ON(HwResetUsingPlx),
                          MODEL_ON(HwResetUsingKyr),
                          MODEL_ON(InterruptController),
                          MODEL_ON_KEY(MdioAccelBlock, Hardware::VesperAccelId),
                          MODEL_ON(PllClock),
                          MODEL_ON_KEY(ElkConnection, unsigned int),
                          MODEL_ON(ExtTcamType),
                          MODEL_ON(LunetPeerName),
                          MODEL_ON(LunetPeerAddr),
                          MODEL_ON(IlknCoreToPipeSwap)});
  }
}

}  // namespace
