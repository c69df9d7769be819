#include "tools/board/BoardLoader.h"

#include <algorithm>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace Board {

namespace {

using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Inventory::Arad::EthPort;
using Inventory::Arad::NifSerdes;
using Inventory::Arad::SocProperties;
using LaneId = Hardware::Sand::AradNifSerdesId;

constexpr char fapName[] = "fap0";
constexpr unsigned int fapUnit = 0;

/// A value that doesn't fit for a reason of the file format; what the types refuse comes as
/// Mox::RangeException.
struct BadValue : std::runtime_error {
  using std::runtime_error::runtime_error;
};

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

/// The digits behind `prefix`, if that is all there is behind it.
std::optional<std::string_view> numberBehind(std::string_view text, std::string_view prefix) {
  if (!text.starts_with(prefix) || !isNumber(text.substr(prefix.size()))) return {};
  return text.substr(prefix.size());
}

/// A real id, which its type's null is not.
template <class Id>
Id realId(std::string_view digits) {
  auto const id = Mox::strepToValue<Id>(Mox::String8(digits));
  if (id.value() == Id::null) {
    throw BadValue(std::string(digits) + " is the null id of its type and names nothing");
  }
  return id;
}

/// A line where it stands.
struct Source {
  PropertyFile const* file = nullptr;
  PropertyLine const* line = nullptr;
};

/// Lines that passed the choice of chip, reduced to those that hold.
class Properties {
 public:
  /// True if another line has this property too; the one with the narrower scope, or else the later
  /// one, holds.
  bool add(Source source) {
    auto const key = std::pair(source.line->unit, std::string_view(source.line->name));
    auto const [place, isNew] = places_.try_emplace(key, sources_.size());
    if (isNew) {
      sources_.push_back(source);
      return false;
    }
    Source& standing = sources_[place->second];
    bool const isAsNarrow = !source.line->chip.empty() || standing.line->chip.empty();
    if (isAsNarrow) standing = source;
    return true;
  }

  std::vector<Source> const& sources() const { return sources_; }
  bool has(std::optional<unsigned int> unit, std::string_view name) const {
    return places_.contains({unit, name});
  }

 private:
  std::map<std::pair<std::optional<unsigned int>, std::string_view>, std::size_t> places_;
  std::vector<Source> sources_;  // in the order in which their names first came
};

/// What the lines say of one lane. Polarity is given to a lane when it is made, so all lines are
/// gathered before any lane is.
struct Lane {
  bool swapPolarityTx = false;
  bool swapPolarityRx = false;
  std::optional<LaneId> txSerdesId;
  std::optional<LaneId> rxSerdesId;
};

/// Applies properties to one chip.
class ChipLoader {
 public:
  explicit ChipLoader(Mox::Ptr<Arad> const& arad) : arad_(arad) {}

  /// True if the property means something beyond its text. Throws BadValue or Mox::Exception.
  bool apply(std::string_view name, std::string_view value) {
    return applyTuning(name, value) || applyClock(name, value) || applyPort(name, value) ||
           applyLaneMap(name, value) || applyPolarity(name, value);
  }

  /// The lanes, once everything is known of them.
  void makeLanes() {
    for (auto const& [id, lane] : lanes_) {
      Mox::Ptr<NifSerdes> const serdes =
          arad_->serdesIs(id, lane.swapPolarityTx, lane.swapPolarityRx,
                          Hardware::Sand::SerdesCurrent(), Hardware::Sand::SerdesCurrent(), 0);
      if (lane.txSerdesId) serdes->txSerdesIdIs(*lane.txSerdesId);
      if (lane.rxSerdesId) serdes->rxSerdesIdIs(*lane.rxSerdesId);
    }
  }

 private:
  bool applyTuning(std::string_view name, std::string_view value) {
    if (!name.starts_with("ddr") && !name.starts_with("dram") && !name.starts_with("ext_ram")) {
      return false;
    }
    arad_->ddrTuneSettingIs(Mox::String8(name), Mox::String8(value));
    return true;
  }

  bool applyClock(std::string_view name, std::string_view value) {
    constexpr std::string_view prefix = "serdes_";
    if (!name.starts_with(prefix) || name.find("clk", prefix.size()) == name.npos) return false;
    arad_->serdesClockSocPropertyValueIs(Mox::String8(name), Mox::String8(value));
    return true;
  }

