#include "generic/Text.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string_view>

#include "Mox/Exception.h"
#include "registry/ValueType.h"
#include "values/EntityPath.h"

namespace Mox {
namespace {

using Op = GenericIf::AttributeOp;

// The bits of the flag words that tell the kinds of attribute apart.
constexpr std::uint32_t constructorBit = 0x00000008;
constexpr std::uint32_t writableBit = 0x00000040;
constexpr std::uint32_t collectionBits = 0x01800000;
constexpr std::uint32_t entityBit = 0x08000000;
constexpr std::uint32_t instantiatingBit = 0x10000000;

/// The attributes of all entities have ids below this one.
constexpr AttributeId firstOwnId = 0x100;

String8 quoted(String8 const& text) { return valueToStrep(text); }

/// What a text of the type has to be, for those who have given another.
String8 expectedText(MoxType const& type) {
  if (!type.isEnumType()) return type.qualifiedName();
  String8 names;
  for (MoxType::AttributeQ::IteratorConst at(&type.attributeQ()); at; ++at) {
    // The last attribute is the value itself.
    if (at->name() == Name("value")) continue;
    names += (names.empty() ? String8("one of ") : String8(", ")) + String8(at->name());
  }
  return names;
}

Ptr<GenericIf> fromText(String8 const& subject, MoxType const& type, String8 const& text) {
  try {
    Ptr<GenericIf> const made = type.genericIf(text, false);
    // A path that names nothing reads as null.
    if (made && (!type.isEntity() || entityOf(made) || text.empty() || text == "''")) return made;
  } catch (Exception const& failure) {
    throw RangeException(subject + ": expected " + expectedText(type) + ", got " + quoted(text) +
                         ": " + failure.message());
  }
  throw RangeException(subject + ": expected " + expectedText(type) + ", got " + quoted(text));
}

/// One step of a path.
Ptr<Entity> childStep(Entity& parent, String8 const& name, String8 const* key) {
  MoxType const* const type = parent.fwkType();
  MoxAttr const* const attribute = type ? attributeByName(*type, name) : nullptr;
  if (!attribute) return {};
  AttributeForm const form = attributeForm(*attribute);
  if (form != (key ? AttributeForm::children : AttributeForm::child)) return {};
  try {
    Ptr<GenericIf const> const index = key ? keyFromText(*attribute, *key) : Ptr<GenericIf>();
    return entityOf(genericOf(Ptr<Entity>(&parent), true)
                        ->attributeOp({attribute->id(), Op::attrGet}, index, nullptr));
  } catch (RangeException const&) {
    // Not a key of that type: the path names nothing.
    return {};
  }
}

[[maybe_unused]] bool const pathsAreKnown = (EntityPath::childStepIs(&childStep), true);

Ptr<GenericIf> operation(AttributePlace const& place, Op::OpId op,
                         Ptr<GenericIf const> const& index, Ptr<GenericIf> const& value) {
  return place.object->attributeOp({place.attribute->id(), op}, index, value);
}

/// A name, with or without a bracket behind it.
bool isNameAtFront(std::string_view text) {
  text = text.substr(0, text.find('['));
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '_';
  });
}

[[noreturn]] void refuse(AttributePlace const& place, char const* expected) {
  throw OpNotSupportedException(String8(place.attribute->name()) + ": " + expected);
}

void needKey(AttributePlace const& place) {
  AttributeForm const form = attributeForm(*place.attribute);
  bool const isCollection = form == AttributeForm::values || form == AttributeForm::children;
  if (isCollection && !place.key) refuse(place, "a collection, expected [KEY]");
  if (!isCollection && place.key) refuse(place, "no collection, expected no [KEY]");
}

}  // namespace

