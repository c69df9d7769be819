// The run-time object of a type: its attributes, its constructor arguments, its place among the
// other types, and the factories that make instances and generic objects of it. One for each entity
// type, enumeration and value type, immortal. Generated classes override the factories; the
// attribute log, the generic interface and tools find types by qualified name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Mox/Entity.h"
#include "Mox/HashMap.h"
#include "Mox/LinkQueue.h"
#include "Mox/Name.h"
#include "Mox/Ptr.h"
#include "registry/MoxAttr.h"

namespace MOX_API Mox {

class Dir;
class GenericIf;
namespace NboAttrLog {
class In;
class Out;
}  // namespace NboAttrLog

/// The numbers that an identifier accepts.
struct ValueRange {
  unsigned long long least;
  unsigned long long largest;
  /// Whether `largest` means "no such object".
  bool hasNull;
};

class MoxType : public Entity {
 public:
  struct MoxTypeFlags {
    std::uint32_t word0 = 0;
    std::uint32_t word1 = 0;
  };

  class MoxReferringAttrQ : public LinkQueueLink<MoxReferringAttrQ, unsigned int, MoxAttr> {
   public:
    using LinkQueueLink::LinkQueueLink;
  };
  class MoxDerivedTypeQ : public LinkQueueLink<MoxDerivedTypeQ, unsigned int, MoxType> {
   public:
    using LinkQueueLink::LinkQueueLink;
  };
  class MoxAttributeQ : public LinkQueueLink<MoxAttributeQ, unsigned int, MoxAttr> {
   public:
    using LinkQueueLink::LinkQueueLink;
  };
  class MoxAttributeQIdx : public ValueMember<MoxAttributeQIdx, Name, unsigned int> {
   public:
    using ValueMember::ValueMember;
  };
  class MoxNestedType : public ValueMember<MoxNestedType, Name, Ptr<MoxType>> {
   public:
    using ValueMember<MoxNestedType, Name, Ptr<MoxType>>::ValueMember;
  };
  using ReferringAttrQ = LinkQueue<MoxReferringAttrQ, unsigned int, MoxAttr>;
  using DerivedTypeQ = LinkQueue<MoxDerivedTypeQ, unsigned int, MoxType>;
  using AttributeQ = LinkQueue<MoxAttributeQ, unsigned int, MoxAttr>;
  using AttributeQIdx = HashMap<MoxAttributeQIdx, Name, unsigned int>;
  using NestedTypes = HashMap<MoxNestedType, Name, Ptr<MoxType>>;

  /// `name`: the short name. `base` null: directly below nothing.
  MoxType(Name const& name, MoxType* parent, MoxType* base, MoxTypeFlags const& flags);
  ~MoxType() override;

  // The order of the virtual operations is part of the interface; those of Entity come first.

  /// A new root named `name` in a directory; null for a type that only its owner makes.
  virtual Ptr<Entity> newEntity(Name const& name, Dir* dir) const;
  /// A new entity whose constructor arguments are read from `in`. Null for a type that has no
  /// instances of its own. Throws what the arguments' types throw, before anything is allocated.
  virtual Ptr<Entity> newEntity(Ptr<NboAttrLog::In> const& in,
                                PtrInterface::NotifieeConst::Mox_BitSet flags, unsigned int version,
                                PtrInterface* parent) const;
  /// Binds a child entity that has become visible to a stream adapter of its own beside its
  /// parent's on `out`. Requires: the child has a parent of this type, with an adapter there.
  virtual void childAttrLogIs(Ptr<MoxAttr const> const& attr, Ptr<PtrInterface> const& child,
                              Ptr<NboAttrLog::Out> const& out) const;
  /// The generic object of a value of this type, or of the default for null.
  virtual Ptr<GenericIf> genericIf(void const* value, bool isConst) const;
  /// The generic object of a new instance made of a list of constructor arguments.
  virtual Ptr<GenericIf> genericIf(GenericIf const* arguments, bool isConst) const;
  /// The generic object of the value or the entity that `text` tells.
  virtual Ptr<GenericIf> genericIf(String8 const& text, bool isConst) const;
  /// The generic object of an entity of this type, or of none.
  virtual Ptr<GenericIf> genericIf_(PtrInterface* instance, bool isConst) const;
  virtual void typeFlagsDoEmbeddedWriteConstraints();

