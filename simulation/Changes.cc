#include "simulation/Changes.h"

#include <vector>

#include "Mox/Exception.h"
#include "generic/AttributeWalk.h"
#include "generic/Text.h"
#include "simulation/Outline.h"

namespace Mox::Simulation {
namespace {

using Op = GenericIf::AttributeOp;

/// Keys that a collection of children, and one of values, has at most.
constexpr unsigned int childKeys = 3;
constexpr unsigned int valueKeys = 5;

Ptr<GenericIf> carry(Ptr<GenericIf> const& of, AttributeId id, Op::OpId op,
                     Ptr<GenericIf const> const& index = {}, Ptr<GenericIf> const& value = {}) {
  return of->attributeOp({id, op}, index, value);
}

/// For a reference that `from`, or its child, keeps.
Ptr<GenericIf> target(MoxType const& type, MoxType const& from, Chance& chance, Parties& parties) {
  Ptr<Entity> const entity = parties.any(type, from, chance);
  return entity ? genericOf(entity) : Ptr<GenericIf>();
}

void deleteAll(Ptr<GenericIf> const& of, AttributeId id) {
  std::vector<Ptr<GenericIf>> keys;
  for (AttributeWalk at(of, id); at; ++at) keys.push_back(at.key());
  for (Ptr<GenericIf> const& key : keys) carry(of, id, Op::attrDel, key);
}

void changeValues(Ptr<GenericIf> const& of, Attribute const& attribute, Chance& chance) {
  if (chance.oneIn(40)) return deleteAll(of, attribute.id());
  Ptr<GenericIf> const key = attribute.keys->key(chance, valueKeys);
  if (chance.oneIn(3)) {
    carry(of, attribute.id(), Op::attrDel, key);
  } else {
    carry(of, attribute.id(), Op::attrSet, key, attribute.values->any(chance));
  }
}

/// Makes the child, and replaces one of other arguments.
void makeChild(Ptr<GenericIf> const& of, Attribute const& attribute, Ptr<GenericIf> const& key,
               Chance& chance, Parties& parties) {
  Ptr<GenericIf::List_> const arguments(new GenericIf::List_);
  for (Argument const& argument : attribute.arguments) {
    bool const isKey = key && &argument == &attribute.arguments.front();
    if (isKey) {
      arguments->enq(key);
    } else if (argument.values) {
      // Mostly the first, so that a child is found again as often as it is replaced.
      arguments->enq(argument.values->few(chance, chance.oneIn(4) ? 2 : 1));
    } else {
      arguments->enq(target(*argument.type, *attribute.attribute->type(), chance, parties));
    }
  }
  try {
    carry(of, attribute.id(), Op::attrSet, {}, arguments);
  } catch (NameInUseException const&) {
    carry(of, attribute.id(), Op::attrDel, key);
    carry(of, attribute.id(), Op::attrSet, {}, arguments);
  }
}

void changeChildren(Ptr<GenericIf> const& of, Attribute const& attribute, Chance& chance,
                    Parties& parties) {
  bool const isCollection = attribute.isCollection();
  Ptr<GenericIf> const key =
      isCollection ? attribute.keys->key(chance, childKeys) : Ptr<GenericIf>();
  // Each attribute of the child counts as much as its being there.
  if (!chance.oneIn(1 + attribute.weight / 4)) {
    Ptr<GenericIf> const child = carry(of, attribute.id(), Op::attrGet, key);
    if (entityOf(child)) return change(child, chance, parties);
  }
  if (isCollection && chance.oneIn(20)) return deleteAll(of, attribute.id());
  if (chance.oneIn(3)) {
    carry(of, attribute.id(), Op::attrDel, key);
  } else {
    makeChild(of, attribute, key, chance, parties);
  }
}

}  // namespace

void change(Ptr<GenericIf> const& entity, Chance& chance, Parties& parties) {
  Attribute const* const attribute = Outline::of(**entity->type()).any(chance);
  if (!attribute) return;
  try {
    switch (attribute->form) {
      case AttributeForm::value:
        carry(entity, attribute->id(), Op::attrSet, {}, attribute->values->any(chance));
        break;
      case AttributeForm::reference:
        carry(entity, attribute->id(), Op::attrSet, {},
              target(*attribute->attribute->type(), **entity->type(), chance, parties));
        break;
      case AttributeForm::values:
        changeValues(entity, *attribute, chance);
        break;
      default:
        changeChildren(entity, *attribute, chance, parties);
    }
  } catch (RangeException const&) {
    // The model's own rule; a setter that refuses has changed nothing.
  }
}

}  // namespace Mox::Simulation