AttributeForm attributeForm(MoxAttr const& attribute) {
  std::uint32_t const word0 = attribute.flags().word0;
  if (attribute.id() < firstOwnId) return AttributeForm::other;
  if (word0 & constructorBit) return AttributeForm::constant;
  if (!(word0 & writableBit)) return AttributeForm::other;
  bool const isInstantiating = (attribute.flags().word1 & instantiatingBit) != 0;
  if (word0 & collectionBits) {
    return isInstantiating ? AttributeForm::children : AttributeForm::values;
  }
  if (isInstantiating) return AttributeForm::child;
  return word0 & entityBit ? AttributeForm::reference : AttributeForm::value;
}

std::vector<MoxAttr const*> contentOf(MoxType const& type) {
  std::vector<MoxAttr const*> content;
  for (MoxType::AttributeQ::IteratorConst at(&type.attributeQ()); at; ++at) {
    if (attributeForm(**at) != AttributeForm::other) content.push_back(*at);
  }
  return content;
}

MoxType const* typeByName(Name const& name, MoxType const& near) {
  if (MoxType const* const type = MoxType::typeNode(name)) return type;
  Name const qualified = near.qualifiedName();
  std::string_view scope = qualified.view();
  for (auto end = scope.rfind("::"); end != scope.npos; end = scope.rfind("::")) {
    scope = scope.substr(0, end);
    if (MoxType const* const type = MoxType::typeNode(Name(String8(scope) + "::" + name))) {
      return type;
    }
  }
  return nullptr;
}

MoxAttr const* attributeByName(MoxType const& type, String8 const& name) {
  return type.attributes().attr(Name(name)).get();
}

ValueForm valueForm(MoxType const& type) {
  if (type.isEntity()) return ValueForm::reference;
  if (&type == typeOf<bool>()) return ValueForm::boolean;
  if (&type == typeOf<String8>() || &type == typeOf<Name>()) return ValueForm::text;
  auto const* const plain = dynamic_cast<PlainValueType const*>(&type);
  return plain && plain->ops().isNumber ? ValueForm::number : ValueForm::word;
}

Ptr<GenericIf> genericOf(Ptr<Entity> const& entity, bool isConst) {
  return Entity::_fwkType()->genericIf(static_cast<PtrInterface*>(entity.get()), isConst);
}

Ptr<Entity> entityOf(Ptr<GenericIf> const& object) {
  auto const* const entity = dynamic_cast<GenericIfEntity const*>(object.get());
  return entity ? entity->obj() : Ptr<Entity>();
}

String8 keyText(Ptr<GenericIf const> const& key) {
  if (key->type() == Name::_fwkType()) {
    return *static_cast<Name const*>(key->voidPtrIs(Ptr<MoxType const>(Name::_fwkType())));
  }
  return key->strRep();
}

Ptr<GenericIf> keyFromText(MoxAttr const& attribute, String8 const& text) {
  if (attribute.keyType() == Name::_fwkType()) return carrier(Name(text));
  return fromText(String8(attribute.name()) + "[]", *attribute.keyType(), text);
}

Ptr<GenericIf> valueFromText(MoxAttr const& attribute, String8 const& text) {
  return fromText(attribute.name(), *attribute.type(), text);
}

Ptr<GenericIf> argumentsFromText(MoxAttr const& attribute, std::span<NamedText const> texts) {
  Ptr<GenericIf::List_> const list(new GenericIf::List_);
  std::size_t used = 0;
  String8 expected;
  TypeNameQ::IteratorConst typeName(&attribute.constructorArgTypeQ());
  for (TypeNameQ::IteratorConst name(&attribute.constructorArgNameQ()); name && typeName;
       ++name, ++typeName) {
    expected += (expected.empty() ? String8() : String8(", ")) + name->name();
    String8 const subject = String8(attribute.name()) + ": " + name->name();
    MoxType const* type = typeByName(typeName->name(), *attribute.definer());
    if (!type) type = typeByName(typeName->name(), *attribute.type());
    if (!type) throw TypeException(subject + ": no such type: " + typeName->name());
    auto const given = std::find_if(texts.begin(), texts.end(), [&](NamedText const& text) {
      return text.name == String8(name->name());
    });
    if (given != texts.end()) {
      ++used;
      list->enq(fromText(subject, *type, given->text));
    } else if (type->isEntity()) {
      list->enq(Ptr<GenericIf>());
    } else {
      throw TypeException(subject + " is missing, expected " + type->qualifiedName());
    }
  }
  if (used != texts.size()) {
    for (NamedText const& text : texts) {
      auto const same = [&](NamedText const& other) { return other.name == text.name; };
      bool const isTwice = std::count_if(texts.begin(), texts.end(), same) > 1;
      bool isKnown = false;
      for (TypeNameQ::IteratorConst name(&attribute.constructorArgNameQ()); name; ++name) {
        isKnown |= text.name == String8(name->name());
      }
      if (isTwice || !isKnown) {
        throw UnknownArgException(String8(attribute.name()) +
                                  (isKnown ? ": argument given twice: " : ": no such argument: ") +
                                  text.name + ", expected " + expected);
      }
    }
  }
  return list;
}