  virtual Ptr<MoxType> nestedTypeDel(Name const& name);
  virtual Ptr<MoxType> nestedTypeDel(NestedTypes::Iterator const& at);
  virtual void nestedTypeNotify(Name const& name);
  virtual void nestedTypeIs(Name const& name, Ptr<MoxType> const& type);
  virtual void type_AttrIs(Ptr<MoxAttr> const& attribute);

  virtual Ptr<MoxAttr> referringAttrQDel(unsigned int key);
  virtual Ptr<MoxAttr> referringAttrQDel(ReferringAttrQ::IteratorConst const& at);
  virtual void referringAttrQNotify(unsigned int key);
  virtual void referringAttrQEnq(Ptr<MoxAttr> const& attribute);
  virtual Ptr<MoxAttr> referringAttrQDeq();
  virtual void referringAttrQIs(unsigned int key, Ptr<MoxAttr> const& attribute);

  virtual Ptr<MoxType> derivedTypeQDel(unsigned int key);
  virtual Ptr<MoxType> derivedTypeQDel(DerivedTypeQ::IteratorConst const& at);
  virtual void derivedTypeQNotify(unsigned int key);
  virtual void derivedTypeQEnq(Ptr<MoxType> const& type);
  virtual Ptr<MoxType> derivedTypeQDeq();
  virtual void derivedTypeQIs(unsigned int key, Ptr<MoxType> const& type);

  virtual void typeFlagsIs(MoxTypeFlags const& flags);
  virtual void sizeIs(unsigned int size);
  /// Of an enumeration: the attribute that is its value.
  virtual void valAttrIs(MoxAttr* attribute) const;
  virtual void defaultCollectionIs(Ptr<MoxAttr> const& attribute);

  virtual Ptr<MoxAttr> attributeQDel(unsigned int key);
  virtual Ptr<MoxAttr> attributeQDel(AttributeQ::IteratorConst const& at);
  virtual void attributeQNotify(unsigned int key);
  /// Appends an attribute, in place of an older one of that name, and enters it in the index and
  /// in the attribute set.
  virtual void attributeQEnq(Ptr<MoxAttr> const& attribute);
  virtual Ptr<MoxAttr> attributeQDeq();
  virtual void attributeQIs(unsigned int key, Ptr<MoxAttr> const& attribute);

  virtual bool attributeQIdxDel(Name const& name);
  virtual bool attributeQIdxDel(AttributeQIdx::Iterator const& at);
  virtual void attributeQIdxNotify(Name const& name);
  virtual void attributeQIdxIs(Name const& name, unsigned int key);

  virtual Ptr<TypeName> constructorArgNameQDel(unsigned int key);
  virtual Ptr<TypeName> constructorArgNameQDel(TypeNameQ::IteratorConst const& at);
  virtual void constructorArgNameQNotify(unsigned int key);
  virtual void constructorArgNameQEnq(Name const& name);
  virtual Ptr<TypeName> constructorArgNameQDeq();
  virtual void constructorArgNameQIs(unsigned int key, Name const& name);

  virtual Ptr<TypeName> constructorArgTypeQDel(unsigned int key);
  virtual Ptr<TypeName> constructorArgTypeQDel(TypeNameQ::IteratorConst const& at);
  virtual void constructorArgTypeQNotify(unsigned int key);
  virtual void constructorArgTypeQEnq(Name const& typeName);
  virtual Ptr<TypeName> constructorArgTypeQDeq();
  virtual void constructorArgTypeQIs(unsigned int key, Name const& typeName);

  /// The generic object of an entity by its own type, or one without an entity by this type.
  Ptr<GenericIf> genericIf(PtrInterface* instance, bool isConst) const;
  /// The same, to be read only.
  Ptr<GenericIf> genericIf(PtrInterface const* instance) const;

