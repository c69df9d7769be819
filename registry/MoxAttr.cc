#include "registry/MoxAttr.h"

#include "registry/MoxType.h"

namespace Mox {
namespace {

void enqueue(TypeNameQ& queue, Name const& name) {
  queue.enq(queue.size(), Ptr<TypeName>(new TypeName(name)));
}

void append(TypeNameQ& queue, TypeNameQ const& other) {
  for (TypeNameQ::IteratorConst it(&other); it; ++it) enqueue(queue, it->name());
}

}  // namespace

MoxAttr::MoxAttr(MoxAttr const& other, MoxType* owner)
    : owner_(owner),
      definer_(other.definer()),
      name_(other.name_),
      type_(other.type_),
      keyType_(other.keyType_),
      keyAttr_(other.keyAttr_),
      flags_(other.flags_),
      introspectionFlags_(other.introspectionFlags_),
      id_(other.id_),
      isOrdered_(other.isOrdered_),
      keyArg_(other.keyArg_) {
  append(constructorArgNameQ_, other.constructorArgNameQ_);
  append(constructorArgTypeQ_, other.constructorArgTypeQ_);
}

MoxAttr::~MoxAttr() = default;

Ptr<MoxAttr> MoxAttr::attrCopy(MoxType* owner) const {
  return Ptr<MoxAttr>(new MoxAttr(*this, owner));
}
void MoxAttr::attrKeyTypeIs(Ptr<MoxType> const& type) { keyType_ = type.get(); }
void MoxAttr::attrIntrospectionFlagsIs(MoxAttrIntrospectionFlags flags) {
  introspectionFlags_ = flags;
}
void MoxAttr::attrOrderedIs(bool ordered) { isOrdered_ = ordered; }
void MoxAttr::attrKeyArgIs(Name const& name) { keyArg_ = name; }
void MoxAttr::constructorArgTypeQEnq(Name const& typeName) {
  enqueue(constructorArgTypeQ_, typeName);
}
void MoxAttr::constructorArgNameQEnq(Name const& name) { enqueue(constructorArgNameQ_, name); }

char const* MoxAttr::kindName() const {
  struct Kind {
    AttrFlags flags;
    char const* name;
  };
  static constexpr Kind kinds[] = {
      {{0x00020001, 0x40200400}, "enumerator"},
      {{0x00022001, 0x00000400}, "interface"},
      {{0x00020001, 0x00000400}, "handler"},
      {{0x00200001, 0x00000400}, "key"},
      {{0x00220109, 0x40000400}, "constructor value"},
      {{0x08220109, 0x40000400}, "constructor reference"},
      {{0x00220143, 0x01000400}, "value"},
      {{0x08220143, 0x01000400}, "reference"},
      {{0x08220143, 0x11000400}, "child"},
      {{0x01a20143, 0x01000400}, "value collection"},
      {{0x09a20143, 0x11000400}, "child collection"},
  };
  for (Kind const& kind : kinds) {
    if (kind.flags == flags_) return kind.name;
  }
  return "system";
}

Ptr<MoxAttr const> MoxAttr::attr(Name const& name) const {
  Member const* const member = attributes_[name];
  return member ? Ptr<MoxAttr const>(member->value()) : Ptr<MoxAttr const>();
}
Ptr<MoxAttr> MoxAttr::attr(Name const& name) {
  Member const* const member = attributes_[name];
  return member ? member->value() : Ptr<MoxAttr>();
}

void MoxAttr::attrDel(Name const& name) {
  if (Ptr<Member> const member = attributes_[name]) attributes_.deleteMember(member);
}

Ptr<MoxAttr> MoxAttr::attrIs(Name const& name, Ptr<MoxType> const& type, MoxAttr* keyAttr,
                             MoxAttr* /*second*/, AttrFlags const& flags, AttributeId id) {
  Ptr<MoxAttr> const made(new MoxAttr(owner_));
  made->name_ = name;
  made->type_ = type.get();
  made->keyAttr_ = keyAttr;
  made->flags_ = flags;
  made->id_ = id;
  attrIs(made);
  return made;
}

void MoxAttr::attrIs(Ptr<MoxAttr> const& attribute) {
  if (Member* const member = attributes_[attribute->name()]) {
    member->valueIs(attribute);
  } else {
    attributes_.newMember(Ptr<Member>(new Member(attribute->name(), attribute)));
  }
}

}  // namespace Mox
