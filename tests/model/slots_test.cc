// The order of virtual operations, which is part of the interface: of entities, of subscribers, and
// of their first handlers. Finds an operation that was moved, added or left out.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "InvArad.h"

namespace {

using namespace Inventory::Arad;
using Mox::AttributeId;
using Mox::Entity;

/// The place of a virtual operation in its table, as a pointer to a member holds it.
template <class Operation>
int slot(Operation operation) {
  std::uintptr_t word = 0;
  static_assert(sizeof operation >= sizeof word);
  std::memcpy(&word, &operation, sizeof word);
  return static_cast<int>(word / sizeof(void*));
}

/// Operations that stand one behind the other, the first at `next`.
void expectInOrder(int next, std::vector<int> const& slots) {
  for (int const& at : slots) EXPECT_EQ(at, next++) << "operation " << &at - slots.data();
}

#define MODEL_OF(Class, x, Result, ...) slot(static_cast<Result(Class::*) __VA_ARGS__>(&Class::x))

TEST(Slots, OfAnEntity) {
  using E = Entity;
  using Mox::Ptr;
  using Out = Ptr<Mox::NboAttrLog::Out const> const&;
  expectInOrder(0, {slot(&E::hasNotificationActiveIs), slot(&E::moxAuditErrors),
                    slot(&E::auditErrors), slot(&E::zeroReferencesIs), slot(&E::fwkType)});
  // Two destructors between.
  expectInOrder(
      7, {slot(&E::name), MODEL_OF(E, parent, Ptr<E const>, () const),
          MODEL_OF(E, parent, Ptr<E>, ()), slot(&E::parentIs), slot(&E::parentAttr),
          slot(&E::parentAttrId), slot(&E::parentAttrIdIs), slot(&E::uriPath), slot(&E::fullName),
          slot(&E::attributeString), slot(&E::moxNotifieeAdapterIs), slot(&E::handleParent),
          MODEL_OF(E, moxNboAttrLogSa, Ptr<E::MoxNboAttrLogSa const>, (Out) const),
          slot(&E::moxHasAttrLogInterface),
          MODEL_OF(E, moxNboAttrLogSa, Ptr<E::MoxNboAttrLogSa>, (Out)),
          slot(&E::moxNboAttrLogSaForMsgChannel), slot(&E::moxNboAttrLogSaIs),
          slot(&E::moxNboAttrLogSaDel)});
}

TEST(Slots, OfWhatAChipInherits) {
  // The setters of the bases stand behind the log's operations; the chip itself adds none.
  using A = Inventory::Arad::Arad;
  int const first = slot(&A::descriptionIs);
  EXPECT_GT(first, slot(&Entity::moxNboAttrLogSaDel));
  expectInOrder(first,
                {slot(&A::descriptionIs), slot(&A::modelNameIs), slot(&A::vendorTypeIs),
                 slot(&A::hardwareRevIs), slot(&A::firmwareRevIs), slot(&A::serialNumIs),
                 slot(&A::mfgNameIs), slot(&A::mfgDateIs), slot(&A::apiIs), slot(&A::requirementIs),
                 slot(&A::uNumIs), slot(&A::fapTypeIs), slot(&A::numCoresIs),
                 slot(&A::coreClockFreqKhzIs), slot(&A::fabricModeIs), slot(&A::nifRefClockIs),
                 slot(&A::fabricRefClockIs), slot(&A::comboRefClockIs), slot(&A::serdesQuartetIs)});
  EXPECT_LT(slot(&A::serdesQuartetIs), slot(&A::fabricSerdesIs));
  EXPECT_LT(slot(&A::fabricSerdesIs), slot(&A::tempSensorIs));
  EXPECT_LT(slot(&A::tempSensorIs), slot(&A::dramConfigIs));
}

TEST(Slots, OfASubscriber) {
  using N = Entity::NotifieeConst;
  using Mox::Activity;
  expectInOrder(0, {slot(&N::hasNotificationActiveIs), slot(&N::moxAuditErrors),
                    slot(&N::auditErrors), slot(&N::zeroReferencesIs), slot(&N::fwkType)});
  expectInOrder(7, {slot(&N::moxReactor),
                    slot(&N::moxRawReactor),
                    slot(&N::isStreamAdapter),
                    slot(&N::isRegisteredNotifieeIs),
                    slot(&N::mox_bitSetIs),
                    slot(&N::name),
                    slot(&N::notifierIs),
                    slot(&N::handleNotification),
                    slot(&N::handleDefault),
                    slot(&N::onAttribute),
                    slot(&N::onNotification),
                    slot(&N::onCollectionNotification),
                    MODEL_OF(N, onNotificationException, void, ()),
                    MODEL_OF(N, onNotificationException, void, (AttributeId)),
                    MODEL_OF(N, handleNotificationException, void, (AttributeId)),
                    MODEL_OF(N, handleNotificationException, void, ()),
                    slot(&N::onZeroReferences),
                    slot(&N::activityPtr),
                    MODEL_OF(N, moxFwkActivity, Activity*, ()),
                    MODEL_OF(N, moxFwkActivity, Activity const*, () const),
                    slot(&N::actsm),
                    slot(&N::onParent),
                    slot(&N::onVersion)});
}

// Which handlers follow, and in which order, is checked where the headers are made.
TEST(Slots, OfTheFirstHandlers) {
  EXPECT_EQ(slot(&Entity::NotifieeConst::onVersion), 29);
  EXPECT_EQ(slot(&Qsgmii::NotifieeConst::onDescription), 30);
  EXPECT_EQ(slot(&Inventory::Arad::Arad::NotifieeConst::onDescription), 30);
  using N = AradSlice::NotifieeConst;
  expectInOrder(
      30, {slot(&N::onNumPorts), MODEL_OF(N, onFap, void, (Mox::Name)), slot(&N::onFapmoxImmediate),
           MODEL_OF(N, onFap, void, ()), slot(&N::onUseMdio)});
}

}  // namespace