  MoxType* baseType() const { return base_; }
  MoxTypeFlags const& typeFlags() const { return flags_; }
  /// "Inventory::Arad::Qsgmii"; the short name as long as no other is recorded.
  Name qualifiedName() const;
  /// Bytes of an instance.
  unsigned int size() const { return size_; }
  bool isValue() const { return isValue_; }
  bool isEnumType() const { return isEnumType_; }
  bool isEntity() const { return isEntity_; }
  bool hasGenericIfSupport() const { return hasGenericIfSupport_; }
  void isValueIs(bool value) { isValue_ = value; }
  void isEnumTypeIs(bool enumType) { isEnumType_ = enumType; }
  void isEntityIs(bool entity) { isEntity_ = entity; }
  void hasGenericIfSupportIs(bool support) { hasGenericIfSupport_ = support; }
  /// The doc comment of the schema, its lines separated by newlines; empty without one.
  char const* doc() const { return doc_; }
  /// `doc`: static.
  void docIs(char const* doc) { doc_ = doc; }
  /// Of an identifier; null for all else.
  ValueRange const* range() const { return range_; }

  /// The attributes by name.
  MoxAttr const& attributes() const { return **attributes_; }
  MoxAttr& attributes() { return **attributes_; }
  /// Null when there is none.
  MoxAttr const* attr(AttributeId id) const;
  /// Inherited ones first, in the order of definition.
  AttributeQ const& attributeQ() const { return attributeQ_; }
  AttributeQIdx const& attributeQIdx() const { return attributeQIdx_; }
  TypeNameQ const& constructorArgNameQ() const { return constructorArgNameQ_; }
  TypeNameQ const& constructorArgTypeQ() const { return constructorArgTypeQ_; }
  DerivedTypeQ const& derivedTypeQ() const { return derivedTypeQ_; }
  ReferringAttrQ const& referringAttrQ() const { return referringAttrQ_; }
  NestedTypes const& nestedTypes() const { return nestedTypes_; }
  MoxAttr* valAttr() const { return valAttr_; }
  MoxAttr* defaultCollection() const { return defaultCollection_.get(); }

  /// True for a type whose entities stand in a directory.
  bool isRootType() const { return isRootType_; }
  /// The key of an entity of this type, as paths show it.
  using KeyText = String8 (*)(Entity const& entity);
  KeyText keyText() const { return keyText_; }

  /// Records the qualified name of a type. A second type of that name takes the first one's place.
  static void typeNodeIs(MoxType const* type, Name const& qualifiedName);
  /// The type of that name; null for none.
  static MoxType const* typeNode(Name const& qualifiedName);
  /// Every type that a qualified name is recorded for, in the order of the names.
  static std::vector<MoxType const*> typeNodes();

  MoxType const* fwkType() const override;
  static MoxType* _fwkType();

 protected:
  void isRootTypeIs(bool root) { isRootType_ = root; }
  /// `range`: static.
  void rangeIs(ValueRange const* range) { range_ = range; }
  void keyTextIs(KeyText text) { keyText_ = text; }

 private:
  MoxType* base_;
  mutable Name qualifiedName_;
  MoxTypeFlags flags_;
  unsigned int size_ = 0;
  bool isValue_ = false;
  bool isEnumType_ = false;
  bool isEntity_ = false;
  bool hasGenericIfSupport_ = false;
  bool isRootType_ = false;
  char const* doc_ = "";
  ValueRange const* range_ = nullptr;
  KeyText keyText_ = nullptr;

  AttributeQ attributeQ_;
  unsigned int nextAttributeKey_ = 0;
  AttributeQIdx attributeQIdx_;
  TypeNameQ constructorArgNameQ_;
  TypeNameQ constructorArgTypeQ_;
  DerivedTypeQ derivedTypeQ_;
  ReferringAttrQ referringAttrQ_;
  NestedTypes nestedTypes_;
  mutable MoxAttr* valAttr_ = nullptr;
  Ptr<MoxAttr> defaultCollection_;
  Ptr<MoxAttr> attributes_;
};

}  // namespace Mox
