// The schema as tests know it, written down apart from the compiler: every attribute of every type,
// sample values of every value type, defaults, and one entity of each type. For table-driven tests.
#pragma once

#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "InvArad.h"
#include "model/TypeText.h"
#include "registry/MoxType.h"
#include "values/EntityPath.h"

namespace schemaTable {

inline std::string text(Mox::String8 const& value) { return {value.charPtr(), value.length()}; }

struct Argument {
  std::string name;
  std::string type;
};

struct Attribute {
  Mox::AttributeId id;
  std::string name;
  std::string type;
  std::string keyType;  ///< of collections
  std::string kind;
  std::vector<Argument> arguments;  ///< of what creates a member

  bool isScalar() const { return kind == "value"; }
  bool isConstant() const { return kind.starts_with("constructor"); }
  bool isCollection() const { return kind.ends_with("collection"); }
};

struct Type {
  std::string name;
  std::string base;
  std::vector<Argument> arguments;
  std::vector<Attribute> attributes;
};

/// The models beside the chip inventory, in the form of schema_table.golden.
inline constexpr char const* siblings = R"(
Inventory::ComponentBase : Mox::Entity (name Name)
  0x102 description : String8 value
  0x103 modelName : String8 value
  0x104 vendorType : String8 value
  0x105 hardwareRev : String8 value
  0x106 firmwareRev : String8 value
  0x107 serialNum : String8 value
  0x108 mfgName : String8 value
  0x109 mfgDate : String8 value
  0x10a api : String8 value
  0x10b requirement : Inventory::Requirement value
  0x10c uNum : U16 value
Inventory::Sand::FapBase : Inventory::ComponentBase (name Name, fapId U32)
  0x182 fapId : U32 constructor value
  0x183 fapType : Hardware::Sand::FapType value
  0x184 numCores : U32 value
  0x185 coreClockFreqKhz : U32 value
  0x186 fabricMode : Hardware::Sand::FapFabricMode value
  0x187 nifRefClock : Hardware::Sand::SerdesRefClock value
  0x188 fabricRefClock : Hardware::Sand::SerdesRefClock value
  0x189 comboRefClock : Hardware::Sand::SerdesRefClock value
  0x18a serdesQuartet : Inventory::Sand::SerdesQuartet [Hardware::Sand::SerdesQuartetId] child collection, by id (id Hardware::Sand::SerdesQuartetId)
  0x18b fabricSerdes : Inventory::Sand::FabricSerdes [Hardware::Sand::SerdesId] child collection, by id (id Hardware::Sand::SerdesId)
  0x18c tempSensor : Inventory::Sand::TempSensor [Hardware::SensorId] child collection, by id (id Hardware::SensorId)
  0x18d dramConfig : Hardware::Sand::DramConfig value
Inventory::Sand::SerdesQuartet : Mox::Entity (name Name, id Hardware::Sand::SerdesQuartetId)
  0x102 id : Hardware::Sand::SerdesQuartetId constructor value
  0x103 description : String8 value
Inventory::Sand::FabricSerdes : Mox::Entity (id Hardware::Sand::SerdesId)
  0x102 id : Hardware::Sand::SerdesId constructor value
  0x103 description : String8 value
  0x104 swapPolarityTx : bool value
  0x105 swapPolarityRx : bool value
Inventory::Sand::TempSensor : Mox::Entity (id Hardware::SensorId)
  0x102 id : Hardware::SensorId constructor value
  0x103 description : String8 value
  0x104 overheatThreshold : double value
Hardware::Sand::JerichoNifSerdesTuning : Mox::Entity (name Name, tuningMode Hardware::Sand::JerichoNifSerdesTuningMode)
  0x102 tuningMode : Hardware::Sand::JerichoNifSerdesTuningMode constructor value
  0x103 preCursor : int value
  0x104 mainCursor : int value
  0x105 postCursor : int value
Fru::ConnectionEndpoint : Mox::Entity (id U32)
  0x102 id : U32 constructor value
Inventory::Mdio::AccelBlock : Mox::Entity (id Hardware::VesperAccelId, offset U32, busSpeed Units::Megahertz)
  0x102 id : Hardware::VesperAccelId constructor value
  0x103 offset : U32 constructor value
  0x104 busSpeed : Units::Megahertz constructor value
Inventory::Si5327 : Mox::Entity (name Name, pllRole U32)
  0x102 pllRole : U32 constructor value
Inventory::PciDevice : Mox::Entity (name Name)
Inventory::Port : Mox::Entity (name Name)
Inventory::GpioPin : Mox::Entity (name Name)
Inventory::Gpo : Mox::Entity (name Name)
Inventory::Xcvr::Slot : Mox::Entity (name Name)
)";

