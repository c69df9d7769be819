// The loader on small files: the tree it builds as text, its counts, and every form of refusal.
#include "tools/board/BoardLoader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Inventory::Arad::SocProperties;
using Mox::Ptr;

std::string text(Mox::String8 const& value) { return {value.charPtr(), value.length()}; }

/// The lines that `write` makes for each member, sorted.
template <class Iterator, class Write>
std::string sorted(Iterator it, Write const& write) {
  std::set<std::string> lines;
  for (; it; ++it) lines.insert(write(it) + "\n");
  std::string all;
  for (auto const& line : lines) all += line;
  return all;
}

template <class Iterator>
std::string pairs(Iterator it, std::string const& label) {
  return sorted(it,
                [&](auto const& at) { return label + text(at.key()) + "=" + text(at.value()); });
}

template <class Id>
std::string unlessNull(char const* label, Id id) {
  return id == Id() ? "" : label + std::to_string(id.value());
}

std::string shown(Ptr<AradSlice> const& slice) {
  Ptr<Arad> const arad = slice->fap("fap0");
  if (!arad) return "no fap0\n";
  std::string all = pairs(arad->elkGlobalSocProperties()->propertyIteratorConst(), "");
  all += sorted(arad->elkPerUnitsSocPropertiesIteratorConst(), [](auto const& at) {
    auto const unit = std::to_string(at->unitId());
    return "unit " + unit + ":\n" + pairs(at->propertyIteratorConst(), unit + ": ");
  });
  all += pairs(arad->ddrTuneSettingIteratorConst(), "ddr ");
  all += pairs(arad->serdesClockSocPropertyValueIteratorConst(), "clock ");
  auto const block = [](char const* label) {
    return [label](auto const& at) { return label + std::to_string(at->id().value()); };
  };
  all += sorted(arad->cgeIteratorConst(), block("cge "));
  all += sorted(arad->xlgeIteratorConst(), block("xlge "));
  all += sorted(arad->qsgmiiIteratorConst(), block("qsgmii "));
  all += sorted(arad->portIteratorConst(), [](auto const& at) {
    return "port " + std::to_string(at->ethPortId()) + unlessNull(" cge ", at->cgeId()) +
           unlessNull(" xlge ", at->xlgeId()) + unlessNull(" qsgmii ", at->qsgmiiId()) +
           unlessNull(" xge ", at->xgeId()) + unlessNull(" ge ", at->geId());
  });
  all += sorted(arad->serdesIteratorConst(), [](auto const& at) {
    return "lane " + std::to_string(at->id().value()) + " rx " +
           std::to_string(at->rxSerdesId().value()) + " tx " +
           std::to_string(at->txSerdesId().value()) + (at->swapPolarityRx() ? " swapRx" : "") +
           (at->swapPolarityTx() ? " swapTx" : "");
  });
  return all;
}

struct Loaded {
  Ptr<AradSlice> slice{new AradSlice("slice")};
  Board::BoardSummary summary;
};

Loaded load(std::vector<std::string> const& texts, std::string const& chip = "") {
  std::vector<Board::PropertyFile> files;
  for (auto const& text : texts) {
    std::istringstream in(text);
    files.push_back(Board::readProperties(in, "file" + std::to_string(files.size() + 1)));
  }
  Loaded loaded;
  loaded.summary = Board::loadBoard(files, chip, loaded.slice);
  return loaded;
}

void expectAccountedFor(Board::BoardSummary const& summary) {
  EXPECT_EQ(summary.mapped + summary.text + summary.refusals.size() + summary.overridden +
                summary.passedOverLines(),
            summary.read);
}