  bool applyPort(std::string_view name, std::string_view value) {
    struct PortType {
      std::string_view name;
      void (ChipLoader::*make)(unsigned short port, std::string_view digits);
    };
    static constexpr PortType types[] = {
        {"CGE", &ChipLoader::makeCgePort},   {"CDGE", &ChipLoader::makeCgePort},
        {"XLGE", &ChipLoader::makeXlgePort}, {"QSGMII", &ChipLoader::makeQsgmiiPort},
        {"XE", &ChipLoader::makeXgePort},    {"10GBase-R", &ChipLoader::makeXgePort},
        {"GE", &ChipLoader::makeGePort},
    };
    auto const number = numberBehind(name, "ucode_port_");
    if (!number) return false;
    auto const colon = std::min(value.find(':'), value.size());
    std::string_view const block = value.substr(0, colon);
    for (auto const& type : types) {
      if (!block.starts_with(type.name)) continue;
      std::string_view const digits = block.substr(type.name.size());
      if (!digits.empty() && isWordByte(digits[0])) continue;
      if (!isNumber(digits)) {
        throw BadValue("'" + std::string(block) + "' has no number behind " +
                       std::string(type.name));
      }
      if (colon < value.size()) checkCore(value.substr(colon));
      (this->*type.make)(Mox::strepToValue<unsigned short>(Mox::String8(*number)), digits);
      return true;
    }
    return false;
  }

  /// A byte that makes a type's name a longer one.
  static bool isWordByte(char c) {
    return ('a' <= c && c <= 'z') || ('A' <= c && c <= 'Z') || c == '_';
  }

  static void checkCore(std::string_view text) {
    constexpr std::string_view prefix = ":core_";
    auto const dot = text.find('.');
    if (!text.starts_with(prefix) || dot == text.npos ||
        !isNumber(text.substr(prefix.size(), dot - prefix.size())) ||
        !isNumber(text.substr(dot + 1))) {
      throw BadValue("'" + std::string(text) + "' is not ':core_' with two numbers");
    }
  }

  // The id is read before anything is made, so that a refused line leaves no port behind.

  void makeCgePort(unsigned short port, std::string_view digits) {
    auto const id = realId<Hardware::Sand::XlgeId>(digits);
    arad_->cgeIs(id);
    makePort(port)->cgeIdIs(id);
  }
  void makeXlgePort(unsigned short port, std::string_view digits) {
    auto const id = realId<Hardware::Sand::XlgeId>(digits);
    arad_->xlgeIs(id);
    makePort(port)->xlgeIdIs(id);
  }
  void makeQsgmiiPort(unsigned short port, std::string_view digits) {
    auto const id = realId<Hardware::Sand::QsgmiiId>(digits);
    arad_->qsgmiiIs(id);
    makePort(port)->qsgmiiIdIs(id);
  }
  void makeXgePort(unsigned short port, std::string_view digits) {
    auto const id = realId<LaneId>(digits);
    makePort(port)->xgeIdIs(id);
  }
  void makeGePort(unsigned short port, std::string_view digits) {
    auto const id = realId<LaneId>(digits);
    makePort(port)->geIdIs(id);
  }
  Mox::Ptr<EthPort> makePort(unsigned short port) {
    return arad_->portIs(port, Mox::Ptr<Inventory::Port>());
  }

  bool applyLaneMap(std::string_view name, std::string_view value) {
    auto const number = numberBehind(name, "lane_to_serdes_map_nif_lane");
    if (!number) return false;
    auto const colon = value.find(':');
    auto const rx = numberBehind(value.substr(0, colon), "rx");
    auto const tx = numberBehind(colon == value.npos ? "" : value.substr(colon + 1), "tx");
    if (!rx || !tx) throw BadValue("'" + std::string(value) + "' is not rxA:txB");
    auto const id = realId<LaneId>(*number);
    auto const rxId = realId<LaneId>(*rx);
    auto const txId = realId<LaneId>(*tx);
    lanes_[id].rxSerdesId = rxId;
    lanes_[id].txSerdesId = txId;
    return true;
  }

  bool applyPolarity(std::string_view name, std::string_view value) {
    struct Polarity {
      std::string_view prefix;
      bool Lane::*flag;
    };
    static constexpr Polarity polarities[] = {
        {"phy_tx_polarity_flip_phy", &Lane::swapPolarityTx},
        {"phy_rx_polarity_flip_phy", &Lane::swapPolarityRx},
        {"pb_serdes_lane_swap_polarity_tx_phy", &Lane::swapPolarityTx},
        {"pb_serdes_lane_swap_polarity_rx_phy", &Lane::swapPolarityRx},
    };
    for (auto const& polarity : polarities) {
      auto const number = numberBehind(name, polarity.prefix);
      if (!number) continue;
      auto const id = realId<LaneId>(*number);
      bool const isFlipped = Mox::strepToValue<bool>(Mox::String8(value));
      lanes_[id].*polarity.flag = isFlipped;
      return true;
    }
    return false;
  }

  Mox::Ptr<Arad> arad_;
  std::map<LaneId, Lane> lanes_;
};

/// Lines by chip, in the order of `chipKey`; the spelling of the first line stays.
class ChipCounts {
 public:
  void add(std::string const& chip) {
    auto const [place, isNew] = counts_.try_emplace(chipKey(chip));
    if (isNew) place->second = {{chip, 0}, counts_.size()};
    ++place->second.count.lines;
  }

  std::vector<PassedOver> inOrder() const {
    std::vector<PassedOver> result;
    for (auto const& [key, entry] : counts_) result.push_back(entry.count);
    return result;
  }

