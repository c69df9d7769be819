// Messages that no honest end sends, and those of a later schema: a row is a stream, whether it is
// accepted or refused, and what it changes. Faults here let a peer change a tree half, leave marks
// or records behind, or end this process.
#include <gtest/gtest.h>

#include "attrlog/adapter/Rows.h"
#include "tests/attrlog/Scene.h"

namespace Mox::NboAttrLog::test {
namespace {

using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Code = StreamError;

struct Refused {
  char const* what;
  Code code;
  char const* stream;
};

Refused const refused[] = {
    // Headers.
    {"end token", Code::badToken, "slice 258 u4=1 token=1"},
    {"even id", Code::badId, "8 258 u4=1"},
    {"id 0", Code::badId, "0 258 u4=1"},
    {"tag on a number", Code::badHeader, "slice 258 u4=1 tag"},
    {"tag on a removal", Code::badHeader, "arad -522 u2=16 tag"},
    {"child without a tag", Code::badHeader, "arad 522 u2=17 u8=0 id=fresh"},
    {"full transfer of nothing", Code::badHeader, "slice 258 u4=1 flags=5"},
    {"tag on a marker", Code::badHeader, "marker arad 522 begin flags=9"},
    {"ack about an entity", Code::badHeader, "ack slice 0"},
    {"ack with a payload", Code::badLength, "ack 0 0 raw=x"},
    {"ack of what wasn't sent", Code::badAck, "ack 0 0 ack=1"},
    {"ack of minus one", Code::badAck, "slice 258 u4=1 ack=4294967295"},
    {"complete with a payload", Code::badLength, "complete slice 0 raw=x"},
    {"complete of an even id", Code::badId, "complete 8 0"},
    {"number of unknown length", Code::badHeader, "slice 258 u4=1 flags=1"},
    {"string of known length", Code::badHeader, "qsgmii 259 text=x flags=0"},
    {"removed child of known length", Code::badHeader, "arad -522 u2=16 flags=0"},
    {"least of all attributes", Code::badHeader, "slice -2147483648"},
    {"request by the end that owns the tree", Code::notPermitted, "repeat slice 258"},
    // Lengths.
    {"short number", Code::badLength, "slice 258 u3=1"},
    {"long number", Code::badLength, "slice 258 u5=1"},
    {"empty number", Code::badLength, "slice 258"},
    {"short text", Code::badLength, "arad 540 u4=9 raw=12345678"},
    {"text of 4 GiB", Code::badLength, "arad 540 u4=4294967295 raw=x"},
    {"bytes behind a text", Code::badLength, "arad 540 text=peer raw=x"},
    {"short piece", Code::badLength, "qsgmii 259 u4=9 raw=12345678"},
    {"bytes behind a piece", Code::badLength, "qsgmii 259 text=up raw=x"},
    {"piece without its word", Code::badLength, "qsgmii 259 u3=0"},
    {"key without its value", Code::badLength, "xlge 260 u2=4"},
    {"bytes behind a value", Code::badLength, "xlge 260 u2=4 u2=1"},
    {"bytes behind a removed key", Code::badLength, "arad -522 u3=16"},
    {"bytes behind a removed child", Code::badLength, "port -276 raw=x"},
    {"key behind the end", Code::badLength, "arad 523 u4=99 raw=key"},
    {"child without its id", Code::badLength, "arad 522 tag u2=17 u8=0"},
    {"bytes behind a child's id", Code::badLength, "arad 522 tag u2=17 u8=0 id=fresh raw=x"},
    {"short marker", Code::badLength, "marker arad 522 u7=0"},
    {"long marker", Code::badLength, "marker arad 522 begin u1=0"},
    // Compound messages.
    {"compound behind the end", Code::badLength, "arad 144 u2=400 u2=0 u4=7"},
    {"key end behind the end", Code::badLength, "arad 144 list=60000:522 u4=0 u2=17 u8=0 id=fresh"},
    {"arguments that reach into the id", Code::badLength, "arad 144 list=12:525 u4=0 id=fresh"},
    {"a gap that leaves no id", Code::badLength, "arad 144 list=23:522 u4=0 u2=17 u8=0 id=fresh"},
    {"no number behind a positive list", Code::badLength, "arad 144 list=0:518 u2=1 id=fresh"},
    {"compound child of an id in use", Code::badId, "arad 144 list=0:522 u4=0 u2=17 u8=0 id=slice"},
    {"compound child that refers to nothing known", Code::badId,
     "arad 144 list=0:522 u4=0 u2=17 id=fresh2 id=fresh"},
    // Ids and references.
    {"child of an even id", Code::badId, "arad 522 tag u2=17 u8=0 u8=8"},
    {"child of id 1", Code::badId, "arad 522 tag u2=17 u8=0 u8=1"},
    {"child with its parent's id", Code::badId, "arad 522 tag u2=17 u8=0 id=arad"},
    {"child with its sibling's id", Code::badId, "arad 522 tag u2=17 u8=0 id=port"},
    {"singleton with the root's id", Code::badId, "port 276 tag u4=9 id=slice"},
    {"reference to nothing known", Code::badId, "port 260 id=fresh"},
    {"reference to another type", Code::badValue, "port 260 id=qsgmii"},
    // Roots: sections of type, arguments and identity, each with its length.
    {"unknown message for the target of roots", Code::badOrphan, "roots 137"},
    {"sections in another order", Code::badOrphan,
     "roots 136 u1=3 u4=30 text=Inventory::Arad::AradSlice u1=3 u4=5 text=n u1=4 u4=8 id=fresh"},
    {"section behind the end", Code::badOrphan,
     "roots 136 u1=1 u4=999 text=Inventory::Arad::AradSlice u1=3 u4=5 text=n u1=4 u4=8 id=fresh"},
    {"section with a rest", Code::badOrphan,
     "roots 136 u1=1 u4=30 text=Inventory::Arad::AradSlice u1=3 u4=6 text=n raw=x u1=4 u4=8 "
     "id=fresh"},
    {"bytes behind the sections", Code::badOrphan,
     "roots 136 u1=1 u4=30 text=Inventory::Arad::AradSlice u1=3 u4=5 text=n u1=4 u4=8 id=fresh "
     "raw=x"},
    {"root of an even id", Code::badId,
     "roots 136 u1=1 u4=30 text=Inventory::Arad::AradSlice u1=3 u4=5 text=n u1=4 u4=8 u8=8"},
    {"root with an id in use", Code::badId,
     "roots 136 u1=1 u4=30 text=Inventory::Arad::AradSlice u1=3 u4=5 text=n u1=4 u4=8 id=port"},
    {"withdrawal of no root", Code::badOrphan, "roots -136 id=port"},
    {"short withdrawal", Code::badLength, "roots -136 u7=9"},
    // Pieces.
    {"empty piece with more to come", Code::badPiece, "qsgmii 259 more="},
    {"two open values under two keys", Code::badPiece,
     "arad 523 text=a more=x ; arad 523 text=b more=x"},
    {"two open values of two attributes", Code::badPiece,
     "arad 523 text=a more=x ; arad 527 text=a more=x"},
    {"whole value while another attribute's is open", Code::badPiece,
     "arad 523 text=a more=x ; arad 527 text=b text=x"},
    {"abort of another attribute", Code::badPiece,
     "arad 523 text=a more=x ; marker arad 527 abort"},
    // Markers.
    {"marker 3", Code::badMarker, "marker arad 522 u4=3 u4=0"},
    {"begin of a number", Code::badMarker, "marker slice 258 begin"},
    {"begin of nothing", Code::badMarker, "marker slice 9999 begin"},
    {"begin twice", Code::badMarker, "marker arad 522 begin ; marker arad 522 begin"},
    {"end without begin", Code::badMarker, "marker arad 522 end"},
    {"end of another collection", Code::badMarker, "marker arad 522 begin ; marker arad 516 end"},
    {"end with an open value", Code::badMarker,
     "marker arad 523 begin ; arad 523 text=a more=x ; marker arad 523 end"},
    {"abort of a number", Code::badMarker, "marker slice 258 abort"},
    {"abort of children", Code::badMarker, "marker arad 522 abort"},
    // Values.
    {"key out of range", Code::badValue, "arad 518 tag u2=32767 id=fresh"},
    {"removed key out of range", Code::badValue, "arad -518 u2=32767"},
    {"clock of another role", Code::badValue,
     "roots 136 u1=1 u4=21 text=Inventory::Si5327 u1=3 u4=13 text=clock u4=7 u1=4 u4=8 id=fresh "
     "; arad 536 id=fresh"},
    {"unknown mode", Code::badValue, "slice 135 u4=4"},
};

TEST(Hostile, AnImporterRefusesWithItsTreeUntouchedAndTheOtherEndLives) {
  for (Refused const& row : refused) {
    SCOPED_TRACE(row.what);
    Scene scene;
    Mirror& mirror = scene.mirror;
    std::string const before = treeText(mirror.copy());
    scene.tell(row.stream);
    mirror.turn();
    std::string const expected =
        std::string("log: ") + streamErrorName(row.code) + " at stream offset ";
    EXPECT_TRUE(mirror.importerClosed.starts_with(expected)) << mirror.importerClosed;
    EXPECT_EQ(mirror.importerLink->end(), Link::End::refused);
    EXPECT_EQ(treeText(mirror.copy()), before);
    EXPECT_EQ(Marks::openCount(), 0u);
    // The exporter is sent the reason, and serves the next connection.
    mirror.settle();
    EXPECT_EQ(mirror.exporterClosed, "log: refused by the peer: " + mirror.importerClosed);
    mirror.connect();
    mirror.settle();
    EXPECT_TRUE(mirror.in().inStep());
    EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
  }
}

/// A stream that is accepted. `changes`: lines of the tree's text that come, with '-' those that
/// go.
struct Accepted {
  char const* what;
  char const* stream;
  std::vector<std::string> changes = {};
  std::uint64_t unknownAttrs = 0;
  std::uint64_t unknownEnums = 0;
  std::uint64_t strays = 0;
};

Accepted const accepted[] = {
    {"a gap in front of the id",
     "arad 144 list=25:522 u4=0 u2=17 u8=0 raw=gap id=fresh",
     {"root.fap[f].port[17]"}},
    {"a negative id has no number behind the list",
     "arad -144 list=0:7:-522 u2=16",
     {"-root.fap[f].port[16]"}},
    {"the sign of the list counts", "arad 144 list=0:7:-522:516 u2=16", {"-root.fap[f].port[16]"}},
    {"an attribute of the base type", "arad -144 list=0:-394 u4=9"},
    {"a value's attribute in a list", "arad -144 list=0:523:-523 text=old", {}, 1},
    {"no known id in a list", "arad 144 list=0:7:8 u4=0 raw=x", {}, 1},
    {"a list for a type without children", "qsgmii 144 raw=x", {}, 1},
    {"removal of what has no removal", "qsgmii -259 raw=x", {}, 1},
    {"removal of the mode", "arad -135 u4=1", {}, 1},
    {"unknown attributes", "slice 9999 raw=xyz ; slice -9999 ; arad 257 u4=1", {}, 3},
    {"unknown entities",
     "fresh 258 u4=1 ; marker fresh 522 begin ; complete fresh 0 ; roots -136 "
     "id=fresh",
     {},
     0,
     0,
     4},
    {"removal of no member", "arad -522 u2=99"},
    {"an abort of nothing", "marker qsgmii 259 abort"},
    {"an enumerator of a later schema",
     "port 267 u4=77",
     {"root.fap[f].port[16].managedPhy='AradManagedPhy(77)'"},
     0,
     1},
    {"a child under an enumerator of a later schema",
     "lane 266 tag u4=77 id=fresh",
     {"root.fap[f].serdes[3].jerichoNifSerdesTuning['JerichoNifSerdesTuningMode(77)']"},
     0,
     1},
    {"an empty string leaves nothing open", "qsgmii 259", {"root.fap[f].qsgmii[0].description=''"}},
    {"a whole value beside an open one",
     "arad 523 text=a more=x ; arad 523 text=b text=y ; arad 523 text=a text=z",
     {"root.fap[f].ddrTuneSetting['a']='xz'", "root.fap[f].ddrTuneSetting['b']='y'"}},
    {"an abort drops what has come of a string",
     "qsgmii 259 more=half ; marker qsgmii 259 abort ; qsgmii 259 text=whole",
     {"root.fap[f].qsgmii[0].description='whole'"}},
    {"an abort leaves an open transaction",
     "marker cge 260 begin ; cge 259 more=half ; marker cge 259 abort ; marker cge 260 end",
     {"-root.fap[f].cge[3].serdesAllocated[4]=true"}},
};

TEST(Hostile, WhatIsAcceptedChangesItsPlaceAloneAndLeavesNothingOpen) {
  auto const lines = [](Ptr<Entity> const& tree) { return "\n" + treeText(tree); };
  for (Accepted const& row : accepted) {
    SCOPED_TRACE(row.what);
    Scene scene;
    std::string const before = lines(scene.mirror.copy());
    scene.tell(row.stream);
    scene.mirror.turn();
    Demuxer const& demuxer = scene.mirror.in();
    EXPECT_EQ(demuxer.error(), "");
    std::string const after = lines(scene.mirror.copy());
    EXPECT_EQ(after != before, !row.changes.empty());
    for (std::string const& change : row.changes) {
      bool const goes = change.starts_with("-");
      std::string const line = "\n" + change.substr(goes ? 1 : 0) + "\n";
      EXPECT_EQ(before.find(line) != before.npos, goes) << change;
      EXPECT_EQ(after.find(line) != after.npos, !goes) << change << after;
    }
    EXPECT_EQ(demuxer.stats().unknownAttrs, row.unknownAttrs);
    EXPECT_EQ(demuxer.stats().unknownEnums, row.unknownEnums);
    EXPECT_EQ(demuxer.stats().strays, row.strays);
    EXPECT_EQ(demuxer.stats().handlerExceptions, 0u);
    EXPECT_EQ(demuxer.flowInCount(), 0u);
    EXPECT_EQ(demuxer.checkInvariants(), "");
    scene.mirror.cut();
    EXPECT_EQ(Marks::openCount(), 0u);
  }
}

TEST(Hostile, AnExporterRefusesWhatItDoesNotGrant) {
  struct Row {
    Code code;
    char const* stream;
    bool isWritable = false;
  };
  constexpr Row rows[] = {
      {Code::notPermitted, "slice 258 u4=9"},          {Code::notPermitted, "arad -522 u2=16"},
      {Code::notPermitted, "marker arad 522 begin"},   {Code::notPermitted, "arad 9999"},
      {Code::notPermitted, "slice 135 u4=1"},          {Code::notPermitted, "slice 135 u4=1", true},
      {Code::badAck, "ack 0 0 ack=5 ; ack 0 0 ack=4"}, {Code::badAck, "ack 0 0 ack=1000000"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.stream);
    Scene scene(row.isWritable ? Scene::writable() : LinkOptions());
    std::string const before = treeText(scene.mirror.root());
    std::string bytes = scene.stream(row.stream);
    std::uint32_t const begun = scene.mirror.in().host().exchange.framesBegun();
    if (row.isWritable) bytes.replace(18, 4, number(begun, 4));
    scene.give(scene.mirror.toExporter, bytes);
    scene.mirror.turn();
    EXPECT_EQ(scene.mirror.exporterLink->demuxer().errorCode(), row.code);
    EXPECT_EQ(treeText(scene.mirror.root()), before);
  }
}

TEST(Hostile, WhatIsRefusedIsReadAsNullAndReportedOnce) {
  Scene scene;
  Mirror& mirror = scene.mirror;
  // A root of an unknown type, a child of an attribute that this end doesn't have, one of that.
  scene.tell(
      "roots 136 u1=1 u4=12 text=No::Such u1=3 u4=5 text=n u1=4 u4=8 id=fresh1 ; "
      "arad 9998 tag u4=1 id=fresh22 ; fresh22 9997 tag u4=1 id=fresh333 ; "
      "arad 9998 tag u4=2 id=fresh22 ; arad 257 u4=1 ; "
      "port 260 id=fresh1 ; port 260 id=fresh22 ; port 260 id=fresh333");
  mirror.turn();
  EXPECT_EQ(mirror.importerClosed, "");
  EXPECT_FALSE(scene.copy().fap("f")->port(16)->xcvrSlot());
  EXPECT_EQ(mirror.in().stats().refusedOrphans, 1u);
  EXPECT_EQ(mirror.in().stats().strays, 1u);
  EXPECT_EQ(mirror.in().stats().unknownAttrs, 3u);
  EXPECT_EQ(mirror.importerReports,
            (std::vector<std::string>{
                "exporter: connected",
                "exporter: passes over attribute 9998 of Inventory::Arad::Arad",
                "exporter: passes over attribute 257 of Inventory::Arad::Arad",
            }));
}

TEST(Hostile, ACompoundMessageLosesAConflictAsThePlainOneDoes) {
  struct Row {
    bool creates;
    char const* stream;
  };
  constexpr Row rows[] = {
      {true, "arad 522 tag u2=17 u8=0 id=fresh"},
      {true, "arad 144 list=0:522 u4=0 u2=17 u8=0 id=fresh"},
      {false, "arad -522 u2=16"},
      {false, "arad -144 list=0:-522 u2=16"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.stream);
    Scene scene(Scene::writable());
    std::uint32_t const begun = scene.mirror.in().host().exchange.framesBegun();
    std::string const bytes = scene.stream(row.stream).replace(18, 4, number(begun, 4));
    // This end has sent something else about the slot, which the writer had not received.
    unsigned short const key = row.creates ? 17 : 16;
    if (!row.creates) scene.arad->portDel(key);
    scene.arad->portIs(key, nullptr)->laneIs(5);
    if (row.creates) scene.arad->portDel(key);
    scene.mirror.exporterLink->service(1);
    std::string const before = treeText(scene.mirror.root());
    scene.give(scene.mirror.toExporter, bytes);
    scene.mirror.exporterLink->service(1);
    EXPECT_EQ(scene.mirror.out().error(), "");
    EXPECT_EQ(scene.mirror.out().stats().conflicts, 1u);
    EXPECT_EQ(treeText(scene.mirror.root()), before);
  }
}

std::string internalText(std::function<void()> const& call) {
  try {
    call();
  } catch (InternalException const& failure) {
    return failure.what();
  }
  return "nothing thrown";
}

TEST(Hostile, TheFrameOfAMessageRefusesAndCleansUp) {
  Scene scene;
  StreamAdapter::DeserializationOptions const options;
  // The exporting end's adapters are proxies that the peer may not write.
  Ptr<Entity::MoxNboAttrLogSa> const adapter = scene.adapter(scene.arad);
  auto const apply = [&] { adapter->handleAttrDeserialization(523, options, 0, Ptr<In>()); };
  std::string const before = treeText(scene.mirror.root());
  EXPECT_EQ(internalText(apply),
            "write-update from readonly proxy: " + std::string(scene.arad->fullName().view()) +
                " peerName: importer");
  EXPECT_FALSE(adapter->hasFlag(changeFromLog));
  adapter->flagsIs(changeFromLog, true);
  EXPECT_EQ(internalText(apply), "entity reactor is already active");
  EXPECT_TRUE(adapter->hasFlag(changeFromLog)) << "it is not this call's";
  adapter->flagsIs(changeFromLog, false);
  EXPECT_EQ(treeText(scene.mirror.root()), before);
}

TEST(Hostile, ATextInPiecesEndsItsRecordBehindTheSetterWhateverASubscriberDoes) {
  struct Watch : Arad::NotifieeConst {
    void onDescription() override { note(); }
    void onDdrTuneSetting(String8) override { note(); }
    void onNotificationException(AttributeId) override { throw; }
    void note() {
      open.push_back(demuxer->flowInCount());
      if (removes) (*slice)->fapDel("f");
      if (throws) throwInternalException("refused");
    }
    Demuxer* demuxer = nullptr;
    Ptr<AradSlice>* slice = nullptr;
    bool throws = false;
    bool removes = false;
    std::vector<std::size_t> open;
  };
  for (AttributeId const attribute : {258, 523}) {
    for (bool const throws : {false, true}) {
      for (bool const removes : {false, true}) {
        SCOPED_TRACE(testing::Message() << attribute << throws << removes);
        Scene scene(Scene::writable());
        std::string const frame =
            "arad " + std::to_string(attribute) + (attribute == 523 ? " text=k" : "");
        Ptr<AradSlice> copy(&scene.copy());
        Ptr<Arad> const chip = copy->fap("f");
        Ptr<Watch> const watch(new Watch);
        watch->demuxer = &scene.mirror.in();
        watch->slice = &copy;
        watch->throws = throws;
        watch->removes = removes;
        watch->isRegisteredNotifieeIs(true);
        watch->notifierIs(Ptr<PtrInterface const>(chip));
        scene.tell(frame + " more=two_ ; " + frame + " text=pieces ; " + frame + " text=one");
        scene.mirror.turn();
        using Counts = std::vector<std::size_t>;
        EXPECT_EQ(watch->open, removes ? Counts{1} : (Counts{1, 0}));
        EXPECT_EQ(scene.mirror.in().error(), "");
        EXPECT_EQ(scene.mirror.in().flowInCount(), 0u);
        EXPECT_EQ(scene.mirror.in().stats().handlerExceptions, throws ? watch->open.size() : 0u);
        EXPECT_EQ(attribute == 523 ? chip->ddrTuneSetting("k") : chip->description(),
                  removes ? "two_pieces" : "one");
        watch->notifierIs(nullptr);
      }
    }
  }
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
