// Traces message for message: full transfers of each type, each kind of change at once and when it
// waited for room, roots of every type. Faults here change the order, the count or the form of
// messages.
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "attrlog/wire/StreamText.h"
#include "tests/attrlog/Mirror.h"

namespace Mox::NboAttrLog::test {
namespace {

using namespace Inventory::Arad;
using Hardware::Sand::AradNifSerdesId;
using Direction = StreamText::Direction;

/// The frames that reach the importer, a word each: `attr` a value, `-attr` a removal, `<attr` and
/// `attr>` begin and end, `!attr` an abort, `+attr[key]=Type(arguments)` a child, `attr..` a piece,
/// `root:Type(arguments)`, `gone:` a withdrawal, `.` the end of a full transfer.
class Trace {
 public:
  explicit Trace(Mirror& mirror) : mirror_(mirror) {}

  void begin() {
    mirror_.in().frameObserverIs([this](Frame const& frame) {
      std::string const line = text_.frameLine(Direction::received, frame);
      if (line != "ack") words_ += word(line) + " ";
    });
  }
  std::string take() {
    std::string words = std::exchange(words_, {});
    if (!words.empty()) words.pop_back();
    return words;
  }

 private:
  static std::string word(std::string const& line) {
    std::size_t const space = line.find(' ');
    std::string const what = line.substr(0, space);
    if (what == "complete") return line == "complete all roots" ? "all" : ".";
    std::string rest = line.substr(what == "last" ? 11 : space + 1);
    if (what == "root") {
      if (rest.starts_with("withdrawn")) return "gone:";
      return "root:" + shortType(rest.substr(rest.find(": ") + 2));
    }
    // The last step of the path; keys may hold anything.
    std::size_t const bracket = rest.find(what == "set" ? " = " : ": ");
    std::string const place = rest.substr(0, bracket);
    std::size_t at = place.find_last_of("./");
    if (place.ends_with("]")) at = place.find_last_of("./", place.rfind('['));
    std::string const name = place.substr(at == std::string::npos ? 0 : at + 1);
    if (what == "set") return name;
    if (what == "child") return "+" + name + "=" + shortType(rest.substr(bracket + 2));
    if (what == "del") return "-" + name;
    if (what == "begin") return "<" + name;
    if (what == "end") return name + ">";
    if (what == "abort") return "!" + name;
    if (what == "piece") return name + "..";
    return what == "last" ? name : line;
  }
  /// Without the namespaces of the type.
  static std::string shortType(std::string const& text) {
    std::size_t const args = text.find('(');
    std::size_t const scope = text.rfind("::", args);
    return scope == std::string::npos ? text : text.substr(scope + 2);
  }

  Mirror& mirror_;
  StreamText text_{[](Direction, std::string const&) {}, {false, 40}};
  std::string words_;
};

struct Scene {
  Scene() : slice(new AradSlice("s")), mirror(Ptr<Entity>(slice)), trace(mirror) {
    mirror.connect();
    trace.begin();
    mirror.settle();
  }
  std::string traced(std::function<void()> const& act) {
    trace.take();
    act();
    mirror.settle();
    EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
    EXPECT_EQ(mirror.in().stats().strays, 0u);
    return trace.take();
  }
  Ptr<Arad> arad() { return slice->fapIs("f", 4); }

