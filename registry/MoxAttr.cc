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

char const* MoxAttr::kindName() const {
  switch (kind()) {
    case AttributeKind::enumerator:
      return "enumerator";
    case AttributeKind::interface:
      return "interface";
    case AttributeKind::handler:
      return "handler";
    case AttributeKind::key:
      return "key";
    case AttributeKind::constructorValue:
      return "constructor value";
    case AttributeKind::constructorReference:
      return "constructor reference";
    case AttributeKind::value:
      return "value";
    case AttributeKind::reference:
      return "reference";
    case AttributeKind::child:
      return "child";
    case AttributeKind::valueCollection:
      return "value collection";
    case AttributeKind::childCollection:
      return "child collection";
    case AttributeKind::system:
      break;
  }
  return "system";
}

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
      row_(other.row_),
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

MoxAttr* MoxAttr::keyAttr() const {
  if (!keyAttr_ && type_ && !keyArg_.empty()) keyAttr_ = type_->attributes().attr(keyArg_).get();
  return keyAttr_;
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
