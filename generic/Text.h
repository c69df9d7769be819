// The model by names and texts, for tools: attributes by name, keys, values and arguments from
// text, places by path. No type of a model is known here; what can be done with an attribute is
// asked of the type registry. Failures are Mox::Exceptions that name the attribute, the text and
// what was expected; they leave everything alone.
#pragma once

#include <span>
#include <vector>

#include "Mox/Entity.h"
#include "generic/AttributeWalk.h"
#include "generic/Carrier.h"
#include "generic/GenericIfEntity.h"
#include "registry/MoxType.h"

namespace MOX_API Mox {

/// How an attribute is worked with.
enum class AttributeForm : unsigned char {
  constant,   ///< a value or a reference that only the constructor sets
  value,      ///< a value
  reference,  ///< a reference to an entity owned elsewhere
  child,      ///< an owned entity
  children,   ///< a collection of owned entities
  values,     ///< a collection of values
  other,      ///< holds nothing of its own: a name for a reaction, for a key, for plumbing
};
AttributeForm attributeForm(MoxAttr const& attribute);
/// The attributes that hold something, those of the base first; without those of all entities.
std::vector<MoxAttr const*> contentOf(MoxType const& type);
/// The type with a name as argument lists have it: qualified, or short within a name space of
/// `near`. Null when there is none.
MoxType const* typeByName(Name const& name, MoxType const& near);
/// Null when there is none.
MoxAttr const* attributeByName(MoxType const& type, String8 const& name);

/// What the text of a value is: what stands in apostrophes in it, and what is a number.
enum class ValueForm : unsigned char { text, number, boolean, word, reference };
ValueForm valueForm(MoxType const& type);

/// The generic object of an entity; of a null entity for null.
Ptr<GenericIf> genericOf(Ptr<Entity> const& entity, bool isConst = false);
/// The entity of a generic object; null for none, and for what carries a value.
Ptr<Entity> entityOf(Ptr<GenericIf> const& object);

/// The key as paths show it: names bare, all else in its text form.
String8 keyText(Ptr<GenericIf const> const& key);
/// The key that `keyText` shows. `attribute`: a collection.
Ptr<GenericIf> keyFromText(MoxAttr const& attribute, String8 const& text);
/// A value or a reference for an attribute.
Ptr<GenericIf> valueFromText(MoxAttr const& attribute, String8 const& text);

struct NamedText {
  String8 name;
  String8 text;
};
/// The argument list that makes a child for `attribute`, out of texts by name in any order. Every
/// argument has to be there, but references, which are null without one.
Ptr<GenericIf> argumentsFromText(MoxAttr const& attribute, std::span<NamedText const> texts);

/// An attribute of an entity, and one member of it if there is a key.
struct AttributePlace {
  Ptr<GenericIf> object;
  MoxAttr const* attribute = nullptr;
  Ptr<GenericIf const> key;
};
/// The place that `slice/fap[fap0]/port[17].xlgeId` or `slice/fap[fap0]/port[17]` tells: a path of
/// an entity, '.' or '/', an attribute's name, and for a member a key in brackets. Keys may hold
/// any bytes; the tree decides where they end.
AttributePlace attributePlace(String8 const& path, bool isConst = false);

// Operations on a place.

Ptr<GenericIf> attributeGet(AttributePlace const& place);
void attributeSet(AttributePlace const& place, String8 const& text);
/// Makes a child, or finds the one with these arguments.
Ptr<GenericIf> attributeAdd(AttributePlace const& place, std::span<NamedText const> arguments);
/// Takes a child or a member out. False if there was none.
bool attributeDel(AttributePlace const& place);

}  // namespace Mox