/// Sample values as text, the type's default first.
inline std::vector<std::string> const& samples(std::string const& type) {
  static std::map<std::string, std::vector<std::string>> const all = {
      {"bool", {"false", "true"}},
      {"U8", {"0", "7", "255"}},
      {"U16", {"0", "7", "65535"}},
      {"U32", {"0", "7", "4294967295"}},
      {"int", {"0", "-7", "2147483647"}},
      {"double", {"0", "-2.5", "99.75"}},
      {"String8", {"''", "'a'", "'another one'", "'it\\'s'"}},
      {"Name", {"''", "'a'", "'b'", "'another'"}},
      {"Hardware::Sand::QsgmiiId", {"96", "0", "95"}},
      {"Hardware::Sand::XlgeId", {"18", "0", "17"}},
      {"Hardware::Sand::Xlge2Id", {"36", "0", "35"}},
      {"Hardware::Sand::AradNifSerdesId", {"72", "0", "71", "5", "6"}},
      {"Hardware::Sand::AradStatsSerdesId", {"32", "28", "31"}},
      {"Hardware::Sand::SerdesCurrent", {"33", "0", "32"}},
      {"Hardware::Sand::SerdesQuartetId", {"18", "0", "17"}},
      {"Hardware::Sand::SerdesId", {"304", "0", "303"}},
      {"Hardware::VesperAccelId", {"0", "1", "127"}},
      {"Hardware::SensorId", {"0", "1", "255"}},
      {"Hardware::Sand::SerdesSpeed",
       {"'serdesSpeedUnknown'", "'serdesSpeed10g'", "'serdesSpeed25g'"}},
      {"Hardware::Sand::FapType", {"'fapTypeUnknown'", "'fapTypeJericho'", "'fapTypeArad'"}},
      {"Hardware::Sand::FapRevMajor", {"'fapRevMajorUnknown'", "'fapRevMajorA'", "'fapRevMajorB'"}},
      {"Hardware::Sand::FapFabricMode",
       {"'fabricModeUnknown'", "'fabricModeMesh'", "'fabricModeSingle'"}},
      {"Hardware::Sand::SerdesRefClock",
       {"'serdesRefClockUnknown'", "'serdesRefClock125Mhz'", "'serdesRefClock312Mhz'"}},
      {"Hardware::Sand::ExtTcamType", {"'extTcamNone'", "'extTcamSingle'", "'extTcamCascaded'"}},
      {"Hardware::Sand::JerichoNifSerdesTuningMode",
       {"'serdesTuningDefault'", "'serdesTuningOptical'", "'serdesTuningCopper'"}},
      {"Inventory::Requirement",
       {"'requirementUnknown'", "'requirementOptional'", "'requirementMandatory'"}},
      {"AradManagedPhy", {"'unknown'", "'noPhy'", "'bcm84858'"}},
      {"SerdesCoreType", {"'unknownCore'", "'warpCore'", "'eagleCore'"}},
      {"Fru::SlotId", {"0", "3", "4294967295"}},
      {"Units::Megahertz", {"0", "2.5", "25"}},
      {"Hardware::Sand::DramConfig", {"none", "0", "0:1:4"}},
      // Names of the parts of a Board.
      {"Inventory::Port", {"''", "'portA'", "'portB'"}},
      {"Inventory::Xcvr::Slot", {"''", "'slotA'", "'slotB'"}},
      {"Inventory::GpioPin", {"''", "'pinA'", "'pinB'"}},
      {"Inventory::Gpo", {"''", "'outA'", "'outB'"}},
      {"Inventory::Si5327", {"''", "'clockA'", "'clockB'"}},
  };
  auto const found = all.find(type);
  if (found == all.end()) throw std::out_of_range("no sample values of " + type);
  return found->second;
}

/// The value after construction. `key`: that of the entity, which two attributes start with.
inline std::string defaultOf(std::string const& type, Attribute const& attribute,
                             std::string const& key) {
  if (type == "Inventory::Arad::NifSerdes" && attribute.name == "txSerdesId") return key;
  if (type == "Inventory::Arad::NifSerdes" && attribute.name == "rxSerdesId") return key;
  if (type == "Inventory::Arad::EthPort" && attribute.name == "fecManagedByFap") return "true";
  if (type == "Inventory::Arad::EthPort" && attribute.name == "xge25gSupported") return "true";
  if (type == "Inventory::Arad::Arad" && attribute.name == "fapType") return "'fapTypeArad'";
  return samples(attribute.type).front();
}

