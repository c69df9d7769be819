// The operations on attributes, one algorithm for each kind.
#include <string>
#include <string_view>

#include "Mox/Messages.h"
#include "generic/Arguments.h"
#include "generic/Carrier.h"
#include "generic/CursorState.h"
#include "generic/GenericIfEntity.h"
#include "generic/Rows.h"

namespace Mox {
namespace {

using Op = GenericIf::AttributeOp;
using Index = Ptr<GenericIf const>;

/// One operation on its way: everything that the algorithms of the kinds need. Index and value are
/// the caller's, who may let go of them once a setter runs: nothing looks at them after that.
struct Call {
  GenericRow const& row;
  Ptr<Entity> const& entity;
  Op::OpId op;
  Index const& index;
  Ptr<GenericIf> const& value;
  bool isConst;

  Entity& live() const {
    if (!entity) GenericIf::throwTypeException(row.name());
    return **entity;
  }
  [[noreturn]] void notSupported() const {
    GenericIf::throwOpNotSupportedException(row.name(), op, false);
  }
  void noIndex() const {
    if (index) GenericIf::throwBadIndexAttrException(row.name());
  }
  void const* key() const {
    if (!index) GenericIf::throwTypeException(row.keyName().charPtr());
    return index->voidPtrIs(Ptr<MoxType const>(row.keyType()));
  }
  void* newValue() const {
    if (!value) GenericIf::throwTypeException(row.name());
    return value->voidPtrIs(Ptr<MoxType const>(row.type()));
  }
};

Ptr<GenericIf> made(Call const& call) {
  GenericArguments const arguments(call.row, call.value.get());
  return call.row.type()->genericIf(
      static_cast<PtrInterface*>(call.row.make(call.live(), arguments.values()).get()),
      call.isConst);
}

Ptr<GenericIf> constantOp(Call const& call) {
  call.noIndex();
  if (call.op != Op::attrGet) call.notSupported();
  return call.row.get(call.live(), nullptr, call.isConst);
}

Ptr<GenericIf> valueOp(Call const& call) {
  call.noIndex();
  if (call.op == Op::attrGet) return call.row.get(call.live(), nullptr, call.isConst);
  if (call.op != Op::attrSet) call.notSupported();
  void* const value = call.newValue();
  call.row.set(call.live(), nullptr, value);
  return {};
}

Ptr<GenericIf> referenceOp(Call const& call) {
  call.noIndex();
  if (call.op == Op::attrGet) return call.row.get(call.live(), nullptr, call.isConst);
  if (call.op != Op::attrSet) call.notSupported();
  void* const target = call.value ? call.newValue() : nullptr;
  call.row.set(call.live(), nullptr, target);
  return {};
}

Ptr<GenericIf> childOp(Call const& call) {
  call.noIndex();
  switch (call.op) {
    case Op::attrGet:
      return call.row.get(call.live(), nullptr, call.isConst);
    case Op::attrSet:
      return made(call);
    case Op::attrDel:
      return call.row.del(call.live(), nullptr, call.isConst);
    default:
      call.notSupported();
  }
}

Ptr<GenericIf> collectionOp(Call const& call) {
  switch (call.op) {
    case Op::attrGet: {
      void const* const key = call.key();
      return call.row.get(call.live(), key, call.isConst);
    }
    case Op::attrSet: {
      if (call.row.kind() == AttributeKind::childCollection) {
        call.noIndex();
        return made(call);
      }
      void const* const key = call.key();
      void* const value = call.newValue();
      call.row.set(call.live(), key, value);
      return {};
    }
    case Op::attrDel: {
      void const* const key = call.key();
      return call.row.del(call.live(), key, call.isConst);
    }
    case Op::attrCount:
      return carrier<unsigned int>(call.row.map(call.live()).size(), call.isConst);
    case Op::attrVersion:
      return carrier<unsigned int>(call.row.map(call.live()).version(), call.isConst);
    case Op::attrExists: {
      void const* const key = call.key();
      return carrier(call.row.exists(call.live(), key), call.isConst);
    }
    default:
      call.notSupported();
  }
}

Ptr<GenericIf> handlerOp(Call const& call) {
  if (call.op != Op::attrGet) call.notSupported();
  GenericArguments const arguments(call.row, call.index.get());
  call.row.call(call.live());
  return {};
}

Ptr<GenericIf> opByKind(Call const& call) {
  switch (call.row.kind()) {
    case AttributeKind::constructorValue:
    case AttributeKind::constructorReference:
      return constantOp(call);
    case AttributeKind::value:
      return valueOp(call);
    case AttributeKind::reference:
      return referenceOp(call);
    case AttributeKind::child:
      return childOp(call);
    case AttributeKind::childCollection:
    case AttributeKind::valueCollection:
      return collectionOp(call);
    case AttributeKind::handler:
      return handlerOp(call);
    default:
      call.notSupported();
  }
}

/// The ids that the base of all entities answers.
enum EntityAttributeId : AttributeId {
  keyId = 0,
  nameId = 2,
  parentId = 3,
  parentAttrIdId = 4,
  fullNameId = 5,
  versionId = 6,
  readCountId = 7,
  entityFlagsId = 8,
  hasAttrLogInterfaceId = 0x9a,
};

}  // namespace

// What all entities have.

GenericIfPtrInterface::~GenericIfPtrInterface() = default;

Ptr<Entity> GenericIfPtrInterface::moxNotifierEntity() const {
  return static_cast<Entity*>(const_cast<PtrInterface*>(moxLiveNotifier()));
}

Ptr<GenericIf> GenericIfPtrInterface::moxBaseOf(Ptr<Entity> const& entity) const {
  auto const* const present = static_cast<GenericIfEntity const*>(base_.get());
  if (present && present->obj() == entity) return base_;
  MoxType const* const base = type()->baseType();
  base_ = base ? base->genericIf_(entity.get(), isConst()) : Ptr<GenericIf>();
  if (base_) base_->hasNotificationActiveIs(false);
  return base_;
}
Ptr<GenericIf> GenericIfPtrInterface::baseGenericIf() { return moxBaseOf(moxNotifierEntity()); }
Ptr<GenericIf const> GenericIfPtrInterface::baseGenericIf() const {
  return moxBaseOf(moxNotifierEntity());
}

GenericIfEntity::GenericIfEntity(Ptr<Entity> const& entity, bool isConst)
    : GenericIfPtrInterface(isConst) {
  GenericIf::notifierIs(Ptr<PtrInterface const>(entity));
}
GenericIfEntity::~GenericIfEntity() { isWeakReferenceIs(false); }

Ptr<MoxType const> GenericIfEntity::type() const { return Entity::_fwkType(); }
void* GenericIfEntity::voidPtrIs(Ptr<MoxType const> const& type) const {
  return moxVoidPtrIs(moxNotifierEntity(), type);
}
String8 GenericIfEntity::attributeString(AttributeId attribute) const {
  Ptr<Entity> const entity = moxNotifierEntity();
  if (entity) return entity->attributeString(attribute);
  MoxAttr const* const described = type()->attr(attribute);
  return described ? String8(described->name()) : String8("unknown");
}
AttributeId GenericIfEntity::attributeId(String8 name) const {
  Ptr<MoxAttr const> const attribute =
      static_cast<MoxType const*>(Entity::_fwkType())->attributes().attr(Name(name));
  return attribute ? attribute->id() : GenericIf::attributeId(name);
}
Ptr<GenericIf> GenericIfEntity::attributeOp(AttributeOp const& op, Index const& index,
                                            Ptr<GenericIf> const&) {
  if (op.isWriting() && isConst()) throwConstException(messages::constInstance);
  return entityOp(nullptr, moxNotifierEntity(), op, index);
}
String8 GenericIfEntity::strRep() const {
  Ptr<Entity> const entity = moxNotifierEntity();
  return valueToStrepOfRawPtr(entity.get(), typeid(Entity));
}
Ptr<GenericIf> GenericIfEntity::clone() {
  Ptr<GenericIf> const made(new GenericIfEntity(moxNotifierEntity(), isConst()));
  made->hasNotificationActiveIs(true);
  return made;
}

String8 GenericRow::keyName() const {
  if (!attribute->memberKey) return "mox_index";
  std::string key = attribute->memberKey;
  if (!attribute->isWrapped) return String8(std::string_view(key));
  key[0] = static_cast<char>(key[0] - 'a' + 'A');
  return String8(std::string_view(name() + ("_" + key)));
}

Ptr<GenericIf> GenericIfEntity::entityOp(GenericRows const* rows, Ptr<Entity> const& entity,
                                         AttributeOp const& op, Index const& index) {
  MoxAttr const* const described = type()->attr(op.attributeId);
  if (!described || (op.attributeId == keyId && (!rows || !rows->key))) {
    throwUnknownAttrException(format("%d", op.attributeId).charPtr());
  }
  Name const name = described->name();
  if (index) throwBadIndexAttrException(name.charPtr());
  if (op.op != AttributeOp::attrGet) throwOpNotSupportedException(name.charPtr(), op.op, false);
  if (!entity) throwTypeException(name.charPtr());
  switch (op.attributeId) {
    case keyId:
      return rows->key(**entity, isConst());
    case nameId:
      return carrier(entity->name(), isConst());
    case parentId:
      return Entity::_fwkType()->genericIf(static_cast<PtrInterface*>(entity->parent().get()),
                                           isConst());
    case parentAttrIdId:
      return carrier(static_cast<unsigned int>(entity->parentAttrId()), isConst());
    case fullNameId:
      return carrier(entity->fullName(), isConst());
    case versionId:
      return carrier<unsigned int>(entity->version(), isConst());
    case readCountId:
      return carrier<unsigned int>(entity->readCount(), isConst());
    case entityFlagsId:
      return carrier<unsigned int>(entity->entityFlags(), isConst());
    case hasAttrLogInterfaceId:
      return carrier(entity->moxHasAttrLogInterface(), isConst());
    default:  // an operation of plumbing, which hands out no value
      throwOpNotSupportedException(name.charPtr(), op.op, false);
  }
}

// The operations of generated classes.

void* GenericIfEntity::moxVoidPtrIs(Ptr<Entity> const& entity,
                                    Ptr<MoxType const> const& asked) const {
  Ptr<MoxType const> const own = type();
  for (MoxType const* type = own.get(); type; type = type->baseType()) {
    if (type == asked.get()) return entity.get();
  }
  throwTypeException(own->name().charPtr());
}

AttributeId GenericIfEntity::moxAttributeId(GenericRows const& rows, String8 const& name) const {
  if (Ptr<MoxAttr const> const attribute = type()->attributes().attr(Name(name))) {
    return attribute->id();
  }
  Ptr<GenericIf const> const base = rows.base ? baseGenericIf() : Ptr<GenericIf const>();
  return base ? base->attributeId(name) : GenericIfEntity::attributeId(name);
}

Ptr<GenericIf> GenericIfEntity::moxAttributeOp(GenericRows const& rows, Ptr<Entity> const& entity,
                                               AttributeOp const& op, Index const& index,
                                               Ptr<GenericIf> const& value) {
  if (op.isWriting() && isConst()) throwConstException(messages::constInstance);
  GenericRow const* const row = rows.findOwn(op.attributeId);
  if (row) return opByKind({*row, entity, op.op, index, value, isConst()});
  // A type's own key is no business of its base.
  if (!rows.base || op.attributeId == keyId) return entityOp(&rows, entity, op, index);
  return moxBaseOf(entity)->attributeOp(op, index, value);
}

GenericIf::AttributeIteratorConst GenericIfEntity::moxIteratorConst(GenericRows const& rows,
                                                                    Ptr<Entity> const& entity,
                                                                    AttributeId attribute) const {
  GenericRow const* const row = rows.findOwn(attribute);
  if (!row || !row->isCollection()) {
    if (rows.base) return moxBaseOf(entity)->attributeIteratorConst(attribute);
    return GenericIf::attributeIteratorConst(attribute);
  }
  if (!entity) throwTypeException(row->name());
  return {const_cast<GenericIfEntity*>(this), attribute,
          CursorState::first(entity, row->map(**entity))};
}

GenericIf::AttributeIteratorConst GenericIfEntity::moxIteratorKeyConst(GenericRows const& rows,
                                                                       Ptr<Entity> const& entity,
                                                                       AttributeId attribute,
                                                                       Index const& key) const {
  GenericRow const* const row = rows.findOwn(attribute);
  if (!row || !row->isCollection()) {
    if (rows.base) return moxBaseOf(entity)->attributeIteratorKeyConst(attribute, key);
    return GenericIf::attributeIteratorKeyConst(attribute, key);
  }
  if (!key) throwTypeException(row->keyName().charPtr());
  void const* const address = key->voidPtrIs(Ptr<MoxType const>(row->keyType()));
  if (!entity) throwTypeException(row->name());
  return {const_cast<GenericIfEntity*>(this), attribute,
          CursorState::at(entity, row->map(**entity), address, row->hash(address))};
}

Ptr<GenericIf> GenericIfEntity::moxIterObj(GenericRows const& rows,
                                           AttributeIteratorConst const& at) {
  GenericRow const* const row = rows.find(at.attribute);
  if (!row || !CursorState::nonNull(at)) return {};
  return row->memberValue(**CursorState::of(at)->member, isConst());
}
Ptr<GenericIf> GenericIfEntity::moxIterInc(GenericRows const&,
                                           AttributeIteratorConst const& at) const {
  if (at.state) CursorState::of(at)->advance();
  return {};
}
Ptr<GenericIf> GenericIfEntity::moxIterKey(GenericRows const& rows,
                                           AttributeIteratorConst const& at) const {
  GenericRow const* const row = rows.find(at.attribute);
  if (!row || !CursorState::nonNull(at)) return {};
  return row->memberKey(**CursorState::of(at)->member);
}

}  // namespace Mox