  /// Of several with most lines the one named first; empty if there is none.
  std::string most() const {
    Entry const* best = nullptr;
    for (auto const& [key, entry] : counts_) {
      if (!best || entry.count.lines > best->count.lines ||
          (entry.count.lines == best->count.lines && entry.order < best->order)) {
        best = &entry;
      }
    }
    return best ? best->count.chip : std::string();
  }

 private:
  struct Entry {
    PassedOver count;
    std::size_t order = 0;
  };
  std::map<std::string, Entry> counts_;
};

/// Refusals of the parser and of the types together, by file and line.
class Refusals {
 public:
  explicit Refusals(std::vector<PropertyFile> const& files) : files_(files) {}

  void add(PropertyFile const& file, unsigned int number, std::string cause) {
    auto const index = static_cast<std::size_t>(&file - files_.data());
    refusals_.emplace(std::pair(index, number), BoardRefusal{file.name, number, std::move(cause)});
  }

  std::vector<BoardRefusal> inOrder() {
    std::vector<BoardRefusal> result;
    for (auto& [place, refusal] : refusals_) result.push_back(std::move(refusal));
    return result;
  }

 private:
  std::vector<PropertyFile> const& files_;
  std::map<std::pair<std::size_t, unsigned int>, BoardRefusal> refusals_;  // a line has one cause
};

std::string counted(std::size_t number, char const* one, char const* many) {
  return std::to_string(number) + " " + (number == 1 ? one : many);
}

}  // namespace

std::size_t BoardSummary::passedOverLines() const {
  std::size_t lines = 0;
  for (auto const& other : passedOver) lines += other.lines;
  return lines;
}

std::string mostNamedChip(std::vector<PropertyFile> const& files) {
  ChipCounts chips;
  for (auto const& file : files) {
    for (auto const& line : file.lines) {
      if (!line.chip.empty()) chips.add(line.chip);
    }
  }
  return chips.most();
}

BoardSummary loadBoard(std::vector<PropertyFile> const& files, std::string const& chip,
                       Mox::Ptr<AradSlice> const& slice) {
  BoardSummary summary;
  summary.isChipGiven = !chip.empty();
  summary.chip = summary.isChipGiven ? chip : mostNamedChip(files);

  std::string const key = chipKey(summary.chip);
  Properties properties;
  ChipCounts others;
  Refusals refusals(files);
  for (auto const& file : files) {
    summary.read += file.lines.size() + file.refusals.size();
    for (auto const& refusal : file.refusals) refusals.add(file, refusal.number, refusal.cause);
    for (auto const& line : file.lines) {
      if (!line.chip.empty() && chipKey(line.chip) != key) {
        others.add(line.chip);
      } else if (properties.add({&file, &line})) {
        ++summary.overridden;
      }
    }
  }
  summary.passedOver = others.inOrder();

  Mox::Ptr<Arad> const arad = slice->fapIs(fapName, fapUnit);
  Mox::Ptr<SocProperties> const global = arad->elkGlobalSocPropertiesIs("global", fapUnit);
  ChipLoader loader(arad);
  for (auto const& [file, line] : properties.sources()) {
    Mox::Ptr<SocProperties> bag = global;
    if (line->unit) bag = arad->elkPerUnitsSocPropertiesIs(*line->unit);
    bag->propertyIs(Mox::String8(line->name), Mox::String8(line->value));
    bool const isForChip =
        line->unit ? *line->unit == fapUnit : !properties.has(fapUnit, line->name);
    try {
      bool const isMapped = isForChip && loader.apply(line->name, line->value);
      ++(isMapped ? summary.mapped : summary.text);
    } catch (Mox::Exception const& refusal) {
      refusals.add(*file, line->number, refusal.what());
    } catch (BadValue const& refusal) {
      refusals.add(*file, line->number, refusal.what());
    }
  }
  loader.makeLanes();
  summary.refusals = refusals.inOrder();
  return summary;
}

std::string summaryText(BoardSummary const& summary) {
  std::string text;
  for (auto const& refusal : summary.refusals) {
    text += refusal.file + ":" + std::to_string(refusal.number) + ": " + refusal.cause + "\n";
  }
  text += counted(summary.read, "line", "lines") + " read, " + std::to_string(summary.mapped) +
          " mapped, " + std::to_string(summary.text) + " kept as text, " +
          std::to_string(summary.refusals.size()) + " refused, " +
          std::to_string(summary.overridden) + " overridden, " +
          std::to_string(summary.passedOverLines()) + " of other chips passed over\n";
  if (summary.chip.empty()) {
    text += "chip: none, no line names one\n";
  } else {
    text += "chip: " + summary.chip + (summary.isChipGiven ? " (given)" : " (most lines name it)") +
            "\n";
  }
  for (auto const& other : summary.passedOver) {
    text += "passed over: " + counted(other.lines, "line", "lines") + " of " + other.chip + "\n";
  }
  return text;
}

}  // namespace Board
