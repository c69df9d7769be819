// Random changes of an inventory tree, from a small space so that keys collide and come back: every
// kind of attribute of every type. The simulation and its small tests change trees with them.
#pragma once

#include <InvArad.h>

#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <typeindex>
#include <unordered_set>
#include <vector>

#include "Mox/Exception.h"
#include "values/ValueText.h"

namespace Mox::NboAttrLog::test {

/// What a whole run draws from, and what it has written so far.
class Chance {
 public:
  explicit Chance(std::uint64_t seed)
      : random_(static_cast<std::uint32_t>(seed * 2654435761u + (seed >> 32))) {}

  unsigned int below(unsigned int limit) { return static_cast<unsigned int>(random_() % limit); }
  bool oneIn(unsigned int count) { return below(count) == 0; }
  /// A number that no other draw of the run gives, larger than all before.
  unsigned int counter() { return ++counter_; }
  unsigned int longest = 3000;  ///< bytes of a string, about
  /// The entities outside of the tree that the process in hand knows, by type; null: none.
  std::map<std::type_index, std::vector<Ptr<Entity>>>* parties = nullptr;

  /// A text that tells which draw made it, all along: two joined halves are never a third text.
  String8 text(unsigned int most = ~0u) {
    unsigned int length = below(12);
    if (oneIn(6)) length = below(64u << below(14));
    length = std::min({length, longest, most});
    std::string bytes;
    bytes.reserve(length + 12);
    std::string const word = std::to_string(counter()) + ",";
    while (bytes.size() < length) bytes += word;
    String8 const made(bytes.data(), bytes.size());
    written_.insert(std::hash<std::string_view>()(textOf(made).view()));
    return made;
  }
  bool wasWritten(std::string_view textForm) const {
    return textForm == "''" || written_.count(std::hash<std::string_view>()(textForm)) != 0;
  }

