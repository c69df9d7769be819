// What the tests of the model share: sample values of every value type, the attributes of a type as
// the registry lists them, and a watch that writes down every change of one entity.
#pragma once

#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "InvArad.h"

namespace model {

using Mox::AttributeForm;
using Mox::Entity;
using Mox::GenericIf;
using Mox::MoxAttr;
using Mox::Ptr;
using Mox::PtrInterface;
using Mox::String8;
using Op = GenericIf::AttributeOp;

inline std::string text(String8 const& value) { return {value.charPtr(), value.length()}; }
inline unsigned int count(PtrInterface const& object) {
  return object.references() & Mox::VFPtrInterface::countMask;
}

inline std::string shortName(String8 const& name) {
  std::string const whole = text(name);
  auto const colon = whole.rfind(':');
  return colon == whole.npos ? whole : whole.substr(colon + 1);
}

/// Samples as text by the type's short name, its default first; of entities, the parts of a Board.
inline std::map<std::string, std::vector<std::string>>& allSamples() {
  static std::map<std::string, std::vector<std::string>> all = {
      {"bool", {"false", "true"}},
      {"U8", {"0", "7", "255"}},
      {"U16", {"0", "7", "65535"}},
      {"U32", {"0", "7", "4294967295"}},
      {"int", {"0", "-7", "2147483647"}},
      {"double", {"0", "-2.5", "99.75"}},
      {"String8", {"''", "'a'", "'another one'", "'it\\'s'"}},
      {"Name", {"''", "'a'", "'b'", "'another'"}},
      {"QsgmiiId", {"96", "0", "95"}},
      {"XlgeId", {"18", "0", "17"}},
      {"Xlge2Id", {"36", "0", "35"}},
      {"AradNifSerdesId", {"72", "0", "71", "5", "6"}},
      {"AradStatsSerdesId", {"32", "28", "31"}},
      {"SerdesCurrent", {"33", "0", "32"}},
      {"SerdesQuartetId", {"18", "0", "17"}},
      {"SerdesId", {"304", "0", "303"}},
      {"VesperAccelId", {"0", "1", "127"}},
      {"SensorId", {"0", "1", "255"}},
      {"SlotId", {"0", "3", "4294967295"}},
      {"Megahertz", {"0", "2.5", "25"}},
      {"DramConfig", {"none", "0", "0:1:4"}},
      {"Port", {"''", "'portA'", "'portB'"}},
      {"Slot", {"''", "'slotA'", "'slotB'"}},
      {"GpioPin", {"''", "'pinA'", "'pinB'"}},
      {"Gpo", {"''", "'outA'", "'outB'"}},
      {"Si5327", {"''", "'clockA'", "'clockB'"}},
  };
  return all;
}
inline std::vector<std::string> const& samples(std::string const& type) {
  return allSamples().at(type);
}
/// Those of an enumeration are its enumerators.
inline std::string known(Mox::MoxType const& type, std::string const& name) {
  if (type.isEnumType() && allSamples()[name].empty()) {
    for (Mox::MoxType::AttributeQ::IteratorConst at(&type.attributeQ()); at; ++at) {
      if (at->name() != Mox::Name("value"))
        allSamples()[name].push_back("'" + text(at->name()) + "'");
    }
  }
  return name;
}

/// The parts that references can be set to by their names, for as long as this object lives.
class Board {
 public:
  Board() {
    for (std::string const last : {"A", "B"}) {
      add(new Inventory::Port(("port" + last).c_str()));
      add(new Inventory::Xcvr::Slot(("slot" + last).c_str()));
      add(new Inventory::GpioPin(("pin" + last).c_str()));
      add(new Inventory::Gpo(("out" + last).c_str()));
      add(new Inventory::Si5327(("clock" + last).c_str(), last == "A" ? 0 : 1));
    }
  }

 private:
  void add(Ptr<Entity> const& part) { roots_.emplace_back(part); }
  std::list<Mox::EntityRoot> roots_;
};

/// An attribute that holds something; types by their short names.
struct Attribute {
  MoxAttr const* row;
  Mox::AttributeId id;
  AttributeForm form;
  std::string name, type, keyType;
  std::vector<std::pair<std::string, std::string>> arguments;  ///< names and types

  bool isScalar() const { return form == AttributeForm::value || form == AttributeForm::reference; }
  bool isCollection() const { return !keyType.empty(); }
};

inline std::vector<Attribute> attributes(Mox::MoxType const& type) {
  std::vector<Attribute> all;
  for (MoxAttr const* const row : Mox::contentOf(type)) {
    all.push_back(
        {row,
         row->id(),
         Mox::attributeForm(*row),
         text(row->name()),
         known(*row->type(), shortName(row->type()->qualifiedName())),
         row->keyType() ? known(*row->keyType(), shortName(row->keyType()->qualifiedName())) : "",
         {}});
    Mox::TypeNameQ::IteratorConst of(&row->constructorArgTypeQ());
    for (Mox::TypeNameQ::IteratorConst at(&row->constructorArgNameQ()); at; ++at, ++of) {
      all.back().arguments.emplace_back(text(at->name()), shortName(of->name()));
    }
  }
  return all;
}

/// Hears of one entity, weakly, and writes a line for each change: "serdes[5] v3", and what the
/// attribute holds at that moment if that is asked for.
class Watch {
 public:
  explicit Watch(Ptr<Entity> const& entity, bool showsValues = false)
      : object(Mox::genericOf(entity)),
        watch_(object, [=, this, raw = entity.get()](GenericIf& of, Mox::AttributeId id,
                                                     Ptr<GenericIf const> const& key) {
          heard_ += text(of.attributeString(id)) + (key ? "[" + text(Mox::keyText(key)) + "]" : "");
          heard_ += " v" + std::to_string(raw->version());
          if (showsValues) heard_ += " " + held(of, id, key);
          heard_ += "\n";
        }) {
    object->isWeakReferenceIs(true);
  }
  /// What was written since the last call.
  std::string take() { return std::exchange(heard_, ""); }

  Ptr<GenericIf> const object;

 private:
  static std::string held(GenericIf& of, Mox::AttributeId id, Ptr<GenericIf const> const& key) {
    if (key && !Mox::valueOf<bool>(of.attributeOp({id, Op::attrExists}, key, nullptr))) {
      return "none";
    }
    return text(of.attributeOp({id, Op::attrGet}, key, nullptr)->strRep());
  }
  std::string heard_;
  Mox::AttributeWatch watch_;
};

}  // namespace model