  Ptr<AradSlice> slice;
  Mirror mirror;
  Trace trace;
};

TEST(TraceTransfer, EachTypeIsSaidByItsAttributesInTheOrderOfTheirIds) {
  struct Row {
    std::function<void(Scene&)> act;
    char const* words;
  };
  Row const rows[] = {
      {[](Scene& s) { s.arad(); },
       "+fap[f]=Arad('f', 4) description modelName vendorType hardwareRev firmwareRev serialNum "
       "mfgName mfgDate api requirement uNum fapType numCores coreClockFreqKhz fabricMode "
       "nifRefClock fabricRefClock comboRefClock <serdesQuartet serdesQuartet> <fabricSerdes "
       "fabricSerdes> <tempSensor tempSensor> dramConfig fapRevMajor -pciDevice <serdes serdes> "
       "<nifSerdesQuartet nifSerdesQuartet> <qsgmii qsgmii> <xlge xlge> <xlge2 xlge2> <cge cge> "
       "<port port> <ddrTuneSetting ddrTuneSetting> -elkAllUnitsSocProperties "
       "<elkPerUnitsSocProperties elkPerUnitsSocProperties> -elkGlobalSocProperties "
       "<serdesClockSocPropertyValue serdesClockSocPropertyValue> <statsSerdes statsSerdes> "
       "tolminMbId tolminMbUnit slotId hwResetUsingPlx hwResetUsingKyr interruptController "
       "<mdioAccelBlock mdioAccelBlock> pllClock <elkConnection elkConnection> extTcamType "
       "lunetPeerName lunetPeerAddr ilknCoreToPipeSwap ."},
      {[](Scene& s) { s.arad()->qsgmiiIs(1); }, "+qsgmii[1]=Qsgmii(1) description serdes ."},
      {[](Scene& s) { s.arad()->xlgeIs(3); },
       "+xlge[3]=Xlge(3) description <serdes serdes> phyLaneSwap laneWithLowMDIOAddrInQuad ."},
      {[](Scene& s) { s.arad()->xlge2Is(2); },
       "+xlge2[2]=Xlge2(2) description serdesSpeed <serdes serdes> ."},
      {[](Scene& s) { s.arad()->cgeIs(0); },
       "+cge[0]=Cge(0) description <serdesAllocated serdesAllocated> <serdesUsed serdesUsed> ."},
      {[](Scene& s) { s.arad()->serdesIs(5, true, false, 7, 3, 9); },
       "+serdes[5]=NifSerdes(5, true, false, 7, 3, 9) txSerdesId rxSerdesId "
       "<jerichoNifSerdesTuning jerichoNifSerdesTuning> txPhaseInterpolation ."},
      {[](Scene& s) {
         s.arad()->serdes(5)->jerichoNifSerdesTuningIs(Hardware::Sand::serdesTuningCopper);
       },
       "+jerichoNifSerdesTuning['serdesTuningCopper']=JerichoNifSerdesTuning('serdesTuningCopper') "
       "preCursor mainCursor postCursor ."},
      {[](Scene& s) { s.arad()->statsSerdesIs(30, true); },
       "+statsSerdes[30]=StatsSerdes(30, true) ."},
      {[](Scene& s) { s.arad()->nifSerdesQuartetIs(Hardware::Sand::SerdesQuartetId(2)); },
       "+nifSerdesQuartet[2]=SerdesQuartet(2) description ."},
      {[](Scene& s) { s.arad()->portIs(17, nullptr); },
       "+port[17]=EthPort(17, null) xcvrSlot qsgmiiId geId xgeId xlgeId xlge2Id cgeId managedPhy "
       "ledManagedByPhy numQPairs bringup10GigButXgeNotSupported serdesCoreType lane "
       "txAlwaysEnabledAt10g fecManagedByFap xge25gSupported -txConnection -rxConnection ."},
      {[](Scene& s) { s.arad()->port(17)->txConnectionIs(9); },
       "+txConnection=ConnectionEndpoint(9) ."},
      {[](Scene& s) { s.arad()->elkGlobalSocPropertiesIs("g", 4); },
       "+elkGlobalSocProperties=SocProperties('g', 4) <property property> ."},
      {[](Scene& s) { s.arad()->elkPerUnitsSocPropertiesIs(5); },
       "+elkPerUnitsSocProperties[5]=SocProperties(5) <property property> ."},
      {[](Scene& s) {
         s.arad()->mdioAccelBlockIs(Hardware::VesperAccelId(2), 77, Units::Megahertz(2.5));
       },
       "+mdioAccelBlock[2]=AccelBlock(2, 77, 2.5) ."},
      {[](Scene& s) { s.arad()->elkConnectionIs(6); }, "+elkConnection[6]=ConnectionEndpoint(6) ."},
      {[](Scene& s) { s.arad()->pciDeviceIs("0000:01:00.0"); },
       "+pciDevice=PciDevice('0000:01:00.0') ."},
  };
  Scene scene;
  EXPECT_EQ(scene.trace.take(),
            "root:AradSlice('s') all numPorts <fap fap> useMdio managedPhy "
            "accelerate100gVoq cellIsAlone macsecIsSupported .");
  for (Row const& row : rows) {
    EXPECT_EQ(scene.traced([&] { row.act(scene); }), row.words);
  }
}

TEST(TraceTransfer, AParentStandsInFrontOfItsChildrenAndEachCollectionBetweenItsMarkers) {
  Scene scene;
  scene.arad()->xlgeIs(3)->serdesIs(AradNifSerdesId(4), true);
  scene.arad()->xlge(3)->serdesIs(AradNifSerdesId(6), true);
  scene.arad()->xlgeIs(5);
  scene.arad()->ddrTuneSettingIs("a", "1");
  scene.mirror.cut();
  scene.mirror.connect();
  scene.trace.begin();
  scene.trace.take();
  scene.mirror.settle();
  EXPECT_EQ(scene.trace.take(),
            "root:AradSlice('s') all numPorts <fap +fap[f]=Arad('f', 4) description modelName "
            "vendorType hardwareRev firmwareRev serialNum mfgName mfgDate api requirement uNum "
            "fapType numCores coreClockFreqKhz fabricMode nifRefClock fabricRefClock comboRefClock "
            "<serdesQuartet serdesQuartet> <fabricSerdes fabricSerdes> <tempSensor tempSensor> "
            "dramConfig fapRevMajor -pciDevice <serdes serdes> <nifSerdesQuartet nifSerdesQuartet> "
            "<qsgmii qsgmii> <xlge +xlge[5]=Xlge(5) description <serdes serdes> phyLaneSwap "
            "laneWithLowMDIOAddrInQuad . +xlge[3]=Xlge(3) description <serdes serdes[4] serdes[6] "
            "serdes> phyLaneSwap laneWithLowMDIOAddrInQuad . xlge> <xlge2 xlge2> <cge cge> <port "
            "port> <ddrTuneSetting ddrTuneSetting['a'] ddrTuneSetting> -elkAllUnitsSocProperties "
            "<elkPerUnitsSocProperties elkPerUnitsSocProperties> -elkGlobalSocProperties "
            "<serdesClockSocPropertyValue serdesClockSocPropertyValue> <statsSerdes statsSerdes> "
            "tolminMbId tolminMbUnit slotId hwResetUsingPlx hwResetUsingKyr interruptController "
            "<mdioAccelBlock mdioAccelBlock> pllClock <elkConnection elkConnection> extTcamType "
            "lunetPeerName lunetPeerAddr ilknCoreToPipeSwap . fap> useMdio managedPhy "
            "accelerate100gVoq cellIsAlone macsecIsSupported .");
}

TEST(TraceChange, EachKindIsSaidAtOnceAndOnceWhenItWasOwed) {
  struct Row {
    std::function<void(Scene&)> act;
    char const* atOnce;
    char const* owed;
  };
  std::string const longText(70000, 'x');
  Row const rows[] = {
      {[](Scene& s) { s.slice->numPortsIs(s.slice->numPorts() + 1); }, "numPorts", "numPorts"},
      {[](Scene& s) { s.arad()->port(17)->xcvrSlotIs(nullptr); }, "", ""},
      {[](Scene& s) { s.arad()->qsgmii(1)->descriptionIs("x"); }, "description", "description"},
      {[](Scene& s) { s.arad()->qsgmii(1)->descriptionIs(""); }, "description", "description"},
      {[&](Scene& s) {
         s.arad()->qsgmii(1)->descriptionIs(String8(longText.data(), longText.size()));
       },
       "description.. description.. description", "description.. description.. description"},
      {[](Scene& s) { s.arad()->port(17)->txConnectionIs(9); },
       "+txConnection=ConnectionEndpoint(9) .", "+txConnection=ConnectionEndpoint(9) ."},
      {[](Scene& s) { s.arad()->port(17)->txConnectionIs(10); },
       "+txConnection=ConnectionEndpoint(10) .", "+txConnection=ConnectionEndpoint(10) ."},
      {[](Scene& s) { s.arad()->port(17)->txConnectionDel(); }, "-txConnection", "-txConnection"},
      {[](Scene& s) { s.arad()->statsSerdesIs(31, false); },
       "+statsSerdes[31]=StatsSerdes(31, false) .", "+statsSerdes[31]=StatsSerdes(31, false) ."},
      {[](Scene& s) { s.arad()->statsSerdesDel(31); }, "-statsSerdes[31]", "-statsSerdes[31]"},
      {[](Scene& s) { s.arad()->xlge(3)->serdesIs(4, true); }, "serdes[4]", "serdes[4]"},
      {[](Scene& s) { s.arad()->xlge(3)->serdesDel(4); }, "-serdes[4]", "-serdes[4]"},
      {[](Scene& s) { s.arad()->ddrTuneSettingIs("k", "v"); }, "ddrTuneSetting['k']",
       "ddrTuneSetting['k']"},
      {[&](Scene& s) {
         s.arad()->ddrTuneSettingIs("k", String8(longText.data(), longText.size()));
       },
       "ddrTuneSetting['k'].. ddrTuneSetting['k'].. ddrTuneSetting['k']",
       "ddrTuneSetting['k'].. ddrTuneSetting['k'].. ddrTuneSetting['k']"},
      {[](Scene& s) { s.arad()->ddrTuneSettingDel("k"); }, "-ddrTuneSetting['k']",
       "-ddrTuneSetting['k']"},
  };
  for (bool const owed : {false, true}) {
    SCOPED_TRACE(owed ? "owed" : "at once");
    Scene scene;
    scene.arad()->qsgmiiIs(1);
    scene.arad()->xlgeIs(3);
    scene.arad()->portIs(17, nullptr);
    scene.mirror.settle();
    for (Row const& row : rows) {
      EXPECT_EQ(scene.traced([&] {
        Out& out = **scene.mirror.out().out();
        // Less room than a message asks for: what changes now is owed.
        out.withheldIs(owed ? out.capacity() - blockSize + 1 : 0);
        row.act(scene);
        // A second change of the same slot costs nothing more.
        if (owed) row.act(scene);
        out.withheldIs(0);
      }),
                owed ? row.owed : row.atOnce);
    }
  }
}

TEST(TraceRoots, EveryTypeIsAnnouncedByItself) {
  Ptr<Arad> const arad(new Arad("f", 4));
  Ptr<Entity> const roots[] = {arad,
                               arad->qsgmiiIs(1).ptr(),
                               arad->serdesIs(5, true, false, 7, 3, 9).ptr(),
                               new Inventory::Xcvr::Slot("cage"),
                               new Inventory::Port("front"),
                               new Inventory::Si5327("clock", 1)};
  char const* const words[] = {
      "root:Arad('f', 4)", "root:Qsgmii(1)",     "root:NifSerdes(5, true, false, 7, 3, 9)",
      "root:Slot('cage')", "root:Port('front')", "root:Si5327('clock', 1)"};
  Scene scene;
  scene.trace.take();
  for (std::size_t i = 0; i < std::size(roots); ++i) {
    scene.mirror.out().exportIs(roots[i]);
    scene.mirror.settle();
    std::string const said = scene.trace.take();
    EXPECT_EQ(said.substr(0, said.find(')') + 1), words[i]);
    EXPECT_TRUE(said.ends_with(" .")) << said;
    scene.mirror.out().exportDel(roots[i]);
    scene.mirror.settle();
    EXPECT_EQ(scene.trace.take(), "gone:");
  }
  EXPECT_EQ(scene.mirror.in().stats().refusedOrphans, 0u);
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
