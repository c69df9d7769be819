// What is owed and when it goes: walks stopped after every message, the gate, thresholds, memory of
// a peer that stopped reading, subscribers that interfere with what arrives.
#include <InvArad/QsgmiiAttrLog.h>
#include <InvArad/XlgeAttrLog.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <sstream>

#include "tests/attrlog/Mirror.h"

namespace Mox::NboAttrLog::test {
namespace {

using Hardware::Sand::AradNifSerdesId;
using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Inventory::Arad::Qsgmii;
using Inventory::Arad::Xlge;

String8 textOf(std::size_t length, char c) {
  std::string const bytes(length, c);
  return String8(bytes.data(), bytes.size());
}

Ptr<Entity::MoxNboAttrLogSa> adapterOf(Mirror& mirror, Ptr<Entity> const& entity) {
  return entity->moxNboAttrLogSa(Ptr<Out const>(mirror.out().out()));
}

/// Drives the exporter by hand: its pipe takes nothing, and its buffer is filled with frames for
/// nobody until a run stops behind its next message.
class Stepper {
 public:
  explicit Stepper(Mirror& mirror) : mirror_(mirror) { stop(); }

  void stop() { mirror_.toImporter->capacity = 0; }
  /// Fills the buffer so that exactly a run's least room is left, less `shortBy`.
  void fill(std::size_t shortBy = 0) {
    Out& out = **mirror_.out().out();
    std::size_t const target = out.capacity() - runRoom + shortBy;
    if (out.committedSize() + frameOverhead > target) return;
    MsgHeader header;
    header.entityId = EntityId(0x7777000000000013);
    header.attributeId = 1;
    out.nextHeaderIs(header);
    Ptr<Out> const hold(&out);
    hold << Connection::Out::TransactToken::tokenBegin;
    std::string const rest(target - out.committedSize() - frameOverhead, 'p');
    out.bytesIs(rest.data(), rest.size());
    hold << Connection::Out::TransactToken::tokenEnd;
    ++pads_;
  }
  /// The next message of what is owed, and whatever the step's rules let follow it.
  void step() {
    fill();
    mirror_.exporterLink->service(1);
    drain();
  }
  /// All that is written reaches the importer.
  void drain() {
    Out& out = **mirror_.out().out();
    mirror_.toImporter->bytes.append(out.committed(), out.committedSize());
    out.sent(out.committedSize());
    while (!mirror_.toImporter->bytes.empty() &&
           mirror_.importerLink->state() != Link::State::closed) {
      mirror_.importerLink->service(1);
    }
  }
  void finish() {
    mirror_.toImporter->capacity = 65536;
    mirror_.settle();
  }
  std::uint64_t pads() const { return pads_; }

