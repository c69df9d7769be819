// Typed access to every attribute of every type, by text: what the generic interface is compared
// with. Written down by hand, one name for each attribute, apart from schema and generator.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "InvArad.h"
#include "values/ValueText.h"

namespace typedAccess {

using Mox::Entity;
using Mox::Ptr;
using Mox::String8;
using Texts = std::vector<String8>;

/// What stands in no attribute of that kind is null.
struct Attribute {
  std::function<String8(Entity&)> get;
  std::function<void(Entity&, String8 const& value)> set;
  std::function<String8(Entity&, String8 const& key)> getKey;
  std::function<bool(Entity&, String8 const& key)> exists;
  std::function<void(Entity&, String8 const& key, String8 const& value)> setKey;
  std::function<String8(Entity&)> del;
  std::function<String8(Entity&, String8 const& key)> delKey;
  std::function<unsigned int(Entity&)> count;
  std::function<String8(Entity&, Texts const&)> make;
  /// Keys in the order of the typed iterator.
  std::function<Texts(Entity&)> keys;
};

template <class T>
T read(String8 const& text) {
  return Mox::strepToValue<T>(text);
}
template <class T>
String8 shown(T const& value) {
  return Mox::textOf(value);
}
template <class T>
String8 shown(Ptr<T> const& entity) {
  return Mox::valueToStrepOfRawPtr(entity.get(), typeid(T));
}

template <class E, class R, class... A>
auto makes(Mox::ValidPtr<R> (E::*is)(A...)) {
  return [is](Entity& entity, Texts const& texts) {
    return [&]<std::size_t... i>(std::index_sequence<i...>) {
      Ptr<R> const made =
          (static_cast<E&>(entity).*is)(read<std::remove_cvref_t<A>>(texts.at(i))...);
      return shown(made);
    }
    (std::index_sequence_for<A...>());
  };
}

using Table = std::map<std::string, std::map<std::string, Attribute>>;

inline Table const& table() {
  static Table const all = [] {
    using namespace Hardware::Sand;
    using namespace Inventory::Arad;
    using Inventory::ComponentBase;
    using Inventory::Sand::FabricSerdes;
    using Inventory::Sand::FapBase;
    using Inventory::Sand::SerdesQuartet;
    using Inventory::Sand::TempSensor;
    Table types;
    std::map<std::string, Attribute>* type = nullptr;
#define TYPED_IN(E)    \
  {                    \
    type = &types[#E]; \
    using X = E;
#define TYPED_END }
#define TYPED_GET(x) (*type)[#x].get = [](Entity& e) { return shown(static_cast<X&>(e).x()); };
#define TYPED_SET(x)                                                                \
  TYPED_GET(x)                                                                      \
  (*type)[#x].set = [](Entity& e, String8 const& text) {                            \
    auto& typed = static_cast<X&>(e);                                               \
    typed.x##Is(read<std::remove_cvref_t<decltype(std::declval<X&>().x())>>(text)); \
  };
#define TYPED_CHILD(x)                 \
  TYPED_GET(x)                         \
  (*type)[#x].make = makes(&X::x##Is); \
  (*type)[#x].del = [](Entity& e) { return shown(static_cast<X&>(e).x##Del()); };
#define TYPED_KEYS(x, X_, K)                                                   \
  (*type)[#x].getKey = [](Entity& e, String8 const& k) {                       \
    return shown(static_cast<X&>(e).x(read<K>(k)));                            \
  };                                                                           \
  (*type)[#x].exists = [](Entity& e, String8 const& k) {                       \
    return bool(static_cast<X&>(e).mox##X_##Member(read<K>(k)));               \
  };                                                                           \
  (*type)[#x].delKey = [](Entity& e, String8 const& k) {                       \
    return shown(static_cast<X&>(e).x##Del(read<K>(k)));                       \
  };                                                                           \
  (*type)[#x].count = [](Entity& e) { return static_cast<X&>(e).x##Count(); }; \
  (*type)[#x].keys = [](Entity& e) {                                           \
    Texts keys;                                                                \
    for (auto at = static_cast<X&>(e).x##IteratorConst(); at; ++at)            \
      keys.push_back(shown(at.key()));                                         \
    return keys;                                                               \
  };
#define TYPED_CHILDREN(x, X_, K) \
  TYPED_KEYS(x, X_, K)           \
  (*type)[#x].make = makes(&X::x##Is);
#define TYPED_VALUES(x, X_, K, V)                                          \
  TYPED_KEYS(x, X_, K)                                                     \
  (*type)[#x].setKey = [](Entity& e, String8 const& k, String8 const& v) { \
    static_cast<X&>(e).x##Is(read<K>(k), read<V>(v));                      \
  };

    // clang-format off
    TYPED_IN(SocProperties)
    TYPED_GET(unitId) TYPED_VALUES(property, Property, String8, String8)
    TYPED_END
    TYPED_IN(NifSerdes)
    TYPED_GET(id) TYPED_SET(txSerdesId) TYPED_SET(rxSerdesId) TYPED_GET(swapPolarityTx)
    TYPED_GET(swapPolarityRx) TYPED_GET(preDriverCurrent) TYPED_GET(driverCurrent)
    TYPED_GET(preEmphasis) TYPED_SET(txPhaseInterpolation)
    TYPED_CHILDREN(jerichoNifSerdesTuning, JerichoNifSerdesTuning, JerichoNifSerdesTuningMode)
    TYPED_END
    TYPED_IN(Qsgmii)
    TYPED_GET(id) TYPED_SET(description) TYPED_SET(serdes)
    TYPED_END
    TYPED_IN(Xlge)
    TYPED_GET(id) TYPED_SET(description) TYPED_SET(phyLaneSwap)
    TYPED_SET(laneWithLowMDIOAddrInQuad) TYPED_VALUES(serdes, Serdes, AradNifSerdesId, bool)
    TYPED_END
    TYPED_IN(Xlge2)
    TYPED_GET(id) TYPED_SET(description) TYPED_SET(serdesSpeed)
    TYPED_VALUES(serdes, Serdes, AradNifSerdesId, bool)
    TYPED_END
    TYPED_IN(Cge)
    TYPED_GET(id) TYPED_SET(description)
    TYPED_VALUES(serdesAllocated, SerdesAllocated, AradNifSerdesId, bool)
    TYPED_VALUES(serdesUsed, SerdesUsed, AradNifSerdesId, bool)
    TYPED_END
    TYPED_IN(EthPort)
    TYPED_GET(ethPortId) TYPED_GET(ethPort) TYPED_SET(xcvrSlot) TYPED_SET(qsgmiiId)
    TYPED_SET(geId) TYPED_SET(xgeId) TYPED_SET(xlgeId) TYPED_SET(xlge2Id) TYPED_SET(cgeId)
    TYPED_SET(managedPhy) TYPED_SET(ledManagedByPhy) TYPED_SET(numQPairs)
    TYPED_SET(bringup10GigButXgeNotSupported) TYPED_SET(serdesCoreType) TYPED_SET(lane)
    TYPED_SET(txAlwaysEnabledAt10g) TYPED_SET(fecManagedByFap) TYPED_SET(xge25gSupported)
    TYPED_CHILD(txConnection) TYPED_CHILD(rxConnection)
    TYPED_END
    TYPED_IN(StatsSerdes)
    TYPED_GET(id) TYPED_GET(swapPolarityTx)
    TYPED_END
    TYPED_IN(Arad)
    TYPED_SET(fapRevMajor) TYPED_CHILD(pciDevice) TYPED_CHILDREN(serdes, Serdes, AradNifSerdesId)
    TYPED_CHILDREN(nifSerdesQuartet, NifSerdesQuartet, SerdesQuartetId)
    TYPED_CHILDREN(qsgmii, Qsgmii, QsgmiiId) TYPED_CHILDREN(xlge, Xlge, XlgeId)
    TYPED_CHILDREN(xlge2, Xlge2, Xlge2Id) TYPED_CHILDREN(cge, Cge, XlgeId)
    TYPED_CHILDREN(port, Port, unsigned short)
    TYPED_VALUES(ddrTuneSetting, DdrTuneSetting, String8, String8)
    TYPED_CHILD(elkAllUnitsSocProperties)
    TYPED_CHILDREN(elkPerUnitsSocProperties, ElkPerUnitsSocProperties, unsigned int)
    TYPED_CHILD(elkGlobalSocProperties)
    TYPED_VALUES(serdesClockSocPropertyValue, SerdesClockSocPropertyValue, String8, String8)
    TYPED_CHILDREN(statsSerdes, StatsSerdes, AradStatsSerdesId) TYPED_SET(tolminMbId)
    TYPED_SET(tolminMbUnit) TYPED_SET(slotId) TYPED_SET(hwResetUsingPlx)
    TYPED_SET(hwResetUsingKyr) TYPED_SET(interruptController)
    TYPED_CHILDREN(mdioAccelBlock, MdioAccelBlock, Hardware::VesperAccelId) TYPED_SET(pllClock)
    TYPED_CHILDREN(elkConnection, ElkConnection, unsigned int) TYPED_SET(extTcamType)
    TYPED_SET(lunetPeerName) TYPED_SET(lunetPeerAddr) TYPED_SET(ilknCoreToPipeSwap)
    // Inherited.
    TYPED_SET(description) TYPED_SET(modelName) TYPED_SET(vendorType) TYPED_SET(hardwareRev)
    TYPED_SET(firmwareRev) TYPED_SET(serialNum) TYPED_SET(mfgName) TYPED_SET(mfgDate)
    TYPED_SET(api) TYPED_SET(requirement) TYPED_SET(uNum) TYPED_GET(fapId) TYPED_SET(fapType)
    TYPED_SET(numCores) TYPED_SET(coreClockFreqKhz) TYPED_SET(fabricMode) TYPED_SET(nifRefClock)
    TYPED_SET(fabricRefClock) TYPED_SET(comboRefClock) TYPED_SET(dramConfig)
    TYPED_END
    TYPED_IN(FapBase)
    TYPED_CHILDREN(serdesQuartet, SerdesQuartet, SerdesQuartetId)
    TYPED_CHILDREN(fabricSerdes, FabricSerdes, SerdesId)
    TYPED_CHILDREN(tempSensor, TempSensor, Hardware::SensorId)
    TYPED_END
    TYPED_IN(AradSlice)
    TYPED_SET(numPorts) TYPED_CHILDREN(fap, Fap, Mox::Name) TYPED_SET(useMdio)
    TYPED_SET(managedPhy) TYPED_SET(accelerate100gVoq) TYPED_SET(cellIsAlone)
    TYPED_SET(macsecIsSupported)
    TYPED_END
    TYPED_IN(SerdesQuartet)
    TYPED_GET(id) TYPED_SET(description)
    TYPED_END
    TYPED_IN(FabricSerdes)
    TYPED_GET(id) TYPED_SET(description) TYPED_SET(swapPolarityTx) TYPED_SET(swapPolarityRx)
    TYPED_END
    TYPED_IN(TempSensor)
    TYPED_GET(id) TYPED_SET(description) TYPED_SET(overheatThreshold)
    TYPED_END
    TYPED_IN(JerichoNifSerdesTuning)
    TYPED_GET(tuningMode) TYPED_SET(preCursor) TYPED_SET(mainCursor) TYPED_SET(postCursor)
    TYPED_END
    using Fru::ConnectionEndpoint;
    TYPED_IN(ConnectionEndpoint)
    TYPED_GET(id)
    TYPED_END
    using Inventory::Mdio::AccelBlock;
    TYPED_IN(AccelBlock)
    TYPED_GET(id) TYPED_GET(offset) TYPED_GET(busSpeed)
    TYPED_END
    using Inventory::Si5327;
    TYPED_IN(Si5327)
    TYPED_GET(pllRole)
    TYPED_END
    // clang-format on
    for (auto const& [name, attribute] : types["FapBase"]) types["Arad"][name] = attribute;
#undef TYPED_IN
#undef TYPED_END
#undef TYPED_GET
#undef TYPED_SET
#undef TYPED_CHILD
#undef TYPED_KEYS
#undef TYPED_CHILDREN
#undef TYPED_VALUES
    return types;
  }();
  return all;
}

}  // namespace typedAccess