namespace detail {

inline std::vector<Argument> arguments(std::string const& line) {
  std::vector<Argument> all;
  auto const open = line.find('(');
  if (open == std::string::npos) return all;
  std::istringstream list(line.substr(open + 1, line.rfind(')') - open - 1));
  for (std::string one; std::getline(list >> std::ws, one, ',');) {
    auto const blank = one.find(' ');
    all.push_back({one.substr(0, blank), one.substr(blank + 1)});
  }
  return all;
}

inline void read(std::istream& in, std::vector<Type>& types) {
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    if (line[0] != ' ') {
      Type type;
      std::string colon;
      words >> type.name >> colon >> type.base;
      type.arguments = arguments(line);
      types.push_back(type);
      continue;
    }
    Attribute attribute;
    std::string id, colon;
    words >> id >> attribute.name >> colon >> attribute.type;
    attribute.id = static_cast<Mox::AttributeId>(std::strtoul(id.c_str(), nullptr, 16));
    std::string rest;
    std::getline(words >> std::ws, rest);
    if (rest[0] == '[') {
      attribute.keyType = rest.substr(1, rest.find(']') - 1);
      rest = rest.substr(rest.find(']') + 2);
    }
    attribute.kind = rest.substr(0, rest.find_first_of(",("));
    while (attribute.kind.ends_with(' ')) attribute.kind.pop_back();
    attribute.arguments = arguments(line);
    types.back().attributes.push_back(attribute);
  }
}

}  // namespace detail

/// All types, bases before what derives from them.
inline std::vector<Type> const& types() {
  static std::vector<Type> const all = [] {
    std::vector<Type> read;
    std::istringstream own(siblings);
    detail::read(own, read);
    std::ifstream golden(SOURCE_DIR "/tests/moxc/schema_table.golden");
    detail::read(golden, read);
    return read;
  }();
  return all;
}

/// By the full name, or by the bare one of a type of the chip inventory.
inline Type const& type(std::string const& name) {
  for (Type const& type : types()) {
    if (type.name == name || type.name == "Inventory::Arad::" + name) return type;
  }
  throw std::out_of_range("no type " + name);
}

/// What a type's own class and its bases keep, the bases' first; names of the interface, of the key
/// and of reactions, which keep nothing, aside.
inline std::vector<Attribute> attributes(Type const& of) {
  std::vector<Attribute> all;
  if (of.base != "Mox::Entity") all = attributes(type(of.base));
  for (Attribute const& attribute : of.attributes) {
    if (attribute.kind != "interface" && attribute.kind != "handler" && attribute.kind != "key") {
      all.push_back(attribute);
    }
  }
  return all;
}

/// An entity of every type that can stand alone, with arguments that show.
inline Mox::Ptr<Mox::Entity> make(std::string const& name) {
  using namespace Inventory::Arad;
  using Mox::Entity;
  using Mox::Ptr;
  static std::map<std::string, std::function<Ptr<Entity>()>> const makers = {
      {"Inventory::Arad::SocProperties", [] { return Ptr<Entity>(new SocProperties("bag", 3)); }},
      {"Inventory::Arad::NifSerdes",
       [] { return Ptr<Entity>(new NifSerdes(5, true, false, 1, 2, 300)); }},
      {"Inventory::Arad::Qsgmii", [] { return Ptr<Entity>(new Qsgmii(5)); }},
      {"Inventory::Arad::Xlge", [] { return Ptr<Entity>(new Xlge(5)); }},
      {"Inventory::Arad::Xlge2", [] { return Ptr<Entity>(new Xlge2(5)); }},
      {"Inventory::Arad::Cge", [] { return Ptr<Entity>(new Cge(5)); }},
      {"Inventory::Arad::EthPort", [] { return Ptr<Entity>(new EthPort(5, nullptr)); }},
      {"Inventory::Arad::StatsSerdes", [] { return Ptr<Entity>(new StatsSerdes(28, true)); }},
      {"Inventory::Arad::Arad", [] { return Ptr<Entity>(new Arad("fap0", 5)); }},
      {"Inventory::Arad::AradSlice", [] { return Ptr<Entity>(new AradSlice("slice")); }},
      {"Inventory::Sand::SerdesQuartet",
       [] { return Ptr<Entity>(new Inventory::Sand::SerdesQuartet("5", 5)); }},
      {"Inventory::Sand::FabricSerdes",
       [] { return Ptr<Entity>(new Inventory::Sand::FabricSerdes(5)); }},
      {"Inventory::Sand::TempSensor",
       [] { return Ptr<Entity>(new Inventory::Sand::TempSensor(5)); }},
      {"Hardware::Sand::JerichoNifSerdesTuning",
       [] {
         return Ptr<Entity>(new Hardware::Sand::JerichoNifSerdesTuning(
             "tuning", Hardware::Sand::serdesTuningCopper));
       }},
      {"Fru::ConnectionEndpoint", [] { return Ptr<Entity>(new Fru::ConnectionEndpoint(5)); }},
      {"Inventory::Mdio::AccelBlock",
       [] { return Ptr<Entity>(new Inventory::Mdio::AccelBlock(5, 7, 2.5)); }},
      {"Inventory::Si5327", [] { return Ptr<Entity>(new Inventory::Si5327("clock", 1)); }},
      {"Inventory::PciDevice", [] { return Ptr<Entity>(new Inventory::PciDevice("device")); }},
      {"Inventory::Port", [] { return Ptr<Entity>(new Inventory::Port("port")); }},
      {"Inventory::GpioPin", [] { return Ptr<Entity>(new Inventory::GpioPin("pin")); }},
      {"Inventory::Gpo", [] { return Ptr<Entity>(new Inventory::Gpo("output")); }},
      {"Inventory::Xcvr::Slot", [] { return Ptr<Entity>(new Inventory::Xcvr::Slot("slot")); }},
  };
  auto const found = makers.find(name);
  return found == makers.end() ? Ptr<Entity>() : found->second();
}

