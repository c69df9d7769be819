// The schema's table at run time: every entity type that the registry lists, with one entity of
// each; attributes and sample values are those of tests/model/Model.h.
#pragma once

#include <functional>

#include "tests/model/Model.h"

namespace schema {

using model::Attribute;
using model::attributes;
using model::Board;
using model::samples;
using model::text;
using Mox::AttributeForm;
using Mox::Entity;
using Mox::GenericIf;
using Mox::Ptr;

inline Ptr<GenericIf> ofText(Mox::MoxType const* type, std::string const& value) {
  return type->genericIf(Mox::String8(value.c_str()), false);
}
inline bool isMaking(Attribute const& attribute) {
  return attribute.form == AttributeForm::child || attribute.form == AttributeForm::children;
}
/// The list that makes a child, each argument the sample of that number, but the key if it's given.
inline Ptr<GenericIf> arguments(Attribute const& attribute, std::size_t sample,
                                std::string const& key = "") {
  std::vector<Mox::NamedText> named;
  for (auto const& [name, type] : attribute.arguments) {
    auto const& all = samples(type);
    bool const isKey = !key.empty() && named.empty();
    named.push_back({name.c_str(), (isKey ? key : all[sample % all.size()]).c_str()});
  }
  return Mox::argumentsFromText(*attribute.row, named);
}

/// New entities of every type that a slice can hold, and of the slice itself, each with a function
/// that makes another. They have no members but those that keep them apart.
inline std::vector<std::function<Ptr<Entity>()>> makers() {
  using namespace Inventory::Arad;
  using Inventory::Sand::FabricSerdes;
  return {[] { return Ptr<Entity>(new SocProperties("bag", 3)); },
          [] { return Ptr<Entity>(new NifSerdes(5, true, false, 1, 2, 300)); },
          [] { return Ptr<Entity>(new Qsgmii(5)); },
          [] { return Ptr<Entity>(new Xlge(5)); },
          [] { return Ptr<Entity>(new Xlge2(5)); },
          [] { return Ptr<Entity>(new Cge(5)); },
          [] { return Ptr<Entity>(new EthPort(5, nullptr)); },
          [] { return Ptr<Entity>(new StatsSerdes(28, true)); },
          [] { return Ptr<Entity>(new Arad("fap0", 5)); },
          [] { return Ptr<Entity>(new AradSlice("slice")); },
          [] { return Ptr<Entity>(new FabricSerdes(5)); },
          [] { return Ptr<Entity>(new Inventory::Mdio::AccelBlock(5, 7, 2.5)); }};
}

}  // namespace schema