TEST(BoardLoader, EveryMappingMakesItsEntities) {
  struct Case {
    char const* text;
    char const* expected;  // behind the property itself
  };
  Case const cases[] = {
      {"speed=1", ""},
      {"ddr0_tune=7", "ddr ddr0_tune=7\n"},
      {"dram_type=x", "ddr dram_type=x\n"},
      {"ext_ram_freq=y", "ddr ext_ram_freq=y\n"},
      {"xdr_tune=7", ""},
      {"serdes_nif_clk_freq=1", "clock serdes_nif_clk_freq=1\n"},
      {"serdes_preset=1", ""},
      {"xserdes_nif_clk=1", ""},
      {"ucode_port_1=CGE0:core_0.1", "cge 0\nport 1 cge 0\n"},
      {"ucode_port_2=CDGE17:core_1.2", "cge 17\nport 2 cge 17\n"},
      {"ucode_port_3=XLGE5", "xlge 5\nport 3 xlge 5\n"},
      {"ucode_port_4=QSGMII95", "qsgmii 95\nport 4 qsgmii 95\n"},
      {"ucode_port_5=XE71:core_0.5", "port 5 xge 71\n"},
      {"ucode_port_6=10GBase-R64:core_0.6", "port 6 xge 64\n"},
      {"ucode_port_65535=GE0", "port 65535 ge 0\n"},
      {"ucode_port_7=CPU.0:core_0.0", ""},
      {"ucode_port_7=ILKN3", ""},
      {"ucode_port_7=GENERIC1", ""},
      {"ucode_port_7=XAUI2", ""},
      {"ucode_port_x=CGE1", ""},
      {"ucode_port_=CGE1", ""},
      {"lane_to_serdes_map_nif_lane3=rx5:tx6", "lane 3 rx 5 tx 6\n"},
      {"lane_to_serdes_map_fabric_lane3=rx5:tx6", ""},
      {"phy_tx_polarity_flip_phy2=1", "lane 2 rx 2 tx 2 swapTx\n"},
      {"phy_rx_polarity_flip_phy2=true", "lane 2 rx 2 tx 2 swapRx\n"},
      {"phy_rx_polarity_flip_phy2=0", "lane 2 rx 2 tx 2\n"},
      {"phy_rx_polarity_flip_fabric2=1", ""},
      {"pb_serdes_lane_swap_polarity_tx_phy1=1", "lane 1 rx 1 tx 1 swapTx\n"},
      {"pb_serdes_lane_swap_polarity_rx_phy1=1", "lane 1 rx 1 tx 1 swapRx\n"},
  };
  for (auto const& [line, expected] : cases) {
    Loaded const loaded = load({line});
    EXPECT_EQ(shown(loaded.slice), line + std::string("\n") + expected);
    EXPECT_EQ(loaded.summary.mapped, *expected ? 1u : 0u) << line;
    EXPECT_TRUE(loaded.summary.refusals.empty()) << line;
    expectAccountedFor(loaded.summary);
  }
}

TEST(BoardLoader, RefusedValuesStayPropertiesAndMakeNothing) {
  static constexpr char laneRange[] =
      "AradNifSerdesId::value < AradNifSerdesId::min or > AradNifSerdesId::null not allowed";
  static constexpr char xlgeRange[] = "XlgeId::value < XlgeId::min or > XlgeId::null not allowed";
  static constexpr char qsgmiiRange[] =
      "QsgmiiId::value < QsgmiiId::min or > QsgmiiId::null not allowed";
  struct Case {
    char const* text;
    std::string cause;
  };
  Case const cases[] = {
      {"ucode_port_1=CGE19", xlgeRange},
      {"ucode_port_1=CGE18", "18 is the null id of its type and names nothing"},
      {"ucode_port_1=XLGE99999999999999999999", xlgeRange},
      {"ucode_port_1=QSGMII97", qsgmiiRange},
      {"ucode_port_1=XE73", laneRange},
      {"ucode_port_1=GE72", "72 is the null id of its type and names nothing"},
      {"ucode_port_65536=CGE1", "cannot convert 65536 to unsigned short"},
      {"ucode_port_1=CGE", "'CGE' has no number behind CGE"},
      {"ucode_port_1=CGE-1:core_0.1", "'CGE-1' has no number behind CGE"},
      {"ucode_port_1=XLGE0x2", "'XLGE0x2' has no number behind XLGE"},
      {"ucode_port_1=CGE1:core_0", "':core_0' is not ':core_' with two numbers"},
      {"ucode_port_1=CGE1:", "':' is not ':core_' with two numbers"},
      {"ucode_port_1=CGE1:core_a.1", "':core_a.1' is not ':core_' with two numbers"},
      {"lane_to_serdes_map_nif_lane73=rx0:tx0", laneRange},
      {"lane_to_serdes_map_nif_lane0=rx73:tx0", laneRange},
      {"lane_to_serdes_map_nif_lane0=rx0:tx100", laneRange},
      {"lane_to_serdes_map_nif_lane72=rx0:tx0", "72 is the null id of its type and names nothing"},
      {"lane_to_serdes_map_nif_lane0=rx0", "'rx0' is not rxA:txB"},
      {"lane_to_serdes_map_nif_lane0=tx0:rx0", "'tx0:rx0' is not rxA:txB"},
      {"lane_to_serdes_map_nif_lane0=", "'' is not rxA:txB"},
      {"phy_tx_polarity_flip_phy0=2", "cannot convert 2 to bool"},
      {"phy_tx_polarity_flip_phy0=", "cannot convert  to bool"},
      {"phy_tx_polarity_flip_phy0=1 1", "junk at column 1 deserializing 1 1"},
      {"phy_tx_polarity_flip_phy100=1", laneRange},
  };
  for (auto const& [line, cause] : cases) {
    Loaded const loaded = load({line});
    EXPECT_EQ(shown(loaded.slice), std::string(line) + "\n");
    EXPECT_EQ(Board::summaryText(loaded.summary),
              "file1:1: " + cause +
                  "\n1 line read, 0 mapped, 0 kept as text, 1 refused, 0 overridden, 0 of other "
                  "chips passed over\nchip: none, no line names one\n");
  }
}

