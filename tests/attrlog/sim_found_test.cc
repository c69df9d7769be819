// What the simulation has found, each as the shortest history that shows it.
#include <gtest/gtest.h>

#include "tests/attrlog/Mirror.h"

namespace Mox::NboAttrLog::test {
namespace {

using Inventory::GpioPin;
using Inventory::Port;
using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Inventory::Arad::EthPort;

LinkOptions bothWrite() {
  LinkOptions options;
  options.grantsWrite = options.wantsWrite = true;
  return options;
}
Ptr<Arad> chipOf(Ptr<Entity> const& slice) {
  return static_cast<AradSlice*>(slice.get())->fap("fap0");
}

// All roots are announced long before the trees' transfers bring what they refer to.
TEST(SimulationFound, WhatOnlyReferencesLeadToIsTheSameAfterAReconnect) {
  Ptr<AradSlice> slice(new AradSlice("slice"));
  slice->fapIs("fap0", 0)->interruptControllerIs(Ptr<GpioPin>(new GpioPin("pin")));
  Mirror mirror(slice);
  mirror.connect();
  mirror.settle();
  Ptr<GpioPin> const before = chipOf(mirror.copy())->interruptController();
  ASSERT_TRUE(before);
  mirror.cut();
  mirror.connect();
  mirror.settle();
  EXPECT_EQ(chipOf(mirror.copy())->interruptController(), before);
}

// Behind the reconnect the exporter announces the importer's own entity to it; then the importer
// announces that entity, too.
TEST(SimulationFound, AnEntityThatBothEndsAnnounceHasTheSameIdsAtBoth) {
  Ptr<AradSlice> slice(new AradSlice("slice"));
  slice->fapIs("fap0", 0);
  Mirror mirror(slice, bothWrite());
  mirror.connect();
  mirror.settle();
  Ptr<GpioPin> const pin(new GpioPin("pin"));
  chipOf(mirror.copy())->interruptControllerIs(pin);
  mirror.settle();
  mirror.cut();
  mirror.connect();
  mirror.settle();
  chipOf(mirror.copy())->hwResetUsingPlxIs(pin);
  mirror.settle();
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
  mirror.in().reactorsVisit([&](Entity::MoxNboAttrLogSa const& adapter) {
    EXPECT_NE(mirror.out().reactor(adapter.entityId()), nullptr)
        << adapter.rawEntity()->name().view();
  });
  EXPECT_EQ(mirror.out().reactorCount(), mirror.in().reactorCount());
}

// The exporter's transfer would bring a second one, and with it another port.
TEST(SimulationFound, WhatAWriterRefersToIsItsOwnAgainAfterAReconnect) {
  Ptr<AradSlice> slice(new AradSlice("slice"));
  slice->fapIs("fap0", 0);
  Mirror mirror(slice, bothWrite());
  mirror.connect();
  mirror.settle();
  Ptr<Port> const port(new Port("port"));
  Ptr<EthPort> const user = chipOf(mirror.copy())->portIs(1, port);
  for (int times = 0; times != 2; ++times) {
    mirror.settle();
    mirror.cut();
    mirror.connect();
    mirror.settle();
    EXPECT_EQ(chipOf(mirror.copy())->port(1), user);
  }
}

// Its argument is another id on each connection.
TEST(SimulationFound, AnEntityWithAReferenceForAnArgumentIsTheSameAfterAReconnect) {
  Mirror mirror(Ptr<AradSlice>(new AradSlice("slice")));
  mirror.exporter().exportIs(Ptr<EthPort>(new EthPort(1, Ptr<Port>(new Port("port")))));
  Ptr<EthPort> brought[2];
  for (Ptr<EthPort>& one : brought) {
    mirror.connect();
    mirror.settle();
    mirror.in().reactorsVisit([&](Entity::MoxNboAttrLogSa const& adapter) {
      if (auto* const port = dynamic_cast<EthPort*>(adapter.rawEntity())) one = port;
    });
    mirror.cut();
  }
  ASSERT_TRUE(brought[0]);
  EXPECT_EQ(brought[0], brought[1]);
}

// The root comes back, and is withdrawn before its transfer has ended.
TEST(SimulationFound, WhatOnlyAWithdrawnRootReferredToIsLetGo) {
  Ptr<AradSlice> slice(new AradSlice("slice"));
  slice->fapIs("fap0", 0)->interruptControllerIs(Ptr<GpioPin>(new GpioPin("pin")));
  slice->fap("fap0")->descriptionIs(String8(std::string(1 << 20, 'x').c_str()));
  Mirror mirror(slice);
  mirror.connect();
  mirror.settle();
  Ptr<GpioPin> const pin = chipOf(mirror.copy())->interruptController();
  mirror.cut();
  mirror.connect(MemoryPipe::unlimited, 200);
  while (!mirror.in().greeted() || mirror.in().reactorCount() == 0) mirror.turn();
  mirror.exporter().exportDel(slice);
  mirror.settle();
  EXPECT_FALSE(mirror.copy());
  EXPECT_TRUE(mirror.in().inStep());
  EXPECT_EQ(pin->references() & PtrInterface::countMask, 1U);
}

// More than the buffer holds requests to say the slot again.
TEST(SimulationFound, EveryRefusedChangeOfACopyIsUndone) {
  Ptr<AradSlice> slice(new AradSlice("slice"));
  slice->fapIs("fap0", 0);
  Mirror mirror(slice);
  mirror.connect();
  mirror.settle();
  String8 const key(std::string(1000, 'k').c_str());
  for (int count = 0; count != 300; ++count) {
    chipOf(mirror.copy())->ddrTuneSettingIs(key + format("%d", count), "x");
  }
  mirror.settle();
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
