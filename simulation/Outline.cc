#include "simulation/Outline.h"

#include <algorithm>
#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace Mox::Simulation {
namespace {

/// Shares of models that nest without end are cut here.
constexpr unsigned int deepest = 6;
constexpr unsigned int mostWeight = 1000;

std::vector<Argument> argumentsOf(TypeNameQ const& typeNames, MoxType const& near,
                                  MoxType const* alsoNear) {
  std::vector<Argument> arguments;
  for (TypeNameQ::IteratorConst at(&typeNames); at; ++at) {
    MoxType const* type = typeByName(at->name(), near);
    if (!type && alsoNear) type = typeByName(at->name(), *alsoNear);
    if (!type) return {};
    arguments.push_back({type, type->isEntity() ? nullptr : &Values::of(*type)});
  }
  return arguments;
}

bool canBeDrawn(Attribute const& attribute) {
  auto const hasSome = [](Values const* values) { return !values || values->hasSome(); };
  if (!hasSome(attribute.keys) || !hasSome(attribute.values)) return false;
  if (attribute.form == AttributeForm::children && attribute.arguments.empty()) return false;
  return std::all_of(attribute.arguments.begin(), attribute.arguments.end(),
                     [&](Argument const& argument) { return hasSome(argument.values); });
}

}  // namespace

Outline const& Outline::of(MoxType const& type) {
  // Immortal, like the values that it leads to.
  static auto& known = *new std::unordered_map<MoxType const*, std::unique_ptr<Outline>>;
  std::unique_ptr<Outline>& outline = known[&type];
  if (!outline) {
    outline.reset(new Outline(type));
    outline->fill();
  }
  return *outline;
}

void Outline::fill() {
  arguments_ = argumentsOf(type_.constructorArgTypeQ(), type_, nullptr);
  for (MoxAttr const* described : contentOf(type_)) {
    Attribute attribute{described, attributeForm(*described)};
    if (described->keyType()) attribute.keys = &Values::of(*described->keyType());
    if (!described->type()->isEntity()) attribute.values = &Values::of(*described->type());
    if (attribute.ownsChildren()) {
      attribute.arguments =
          argumentsOf(described->constructorArgTypeQ(), *described->definer(), described->type());
    }
    if (attribute.form == AttributeForm::constant || !canBeDrawn(attribute)) attribute.weight = 0;
    attributes_.push_back(std::move(attribute));
  }
  for (Attribute& attribute : attributes_) {
    if (attribute.weight == 0) continue;
    if (attribute.ownsChildren()) {
      attribute.weight += Outline::of(*attribute.attribute->type()).weight(deepest);
    }
    attribute.weight = std::min(attribute.weight, mostWeight);
    weight_ += attribute.weight;
  }
}

/// While a type that owns others of its kind is being filled in, its share is what is known so far.
unsigned int Outline::weight(unsigned int depth) const {
  unsigned int sum = 0;
  for (Attribute const& attribute : attributes_) {
    sum += attribute.weight == 0 ? 0 : 1;
    if (depth == 0 || !attribute.ownsChildren() || attribute.weight == 0) continue;
    sum += Outline::of(*attribute.attribute->type()).weight(depth - 1);
    if (sum > mostWeight) break;
  }
  return sum;
}

Attribute const* Outline::find(AttributeId id) const {
  auto const at = std::find_if(attributes_.begin(), attributes_.end(),
                               [id](Attribute const& attribute) { return attribute.id() == id; });
  return at == attributes_.end() ? nullptr : &*at;
}

Attribute const* Outline::any(Chance& chance) const {
  if (weight_ == 0) return nullptr;
  unsigned int at = chance.below(weight_);
  for (Attribute const& attribute : attributes_) {
    if (at < attribute.weight) return &attribute;
    at -= attribute.weight;
  }
  return nullptr;
}

std::unordered_set<MoxType const*> const& Outline::reached() const {
  if (!reached_.empty()) return reached_;
  reached_ = {&type_};
  std::vector<MoxType const*> open{&type_};
  auto const reach = [&](MoxType const& type) {
    if (reached_.insert(&type).second) open.push_back(&type);
  };
  while (!open.empty()) {
    MoxType const* const type = open.back();
    open.pop_back();
    for (Attribute const& attribute : Outline::of(*type).attributes()) {
      if (attribute.attribute->type()->isEntity()) reach(*attribute.attribute->type());
    }
    for (MoxType::DerivedTypeQ::IteratorConst at(&type->derivedTypeQ()); at; ++at) reach(**at);
  }
  return reached_;
}

std::vector<MoxType const*> rootTypes(String8 const& qualifiedName) {
  std::vector<MoxType const*> roots;
  for (MoxType const* type : MoxType::typeNodes()) {
    if (!type->isRootType()) continue;
    if (qualifiedName.empty() || String8(type->qualifiedName()) == qualifiedName) {
      roots.push_back(type);
    }
  }
  // All that is made once is made now, and counts in no history.
  for (MoxType const* type : roots) Outline::of(*type).reached();
  GenericIf::List::_fwkType();
  return roots;
}

}  // namespace Mox::Simulation