 private:
  Mirror& mirror_;
  std::uint64_t pads_ = 0;
};

void expectSame(Mirror& mirror, Stepper const& stepper) {
  ASSERT_EQ(mirror.importerClosed, "");
  EXPECT_TRUE(mirror.in().inStep());
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
  EXPECT_EQ(mirror.in().flowInCount(), 0u);
  EXPECT_EQ(mirror.in().stats().strays, stepper.pads());
  EXPECT_EQ(mirror.out().reactorCount(), mirror.in().reactorCount());
  EXPECT_FALSE(mirror.out().hasWaitingFlowOut());
  EXPECT_EQ(mirror.out().stats().handlerExceptions, 0u);
}

enum Operation { remove, add, replace, change };

/// A collection of up to eight keys, of which the odd ones are there at first.
struct Family {
  char const* name;
  AttributeId id;
  Ptr<AradSlice> (*make)();
  Ptr<Entity> (*owner)(AradSlice& slice);
  void (*apply)(AradSlice& slice, unsigned int key, Operation operation);
};

Ptr<AradSlice> sliceWithChip() {
  Ptr<AradSlice> slice(new AradSlice("s"));
  slice->fapIs("f", 1);
  return slice;
}
Ptr<Arad> chip(AradSlice& slice) { return slice.fap("f"); }
Ptr<Entity> chipEntity(AradSlice& slice) { return Ptr<Entity>(chip(slice)); }

void applyToPort(AradSlice& slice, unsigned int key, Operation operation) {
  Ptr<Arad> arad = chip(slice);
  auto const id = static_cast<unsigned short>(key);
  if (operation == remove || operation == replace) arad->portDel(id);
  if (operation == add || operation == replace) arad->portIs(id, nullptr);
  if (auto port = operation == change ? arad->port(id) : nullptr) {
    port->laneIs(static_cast<unsigned char>(port->lane() + 1));
    port->txConnectionIs(key);
  }
}
void applyToChip(AradSlice& slice, unsigned int key, Operation operation) {
  Name const name{format("chip%u", key)};
  if (operation == remove || operation == replace) slice.fapDel(name);
  if (operation == add) {
    if (!slice.fap(name)) slice.fapIs(name, key);
  }
  if (operation == replace) slice.fapIs(name, key + 100);
  if (auto arad = operation == change ? slice.fap(name) : nullptr) arad->descriptionIs("changed");
}
void applyToTuning(AradSlice& slice, unsigned int key, Operation operation) {
  Ptr<Inventory::Arad::NifSerdes> lane = chip(slice)->serdes(2);
  // Modes that both ends know: the removal of another one is passed over.
  auto const mode = static_cast<Hardware::Sand::JerichoNifSerdesTuningMode>(key % 4);
  if (operation == remove || operation == replace) lane->jerichoNifSerdesTuningDel(mode);
  if (operation == add || operation == replace) lane->jerichoNifSerdesTuningIs(mode);
  if (auto tuning = operation == change ? lane->jerichoNifSerdesTuning(mode) : nullptr) {
    tuning->mainCursorIs(tuning->mainCursor() + 1);
  }
}
void applyToLane(AradSlice& slice, unsigned int key, Operation operation) {
  Ptr<Xlge> block = chip(slice)->xlge(3);
  AradNifSerdesId const lane(static_cast<unsigned short>(key));
  if (operation == remove || operation == replace) block->serdesDel(lane);
  if (operation != remove) block->serdesIs(lane, operation == change);
}
/// Some values need several messages.
String8 valueOf(unsigned int key, Operation operation) {
  char const c = operation == change ? 'c' : operation == replace ? 'r' : 'a';
  return textOf(key % 3 != 0 || key > 20 ? key : key == 3 ? 70000 : 33000 + key, c);
}
template <class Is, class Del>
void applyToText(unsigned int key, Operation operation, Is const& is, Del const& del) {
  String8 const name = format("key%u", key);
  if (operation == remove || operation == replace) del(name);
  if (operation != remove) is(name, valueOf(key, operation));
}
void applyToSetting(AradSlice& slice, unsigned int key, Operation operation) {
  Ptr<Arad> arad = chip(slice);
  applyToText(
      key, operation, [&](auto const& k, auto const& v) { arad->ddrTuneSettingIs(k, v); },
      [&](auto const& k) { arad->ddrTuneSettingDel(k); });
}
void applyToProperty(AradSlice& slice, unsigned int key, Operation operation) {
  Ptr<Inventory::Arad::SocProperties> bag = chip(slice)->elkGlobalSocProperties();
  applyToText(
      key, operation, [&](auto const& k, auto const& v) { bag->propertyIs(k, v); },
      [&](auto const& k) { bag->propertyDel(k); });
}

Family const families[] = {
    {"children under numbers", 522, sliceWithChip, chipEntity, applyToPort},
    {"children under names", 259, [] { return Ptr<AradSlice>(new AradSlice("s")); },
     [](AradSlice& slice) { return Ptr<Entity>(&slice); }, applyToChip},
    {"wrapped children", 266,
     [] {
       Ptr<AradSlice> slice = sliceWithChip();
       chip(**slice)->serdesIs(2, false, false, 0, 0, 0);
       return slice;
     },
     [](AradSlice& slice) { return Ptr<Entity>(chip(slice)->serdes(2)); }, applyToTuning},
    {"values under numbers", 260,
     [] {
       Ptr<AradSlice> slice = sliceWithChip();
       chip(**slice)->xlgeIs(3);
       return slice;
     },
     [](AradSlice& slice) { return Ptr<Entity>(chip(slice)->xlge(3)); }, applyToLane},
    {"strings of a chip", 523, sliceWithChip, chipEntity, applyToSetting},
    {"strings of a bag", 259,
     [] {
       Ptr<AradSlice> slice = sliceWithChip();
       chip(**slice)->elkGlobalSocPropertiesIs("g", 0);
       return slice;
     },
     [](AradSlice& slice) { return Ptr<Entity>(chip(slice)->elkGlobalSocProperties()); },
     applyToProperty},
};

class FlowFamily : public testing::TestWithParam<Family> {
 protected:
  static constexpr unsigned int keys = 8;