AttributePlace attributePlace(String8 const& path, bool isConst) {
  std::string_view const bytes = path.view();
  // Which part is at fault: the last divide behind which a name can stand tells.
  std::optional<bool> isEntityKnown;
  for (auto at = bytes.find_last_of("./"); at != bytes.npos && at != 0;
       at = bytes.find_last_of("./", at - 1)) {
    Ptr<Entity> const entity = EntityPath::entity(String8(bytes.substr(0, at)));
    std::string_view name = bytes.substr(at + 1);
    if (!isEntityKnown && isNameAtFront(name)) isEntityKnown = static_cast<bool>(entity);
    if (!entity || !entity->fwkType()) continue;
    std::string_view key;
    bool hasKey = false;
    if (auto const bracket = name.find('['); bracket != name.npos && name.ends_with(']')) {
      hasKey = true;
      key = name.substr(bracket + 1, name.size() - bracket - 2);
      name = name.substr(0, bracket);
    }
    MoxAttr const* const attribute = attributeByName(*entity->fwkType(), String8(name));
    if (!attribute) continue;
    AttributePlace place{genericOf(entity, isConst), attribute, {}};
    if (hasKey && !attribute->keyType()) refuse(place, "no collection, expected no [KEY]");
    if (hasKey) place.key = keyFromText(*attribute, String8(key));
    return place;
  }
  throw UnknownAttrException(
      (isEntityKnown.value_or(false) ? "no such attribute: " : "no such entity: ") + path);
}

Ptr<GenericIf> attributeGet(AttributePlace const& place) {
  needKey(place);
  return operation(place, Op::attrGet, place.key, nullptr);
}

void attributeSet(AttributePlace const& place, String8 const& text) {
  AttributeForm const form = attributeForm(*place.attribute);
  if (form != AttributeForm::value && form != AttributeForm::reference &&
      form != AttributeForm::values) {
    refuse(place, "can't be set");
  }
  needKey(place);
  operation(place, Op::attrSet, place.key, valueFromText(*place.attribute, text));
}

Ptr<GenericIf> attributeAdd(AttributePlace const& place, std::span<NamedText const> arguments) {
  AttributeForm const form = attributeForm(*place.attribute);
  if (form != AttributeForm::child && form != AttributeForm::children) {
    refuse(place, "takes no child");
  }
  if (place.key) refuse(place, "the key of a new child is an argument, expected no [KEY]");
  return operation(place, Op::attrSet, nullptr, argumentsFromText(*place.attribute, arguments));
}

bool attributeDel(AttributePlace const& place) {
  AttributeForm const form = attributeForm(*place.attribute);
  if (form != AttributeForm::child && form != AttributeForm::children &&
      form != AttributeForm::values) {
    refuse(place, "nothing to delete");
  }
  needKey(place);
  bool const wasThere =
      form == AttributeForm::values
          ? valueOf<bool>(operation(place, Op::attrExists, place.key, nullptr))
          : static_cast<bool>(entityOf(operation(place, Op::attrGet, place.key, nullptr)));
  operation(place, Op::attrDel, place.key, nullptr);
  return wasThere;
}

}  // namespace Mox
