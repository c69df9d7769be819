// The generic object of an entity: what all entities answer, and the operations over the table of a
// type that the generated classes call (generic/GenericIfOf.h).
#pragma once

#include "Mox/Entity.h"
#include "generic/GenericIf.h"

namespace MOX_API Mox {

struct GenericRow;
struct GenericRows;

class GenericIfPtrInterface : public GenericIf {
 public:
  ~GenericIfPtrInterface() override;

  /// The same entity seen as its base class; null where that has no generic face. It hears nothing:
  /// this object does.
  Ptr<GenericIf> baseGenericIf();
  Ptr<GenericIf const> baseGenericIf() const;

 protected:
  explicit GenericIfPtrInterface(bool isConst) : GenericIf(isConst) {}

  /// The entity as it is bound; null for none.
  Ptr<Entity> moxNotifierEntity() const;
  /// `baseGenericIf()` for an entity that need not be the one that is bound.
  Ptr<GenericIf> moxBaseOf(Ptr<Entity> const& entity) const;
  /// Lets go of what `moxBaseOf` keeps.
  void moxBaseForget() { base_ = nullptr; }

 private:
  /// Made when it is first asked for.
  mutable Ptr<GenericIf> base_;
};

class GenericIfEntity : public GenericIfPtrInterface {
 public:
  /// For an entity of a type without a generated class.
  GenericIfEntity(Ptr<Entity> const& entity, bool isConst);
  ~GenericIfEntity() override;

  Ptr<MoxType const> type() const override;
  void* voidPtrIs(Ptr<MoxType const> const& type) const override;
  String8 attributeString(AttributeId attribute) const override;
  AttributeId attributeId(String8 name) const override;
  Ptr<GenericIf> attributeOp(AttributeOp const& op, Ptr<GenericIf const> const& index,
                             Ptr<GenericIf> const& value) override;
  String8 strRep() const override;
  Ptr<GenericIf> clone() override;
  using GenericIf::clone;

  /// The entity, null for none.
  Ptr<Entity> obj() const { return moxNotifierEntity(); }

 protected:
  explicit GenericIfEntity(bool isConst) : GenericIfPtrInterface(isConst) {}

  // The operations of a generated class. `entity` is what its `obj()` gives, `rows` its table.

  void* moxVoidPtrIs(Ptr<Entity> const& entity, Ptr<MoxType const> const& type) const;
  AttributeId moxAttributeId(GenericRows const& rows, String8 const& name) const;
  Ptr<GenericIf> moxAttributeOp(GenericRows const& rows, Ptr<Entity> const& entity,
                                AttributeOp const& op, Ptr<GenericIf const> const& index,
                                Ptr<GenericIf> const& value);
  AttributeIteratorConst moxIteratorConst(GenericRows const& rows, Ptr<Entity> const& entity,
                                          AttributeId attribute) const;
  AttributeIteratorConst moxIteratorKeyConst(GenericRows const& rows, Ptr<Entity> const& entity,
                                             AttributeId attribute,
                                             Ptr<GenericIf const> const& key) const;
  Ptr<GenericIf> moxIterObj(GenericRows const& rows, AttributeIteratorConst const& at);
  Ptr<GenericIf> moxIterInc(GenericRows const& rows, AttributeIteratorConst const& at) const;
  Ptr<GenericIf> moxIterKey(GenericRows const& rows, AttributeIteratorConst const& at) const;

  // The relay; `adapter` is the subscriber that keeps the cells.

  /// An attribute changed that is no collection.
  void moxRelay(AttributeId attribute);
  /// A key changed; it stands in the cell.
  void moxRelayKey(GenericRow const& row, GenericIf::NotifieeConst& adapter);
  void moxHandleNotification(GenericRows const& rows, GenericIf::NotifieeConst& adapter,
                             ActivityConfig* config);
  /// Discards what waits, the counts of waiting keys included.
  void moxPendingDropAll(GenericRows const& rows, GenericIf::NotifieeConst& adapter);

 private:
  /// What all entities answer; `rows` is null for an entity of a type without a table.
  Ptr<GenericIf> entityOp(GenericRows const* rows, Ptr<Entity> const& entity, AttributeOp const& op,
                          Ptr<GenericIf const> const& index);
  /// Delivers an attribute whose notification didn't wait together with what is pending in no
  /// queue, if anything is.
  bool moxCatchUp(AttributeId attribute, unsigned char* count);
  void moxTell(AttributeId attribute);
  void moxTellKey(GenericRow const& row, GenericIf::NotifieeConst& adapter);
  /// An exception goes to `handleNotificationException(attribute)`.
  void moxRun(GenericRow const& row, GenericIf::NotifieeConst& adapter, bool isWhole);
  void moxRunAll(GenericRows const& rows, GenericIf::NotifieeConst& adapter, bool isWhole);
};

}  // namespace Mox