TEST(BoardLoader, ScopesDecideWhichLineHolds) {
  Loaded const loaded =
      load({"a.FAP1=narrow\n"
            "a=wide\n"
            "b=early\n"
            "b=late\n"
            "c=wide\n"
            "c.fap1=narrow\n"
            "d.FEL2=other\n"
            "e.0=unit\n"
            "ucode_port_1.FAP1=CGE1\n"
            "ucode_port_1.0=CGE2\n"
            "ucode_port_2.1=CGE3\n"
            "not a property\n",
            "b=later\n"
            "e.1=unit\n"
            "x.FEL2=1\n"
            "y.fap1_A0=1\n"
            "phy_tx_polarity_flip_phy0=maybe\n"});
  EXPECT_EQ(shown(loaded.slice),
            "a=narrow\n"
            "b=later\n"
            "c=narrow\n"
            "phy_tx_polarity_flip_phy0=maybe\n"
            "ucode_port_1=CGE1\n"
            "unit 0:\n0: e=unit\n0: ucode_port_1=CGE2\n\n"
            "unit 1:\n1: e=unit\n1: ucode_port_2=CGE3\n\n"
            "cge 2\n"
            "port 1 cge 2\n");
  EXPECT_EQ(Board::summaryText(loaded.summary),
            "file1:12: no '='\n"
            "file2:5: cannot convert maybe to bool\n"
            "17 lines read, 1 mapped, 7 kept as text, 2 refused, 4 overridden, 3 of other chips "
            "passed over\n"
            "chip: FAP1 (most lines name it)\n"
            "passed over: 1 line of fap1_A0\n"
            "passed over: 2 lines of FEL2\n");
  expectAccountedFor(loaded.summary);
}

TEST(BoardLoader, TheChipIsTheOneGivenOrTheOneMostNamed) {
  std::string const file = "a.B2=1\na.A1=2\nb.b2=3\nb.a1=4\nc.C3=5\n";
  struct Case {
    char const* given;
    char const* expected;
  };
  Case const cases[] = {
      {"", "a=1\nb=3\n"},  // B2 and A1 are named as often, B2 first
      {"A1", "a=2\nb=4\n"},
      {"c3", "c=5\n"},
      {"D4", ""},
  };
  for (auto const& [given, expected] : cases) {
    Loaded const loaded = load({file}, given);
    EXPECT_EQ(shown(loaded.slice), expected);
    expectAccountedFor(loaded.summary);
  }
  EXPECT_EQ(load({file}).summary.chip, "B2");
  EXPECT_EQ(Board::mostNamedChip({}), "");
}

TEST(BoardLoader, EveryLineIsAccountedForWhateverTheFile) {
  auto const seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  char const* const names[] = {"a",
                               "ddr0",
                               "serdes_clk",
                               "ucode_port_1",
                               "ucode_port_2",
                               "lane_to_serdes_map_nif_lane1",
                               "phy_tx_polarity_flip_phy1"};
  char const* const scopes[] = {"", "", ".F1", ".f1", ".F2", ".0", ".1", ".?"};
  char const* const values[] = {"0", "1", "CGE1", "CGE99", "GE3:core_0.1", "rx1:tx2", "rx99:tx0"};
  for (int round = 0; round < 300; ++round) {
    std::vector<std::string> files(1 + random() % 3);
    for (auto& file : files) {
      for (auto lines = random() % 12; lines > 0; --lines) {
        file += std::string(names[random() % std::size(names)]) +
                scopes[random() % std::size(scopes)] + "=" + values[random() % std::size(values)] +
                "\n";
      }
    }
    Loaded const loaded = load(files);
    expectAccountedFor(loaded.summary);
    std::size_t lines = 0;
    for (auto const& file : files) lines += std::count(file.begin(), file.end(), '\n');
    EXPECT_EQ(loaded.summary.read, lines);
  }
}

}  // namespace
