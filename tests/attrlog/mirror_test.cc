// A tree and its copy: initial transfer, live changes, deletions, short buffers, reconnects.
#include "tests/attrlog/Mirror.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

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

TEST(Mirror, WholeTreeArrivesOneByteAtATime) {
  Mirror mirror(smallSlice());
  mirror.connect(1);
  mirror.settle();
  EXPECT_EQ(mirror.importerClosed, "");
  EXPECT_TRUE(mirror.in().inStep());
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
  EXPECT_EQ(mirror.in().stats().strays, 0u);
  EXPECT_EQ(mirror.out().reactorCount(), mirror.in().reactorCount());
  EXPECT_EQ(mirror.in().flowInCount(), 0u);
}

TEST(Mirror, AnEmptyRootAndAnEmptyStringArrive) {
  Mirror mirror(Ptr<Entity>(new AradSlice("slice")));
  mirror.connect();
  mirror.settle();
  EXPECT_TRUE(mirror.in().inStep());
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
}

/// What one change costs on a quiet connection.
struct Change {
  char const* name;
  void (*change)(AradSlice& slice);
  unsigned int frames;
};

TEST(Mirror, AChangeOnAQuietConnectionIsOneMessageAndNoneGoesBack) {
  static constexpr Change changes[] = {
      {"plain u32", [](AradSlice& s) { s.numPortsIs(9); }, 1},
      {"plain bool", [](AradSlice& s) { s.useMdioIs(true); }, 1},
      {"equal value", [](AradSlice& s) { s.useMdioIs(true); }, 0},
      {"enumeration", [](AradSlice& s) { s.managedPhyIs(Inventory::Arad::noPhy); }, 1},
      {"unknown enumerator",
       [](AradSlice& s) { s.managedPhyIs(static_cast<Inventory::Arad::AradManagedPhy>(77)); }, 1},
      {"identifier", [](AradSlice& s) { s.fap("fap0")->port(17)->xlgeIdIs(3); }, 1},
      {"name", [](AradSlice& s) { s.fap("fap0")->lunetPeerNameIs("other"); }, 1},
      {"base's string", [](AradSlice& s) { s.fap("fap0")->descriptionIs("text"); }, 1},
      {"base's number", [](AradSlice& s) { s.fap("fap0")->numCoresIs(2); }, 1},
      {"string emptied", [](AradSlice& s) { s.fap("fap0")->descriptionIs(""); }, 1},
      {"value under a number", [](AradSlice& s) { s.fap("fap0")->xlge(3)->serdesIs(9, true); }, 1},
      {"value removed", [](AradSlice& s) { s.fap("fap0")->xlge(3)->serdesDel(4); }, 1},
      {"value missed", [](AradSlice& s) { s.fap("fap0")->xlge(3)->serdesDel(4); }, 0},
      {"string under a string", [](AradSlice& s) { s.fap("fap0")->ddrTuneSettingIs("k", "v"); }, 1},
      {"string removed", [](AradSlice& s) { s.fap("fap0")->ddrTuneSettingDel("dram"); }, 1},
      {"child removed", [](AradSlice& s) { s.fap("fap0")->serdesDel(3); }, 1},
      {"singleton removed", [](AradSlice& s) { s.fap("fap0")->pciDeviceDel(); }, 1},
      // Its creation, begin and end of its one collection, and the end of its transfer.
      {"child made", [](AradSlice& s) { s.fap("fap0")->elkPerUnitsSocPropertiesIs(5); }, 4},
      {"child made again", [](AradSlice& s) { s.fap("fap0")->elkPerUnitsSocPropertiesIs(5); }, 0},
      {"grandchild's value",
       [](AradSlice& s) { s.fap("fap0")->elkPerUnitsSocProperties(5)->propertyIs("k", "v"); }, 1},
      {"wrapped child's value",
       [](AradSlice& s) {
         s.fap("fap0")
             ->serdes(5)
             ->jerichoNifSerdesTuning(Hardware::Sand::serdesTuningCopper)
             ->preCursorIs(2);
       },
       1},
  };
  Ptr<AradSlice> slice = smallSlice();
  Mirror mirror(slice);
  mirror.connect();
  mirror.settle();
  std::uint64_t const back = mirror.in().stats().framesSent;
  for (Change const& change : changes) {
    std::uint64_t const before = mirror.out().stats().framesSent;
    change.change(**slice);
    mirror.settle();
    EXPECT_EQ(mirror.out().stats().framesSent - before, change.frames) << change.name;
    EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root())) << change.name;
  }
  EXPECT_EQ(mirror.in().stats().framesSent, back);
  EXPECT_EQ(mirror.in().stats().unknownEnums, 1u);
  EXPECT_EQ(mirror.in().stats().strays, 0u);
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

