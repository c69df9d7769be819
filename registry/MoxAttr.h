// The description of one attribute: what generic clients and tools know of it. An attribute set,
// one for each type, is an object of the same class that holds the type's attributes by name.
// Immortal with their types; one thread.
#pragma once

#include <cstdint>

#include "Mox/AttributeId.h"
#include "Mox/AttributeRow.h"
#include "Mox/HashMap.h"
#include "Mox/LinkQueue.h"
#include "Mox/Name.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"

namespace MOX_API Mox {

class MoxType;

/// A name as a member of a queue.
class TypeName : public PtrInterface {
 public:
  explicit TypeName(Name const& name) : name_(name) {}
  Name const& name() const { return name_; }

 private:
  Name name_;
};

class TypeNameQLink : public LinkQueueLink<TypeNameQLink, unsigned int, TypeName> {
 public:
  using LinkQueueLink::LinkQueueLink;
};
/// Names of constructor arguments, or of their types, in the order in which they are given.
using TypeNameQ = LinkQueue<TypeNameQLink, unsigned int, TypeName>;

class MoxAttr : public virtual PtrInterface {
 public:
  /// Two words of flags, given by the schema. Programs ask `kind()`.
  struct AttrFlags {
    std::uint32_t word0 = 0;
    std::uint32_t word1 = 0;
    friend bool operator==(AttrFlags const&, AttrFlags const&) = default;
  };
  using MoxAttrIntrospectionFlags = std::uint32_t;

  /// The empty attribute set of a type.
  explicit MoxAttr(MoxType* owner) : owner_(owner) {}
  ~MoxAttr() override;

  // The order of the virtual operations is part of the interface.

  /// The same attribute bound to `owner`, a type that inherits it.
  virtual Ptr<MoxAttr> attrCopy(MoxType* owner) const;
  virtual void attrKeyTypeIs(Ptr<MoxType> const& type);
  virtual void attrIntrospectionFlagsIs(MoxAttrIntrospectionFlags flags);
  /// Whether the members of a collection come in the order of their keys: never so far.
  virtual void attrOrderedIs(bool ordered);
  /// The constructor argument of a member that carries its key.
  virtual void attrKeyArgIs(Name const& name);
  /// The arguments that make a child: the name of each, then the name of its type.
  virtual void constructorArgTypeQEnq(Name const& typeName);
  virtual void constructorArgNameQEnq(Name const& name);

  // On an attribute.

  Name const& name() const { return name_; }
  AttributeId id() const { return id_; }
  /// The type that has the attribute.
  MoxType* owner() const { return owner_; }
  /// The type that `attrCopy` took the attribute from, or the owner itself.
  MoxType* definer() const { return definer_ ? definer_ : owner_; }
  /// Type of the value, of the target, or of the members.
  MoxType* type() const { return type_; }
  /// Null for what is no collection.
  MoxType* keyType() const { return keyType_; }
  /// Of a collection of entities: the attribute of the members that holds the key; else null. Found
  /// when it is first asked for if the member's type was described later than the owner's.
  MoxAttr* keyAttr() const;
  Name const& keyArg() const { return keyArg_; }
  bool isOrdered() const { return isOrdered_; }
  AttrFlags const& flags() const { return flags_; }
  MoxAttrIntrospectionFlags introspectionFlags() const { return introspectionFlags_; }
  /// What the schema declares of the attribute; null for what no schema declares.
  AttributeRow const* row() const { return row_; }
  void rowIs(AttributeRow const& row) { row_ = &row; }
  AttributeKind kind() const { return row_ ? row_->kind : AttributeKind::system; }
  /// "constructor value", "child collection", ...
  char const* kindName() const;
  /// The doc comment of the schema, its lines separated by newlines.
  char const* doc() const { return row_ ? row_->doc : ""; }
  TypeNameQ const& constructorArgNameQ() const { return constructorArgNameQ_; }
  TypeNameQ const& constructorArgTypeQ() const { return constructorArgTypeQ_; }

  // On the attribute set of a type.

  /// Null when the type has no such attribute.
  Ptr<MoxAttr const> attr(Name const& name) const;
  Ptr<MoxAttr> attr(Name const& name);
  void attrDel(Name const& name);
  /// Makes an attribute of the set's type, in place of one of that name. `second` is not used.
  Ptr<MoxAttr> attrIs(Name const& name, Ptr<MoxType> const& type, MoxAttr* keyAttr, MoxAttr* second,
                      AttrFlags const& flags, AttributeId id);
  /// Enters an attribute of the set's type, in place of one of that name.
  void attrIs(Ptr<MoxAttr> const& attribute);

 private:
  class Member : public ValueMember<Member, Name, Ptr<MoxAttr>> {
   public:
    using ValueMember<Member, Name, Ptr<MoxAttr>>::ValueMember;
  };

  MoxAttr(MoxAttr const& other, MoxType* owner);

  MoxType* owner_;
  MoxType* definer_ = nullptr;
  Name name_;
  MoxType* type_ = nullptr;
  MoxType* keyType_ = nullptr;
  mutable MoxAttr* keyAttr_ = nullptr;
  AttrFlags flags_;
  MoxAttrIntrospectionFlags introspectionFlags_ = 0;
  AttributeId id_ = 0;
  AttributeRow const* row_ = nullptr;
  bool isOrdered_ = true;
  Name keyArg_;
  TypeNameQ constructorArgNameQ_;
  TypeNameQ constructorArgTypeQ_;
  HashMap<Member, Name, Ptr<MoxAttr>> attributes_;
};

}  // namespace Mox
