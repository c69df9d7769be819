// The loader on small files. Finds lines that make the wrong thing or something although they are
// refused, lines of the wrong scope or chip, counts that miss a line, and wrong causes.
#include "tools/board/BoardLoader.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "Mox/Dir.h"
#include "tools/common/Dump.h"

namespace {

using Inventory::Arad::AradSlice;
using Mox::Ptr;

/// What a loader makes, as the dump shows it without the front of the path and without nulls;
/// bags first.
std::string shown(Ptr<AradSlice> const& slice) {
  Ptr<Mox::Dir> const roots(new Mox::Dir);
  roots->entryIs("slice", slice);
  std::ostringstream dump;
  Tools::writeDump(dump, **roots, Tools::DumpForm::text);
  static std::regex const made(
      R"(slice/fap\[fap0\][./](elk.*\.property\[.*|(ddrTune|serdesClock).*|(cge|xlge|qsgmii|port)\[\d+\]:.*)"
      R"(|port.*\.(cge|xlge|qsgmii|xge|ge)Id.*|serdes\[.*\.([rt]xSerdesId.*|swap.*true)))");
  static std::regex const isNull(R"(port.*= (18|96|72)$)");
  std::istringstream lines(dump.str());
  std::string bags, others;
  std::smatch match;
  for (std::string line; std::getline(lines, line);) {
    if (!std::regex_match(line, match, made) || std::regex_search(line, isNull)) continue;
    std::string const place = match[1].str();
    (place.starts_with("elk") ? bags : others) += place.substr(0, place.find(": ")) + "\n";
  }
  return bags + others;
}

struct Loaded {
  Ptr<AradSlice> slice{new AradSlice("slice")};
  Board::BoardSummary summary;
  std::string text;
};

Loaded load(std::vector<std::string> const& texts, std::string const& chip = "") {
  std::vector<Board::PropertyFile> files;
  for (auto const& text : texts) {
    std::istringstream in(text);
    files.push_back(Board::readProperties(in, "file" + std::to_string(files.size() + 1)));
  }
  Loaded loaded;
  loaded.summary = Board::loadBoard(files, chip, loaded.slice);
  loaded.text = shown(loaded.slice);
  auto const& summary = loaded.summary;
  EXPECT_EQ(summary.mapped + summary.text + summary.refusals.size() + summary.overridden +
                summary.passedOverLines(),
            summary.read);
  return loaded;
}

/// The property of a line, as it stands in the bag.
std::string inBag(std::string const& line) {
  auto const equals = line.find('=');
  return "elkGlobalSocProperties.property['" + line.substr(0, equals) + "'] = '" +
         line.substr(equals + 1) + "'\n";
}

TEST(BoardLoader, EveryMappingMakesItsEntities) {
  std::pair<char const*, char const*> const cases[] = {
      {"ddr0_tune=7", "ddrTuneSetting['ddr0_tune'] = '7'\n"},
      {"dram_type=x", "ddrTuneSetting['dram_type'] = 'x'\n"},
      {"ext_ram_freq=y", "ddrTuneSetting['ext_ram_freq'] = 'y'\n"},
      {"serdes_nif_clk=1", "serdesClockSocPropertyValue['serdes_nif_clk'] = '1'\n"},
      {"ucode_port_1=CGE0:core_0.1", "cge[0]\nport[1]\nport[1].cgeId = 0\n"},
      {"ucode_port_2=CDGE17:core_1.2", "cge[17]\nport[2]\nport[2].cgeId = 17\n"},
      {"ucode_port_3=XLGE5", "xlge[5]\nport[3]\nport[3].xlgeId = 5\n"},
      {"ucode_port_4=QSGMII95", "qsgmii[95]\nport[4]\nport[4].qsgmiiId = 95\n"},
      {"ucode_port_5=XE71:core_0.5", "port[5]\nport[5].xgeId = 71\n"},
      {"ucode_port_6=10GBase-R64:core_0.6", "port[6]\nport[6].xgeId = 64\n"},
      {"ucode_port_65535=GE0", "port[65535]\nport[65535].geId = 0\n"},
      {"lane_to_serdes_map_nif_lane3=rx5:tx6",
       "serdes[3].txSerdesId = 6\nserdes[3].rxSerdesId = 5\n"},
      {"phy_rx_polarity_flip_phy2=0", "serdes[2].txSerdesId = 2\nserdes[2].rxSerdesId = 2\n"},
      {"phy_tx_polarity_flip_phy2=1",
       "serdes[2].txSerdesId = 2\nserdes[2].rxSerdesId = 2\nserdes[2].swapPolarityTx = true\n"},
      {"pb_serdes_lane_swap_polarity_rx_phy1=true",
       "serdes[1].txSerdesId = 1\nserdes[1].rxSerdesId = 1\nserdes[1].swapPolarityRx = true\n"},
  };
  for (auto const& [line, expected] : cases) {
    Loaded const loaded = load({line});
    EXPECT_EQ(loaded.text, inBag(line) + expected);
    EXPECT_EQ(loaded.summary.mapped, 1u) << line;
  }
  for (char const* const line :
       {"xdr_tune=7", "serdes_preset=1", "xserdes_nif_clk=1", "ucode_port_7=CPU.0:core_0.0",
        "ucode_port_7=GENERIC1", "ucode_port_x=CGE1", "ucode_port_=CGE1",
        "lane_to_serdes_map_fabric_lane3=rx5:tx6", "phy_rx_polarity_flip_fabric2=1"}) {
    Loaded const loaded = load({line});
    EXPECT_EQ(loaded.text, inBag(line));
    EXPECT_EQ(loaded.summary.text, 1u) << line;
  }
}

TEST(BoardLoader, RefusedValuesStayPropertiesAndMakeNothing) {
  static constexpr char laneRange[] =
      "AradNifSerdesId::value < AradNifSerdesId::min or > AradNifSerdesId::null not allowed";
  std::pair<char const*, char const*> const cases[] = {
      {"ucode_port_1=CGE19", "XlgeId::value < XlgeId::min or > XlgeId::null not allowed"},
      {"ucode_port_1=CGE18", "18 is the null id of its type and names nothing"},
      {"ucode_port_1=QSGMII97", "QsgmiiId::value < QsgmiiId::min or > QsgmiiId::null not allowed"},
      {"ucode_port_1=XE99999999999999999999", laneRange},
      {"ucode_port_1=GE72", "72 is the null id of its type and names nothing"},
      {"ucode_port_65536=XLGE1", "cannot convert 65536 to unsigned short"},
      {"ucode_port_1=CGE", "'CGE' has no number behind CGE"},
      {"ucode_port_1=CGE1:core_0", "':core_0' is not ':core_' with two numbers"},
      {"lane_to_serdes_map_nif_lane0=rx73:tx0", laneRange},
      {"lane_to_serdes_map_nif_lane0=rx0:tx100", laneRange},
      {"lane_to_serdes_map_nif_lane0=rx0", "'rx0' is not rxA:txB"},
      {"lane_to_serdes_map_nif_lane0=tx0:rx0", "'tx0:rx0' is not rxA:txB"},
      {"phy_tx_polarity_flip_phy0=2", "cannot convert 2 to bool"},
  };
  for (auto const& [line, cause] : cases) {
    Loaded const loaded = load({line});
    EXPECT_EQ(loaded.text, inBag(line));
    EXPECT_EQ(Board::summaryText(loaded.summary),
              std::string("file1:1: ") + cause +
                  "\n1 line read, 0 mapped, 0 kept as text, 1 refused, 0 overridden, 0 of other "
                  "chips passed over\nchip: none, no line names one\n");
  }
}

TEST(BoardLoader, ScopesAndTheChipDecideWhichLineHolds) {
  Loaded const loaded = load(
      {"a.FAP1=narrow\na=wide\nb=early\nb=late\nc=wide\nc.fap1=narrow\nd.FEL2=other\ne.0=unit\n"
       "ucode_port_1.FAP1=CGE1\nucode_port_1.0=CGE2\nucode_port_2.1=CGE3\nnot a property\n",
       "b=later\ne.1=unit\nx.FEL2=1\ny.fap1_A0=1\nphy_tx_polarity_flip_phy0=maybe\n"});
  EXPECT_EQ(loaded.text,
            "elkPerUnitsSocProperties[0].property['e'] = 'unit'\n"
            "elkPerUnitsSocProperties[0].property['ucode_port_1'] = 'CGE2'\n"
            "elkPerUnitsSocProperties[1].property['e'] = 'unit'\n"
            "elkPerUnitsSocProperties[1].property['ucode_port_2'] = 'CGE3'\n" +
                inBag("a=narrow") + inBag("b=later") + inBag("c=narrow") +
                inBag("phy_tx_polarity_flip_phy0=maybe") + inBag("ucode_port_1=CGE1") +
                "cge[2]\nport[1]\nport[1].cgeId = 2\n");
  EXPECT_EQ(Board::summaryText(loaded.summary),
            "file1:12: no '='\nfile2:5: cannot convert maybe to bool\n"
            "17 lines read, 1 mapped, 7 kept as text, 2 refused, 4 overridden, 3 of other chips "
            "passed over\nchip: FAP1 (most lines name it)\n"
            "passed over: 1 line of fap1_A0\npassed over: 2 lines of FEL2\n");
  std::pair<char const*, std::string> const chips[] = {
      {"", inBag("a=1") + inBag("b=3")},  // B2 and A1 are named as often, B2 first
      {"A1", inBag("a=2") + inBag("b=4")},
      {"c3", inBag("c=5")},
      {"D4", ""},
  };
  for (auto const& [given, expected] : chips) {
    EXPECT_EQ(load({"a.B2=1\na.A1=2\nb.b2=3\nb.a1=4\nc.C3=5\n"}, given).text, expected) << given;
  }
}

}  // namespace
