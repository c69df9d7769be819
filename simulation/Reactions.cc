#include "simulation/Reactions.h"

#include <functional>
#include <string_view>

#include "Mox/Dir.h"
#include "Mox/Exception.h"
#include "generic/Carrier.h"
#include "generic/Text.h"

namespace Mox::Simulation {
namespace {

using Op = GenericIf::AttributeOp;

/// One value in four has a reaction, and its correction hardly ever: a chain of corrections ends.
bool isObjectionable(String8 const& text) {
  return std::hash<std::string_view>()(text.view()) % 4 == 0;
}

/// The next attribute of a plain value behind this one, never one before it.
Attribute const* nextValue(Outline const& outline, Attribute const& attribute) {
  for (Attribute const& other : outline.attributes()) {
    bool const isBehind = other.id() > attribute.id();
    if (isBehind && other.form == AttributeForm::value && other.values->hasSome()) return &other;
  }
  return nullptr;
}

/// The entity goes while the message that changed it is still being applied.
void deleteFromParent(Ptr<GenericIf> const& object) {
  Ptr<Entity> const entity = entityOf(object);
  Ptr<Entity> const parent = entity ? entity->parent() : Ptr<Entity>();
  if (!parent || dynamic_cast<Dir const*>(parent.get())) return;
  Attribute const* const place =
      Outline::of(*parent->fwkType()).find(static_cast<AttributeId>(entity->parentAttrId()));
  if (!place || !place->ownsChildren()) return;
  Ptr<GenericIf const> key;
  if (place->isCollection()) {
    constexpr AttributeId keyOfAnyEntity = 0;
    key = object->attributeOp({keyOfAnyEntity, Op::attrGet}, nullptr, nullptr);
  }
  genericOf(parent)->attributeOp({place->id(), Op::attrDel}, key, nullptr);
}

}  // namespace

void react(Ptr<GenericIf> const& entity, Attribute const& attribute,
           Ptr<GenericIf const> const& key, Chance& chance) {
  enum Kind { none, correct, elsewhere, removal, kinds };
  unsigned int const kind = static_cast<unsigned int>(attribute.id()) % kinds;
  AttributeId const id = attribute.id();
  try {
    if (attribute.form == AttributeForm::value && attribute.values->hasSome()) {
      if (kind == correct) {
        String8 const text = entity->attributeOp({id, Op::attrGet}, nullptr, nullptr)->strRep();
        // A small range would have the same value corrected for ever.
        bool const hasRoom = attribute.values->isText() || attribute.values->isIncreasing();
        if (!hasRoom || !isObjectionable(text)) return;
        entity->attributeOp({id, Op::attrSet}, nullptr, attribute.values->any(chance));
      } else if (kind == elsewhere) {
        Attribute const* const other = nextValue(Outline::of(**entity->type()), attribute);
        if (!other) return;
        entity->attributeOp({other->id(), Op::attrSet}, nullptr, other->values->any(chance));
      } else if (kind == removal) {
        String8 const text = entity->attributeOp({id, Op::attrGet}, nullptr, nullptr)->strRep();
        if (isObjectionable(text) && chance.oneIn(4)) deleteFromParent(entity);
      }
    } else if (attribute.form == AttributeForm::children && key && kind == correct) {
      if (!isObjectionable(key->strRep())) return;
      if (valueOf<bool>(entity->attributeOp({id, Op::attrExists}, key, nullptr))) {
        entity->attributeOp({id, Op::attrDel}, key, nullptr);
      }
    } else if (attribute.form == AttributeForm::values && key && kind != none) {
      // What is written under one key goes to another one as well.
      Ptr<GenericIf> const source = attribute.keys->first();
      Ptr<GenericIf> const copy = attribute.keys->second();
      if (key->strRep() != source->strRep() || copy->strRep() == source->strRep()) return;
      if (!valueOf<bool>(entity->attributeOp({id, Op::attrExists}, source, nullptr))) return;
      entity->attributeOp({id, Op::attrSet}, copy,
                          entity->attributeOp({id, Op::attrGet}, source, nullptr));
    }
  } catch (RangeException const&) {
    // The model's own rule.
  }
}

}  // namespace Mox::Simulation