TEST(Mirror, ALongPropertyChangedDeletedAndMadeAgainInPieces) {
  Ptr<AradSlice> slice = smallSlice();
  Ptr<Inventory::Arad::SocProperties> bag = slice->fap("fap0")->elkGlobalSocProperties();
  std::string const text(700000, 'x');
  String8 const longText(text.data(), text.size());
  Mirror mirror(slice);
  mirror.connect(MemoryPipe::unlimited, 4096);
  mirror.settle();
  auto const inBetween = [&] {
    for (int turns = 0; turns < 25; ++turns) mirror.turn();
  };
  bag->propertyIs("long", longText);
  inBetween();
  bag->propertyIs("long", longText + "y");
  inBetween();
  bag->propertyDel("long");
  inBetween();
  bag->propertyIs("long", "short");
  bag->propertyIs("other", longText);
  mirror.settle();
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
  EXPECT_EQ(mirror.in().flowInCount(), 0u);
  EXPECT_EQ(mirror.importerClosed, "");
}

TEST(Mirror, ReconnectDeletesWhatIsGoneAndKeepsTheRestAsTheSameObjects) {
  Ptr<AradSlice> slice = smallSlice();
  Ptr<Arad> arad = slice->fap("fap0");
  Mirror mirror(slice);
  mirror.connect();
  mirror.settle();
  auto* copy = dynamic_cast<AradSlice*>(mirror.copy().get());
  Ptr<Inventory::Arad::NifSerdes> const kept = copy->fap("fap0")->serdes(5);
  Ptr<Entity> const tuning = kept->jerichoNifSerdesTuning(Hardware::Sand::serdesTuningCopper);
  mirror.cut();
  EXPECT_NE(mirror.importerClosed, "");
  EXPECT_NE(mirror.exporterClosed, "");
  arad->serdesDel(3);
  arad->pciDeviceDel();
  arad->port(17)->txConnectionDel();
  arad->ddrTuneSettingDel("dram");
  arad->serdesDel(4);
  arad->serdesIs(4, true, true, 1, 2, 3);
  arad->portIs(18, nullptr);
  slice->numPortsIs(1000);
  mirror.connect(7);
  mirror.settle();
  EXPECT_TRUE(mirror.in().inStep());
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
  EXPECT_EQ(copy, mirror.copy().get());
  EXPECT_EQ(copy->fap("fap0")->serdes(5), kept);
  EXPECT_EQ(Ptr<Entity>(kept->jerichoNifSerdesTuning(Hardware::Sand::serdesTuningCopper)), tuning);
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

TEST(Mirror, ARemovedChildThatSomebodyHoldsSaysNothingMore) {
  Ptr<AradSlice> slice = smallSlice();
  Mirror mirror(slice);
  mirror.connect();
  mirror.settle();
  Ptr<Inventory::Arad::EthPort> held = slice->fap("fap0")->portDel(17);
  mirror.settle();
  std::uint64_t const before = mirror.out().stats().framesSent;
  held->laneIs(3);
  held->txConnectionDel();
  mirror.settle();
  EXPECT_EQ(mirror.out().stats().framesSent, before);
  EXPECT_EQ(mirror.in().stats().strays, 0u);
  EXPECT_EQ(mirror.out().reactorCount(), mirror.in().reactorCount());
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
}

/// Random changes of a tree, in random interleavings with the connection's turns.
class RandomTree {
 public:
  RandomTree(Ptr<AradSlice> const& slice, unsigned int seed) : slice_(slice), random_(seed) {}

  unsigned int below(unsigned int limit) { return random_() % limit; }

  void change() {
    if (below(40) == 0) {
      Name const name = below(2) ? "fap0" : "fap1";
      if (!slice_->fapDel(name)) slice_->fapIs(name, below(3));
      return;
    }
    Ptr<Arad> arad = slice_->fap(below(2) ? "fap0" : "fap1");
    if (!arad) return slice_->numPortsIs(below(100));
    switch (below(24)) {
      case 0:
        return slice_->numPortsIs(below(100));
      case 1:
        return arad->descriptionIs(text());
      case 2:
        return arad->tolminMbIdIs(below(5));
      case 3:
        return arad->lunetPeerNameIs(Name(text(100)));
      case 4: {
        if (below(3) == 0) return void(arad->serdesDel(lane()));
        AradNifSerdesId const id = lane();
        try {
          arad->serdesIs(id, below(2), false, SerdesCurrent(1), SerdesCurrent(2), 3);
        } catch (NameInUseException const&) {
          arad->serdesDel(id);
          arad->serdesIs(id, below(2), true, SerdesCurrent(1), SerdesCurrent(2), 3);
        }
        return;
      }
      case 5:
        if (auto serdes = arad->serdes(lane())) serdes->txSerdesIdIs(lane());
        return;
      case 6: {
        auto serdes = arad->serdes(lane());
        if (!serdes) return;
        auto const mode = static_cast<Hardware::Sand::JerichoNifSerdesTuningMode>(below(4));
        if (below(3) == 0) return void(serdes->jerichoNifSerdesTuningDel(mode));
        return serdes->jerichoNifSerdesTuningIs(mode)->mainCursorIs(static_cast<int>(below(9)));
      }
      case 7:
        return void(below(3) ? arad->portIs(port(), nullptr).ptr() : arad->portDel(port()));
      case 8:
        if (auto p = arad->port(port())) p->numQPairsIs(static_cast<unsigned short>(below(9)));
        return;
      case 9:
        if (auto p = arad->port(port())) {
          if (below(2)) {
            p->txConnectionIs(below(3));
          } else {
            p->txConnectionDel();
          }
        }
        return;
      case 10:
        return void(below(3) ? arad->xlgeIs(block()).ptr() : arad->xlgeDel(block()));
      case 11:
        if (auto x = arad->xlge(block())) x->serdesIs(lane(), below(2));
        return;
      case 12:
        if (auto x = arad->xlge(block())) x->serdesDel(lane());
        return;
      case 13:
        if (auto x = arad->xlge(block())) x->descriptionIs(text());
        return;
      case 14:
        return void(arad->elkGlobalSocPropertiesIs(below(2) ? "a" : "b", below(2)));
      case 15:
        return void(arad->elkGlobalSocPropertiesDel());
      case 16:
      case 17:
        if (auto bag = arad->elkGlobalSocProperties()) bag->propertyIs(key(), text());
        return;
      case 18:
        if (auto bag = arad->elkGlobalSocProperties()) bag->propertyDel(key());
        return;
      case 19:
        if (auto bag = arad->elkGlobalSocProperties()) {
          if (below(5) == 0) bag->propertyDelAll();
        }
        return;
      case 20:
        return arad->ddrTuneSettingIs(key(), text());
      case 21:
        return void(arad->ddrTuneSettingDel(key()));
      case 22:
        return arad->serdesClockSocPropertyValueIs(key(), text());
      case 23:
        return void(arad->tempSensorIs(Hardware::SensorId(1))->overheatThresholdIs(below(5)));
    }
  }

 private:
  AradNifSerdesId lane() { return AradNifSerdesId(static_cast<unsigned short>(below(6))); }
  Hardware::Sand::XlgeId block() {
    return Hardware::Sand::XlgeId(static_cast<unsigned short>(below(4)));
  }
  unsigned short port() { return static_cast<unsigned short>(below(5)); }
  String8 key() { return format("key%u", below(6)); }
  /// Mostly short; now and then longer than a message, or than a buffer.
  String8 text(unsigned int most = 300000) {
    unsigned int const length = below(8) ? below(20) : below(std::min(most, 4u << below(17)));
    std::string const bytes(length, static_cast<char>('a' + below(26)));
    return String8(bytes.data(), bytes.size());
  }

  Ptr<AradSlice> slice_;
  std::mt19937 random_;
};

class MirrorRandom : public testing::TestWithParam<unsigned int> {};

TEST_P(MirrorRandom, ACopyEndsEqualWhateverTheInterleaving) {
  unsigned int const seed = GetParam();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  Ptr<AradSlice> slice = smallSlice();
  RandomTree tree(slice, seed);
  LinkOptions options;
  options.outCapacity = (tree.below(2) ? 2 : 1) * leastCapacity;
  Mirror mirror(slice, options);
  auto const connect = [&] {
    mirror.connect(tree.below(2) ? 1 + tree.below(5000) : MemoryPipe::unlimited,
                   1 + tree.below(100000));
  };
  connect();
  for (int step = 0; step < 3000; ++step) {
    tree.change();
    if (tree.below(3) == 0) {
      for (unsigned int turns = tree.below(6); turns != 0; --turns) mirror.turn();
    }
    if (tree.below(500) == 0) {
      mirror.cut();
      connect();
    }
  }
  mirror.settle();
  ASSERT_TRUE(mirror.in().inStep()) << mirror.importerClosed;
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
  EXPECT_EQ(mirror.out().reactorCount(), mirror.in().reactorCount());
  EXPECT_FALSE(mirror.out().hasWaitingFlowOut());
  EXPECT_EQ(mirror.in().flowInCount(), 0u);
  EXPECT_EQ(mirror.in().stats().strays, 0u);
  EXPECT_EQ(mirror.out().stats().handlerExceptions, 0u);
  EXPECT_EQ(mirror.in().stats().handlerExceptions, 0u);
}

TEST_P(MirrorRandom, TwoEndsThatWriteOneTreeEndEqual) {
  unsigned int const seed = GetParam();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  Ptr<AradSlice> slice = smallSlice();
  RandomTree tree(slice, seed);
  LinkOptions options;
  options.grantsWrite = options.wantsWrite = true;
  options.outCapacity = (tree.below(2) ? 2 : 1) * leastCapacity;
  Mirror mirror(slice, options);
  auto const connect = [&] {
    mirror.connect(tree.below(2) ? 1 + tree.below(5000) : MemoryPipe::unlimited,
                   1 + tree.below(100000));
  };
  connect();
  mirror.settle();
  auto* const copied = dynamic_cast<AradSlice*>(mirror.copy().get());
  RandomTree copy(Ptr<AradSlice>(copied), seed + 1000);
  std::uint64_t conflicts = 0;
  for (int step = 0; step < 600; ++step) {
    if (tree.below(2)) tree.change();
    if (tree.below(2)) copy.change();
    if (tree.below(3) == 0) {
      for (unsigned int turns = tree.below(6); turns != 0; --turns) mirror.turn();
    }
    if (tree.below(20) == 0) mirror.settle(100);
    if (tree.below(300) == 0) {
      conflicts += mirror.out().stats().conflicts;
      mirror.cut();
      connect();
    }
  }
  mirror.settle();
  ASSERT_EQ(mirror.importerClosed.find("log:"), std::string::npos) << mirror.importerClosed;
  ASSERT_EQ(mirror.exporterClosed.find("log:"), std::string::npos) << mirror.exporterClosed;
  ASSERT_TRUE(mirror.in().inStep()) << mirror.importerClosed;
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
  EXPECT_EQ(mirror.copy().get(), copied);
  EXPECT_EQ(mirror.out().reactorCount(), mirror.in().reactorCount());
  EXPECT_EQ(mirror.out().flowOutCount() + mirror.in().flowOutCount(), 0u);
  EXPECT_EQ(mirror.out().flowInCount() + mirror.in().flowInCount(), 0u);
  EXPECT_EQ(mirror.out().unacknowledgedSlots(), 0u);
  EXPECT_GT(conflicts + mirror.out().stats().conflicts, 0u);
}

/// MIRROR_SEEDS=N runs more of them by hand.
unsigned int seeds() {
  char const* const text = std::getenv("MIRROR_SEEDS");
  return text ? static_cast<unsigned int>(std::atoi(text)) : 40;
}

INSTANTIATE_TEST_SUITE_P(Seeds, MirrorRandom, testing::Range(1u, 1u + seeds()));

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
