// Entities that only references lead to. Faults here leave a walk waiting for a target for ever,
// lose or swap what a reference leads to behind a reconnect, or end a connection over an id that is
// gone.
#include <gtest/gtest.h>

#include "tests/attrlog/Mirror.h"

namespace Mox::NboAttrLog::test {
namespace {

using Inventory::Port;
using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Inventory::Arad::EthPort;
using Inventory::Xcvr::Slot;

LinkOptions writable(bool yes = true) {
  LinkOptions options;
  options.grantsWrite = options.wantsWrite = yes;
  return options;
}

/// Two ports on each end. `step` settles and compares both ends' tables.
struct Scene {
  explicit Scene(bool bothWrite = false)
      : slice(new AradSlice("s")), mirror(Ptr<Entity>(slice), writable(bothWrite)) {
    Ptr<Arad> arad = slice->fapIs("f", 4);
    arad->portIs(1, nullptr);
    arad->portIs(2, nullptr);
    connect();
  }
  void connect() {
    mirror.connect();
    settle();
  }
  void settle() {
    mirror.settle();
    ASSERT_EQ(mirror.importerClosed.find("log:"), std::string::npos) << mirror.importerClosed;
    ASSERT_EQ(mirror.exporterClosed.find("log:"), std::string::npos) << mirror.exporterClosed;
    EXPECT_TRUE(mirror.in().inStep());
    EXPECT_EQ(mirror.out().reactorCount(), mirror.in().reactorCount());
    EXPECT_EQ(mirror.out().flowOutCount() + mirror.in().flowOutCount(), 0u);
  }
  Ptr<EthPort> port(unsigned short number) { return slice->fap("f")->port(number); }
  Ptr<EthPort> copied(unsigned short number) {
    return dynamic_cast<AradSlice&>(**mirror.copy()).fap("f")->port(number);
  }

  Ptr<AradSlice> slice;
  Mirror mirror;
};

TEST(Reference, AReferenceToWhatTheOtherEndHasJustWithdrawnIsAnsweredWithThatEndsValue) {
  Scene scene(true);
  scene.port(1)->xcvrSlotIs(new Slot("going"));
  scene.settle();
  // The importer refers to it elsewhere, and the exporter, not knowing that, lets it go.
  scene.copied(2)->xcvrSlotIs(scene.copied(1)->xcvrSlot());
  scene.port(1)->xcvrSlotIs(nullptr);
  scene.settle();
  EXPECT_FALSE(scene.port(2)->xcvrSlot());
  EXPECT_FALSE(scene.copied(2)->xcvrSlot());
  EXPECT_EQ(scene.mirror.out().stats().reflected, 1u);
  // The id is forgotten once the importer has acknowledged the withdrawal.
  scene.port(1)->laneIs(3);
  scene.settle();
  EXPECT_EQ(scene.mirror.out().naming(EntityId(0x7777000000000001)), Naming::unknown);
}

TEST(Reference, AnEndThatHasOnlyListenedMayNameWhatHasJustGone) {
  Ptr<AradSlice> const slice(new AradSlice("s"));
  Ptr<EthPort> const port = slice->fapIs("f", 4)->portIs(1, nullptr);
  port->xcvrSlotIs(new Slot("going"));
  Mirror mirror{Ptr<Entity>(slice)};
  Ptr<Dir> const dir(new Dir);
  mirror.exporter().importDirIs(dir);
  mirror.connect();
  mirror.settle();
  // The importer shows a tree of its own, which refers to it, while the exporter lets it go.
  Ptr<AradSlice> const own(new AradSlice("own"));
  own->fapIs("f", 1)
      ->portIs(1, nullptr)
      ->xcvrSlotIs(dynamic_cast<AradSlice&>(**mirror.copy()).fap("f")->port(1)->xcvrSlot());
  mirror.importer().exportIs(Ptr<Entity>(own));
  mirror.importer().service(1);
  port->xcvrSlotIs(nullptr);
  mirror.settle();
  EXPECT_EQ(mirror.exporterClosed, "");
  EXPECT_EQ(mirror.importerClosed, "");
  ASSERT_TRUE(dir->entry("own"));
  auto const& shown = dynamic_cast<AradSlice&>(**dir->entry("own")->target());
  Ptr<Slot> const slot = shown.fap("f")->port(1)->xcvrSlot();
  ASSERT_TRUE(slot);
  EXPECT_EQ(slot->name(), "going");
}

TEST(Reference, AFlowOutThatWaitsForATargetIsWokenAndSaysTheMemberOnce) {
  struct Row {
    char const* what;
    void (*change)(Scene& scene, Slot& slot);
    bool refers;
  };
  static constexpr Row rows[] = {
      {"the target has left its tree", [](Scene&, Slot& slot) { slot.parentIs(nullptr); }, true},
      {"another value", [](Scene& s, Slot&) { s.port(1)->xcvrSlotIs(nullptr); }, false},
      {"another attribute, still blocked, then gone",
       [](Scene& s, Slot&) {
         s.port(1)->laneIs(7);
         s.mirror.settle();
         s.slice->fap("f")->portDel(1);
       },
       false},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.what);
    Scene scene;
    // A slot that stands below a chip which the peer knows: its own announcement must come first.
    Ptr<Slot> const slot(new Slot("cage"));
    slot->parentIs(Ptr<Entity>(scene.slice->fap("f")));
    scene.port(1)->xcvrSlotIs(slot);
    scene.port(2)->laneIs(5);
    scene.mirror.settle();
    EXPECT_EQ(scene.mirror.out().flowOutCount(), 1u);
    EXPECT_FALSE(scene.mirror.out().hasWaitingFlowOut()) << "parked, it doesn't spin";
    EXPECT_EQ(scene.copied(2)->lane(), 5);
    std::uint64_t const before = scene.mirror.out().stats().framesSent;
    row.change(scene, **slot);
    scene.settle();
    if (scene.port(1)) {
      EXPECT_EQ(bool(scene.copied(1)->xcvrSlot()), row.refers);
      // The slot's own announcement and transfer, and the reference.
      std::uint64_t const frames = scene.mirror.out().stats().framesSent - before;
      EXPECT_LE(frames, row.refers ? 3u : 1u);
    }
  }
}

TEST(Reference, WhatAWriterRefersToIsItsOwnAgainAfterAReconnect) {
  Scene scene(true);
  Ptr<EthPort> const user =
      dynamic_cast<AradSlice&>(**scene.mirror.copy()).fap("f")->portIs(7, new Port("port"));
  for (int times = 0; times != 2; ++times) {
    scene.settle();
    scene.mirror.cut();
    scene.connect();
    EXPECT_EQ(scene.copied(7), user);
  }
}

// Its argument is another id on each connection.
TEST(Reference, AnEntityWithAReferenceForAnArgumentIsTheSameAfterAReconnect) {
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

}  // namespace
}  // namespace Mox::NboAttrLog::test