/// Parts that references can be set to by their names, for as long as this object lives.
struct Board {
  Mox::EntityRoot portA{Mox::Ptr<Mox::Entity>(new Inventory::Port("portA"))};
  Mox::EntityRoot portB{Mox::Ptr<Mox::Entity>(new Inventory::Port("portB"))};
  Mox::EntityRoot slotA{Mox::Ptr<Mox::Entity>(new Inventory::Xcvr::Slot("slotA"))};
  Mox::EntityRoot slotB{Mox::Ptr<Mox::Entity>(new Inventory::Xcvr::Slot("slotB"))};
  Mox::EntityRoot pinA{Mox::Ptr<Mox::Entity>(new Inventory::GpioPin("pinA"))};
  Mox::EntityRoot pinB{Mox::Ptr<Mox::Entity>(new Inventory::GpioPin("pinB"))};
  Mox::EntityRoot outA{Mox::Ptr<Mox::Entity>(new Inventory::Gpo("outA"))};
  Mox::EntityRoot outB{Mox::Ptr<Mox::Entity>(new Inventory::Gpo("outB"))};
  Mox::EntityRoot clockA{Mox::Ptr<Mox::Entity>(new Inventory::Si5327("clockA", 0))};
  Mox::EntityRoot clockB{Mox::Ptr<Mox::Entity>(new Inventory::Si5327("clockB", 1))};
};

/// The operations by text of one attribute.
inline Mox::AttributeText const& operations(Mox::Entity const& entity, Mox::AttributeId id) {
  Mox::AttributeText const* const found = entity.fwkType()->typeText()->find(id);
  if (!found) throw std::out_of_range("no attribute " + std::to_string(id));
  return *found;
}

/// Subscribes to one entity and writes down what it hears, with the version at that moment and, if
/// asked for, what a getter gives: "serdes[5] v3 null".
class Watch final : public Mox::EntityObserver {
 public:
  explicit Watch(Mox::Entity& entity, bool showsValues = false) : showsValues_(showsValues) {
    subscriber_ = entity.fwkType()->typeText()->observe(entity, *this);
  }
  /// What was heard since the last call, a line each.
  std::string take() { return std::exchange(heard_, ""); }

 private:
  void handleAttribute(Mox::Entity& entity, Mox::AttributeId id, Mox::String8 const* key) override {
    Mox::AttributeText const& attribute = operations(entity, id);
    heard_ += attribute.name;
    if (key) heard_ += "[" + text(*key) + "]";
    heard_ += " v" + std::to_string(entity.version());
    if (showsValues_) heard_ += " " + seen(entity, attribute, key);
    heard_ += "\n";
  }
  static std::string seen(Mox::Entity& entity, Mox::AttributeText const& attribute,
                          Mox::String8 const* key) {
    Mox::MemberText member;
    Mox::Ptr<Mox::Entity> child;
    switch (attribute.form) {
      case Mox::AttributeText::Form::scalar:
        return text(attribute.value(entity));
      case Mox::AttributeText::Form::values:
        return attribute.member(entity, *key, member) ? text(member.value) : "none";
      case Mox::AttributeText::Form::child:
        child = attribute.child(entity);
        break;
      case Mox::AttributeText::Form::children:
        if (attribute.member(entity, *key, member)) child = member.child;
        break;
    }
    if (!child) return "none";
    return child->parent() == Mox::Ptr<Mox::Entity>(&entity) ? "child" : "child of another";
  }

  bool showsValues_;
  std::string heard_;
  Mox::Ptr<Mox::PtrInterface> subscriber_;
};

}  // namespace schemaTable
