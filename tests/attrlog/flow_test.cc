// Dirty state, and when it is sent. Faults here lose a change that meets a walk which is stopped
// behind any of its messages, let a flag of an adapter through the gate, make a peer that stopped
// reading cost more than marks, or crash when a subscriber removes what a message is about.
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

#include "simulation/Changes.h"
#include "simulation/Outline.h"
#include "tests/attrlog/Mirror.h"

namespace Mox::NboAttrLog::test {
namespace {

using Hardware::Sand::AradNifSerdesId;
using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Inventory::Arad::Qsgmii;

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
  char const* key;  ///< the text of key N
  void (*make)(AradSlice& slice);
  Ptr<Entity> (*owner)(AradSlice& slice);

  void apply(AradSlice& slice, unsigned int key, Operation operation) const;
  bool hasTexts() const { return std::string(key) == "'key%u'"; }
};

Ptr<AradSlice> sliceWithChip() {
  Ptr<AradSlice> slice(new AradSlice("s"));
  slice->fapIs("f", 1);
  return slice;
}
Ptr<Arad> chip(AradSlice& slice) { return slice.fap("f"); }
Ptr<Entity> chipEntity(AradSlice& slice) { return Ptr<Entity>(chip(slice)); }

/// Some values need several messages.
String8 valueOf(unsigned int key, Operation operation) {
  char const c = operation == change ? 'c' : operation == replace ? 'r' : 'a';
  return textOf(key % 3 != 0 ? key : key == 3 ? 70000 : 33000 + key, c);
}

void Family::apply(AradSlice& slice, unsigned int number, Operation operation) const {
  using Op = GenericIf::AttributeOp;
  using Simulation::Argument;
  Ptr<GenericIf> const object = genericOf(owner(slice));
  Simulation::Attribute const& attribute = *Simulation::Outline::of(**object->type()).find(id);
  // Modes that both ends know: the removal of another one is passed over.
  Ptr<GenericIf> const index = attribute.attribute->keyType()->isEnumType()
                                   ? attribute.keys->at(number)
                                   : keyFromText(*attribute.attribute, format(key, number));
  auto const carry = [&](Op::OpId op, Ptr<GenericIf const> const& at, Ptr<GenericIf> const& value) {
    return object->attributeOp({id, op}, at, value);
  };
  if (operation == remove || operation == replace) carry(Op::attrDel, index, nullptr);
  if (operation == remove) return;
  if (!attribute.ownsChildren()) {
    carry(Op::attrSet, index,
          hasTexts() ? carrier(valueOf(number, operation)) : carrier(operation == change));
    return;
  }
  Ptr<Entity> const present = entityOf(carry(Op::attrGet, index, nullptr));
  if (operation == change) {
    Simulation::Chance chance(number);
    Simulation::Parties parties;
    for (int times = 0; present && times != 3; ++times) {
      Simulation::change(genericOf(present), chance, parties);
    }
  } else if (!present) {
    Ptr<GenericIf::List_> const arguments(new GenericIf::List_);
    for (Argument const& argument : attribute.arguments) {
      bool const isKey = &argument == &attribute.arguments.front();
      arguments->enq(isKey              ? index
                     : !argument.values ? Ptr<GenericIf>()
                     : operation == add ? argument.values->first()
                                        : argument.values->second());
    }
    carry(Op::attrSet, nullptr, arguments);
  }
}

Family const families[] = {
    {"children under numbers", 522, "%u", [](AradSlice&) {}, chipEntity},
    {"children under names", 259, "chip%u", [](AradSlice&) {},
     [](AradSlice& slice) { return Ptr<Entity>(&slice); }},
    {"wrapped children", 266, "",
     [](AradSlice& slice) { chip(slice)->serdesIs(2, false, false, 0, 0, 0); },
     [](AradSlice& slice) { return Ptr<Entity>(chip(slice)->serdes(2)); }},
    {"values under numbers", 260, "%u", [](AradSlice& slice) { chip(slice)->xlgeIs(3); },
     [](AradSlice& slice) { return Ptr<Entity>(chip(slice)->xlge(3)); }},
    {"strings of a chip", 523, "'key%u'", [](AradSlice&) {}, chipEntity},
    {"strings of a bag", 259, "'key%u'",
     [](AradSlice& slice) { chip(slice)->elkGlobalSocPropertiesIs("g", 0); },
     [](AradSlice& slice) { return Ptr<Entity>(chip(slice)->elkGlobalSocProperties()); }},
};

class FlowFamily : public testing::TestWithParam<Family> {
 protected:
  static constexpr unsigned int keys = 8;

  Ptr<AradSlice> made() const {
    Ptr<AradSlice> slice = sliceWithChip();
    GetParam().make(**slice);
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
  EXPECT_EQ(openValues > 0, GetParam().hasTexts());
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
};

GateFamily const gateFamilies[] = {
    {"plain", [](AradSlice& s) { return Ptr<Entity>(&s); }, [](AradSlice& s) { s.numPortsIs(77); },
     false},
    {"pieces", [](AradSlice& s) { return Ptr<Entity>(chip(s)->qsgmii(1)); },
     [](AradSlice& s) { chip(s)->qsgmii(1)->descriptionIs("new"); }, false},
    {"reference", [](AradSlice& s) { return Ptr<Entity>(chip(s)->port(5)); },
     [](AradSlice& s) {
       // Set and cleared: the value that goes out is null, which needs no id.
       chip(s)->port(5)->xcvrSlotIs(nullptr);
       chip(s)->port(5)->ledManagedByPhyIs(true);
     },
     false},
    {"singleton", [](AradSlice& s) { return Ptr<Entity>(chip(s)->port(5)); },
     [](AradSlice& s) { chip(s)->port(5)->txConnectionIs(1); }, true},
    {"child", chipEntity, [](AradSlice& s) { chip(s)->portIs(6, nullptr); }, true},
    {"value", [](AradSlice& s) { return Ptr<Entity>(chip(s)->xlge(3)); },
     [](AradSlice& s) { chip(s)->xlge(3)->serdesIs(2, true); }, false},
    {"string", chipEntity, [](AradSlice& s) { chip(s)->ddrTuneSettingIs("k", "v"); }, false},
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
