// The attributes of a type as text, to show and to set, and one observer for entities of any type:
// what the tests of the model and of the log reach any attribute with.
// Programs use generic/Text.h. Generated tables fill it in.
#pragma once

#include <cstddef>
#include <functional>
#include <span>

#include "Mox/AttributeId.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Mox/String8.h"
#include "values/ValueText.h"

namespace MOX_API Mox {

/// Hears every change of the entities that it observes.
class EntityObserver {
 public:
  virtual ~EntityObserver() = default;
  /// `key`: the text of the changed key of a collection; null for all else.
  virtual void handleAttribute(Entity& entity, AttributeId attribute, String8 const* key) = 0;
};

/// What a value's text is, for forms that have types of their own. `name` is that of a key alone
/// and stands bare; texts, references and some words stand in apostrophes.
enum class TextKind : unsigned char { text, number, boolean, word, reference, name };

struct MemberText {
  String8 key;
  String8 value;      ///< of a value collection
  Ptr<Entity> child;  ///< of a collection of entities
};

/// Functions are null where they make no sense for the attribute. Those that take text throw what
/// the conversion of the text throws, and then have changed nothing.
struct AttributeText {
  enum class Form : unsigned char { scalar, child, values, children };
  using Visit = std::function<void(MemberText const&)>;
  using Arguments = std::span<String8 const>;

  AttributeId id;
  char const* name;
  Form form;
  TextKind kind;
  /// Collections: what the text of a key is.
  TextKind keyKind = TextKind::word;
  /// Scalar or reference: the value's text.
  String8 (*value)(Entity const&) = nullptr;
  /// Child: null for none.
  Ptr<Entity> (*child)(Entity const&) = nullptr;
  /// Collections: every member, in the map's order.
  void (*members)(Entity const&, Visit const&) = nullptr;
  /// Collections: finds one member by the text of its key; false for none.
  bool (*member)(Entity const&, String8 const& key, MemberText& found) = nullptr;
  /// Changes a scalar or a reference, or with a key a member of a value collection. Null for what
  /// only a constructor sets.
  void (*set)(Entity&, String8 const& key, String8 const& value) = nullptr;
  /// Child, collection of children: the member with these `addCount` constructor arguments, made if
  /// there is none.
  Ptr<Entity> (*add)(Entity&, Arguments arguments) = nullptr;
  std::size_t addCount = 0;
  /// Child, collections: takes the member out, if there is one.
  void (*del)(Entity&, String8 const& key) = nullptr;

  bool isCollection() const { return form == Form::values || form == Form::children; }
};

struct TypeText {
  char const* qualifiedName;
  TypeText const* base;
  AttributeText const* attributes;
  std::size_t count;
  /// A weak subscriber that hands every change to the observer for as long as it lives.
  Ptr<PtrInterface> (*observe)(Entity&, EntityObserver&);

  /// Calls `visit` for each attribute, the base's first.
  void forEach(std::function<void(AttributeText const&)> const& visit) const {
    if (base) base->forEach(visit);
    for (std::size_t i = 0; i < count; ++i) visit(attributes[i]);
  }
  /// Null for an id that neither the type nor its bases have.
  AttributeText const* find(AttributeId id) const {
    for (std::size_t i = 0; i < count; ++i) {
      if (attributes[i].id == id) return attributes + i;
    }
    return base ? base->find(id) : nullptr;
  }
};

/// A key as paths show it: names bare, all else in its text form.
template <class K>
String8 pathKey(K const& key) {
  if constexpr (std::is_same_v<K, Name>) {
    return key;
  } else {
    return textOf(key);
  }
}

/// The key that `pathKey` shows.
template <class K>
K keyOfPath(String8 const& text) {
  if constexpr (std::is_same_v<K, Name>) {
    return Name(text);
  } else {
    return strepToValue<K>(text);
  }
}

/// The base of generated observers: a weak subscriber of `X` with its observer.
template <class X>
class ObserverOf : public X::NotifieeConst {
 public:
  void onZeroReferences() override { this->notifierIs(Ptr<PtrInterface const>()); }

 protected:
  ObserverOf(X& entity, EntityObserver& observer) : observer_(observer) {
    this->isRegisteredNotifieeIs(true);
    this->notifierIs(Ptr<PtrInterface const>(&entity));
    this->isWeakReferenceIs(true);
  }
  void tell(AttributeId attribute) {
    observer_.handleAttribute(const_cast<X&>(*this->notifier().get()), attribute, nullptr);
  }
  template <class K>
  void tellKey(AttributeId attribute, K const& key) {
    String8 const text = pathKey(key);
    observer_.handleAttribute(const_cast<X&>(*this->notifier().get()), attribute, &text);
  }

 private:
  EntityObserver& observer_;
};

}  // namespace Mox