 private:
  std::mt19937 random_;
  unsigned int counter_ = 0;
  std::unordered_set<std::size_t> written_;
};

namespace ops {

using namespace Inventory;
using namespace Inventory::Arad;
using Hardware::Sand::AradNifSerdesId;
using ChipArad = Inventory::Arad::Arad;

inline AradNifSerdesId lane(Chance& c) { return AradNifSerdesId((unsigned short)c.below(5)); }
inline Hardware::Sand::XlgeId block(Chance& c) {
  return Hardware::Sand::XlgeId((unsigned short)c.below(3));
}
// No two draws stand among the arguments of one call: compilers differ in their order.
inline String8 key(Chance& c) {
  if (c.oneIn(30)) return {};
  auto const number = c.below(5);
  return format(c.oneIn(20) ? "k%0400u" : "k%u", number);
}
inline bool flag(Chance& c) { return c.below(2) != 0; }
template <class Enum>
Enum word(Chance& c) {
  return static_cast<Enum>(c.oneIn(20) ? 77 : c.below(4));
}
inline Hardware::Sand::JerichoNifSerdesTuningMode medium(Chance& c) {
  return static_cast<Hardware::Sand::JerichoNifSerdesTuningMode>(c.below(4));
}
/// An entity outside of the tree: one of a few that the process keeps, at times a new one.
template <class T>
Ptr<T> party(Chance& c) {
  if (c.parties == nullptr || c.oneIn(4)) return {};
  std::vector<Ptr<Entity>>& kept = (*c.parties)[typeid(T)];
  kept.resize(3);
  Ptr<Entity>& one = kept[c.below(3)];
  if (!one || c.oneIn(8)) {
    if constexpr (std::is_same_v<T, Si5327>) {
      auto const role = c.below(2);
      one = new T(format("pll%u", c.counter()), role);
    } else {
      one = new T(format("part%u", c.counter()));
    }
  }
  return Ptr<T>(static_cast<T*>(one.get()));
}

/// Makes a member, and replaces one of other parameters.
template <class Make, class Del>
void replaced(Make const& make, Del const& del) {
  try {
    make();
  } catch (NameInUseException const&) {
    del();
    make();
  }
}

template <class T>
using Op = void (*)(T&, Chance&);

#define MOX_OP(Type) [](Type & e, [[maybe_unused]] Chance & c)

// clang-format off
inline void change(SocProperties& entity, Chance& chance) {
  static constexpr Op<SocProperties> all[] = {
      MOX_OP(SocProperties) { auto const text = c.text(); e.propertyIs(key(c), text); },
      MOX_OP(SocProperties) { auto const text = c.text(); e.propertyIs(key(c), text); },
      MOX_OP(SocProperties) { e.propertyDel(key(c)); },
      MOX_OP(SocProperties) { if (c.oneIn(4)) e.propertyDelAll(); },
  };
  all[chance.below(std::size(all))](entity, chance);
}

inline void change(NifSerdes& entity, Chance& chance) {
  static constexpr Op<NifSerdes> all[] = {
      MOX_OP(NifSerdes) { e.txSerdesIdIs(lane(c)); },
      MOX_OP(NifSerdes) { e.rxSerdesIdIs(lane(c)); },
      MOX_OP(NifSerdes) { e.txPhaseInterpolationIs(c.counter()); },
      MOX_OP(NifSerdes) {
        auto tuning = e.jerichoNifSerdesTuningIs(medium(c));
        switch (c.below(3)) {
          case 0: tuning->preCursorIs(-int(c.below(9))); break;
          case 1: tuning->mainCursorIs(int(c.counter())); break;
          default: tuning->postCursorIs(int(c.below(3)));
        }
      },
      MOX_OP(NifSerdes) {
        e.jerichoNifSerdesTuningDel(medium(c));
      },
  };
  all[chance.below(std::size(all))](entity, chance);
}

inline void change(EthPort& entity, Chance& chance) {
  static constexpr Op<EthPort> all[] = {
      MOX_OP(EthPort) { e.xcvrSlotIs(party<Xcvr::Slot>(c)); },
      MOX_OP(EthPort) { e.qsgmiiIdIs(Hardware::Sand::QsgmiiId((unsigned short)c.below(97))); },
      MOX_OP(EthPort) { e.geIdIs(lane(c)); },
      MOX_OP(EthPort) { e.xgeIdIs(lane(c)); },
      MOX_OP(EthPort) { e.xlgeIdIs(block(c)); },
      MOX_OP(EthPort) { e.xlge2IdIs(Hardware::Sand::Xlge2Id((unsigned short)c.below(37))); },
      MOX_OP(EthPort) { e.cgeIdIs(block(c)); },
      MOX_OP(EthPort) { e.managedPhyIs(word<AradManagedPhy>(c)); },
      MOX_OP(EthPort) { e.ledManagedByPhyIs(flag(c)); },
      MOX_OP(EthPort) { e.numQPairsIs((unsigned short)c.counter()); },
      MOX_OP(EthPort) { e.bringup10GigButXgeNotSupportedIs(flag(c)); },
      MOX_OP(EthPort) { e.serdesCoreTypeIs(word<SerdesCoreType>(c)); },
      MOX_OP(EthPort) { e.laneIs((unsigned char)c.below(256)); },
      MOX_OP(EthPort) { e.txAlwaysEnabledAt10gIs(flag(c)); },
      MOX_OP(EthPort) { e.fecManagedByFapIs(flag(c)); },
      MOX_OP(EthPort) { e.xge25gSupportedIs(flag(c)); },
      MOX_OP(EthPort) { e.txConnectionIs(c.below(3)); },
      MOX_OP(EthPort) { e.txConnectionDel(); },
      MOX_OP(EthPort) { e.rxConnectionIs(c.below(3)); },
      MOX_OP(EthPort) { e.rxConnectionDel(); },
  };
  all[chance.below(std::size(all))](entity, chance);
}

/// The two sets of lanes and the text that the kinds of port blocks have.
template <class Block>
void changeBlock(Block& e, Chance& c) {
  switch (c.below(6)) {
    case 0: return e.descriptionIs(c.text());
    case 1:
      if constexpr (requires { e.serdesAllocatedDelAll(); }) {
        if (c.oneIn(8)) return e.serdesAllocatedDelAll();
        bool const on = flag(c);
        return e.serdesAllocatedIs(lane(c), on);
      } else if constexpr (requires { e.phyLaneSwapIs(true); }) {
        return c.oneIn(2) ? e.phyLaneSwapIs(flag(c))
                          : e.laneWithLowMDIOAddrInQuadIs((unsigned char)c.below(256));
      } else if constexpr (requires { e.serdesSpeed(); }) {
        return e.serdesSpeedIs(word<Hardware::Sand::SerdesSpeed>(c));
      } else {
        return e.serdesIs(lane(c));
      }
    case 2:
    case 3:
      if constexpr (requires { e.serdesUsedDelAll(); }) {
        bool const on = flag(c);
        return e.serdesUsedIs(lane(c), on);
      } else if constexpr (requires { e.serdesDelAll(); }) {
        bool const on = flag(c);
        return e.serdesIs(lane(c), on);
      } else {
        return e.serdesIs(lane(c));
      }
    case 4:
      if constexpr (requires { e.serdesUsedDelAll(); }) return void(e.serdesUsedDel(lane(c)));
      else if constexpr (requires { e.serdesDelAll(); }) return void(e.serdesDel(lane(c)));
      else return e.serdesIs(lane(c));
    default:
      if (!c.oneIn(6)) return;
      if constexpr (requires { e.serdesUsedDelAll(); }) e.serdesUsedDelAll();
      else if constexpr (requires { e.serdesDelAll(); }) e.serdesDelAll();
  }
}

inline void change(ChipArad& entity, Chance& chance) {
  static constexpr Op<ChipArad> all[] = {
      MOX_OP(ChipArad) { e.descriptionIs(c.text()); },
      MOX_OP(ChipArad) { e.modelNameIs(c.text()); },
      MOX_OP(ChipArad) { e.vendorTypeIs(c.text(20)); },
      MOX_OP(ChipArad) { e.hardwareRevIs(c.text(20)); },
      MOX_OP(ChipArad) { e.firmwareRevIs(c.text(20)); },
      MOX_OP(ChipArad) { e.serialNumIs(c.text(20)); },
      MOX_OP(ChipArad) { e.mfgNameIs(c.text(20)); },
      MOX_OP(ChipArad) { e.mfgDateIs(c.text(20)); },
      MOX_OP(ChipArad) { e.apiIs(c.text()); },
      MOX_OP(ChipArad) { e.requirementIs(word<Requirement>(c)); },
      MOX_OP(ChipArad) { e.uNumIs((unsigned short)c.counter()); },
      MOX_OP(ChipArad) { e.fapTypeIs(word<Hardware::Sand::FapType>(c)); },
      MOX_OP(ChipArad) { e.numCoresIs(c.below(4)); },
      MOX_OP(ChipArad) { e.coreClockFreqKhzIs(c.counter()); },
      MOX_OP(ChipArad) { e.fabricModeIs(word<Hardware::Sand::FapFabricMode>(c)); },
      MOX_OP(ChipArad) { e.nifRefClockIs(word<Hardware::Sand::SerdesRefClock>(c)); },
      MOX_OP(ChipArad) { e.fabricRefClockIs(word<Hardware::Sand::SerdesRefClock>(c)); },
      MOX_OP(ChipArad) { e.comboRefClockIs(word<Hardware::Sand::SerdesRefClock>(c)); },
      MOX_OP(ChipArad) {
        e.dramConfigIs(Hardware::Sand::DramConfig::fromBits((unsigned char)c.below(64)));
      },
      MOX_OP(ChipArad) {
        e.serdesQuartetIs(Hardware::Sand::SerdesQuartetId(c.below(3)))->descriptionIs(c.text());
      },
      MOX_OP(ChipArad) { e.serdesQuartetDel(Hardware::Sand::SerdesQuartetId(c.below(3))); },
      MOX_OP(ChipArad) {
        auto f = e.fabricSerdesIs(Hardware::Sand::SerdesId(c.below(3)));
        switch (c.below(3)) {
          case 0: return f->descriptionIs(c.text());
          case 1: return f->swapPolarityTxIs(flag(c));
          default: return f->swapPolarityRxIs(flag(c));
        }
      },
      MOX_OP(ChipArad) { e.fabricSerdesDel(Hardware::Sand::SerdesId(c.below(3))); },
      MOX_OP(ChipArad) {
        auto t = e.tempSensorIs(Hardware::SensorId((unsigned char)c.below(3)));
        return flag(c) ? t->overheatThresholdIs(c.counter() / 8.) : t->descriptionIs(c.text());
      },
      MOX_OP(ChipArad) { e.tempSensorDel(Hardware::SensorId((unsigned char)c.below(3))); },
      MOX_OP(ChipArad) { e.fapRevMajorIs(word<Hardware::Sand::FapRevMajor>(c)); },
      MOX_OP(ChipArad) { e.pciDeviceIs(format("0000:0%u:00.0", c.below(2))); },
      MOX_OP(ChipArad) { e.pciDeviceDel(); },
      MOX_OP(ChipArad) {
        AradNifSerdesId const id = lane(c);
        replaced([&] { auto const last = (unsigned short)c.below(2);
                       e.serdesIs(id, flag(c), false, Hardware::Sand::SerdesCurrent(1),
                                  Hardware::Sand::SerdesCurrent(2), last); },
                 [&] { e.serdesDel(id); });
      },
      MOX_OP(ChipArad) { e.serdesDel(lane(c)); },
      MOX_OP(ChipArad) { if (c.oneIn(6)) e.serdesDelAll(); },
      MOX_OP(ChipArad) { if (auto serdes = e.serdes(lane(c))) change(**serdes, c); },
      MOX_OP(ChipArad) { if (auto serdes = e.serdes(lane(c))) change(**serdes, c); },
      MOX_OP(ChipArad) { if (auto serdes = e.serdes(lane(c))) change(**serdes, c); },
      MOX_OP(ChipArad) {
        e.nifSerdesQuartetIs(Hardware::Sand::SerdesQuartetId(c.below(3)))->descriptionIs(c.text());
      },
      MOX_OP(ChipArad) { e.nifSerdesQuartetDel(Hardware::Sand::SerdesQuartetId(c.below(3))); },
      MOX_OP(ChipArad) {
        changeBlock(**e.qsgmiiIs(Hardware::Sand::QsgmiiId((unsigned short)c.below(3))), c);
      },
      MOX_OP(ChipArad) { e.qsgmiiDel(Hardware::Sand::QsgmiiId((unsigned short)c.below(3))); },
      MOX_OP(ChipArad) { changeBlock(**e.xlgeIs(block(c)), c); },
      MOX_OP(ChipArad) { if (auto b = e.xlge(block(c))) changeBlock(**b, c); },
      MOX_OP(ChipArad) { e.xlgeDel(block(c)); },
      MOX_OP(ChipArad) {
        changeBlock(**e.xlge2Is(Hardware::Sand::Xlge2Id((unsigned short)c.below(3))), c);
      },
      MOX_OP(ChipArad) { e.xlge2Del(Hardware::Sand::Xlge2Id((unsigned short)c.below(3))); },
      MOX_OP(ChipArad) { changeBlock(**e.cgeIs(block(c)), c); },
      MOX_OP(ChipArad) { if (auto b = e.cge(block(c))) changeBlock(**b, c); },
      MOX_OP(ChipArad) { e.cgeDel(block(c)); },
      MOX_OP(ChipArad) {
        auto const id = (unsigned short)c.below(3);
        Ptr<Port> const port = party<Port>(c);
        replaced([&] { e.portIs(id, port); }, [&] { e.portDel(id); });
      },
      MOX_OP(ChipArad) { e.portDel((unsigned short)c.below(3)); },
      MOX_OP(ChipArad) { if (auto p = e.port((unsigned short)c.below(3))) change(**p, c); },
      MOX_OP(ChipArad) { if (auto p = e.port((unsigned short)c.below(3))) change(**p, c); },
      MOX_OP(ChipArad) { if (auto p = e.port((unsigned short)c.below(3))) change(**p, c); },
      MOX_OP(ChipArad) { auto const text = c.text(); e.ddrTuneSettingIs(key(c), text); },
      MOX_OP(ChipArad) { e.ddrTuneSettingDel(key(c)); },
      MOX_OP(ChipArad) { if (c.oneIn(6)) e.ddrTuneSettingDelAll(); },
      MOX_OP(ChipArad) { change(**e.elkAllUnitsSocPropertiesIs(flag(c) ? "a" : "b", 0), c); },
      MOX_OP(ChipArad) { e.elkAllUnitsSocPropertiesDel(); },
      MOX_OP(ChipArad) { change(**e.elkPerUnitsSocPropertiesIs(c.below(3)), c); },
      MOX_OP(ChipArad) { e.elkPerUnitsSocPropertiesDel(c.below(3)); },
      MOX_OP(ChipArad) { e.elkGlobalSocPropertiesIs("g", c.below(2)); },
      MOX_OP(ChipArad) { if (auto g = e.elkGlobalSocProperties()) change(**g, c); },
      MOX_OP(ChipArad) { if (auto g = e.elkGlobalSocProperties()) change(**g, c); },
      MOX_OP(ChipArad) { e.elkGlobalSocPropertiesDel(); },
      MOX_OP(ChipArad) { auto const text = c.text(); e.serdesClockSocPropertyValueIs(key(c), text); },
      MOX_OP(ChipArad) { auto const text = c.text(); e.serdesClockSocPropertyValueIs(key(c), text); },
      MOX_OP(ChipArad) { e.serdesClockSocPropertyValueDel(key(c)); },
      MOX_OP(ChipArad) {
        Hardware::Sand::AradStatsSerdesId const id((unsigned short)(28 + c.below(3)));
        replaced([&] { e.statsSerdesIs(id, flag(c)); }, [&] { e.statsSerdesDel(id); });
      },
      MOX_OP(ChipArad) {
        e.statsSerdesDel(Hardware::Sand::AradStatsSerdesId((unsigned short)(28 + c.below(3))));
      },
      MOX_OP(ChipArad) { e.tolminMbIdIs(c.counter()); },
      MOX_OP(ChipArad) { e.tolminMbUnitIs(c.counter()); },
      MOX_OP(ChipArad) { e.slotIdIs(Fru::SlotId(c.below(9))); },
      MOX_OP(ChipArad) { e.hwResetUsingPlxIs(party<GpioPin>(c)); },
      MOX_OP(ChipArad) { e.hwResetUsingKyrIs(party<Gpo>(c)); },
      MOX_OP(ChipArad) { e.interruptControllerIs(party<GpioPin>(c)); },
      MOX_OP(ChipArad) { e.interruptControllerIs(e.hwResetUsingPlx()); },
      MOX_OP(ChipArad) {
        auto const from = e.port((unsigned short)c.below(3));
        auto const to = e.port((unsigned short)c.below(3));
        if (from && to) to->xcvrSlotIs(from->xcvrSlot());
      },
      MOX_OP(ChipArad) {
        Hardware::VesperAccelId const id((unsigned char)c.below(3));
        replaced([&] { e.mdioAccelBlockIs(id, c.below(2), Units::Megahertz(2.5)); },
                 [&] { e.mdioAccelBlockDel(id); });
      },
      MOX_OP(ChipArad) { e.mdioAccelBlockDel(Hardware::VesperAccelId((unsigned char)c.below(3))); },
      MOX_OP(ChipArad) { e.pllClockIs(party<Si5327>(c)); },
      MOX_OP(ChipArad) { e.elkConnectionIs(c.below(3)); },
      MOX_OP(ChipArad) { e.elkConnectionDel(c.below(3)); },
      MOX_OP(ChipArad) { e.extTcamTypeIs(word<Hardware::Sand::ExtTcamType>(c)); },
      MOX_OP(ChipArad) { e.lunetPeerNameIs(Name(c.text(60))); },
      MOX_OP(ChipArad) { e.lunetPeerAddrIs(c.counter()); },
      MOX_OP(ChipArad) { e.ilknCoreToPipeSwapIs(flag(c)); },
  };
  all[chance.below(std::size(all))](entity, chance);
}

inline void change(AradSlice& slice, Chance& chance) {
  static constexpr Op<AradSlice> all[] = {
      MOX_OP(AradSlice) { e.numPortsIs(c.counter()); },
      MOX_OP(AradSlice) { e.useMdioIs(flag(c)); },
      MOX_OP(AradSlice) { e.managedPhyIs(word<AradManagedPhy>(c)); },
      MOX_OP(AradSlice) { e.accelerate100gVoqIs(flag(c)); },
      MOX_OP(AradSlice) { e.cellIsAloneIs(flag(c)); },
      MOX_OP(AradSlice) { e.macsecIsSupportedIs(flag(c)); },
      MOX_OP(AradSlice) {
        Name const name = flag(c) ? "fap0" : "fap1";
        replaced([&] { e.fapIs(name, c.below(2)); }, [&] { e.fapDel(name); });
      },
      MOX_OP(AradSlice) { if (c.oneIn(3)) e.fapDel(flag(c) ? "fap0" : "fap1"); },
  };
  Ptr<ChipArad> const chip = slice.fap(chance.below(3) ? "fap0" : "fap1");
  if (!chip || chance.oneIn(12)) return all[chance.below(std::size(all))](slice, chance);
  change(**chip, chance);
}

/// What a tree refers to and nulls, in an order that equal trees share.
inline std::vector<Entity const*> references(AradSlice const& slice) {
  std::vector<Entity const*> all;
  for (char const* const name : {"fap0", "fap1"}) {
    Ptr<ChipArad> const chip = slice.fap(name);
    if (!chip) continue;
    all.insert(all.end(), {chip->hwResetUsingPlx().get(), chip->hwResetUsingKyr().get(),
                           chip->interruptController().get(), chip->pllClock().get()});
    for (unsigned short id = 0; id != 3; ++id) {
      Ptr<EthPort> const port = chip->port(id);
      if (port) all.insert(all.end(), {port->ethPort().get(), port->xcvrSlot().get()});
    }
  }
  return all;
}

/// What one tree refers to is referred to in another one as well.
inline void share(AradSlice const& from, AradSlice& to, Chance& chance) {
  Ptr<ChipArad> const source = from.fap("fap0");
  Ptr<ChipArad> const target = to.fap("fap0");
  if (!source || !target) return;
  auto const port = source->port((unsigned short)chance.below(3));
  switch (chance.below(4)) {
    case 0: return target->hwResetUsingPlxIs(source->interruptController());
    case 1: return target->hwResetUsingKyrIs(source->hwResetUsingKyr());
    case 2: return target->pllClockIs(source->pllClock());
    default:
      if (!port) return;
      auto const id = (unsigned short)chance.below(3);
      replaced([&] { target->portIs(id, port->ethPort())->xcvrSlotIs(port->xcvrSlot()); },
               [&] { target->portDel(id); });
  }
}
// clang-format on
#undef MOX_OP

}  // namespace ops
}  // namespace Mox::NboAttrLog::test