  Ptr<AradSlice> made() const {
    Ptr<AradSlice> slice = GetParam().make();
    for (unsigned int key = 1; key < keys; key += 2) GetParam().apply(**slice, key, add);
    return slice;
  }
  /// True while the flow-out of the collection's owner stands at the collection.
  bool stands(Mirror& mirror, AradSlice& slice) const {
    Ptr<Entity::MoxNboAttrLogSa> adapter = adapterOf(mirror, GetParam().owner(slice));
    return adapter && adapter->flowOut() && adapter->flowOut()->attrId() == GetParam().id;
  }
};

TEST_P(FlowFamily, AFullTransferStoppedAnywhereSurvivesEveryChangeInBetween) {
  // Every stop within the collection with every change, as long as it is small; then samples.
  constexpr int mostExhaustive = 6;
  bool const large = GetParam().owner == families[1].owner;
  int stopsAtTheCollection = 0;
  int bookmarks = 0;
  int openValues = 0;
  std::mt19937 random(1);
  bool last = false;
  for (unsigned int stop = 0; !last; ++stop) {
    unsigned int variants = 1;
    for (unsigned int variant = 0; variant < variants; ++variant) {
      Ptr<AradSlice> slice = made();
      LinkOptions options;
      options.outCapacity = leastCapacity;
      Mirror mirror{Ptr<Entity>(slice), options};
      mirror.connect();
      Stepper stepper(mirror);
      // Greetings first.
      mirror.exporterLink->service(1);
      stepper.drain();
      for (unsigned int step = 0; step < stop; ++step) stepper.step();
      last = !mirror.out().hasWaitingFlowOut() && stop > 0;
      if (variant == 0 && stands(mirror, **slice) && stopsAtTheCollection++ < mostExhaustive) {
        variants = 4 * keys;
      }
      if (stands(mirror, **slice)) {
        FlowOut const& flowOut = *adapterOf(mirror, GetParam().owner(**slice))->flowOut();
        bookmarks += flowOut.bookmark() != nullptr;
        openValues += flowOut.valueIter() != nullptr;
      }
      unsigned int const choice = variants > 1 ? variant : random() % (4 * keys);
      auto const operation = static_cast<Operation>(choice / keys);
      SCOPED_TRACE(testing::Message()
                   << "stop " << stop << ", operation " << operation << ", key " << choice % keys);
      GetParam().apply(**slice, choice % keys, operation);
      // Another one after one further message, so that a change meets what a change has begun.
      stepper.step();
      GetParam().apply(**slice, (choice + 3) % keys, static_cast<Operation>((choice + 1) % 4));
      stepper.finish();
      expectSame(mirror, stepper);
      if (HasFailure()) return;
    }
    if (large) stop += 6;
  }
  EXPECT_GE(stopsAtTheCollection, 3);
  EXPECT_GT(bookmarks, 0);
  bool const strings = GetParam().apply == applyToSetting || GetParam().apply == applyToProperty;
  EXPECT_EQ(openValues > 0, strings);
}

TEST_P(FlowFamily, DirtyKeysStoppedAnywhereSurviveEveryChangeInBetween) {
  for (unsigned int stop = 0; stop < 14; ++stop) {
    for (unsigned int variant = 0; variant < 4 * keys; variant += stop < 3 ? 1 : 7) {
      Ptr<AradSlice> slice = made();
      LinkOptions options;
      options.outCapacity = leastCapacity;
      Mirror mirror{Ptr<Entity>(slice), options};
      mirror.connect();
      mirror.settle();
      Stepper stepper(mirror);
      stepper.fill(runRoom - blockSize / 2);
      for (unsigned int key = 0; key < keys; ++key) {
        GetParam().apply(**slice, key, static_cast<Operation>(key % 4));
      }
      ASSERT_TRUE(mirror.out().hasWaitingFlowOut());
      stepper.drain();
      for (unsigned int step = 0; step < stop; ++step) stepper.step();
      SCOPED_TRACE(testing::Message() << "stop " << stop << ", variant " << variant);
      GetParam().apply(**slice, variant % keys, static_cast<Operation>(variant / keys));
      stepper.step();
      GetParam().apply(**slice, (variant + 5) % keys, static_cast<Operation>((variant + 1) % 4));
      stepper.finish();
      expectSame(mirror, stepper);
      if (HasFailure()) return;
    }
  }
}

TEST_P(FlowFamily, RandomChangesBetweenSingleMessages) {
  bool const large = GetParam().owner == families[1].owner;
  for (unsigned int seed = 1; seed <= (large ? 3u : 12u); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    unsigned int const range = large ? 4 : GetParam().id == 260 ? 60 : 200;
    Ptr<AradSlice> slice = made();
    for (unsigned int i = 0; i < range; ++i) GetParam().apply(**slice, random() % range, add);
    LinkOptions options;
    options.outCapacity = leastCapacity;
    Mirror mirror{Ptr<Entity>(slice), options};
    mirror.connect();
    Stepper stepper(mirror);
    for (int step = 0; step < 250; ++step) {
      for (unsigned int i = random() % 3; i != 0; --i) {
        GetParam().apply(**slice, random() % range, static_cast<Operation>(random() % 4));
      }
      if (random() % 4 == 0) stepper.fill(random() % runRoom);
      stepper.step();
    }
    stepper.finish();
    expectSame(mirror, stepper);
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Families, FlowFamily, testing::ValuesIn(families),
                         [](testing::TestParamInfo<Family> const& info) {
                           std::string name = info.param.name;
                           for (char& c : name) c = c == ' ' ? '_' : c;
                           return name;
                         });

// The gate.

struct GateScene {
  GateScene() : slice(sliceWithChip()), mirror(Ptr<Entity>(slice)) {
    Ptr<Arad> arad = chip(**slice);
    arad->qsgmiiIs(1);
    arad->xlgeIs(3);
    arad->portIs(5, nullptr);
    mirror.connect();
    mirror.settle();
    mirror.toImporter->capacity = 0;
  }
  std::size_t written() { return mirror.out().out()->committedSize(); }
  Ptr<AradSlice> slice;
  Mirror mirror;
};

struct GateFamily {
  char const* name;
  Ptr<Entity> (*owner)(AradSlice& slice);
  void (*change)(AradSlice& slice);
  bool ownsChild;
  /// Sent in a run though the buffer is short.
  bool sentShortInRun;
};

GateFamily const gateFamilies[] = {
    {"plain", [](AradSlice& s) { return Ptr<Entity>(&s); }, [](AradSlice& s) { s.numPortsIs(77); },
     false, true},
    {"pieces", [](AradSlice& s) { return Ptr<Entity>(chip(s)->qsgmii(1)); },
     [](AradSlice& s) { chip(s)->qsgmii(1)->descriptionIs("new"); }, false, false},
    {"reference", [](AradSlice& s) { return Ptr<Entity>(chip(s)->port(5)); },
     [](AradSlice& s) {
       // Set and cleared: the value that goes out is null, which needs no id.
       chip(s)->port(5)->xcvrSlotIs(nullptr);
       chip(s)->port(5)->ledManagedByPhyIs(true);
     },
     false, true},
    {"singleton", [](AradSlice& s) { return Ptr<Entity>(chip(s)->port(5)); },
     [](AradSlice& s) { chip(s)->port(5)->txConnectionIs(1); }, true, true},
    {"child", chipEntity, [](AradSlice& s) { chip(s)->portIs(6, nullptr); }, true, true},
    {"value", [](AradSlice& s) { return Ptr<Entity>(chip(s)->xlge(3)); },
     [](AradSlice& s) { chip(s)->xlge(3)->serdesIs(2, true); }, false, true},
    {"string", chipEntity, [](AradSlice& s) { chip(s)->ddrTuneSettingIs("k", "v"); }, false, false},
};

enum class Outcome { sent, nothing, marked };

TEST(FlowGate, EveryFlagHasItsOutcomeInEveryFamily) {
  struct Row {
    char const* what;
    std::uint32_t set;
    std::uint32_t cleared;
    Outcome outcome;
    bool isMarkKept;  ///< bit 4 stays
  };
  constexpr Row rows[] = {
      {"in step", 0, 0, Outcome::sent, false},
      {"bit 13", applyingSync, 0, Outcome::nothing, false},
      {"bit 13 and 4", applyingSync | changeFromLog, 0, Outcome::nothing, true},
      {"bit 4", changeFromLog, 0, Outcome::nothing, false},
      {"bit 5", boundByTransaction, 0, Outcome::nothing, false},
      {"bit 8", writingOff, 0, Outcome::nothing, false},
      {"no bit 26", 0, writingOn, Outcome::nothing, false},
      {"bit 27", deferAll, 0, Outcome::marked, false},
      {"bit 2", readOnlyHere, 0, Outcome::nothing, false},
      {"bit 8 before bit 2", readOnlyHere | writingOff, 0, Outcome::nothing, false},
  };
  for (GateFamily const& family : gateFamilies) {
    for (Row const& row : rows) {
      // A child from the log is bound to the id at which the reader stands: not without one.
      if (family.ownsChild && (row.set & (changeFromLog | applyingSync)) == changeFromLog) continue;
      SCOPED_TRACE(testing::Message() << family.name << ", " << row.what);
      GateScene scene;
      Ptr<Entity::MoxNboAttrLogSa> adapter = adapterOf(scene.mirror, family.owner(**scene.slice));
      ASSERT_TRUE(adapter->hasFlag(noFlowOut));
      adapter->flagsIs(row.set, true);
      adapter->flagsIs(row.cleared, false);
      family.change(**scene.slice);
      EXPECT_EQ(scene.written() != 0, row.outcome == Outcome::sent);
      EXPECT_EQ(adapter->flowOut() != nullptr, row.outcome == Outcome::marked);
      EXPECT_EQ(adapter->hasFlag(noFlowOut), row.outcome != Outcome::marked);
      if (adapter->flowOut()) {
        EXPECT_TRUE(adapter->flowOut()->hasDirtyAttributes());
      }
      EXPECT_EQ(adapter->hasFlag(changeFromLog), row.isMarkKept);
      bool const refused = row.set == readOnlyHere;
      EXPECT_EQ(scene.mirror.out().stats().readOnlyWrites, refused ? 1u : 0u);
      EXPECT_EQ(scene.mirror.out().stats().handlerExceptions, refused ? 1u : 0u);
      adapter->flagsIs(row.set, false);
    }
  }
}

TEST(FlowGate, AShortBufferMarksAndARunSendsAllTheSame) {
  for (GateFamily const& family : gateFamilies) {
    for (bool const inRun : {false, true}) {
      SCOPED_TRACE(testing::Message() << family.name << (inRun ? " in a run" : ""));
      GateScene scene;
      Stepper stepper(scene.mirror);
      stepper.fill(runRoom - 1000);
      std::size_t const before = scene.written();
      Ptr<Entity::MoxNboAttrLogSa> adapter = adapterOf(scene.mirror, family.owner(**scene.slice));
      adapter->flagsIs(inScheduledRun, inRun);
      family.change(**scene.slice);
      adapter->flagsIs(inScheduledRun, false);
      bool const sent = inRun && family.sentShortInRun;
      EXPECT_EQ(scene.written() != before, sent);
      EXPECT_EQ(adapter->flowOut() != nullptr, !sent);
      if (family.name == std::string("reference")) continue;
      stepper.drain();
      stepper.finish();
      expectSame(scene.mirror, stepper);
    }
  }
}

// FlowOut.

Ptr<FlowOut> flowOutFrom(Entity::MoxNboAttrLogSa& adapter, AttributeId start) {
  return adapter.flowOutIs(adapter.nboAttrLogOut(), ConnectDesc(), false, start);
}

TEST(FlowRun, TheOldestDebtIsNoOlderThanWhatIsStillOwed) {
  GateScene scene;
  Demuxer& out = scene.mirror.out();
  Ptr<Qsgmii> const qsgmii = chip(**scene.slice)->qsgmii(1);
  Stepper stepper(scene.mirror);
  auto const mark = [&](unsigned short lane) {
    stepper.fill(runRoom - blockSize / 2);
    qsgmii->descriptionIs(format("lane %u", lane));
    qsgmii->serdesIs(AradNifSerdesId(lane));
  };
  // A turn in which one message goes.
  auto const turn = [&](std::uint64_t now) {
    stepper.drain();
    stepper.fill();
    scene.mirror.exporterLink->service(now);
    return out.debt();
  };
  scene.mirror.exporterLink->service(100);
  mark(1);
  EXPECT_EQ(out.debt().oldestMs, 0u);
  EXPECT_EQ(turn(200).attributes, 1u);
  EXPECT_EQ(out.debt().oldestMs, 100u);
  // The entity owes something all the time, but nothing for long.
  std::uint64_t now = 200;
  for (unsigned short lane = 2; lane < 12; ++lane) {
    mark(lane);
    turn(now += 100);
  }
  EXPECT_GT(out.debt().attributes, 0u);
  EXPECT_LE(out.debt().oldestMs, 300u);
  while (out.debt().entities != 0 && now < 9000) turn(now += 100);
  EXPECT_EQ(out.debt().attributes, 0u);
}

using FlowDeathTest = testing::Test;

TEST(FlowDeathTest, SlotsOfOneAttributeAreNeverReadUnderAnother) {
  GateScene scene;
  Ptr<FlowOut> flowOut = flowOutFrom(**adapterOf(scene.mirror, scene.slice), 0);
  flowOut->attrIdIs(259);
  moxFlowOutBookmarkEnq(**flowOut, Name("next"));
  flowOut->attrIdIs(259);
  EXPECT_DEATH(flowOut->attrIdIs(260),
               "attrlog/FlowOut:[0-9]+: attrIdIs: "
               "Assertion '!hasFilledSlot\\(\\)' failed\\.");
  moxFlowOutBookmarkDeq<Name>(**flowOut);
}

TEST(FlowDeathTest, AKeyMustFitABlock) {
  GateScene scene;
  chip(**scene.slice)->ddrTuneSettingIs(textOf(49118, 'k'), textOf(100000, 'v'));
  EXPECT_DEATH(
      chip(**scene.slice)->ddrTuneSettingIs(textOf(49119, 'k'), "v"),
      "InvArad:[0-9]+: .*Assertion 'Mox::NboAttrLog::pessimisticMessageSizeEstimate\\(_mox_index,"
      "_ddrTuneSetting,true\\)<alOut->bufferBlockSize\\(\\)' failed\\.");
  Stepper stepper(scene.mirror);
  stepper.finish();
  expectSame(scene.mirror, stepper);
}

// Memory.

std::size_t allocated() { return mallinfo2().uordblks; }

/// What a sender may owe, in bytes: an entity's FlowOut, and a dirty key's entry.
constexpr std::size_t bytesPerEntity = 2048;
constexpr std::size_t bytesPerKey = 192;

/// What a connection in step with a peer costs this end, with so many small entities in its tree.
std::size_t connectionBytes(unsigned int entities) {
  Ptr<AradSlice> const slice = sliceWithChip();
  for (unsigned int i = 0; i < entities; ++i) {
    chip(**slice)->portIs(static_cast<unsigned short>(i), nullptr);
  }
  std::size_t const before = allocated();
  auto ends = MemoryLink::pair(1 << 20);
  std::shared_ptr<MemoryPipe> const out = ends.first->out();
  std::shared_ptr<MemoryPipe> const in = ends.first->in();
  Ptr<Link> const link(new Link(nullptr, std::move(ends.first), LinkOptions()));
  ends.second = nullptr;
  in->isEnded = false;
  std::string const greeting = Greeting().bytes();
  in->bytes.append(greeting.data(), greeting.size());
  link->demuxer().exportIs(Ptr<Entity>(slice));
  do {
    link->service(1);
    out->bytes.take(out->bytes.size());
  } while (link->wantsWrite() || link->demuxer().flowOutCount() != 0);
  out->bytes.release();
  in->bytes.release();
  EXPECT_EQ(link->demuxer().reactorCount(), entities + 2);
  return allocated() - before;
}

TEST(FlowMemory, AConnectionCostsItsBuffersAndAnEntityItsAdapter) {
  constexpr unsigned int entities = 10000;
  std::size_t const least = connectionBytes(0);
  std::size_t const most = connectionBytes(entities);
  RecordProperty("bytesPerConnection", static_cast<int>(least));
  RecordProperty("bytesPerAdapter", static_cast<int>((most - least) / entities));
  // Its buffer may have grown to twice the capacity.
  EXPECT_LE(least, 3 * defaultCapacity);
  EXPECT_LE(most, 3 * defaultCapacity + entities * 1024);
}

TEST(FlowMemory, AMillionChangesOfAThousandAttributesCostAPeerThatStoppedNoMoreThanTheirMarks) {
  constexpr unsigned short ports = 200;
  Ptr<AradSlice> slice = sliceWithChip();
  std::vector<Ptr<Inventory::Arad::EthPort>> all;
  for (unsigned short i = 0; i < ports; ++i) all.push_back(chip(**slice)->portIs(i, nullptr));
  Mirror mirror{Ptr<Entity>(slice)};
  mirror.connect();
  mirror.settle();
  mirror.toImporter->capacity = 0;
  Stepper stepper(mirror);
  stepper.fill(runRoom - 1000);
  std::size_t const before = allocated();
  for (unsigned int i = 0; i < 1000000; ++i) {
    Inventory::Arad::EthPort& port = **all[i % ports];
    unsigned int const round = i / ports / 5;
    switch (i / ports % 5) {
      case 0:
        port.laneIs(static_cast<unsigned char>(round + 1));
        break;
      case 1:
        port.numQPairsIs(static_cast<unsigned short>(round + 1));
        break;
      case 2:
        port.ledManagedByPhyIs(round % 2 == 0);
        break;
      case 3:
        port.fecManagedByFapIs(round % 2 == 1);
        break;
      case 4:
        port.geIdIs(AradNifSerdesId(static_cast<unsigned short>(round % 30)));
        break;
    }
    if (i % 10000 == 0) mirror.exporterLink->service(1);
  }
  std::size_t const after = allocated();
  std::size_t const grown = after > before ? after - before : 0;
  RecordProperty("bytesPerEntity", static_cast<int>(grown / ports));
  EXPECT_LE(grown, ports * bytesPerEntity);
  EXPECT_LE(mirror.out().out()->committedSize(), mirror.out().out()->capacity() + 4096);
  stepper.finish();
  expectSame(mirror, stepper);
}

TEST(FlowMemory, AMillionChangesOfTenThousandKeysCostAPeerThatStoppedNoMoreThanTheirMarks) {
  constexpr unsigned int keys = 10000;
  Ptr<AradSlice> slice = sliceWithChip();
  Ptr<Inventory::Arad::SocProperties> bag = chip(**slice)->elkGlobalSocPropertiesIs("g", 0);
  std::vector<String8> names;
  // One string for all members: what the changes free would hide what they cost.
  String8 const first("0");
  for (unsigned int i = 0; i < keys; ++i) {
    names.push_back(format("property_number_%u", i));
    bag->propertyIs(names.back(), first);
  }
  Mirror mirror{Ptr<Entity>(slice)};
  mirror.connect();
  mirror.settle();
  Stepper stepper(mirror);
  stepper.fill(runRoom - 1000);
  String8 const values[] = {"1", "2"};
  std::size_t const before = allocated();
  for (unsigned int i = 0; i < 1000000; ++i) bag->propertyIs(names[i % keys], values[i / keys % 2]);
  std::size_t const after = allocated();
  std::size_t const grown = after > before ? after - before : 0;
  RecordProperty("bytesPerKey", static_cast<int>(grown / keys));
  EXPECT_LE(grown, bytesPerEntity + keys * bytesPerKey);
  stepper.finish();
  expectSame(mirror, stepper);
}

// Subscribers that interfere with what arrives.

template <class T>
struct Meddler : T::NotifieeConst {
  std::function<void()> meddle;
};
struct ChipMeddler : Meddler<Arad> {
  void onPort(unsigned short) override { meddle(); }
  void onDdrTuneSetting(String8) override { meddle(); }
  void onTolminMbId() override { meddle(); }
  void onElkGlobalSocProperties() override { meddle(); }
};

TEST(FlowMeddling, ASubscriberMayRemoveTheEntityThatAMessageIsAbout) {
  struct Row {
    char const* what;
    void (*change)(Arad& arad);
  };
  constexpr Row rows[] = {
      {"number", [](Arad& arad) { arad.tolminMbIdIs(4); }},
      {"child", [](Arad& arad) { arad.portIs(9, nullptr); }},
      {"child removed", [](Arad& arad) { arad.portDel(5); }},
      {"singleton", [](Arad& arad) { arad.elkGlobalSocPropertiesIs("g", 0); }},
      {"string", [](Arad& arad) { arad.ddrTuneSettingIs("k", "v"); }},
      {"long string", [](Arad& arad) { arad.ddrTuneSettingIs("k", textOf(100000, 'v')); }},
      {"string removed", [](Arad& arad) { arad.ddrTuneSettingDel("old"); }},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.what);
    Ptr<AradSlice> slice = sliceWithChip();
    chip(**slice)->portIs(5, nullptr);
    chip(**slice)->ddrTuneSettingIs("old", "v");
    Mirror mirror{Ptr<Entity>(slice)};
    mirror.connect();
    mirror.settle();
    auto* copy = dynamic_cast<AradSlice*>(mirror.copy().get());
    Ptr<ChipMeddler> meddler(new ChipMeddler);
    meddler->isRegisteredNotifieeIs(true);
    meddler->notifierIs(Ptr<PtrInterface const>(copy->fap("f")));
    int calls = 0;
    meddler->meddle = [&] {
      if (calls++ == 0) copy->fapDel("f");
    };
    row.change(**chip(**slice));
    mirror.settle();
    EXPECT_EQ(mirror.importerClosed, "");
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(copy->fap("f"));
    meddler->notifierIs(nullptr);
    // A new transfer brings it back.
    mirror.cut();
    mirror.connect();
    mirror.settle();
    EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
  }
}

// The document.

std::string fileText(std::filesystem::path const& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

TEST(RoadDocument, EveryFunctionThatItNamesExists) {
  std::set<std::string> words;
  for (char const* room :
       {"/Mox", "/model", "/attrlog/wire", "/attrlog/adapter", "/attrlog/link"}) {
    for (auto const& entry : std::filesystem::directory_iterator(std::string(SOURCE_DIR) + room)) {
      std::string word;
      for (char c : fileText(entry.path()) + " ") {
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '_') {
          word += c;
        } else {
          words.insert(std::exchange(word, {}));
        }
      }
    }
  }
  std::string const road = fileText(SOURCE_DIR "/docs/road-of-a-change.md");
  auto const isWordChar = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
  };
  int names = 0;
  std::size_t end = 0;
  for (std::size_t at = road.find('`'); at != std::string::npos; at = road.find('`', end + 1)) {
    end = road.find('`', at + 1);
    ASSERT_NE(end, std::string::npos);
    // `Scope::name(arguments)` names `name`; code of other forms names no function.
    std::string name = road.substr(at + 1, end - at - 1);
    name = name.substr(0, name.find('('));
    if (std::size_t const scope = name.rfind("::"); scope != std::string::npos) {
      name = name.substr(scope + 2);
    }
    if (name.empty() || !std::all_of(name.begin(), name.end(), isWordChar)) continue;
    // Made by the schema compiler for the attribute of the example: tests call them.
    if (name.ends_with("escriptionIs") || name.find("Description") != std::string::npos) continue;
    EXPECT_TRUE(words.contains(name)) << name;
    ++names;
  }
  EXPECT_GT(names, 30);
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
