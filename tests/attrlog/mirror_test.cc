// A tree and its copy. Faults here let half a text be seen, keep a change of a read-only copy or
// report it twice, or send acknowledgements at another time than the peer counts on.
#include "tests/attrlog/Mirror.h"

#include <gtest/gtest.h>

namespace Mox::NboAttrLog::test {
namespace {

using Hardware::Sand::AradNifSerdesId;
using Hardware::Sand::SerdesCurrent;
using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;

Ptr<AradSlice> smallSlice() {
  Ptr<AradSlice> slice(new AradSlice("slice"));
  slice->numPortsIs(3);
  Ptr<Arad> arad = slice->fapIs("fap0", 7);
  arad->descriptionIs("a chip");
  arad->pciDeviceIs("0000:01:00.0");
  for (unsigned short lane = 0; lane < 20; ++lane) {
    Ptr<Inventory::Arad::NifSerdes> serdes =
        arad->serdesIs(lane, lane & 1, lane & 2, SerdesCurrent(lane), SerdesCurrent(3), lane);
    serdes->txSerdesIdIs(AradNifSerdesId(static_cast<unsigned short>(71 - lane)));
  }
  arad->serdes(5)->jerichoNifSerdesTuningIs(Hardware::Sand::serdesTuningCopper)->mainCursorIs(-7);
  arad->xlgeIs(3)->serdesIs(4, false);
  arad->xlge(3)->serdesIs(5, true);
  arad->portIs(17, nullptr)->txConnectionIs(9);
  arad->port(17)->managedPhyIs(Inventory::Arad::bcm84848);
  arad->elkPerUnitsSocPropertiesIs(0)->propertyIs("a", "b");
  arad->elkGlobalSocPropertiesIs("global", 4)->propertyIs("key", "");
  arad->ddrTuneSettingIs("dram", String8("zero\0byte", 9));
  arad->mdioAccelBlockIs(Hardware::VesperAccelId(2), 77, Units::Megahertz(2.5));
  arad->statsSerdesIs(30, true);
  arad->tempSensorIs(Hardware::SensorId(4))->overheatThresholdIs(99.5);
  arad->lunetPeerNameIs("peer");
  return slice;
}

TEST(Mirror, ALongStringChangedInPiecesIsNeverSeenHalf) {
  Ptr<AradSlice> slice = smallSlice();
  Ptr<Arad> arad = slice->fap("fap0");
  Mirror mirror(slice);
  mirror.connect(MemoryPipe::unlimited, 8192);
  mirror.settle();
  struct Watch : Arad::NotifieeConst {
    std::vector<std::size_t> lengths;
    void onDescription() override { lengths.push_back(notifier()->description().length()); }
  };
  Ptr<Watch> watch(new Watch);
  auto* copy = dynamic_cast<AradSlice*>(mirror.copy().get());
  watch->isRegisteredNotifieeIs(true);
  watch->notifierIs(Ptr<PtrInterface const>(copy->fap("fap0")));
  std::string const first(1000000, 'a');
  std::string const last(900000, 'b');
  arad->descriptionIs(String8(first.data(), first.size()));
  for (int turns = 0; turns < 20; ++turns) mirror.turn();
  EXPECT_TRUE(watch->lengths.empty());
  arad->descriptionIs(String8(last.data(), last.size()));
  mirror.settle();
  EXPECT_EQ(watch->lengths, std::vector<std::size_t>{last.size()});
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
  EXPECT_EQ(mirror.in().flowInCount(), 0u);
  watch->notifierIs(nullptr);
}

TEST(Mirror, AChangeOfAReadOnlyCopyIsReportedOnceAndUndone) {
  struct Row {
    char const* what;
    void (*change)(AradSlice& copy);
    unsigned int writes = 1;
  };
  static constexpr Row rows[] = {
      {"number", [](AradSlice& s) { s.numPortsIs(55); }},
      {"string", [](AradSlice& s) { s.fap("fap0")->xlge(3)->descriptionIs("x"); }},
      {"value", [](AradSlice& s) { s.fap("fap0")->xlge(3)->serdesIs(4, true); }},
      {"value added", [](AradSlice& s) { s.fap("fap0")->xlge(3)->serdesIs(9, true); }},
      {"value removed", [](AradSlice& s) { s.fap("fap0")->xlge(3)->serdesDel(4); }},
      {"strings", [](AradSlice& s) { s.fap("fap0")->ddrTuneSettingDel("dram"); }},
      {"child removed", [](AradSlice& s) { s.fap("fap0")->portDel(17); }},
      {"child added", [](AradSlice& s) { s.fap("fap0")->portIs(18, nullptr); }},
      {"child's child", [](AradSlice& s) { s.fap("fap0")->port(17)->txConnectionDel(); }},
      {"singleton replaced", [](AradSlice& s) { s.fap("fap0")->elkGlobalSocPropertiesIs("x", 9); }},
      {"wrapped child",
       [](AradSlice& s) {
         s.fap("fap0")->serdes(5)->jerichoNifSerdesTuningDel(Hardware::Sand::serdesTuningCopper);
       }},
      {"whole chip", [](AradSlice& s) { s.fapDel("fap0"); }},
  };
  Ptr<AradSlice> slice = smallSlice();
  Mirror mirror(slice);
  mirror.connect();
  mirror.settle();
  std::uint64_t writes = 0;
  for (Row const& row : rows) {
    SCOPED_TRACE(row.what);
    row.change(dynamic_cast<AradSlice&>(**mirror.copy()));
    mirror.settle();
    EXPECT_EQ(mirror.in().stats().readOnlyWrites, writes += row.writes);
    EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
    EXPECT_EQ(mirror.out().reactorCount(), mirror.in().reactorCount());
    ASSERT_EQ(mirror.exporterClosed, "");
    ASSERT_EQ(mirror.importerClosed, "");
  }
  EXPECT_EQ(slice->numPorts(), 3u);
  EXPECT_EQ(mirror.importerReports,
            (std::vector<std::string>{"exporter: connected",
                                      "exporter: may not be written: import/slice.numPorts; "
                                      "further ones are counted only"}));
}

// More than the buffer holds requests to send the slot again.
TEST(Mirror, EveryRefusedChangeOfACopyIsUndone) {
  Mirror mirror(smallSlice());
  mirror.connect();
  mirror.settle();
  String8 const key(std::string(1000, 'k').c_str());
  for (int count = 0; count != 300; ++count) {
    ptrCast<AradSlice>(mirror.copy())
        ->fap("fap0")
        ->ddrTuneSettingIs(key + format("%d", count), "x");
  }
  mirror.settle();
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
}

TEST(Ack, OfAnEndThatOnlyListensTakesItsTime) {
  Ptr<AradSlice> const slice = smallSlice();
  Mirror mirror(slice);
  mirror.connect();
  mirror.settle();
  ASSERT_EQ(mirror.importerLink->dueMs(), 1 + listenerAckDelayMs);
  mirror.importerLink->service(listenerAckDelayMs);
  EXPECT_EQ(mirror.in().stats().framesSent, 0u);
  mirror.importerLink->service(1 + listenerAckDelayMs);
  EXPECT_EQ(mirror.in().stats().framesSent, 1u);
  EXPECT_FALSE(mirror.importerLink->dueMs());
  auto const change = [&](std::uint64_t count) {
    for (; count != 0; --count) {
      slice->numPortsIs(slice->numPorts() + 1);
      if (count % 512 != 1) continue;
      mirror.exporterLink->service(2000);
      mirror.importerLink->service(2000);
    }
  };
  change(mostUnacknowledgedByListener - 1);
  EXPECT_EQ(mirror.in().stats().framesSent, 1u);
  change(1);
  EXPECT_EQ(mirror.in().stats().framesSent, 2u);
  mirror.exporterLink->service(2000);
  EXPECT_EQ(mirror.out().unacknowledgedFrames(), 0u);
}

TEST(Ack, WaitsForAFrameThatTakesItAlongForAWhileOrForManyFrames) {
  Ptr<AradSlice> const slice = smallSlice();
  LinkOptions options;
  options.grantsWrite = options.wantsWrite = true;
  Mirror mirror(slice, options, 20);
  mirror.connect();
  mirror.settle();
  auto const writes = [&](unsigned int count, std::uint64_t now) {
    Ptr<AradSlice> const copy = ptrCast<AradSlice>(mirror.copy());
    for (; count != 0; --count) copy->numPortsIs(copy->numPorts() + 1);
    mirror.importerLink->service(now);
    mirror.exporterLink->service(now);
  };
  auto sent = [&, before = mirror.out().stats().framesSent]() mutable {
    std::uint64_t const now = mirror.out().stats().framesSent;
    return now - std::exchange(before, now);
  };

  writes(1, 100);
  EXPECT_EQ(mirror.exporterLink->dueMs(), 120u);
  mirror.exporterLink->service(119);
  EXPECT_EQ(sent(), 0u);
  mirror.exporterLink->service(120);
  EXPECT_EQ(sent(), 1u);
  EXPECT_FALSE(mirror.exporterLink->dueMs());

  writes(mostUnacknowledged, 200);
  EXPECT_EQ(sent(), 1u);

  writes(1, 300);
  slice->useMdioIs(!slice->useMdio());
  mirror.exporterLink->service(310);
  EXPECT_EQ(sent(), 1u);
  EXPECT_FALSE(mirror.exporterLink->dueMs());
  mirror.importerLink->service(310);
  EXPECT_EQ(mirror.in().unacknowledgedFrames(), 0u);
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
