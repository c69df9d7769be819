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
