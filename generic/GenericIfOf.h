// What the generic classes of all entity types have in common: X::GenericIf_ and its adapter, the
// subscriber through which it hears the entity. The two are made together and die together.
// Generated classes derive from these templates.
#pragma once

#include "Mox/ForwardingNotifiee.h"
#include "generic/GenericIfEntity.h"
#include "generic/Rows.h"

namespace MOX_API Mox {

/// The subscriber. It counts neither the entity nor the generic object.
template <class X>
class GenericIfAdapter : public ForwardingNotifiee<X, GenericIf> {
 protected:
  GenericIfAdapter(Ptr<X> const& entity, GenericIf* reactor)
      : ForwardingNotifiee<X, GenericIf>(reactor) {
    this->bind(entity);
  }
};

template <class X>
class GenericIfOf : public GenericIfEntity {
 public:
  ~GenericIfOf() override {
    isWeakReferenceIs(false);
    if (!adapter_) return;
    adapter_->notifierIs(Ptr<PtrInterface const>());
    adapter_->reactorIs(nullptr);
  }

  void hasNotificationActiveIs(bool active) override {
    if (active == hasNotificationActive()) return;
    Ptr<GenericIf> const held(this);
    GenericIfEntity::hasNotificationActiveIs(active);
    if (!adapter_) return;
    if (!active) moxPendingDropAll(rows(), **adapter_);
    adapter_->hasNotificationActiveIs(active);
  }
  /// Anything that is no X counts as null. What waits is of the old entity and is discarded.
  void notifierIs(Ptr<PtrInterface const> const& notifier) override {
    Ptr<GenericIf> const held(this);
    Ptr<X const> const fresh(dynamic_cast<X const*>(notifier.get()));
    if (adapter_) adapter_->notifierIs(Ptr<PtrInterface const>(fresh));
    if (fresh.get() != moxLiveNotifier()) {
      moxBaseForget();
      if (adapter_) moxPendingDropAll(rows(), **adapter_);
    }
    bool const isWeak = isWeakReference();
    isWeakReferenceIs(false);
    GenericIfEntity::notifierIs(Ptr<PtrInterface const>(fresh));
    isWeakReferenceIs(isWeak);
    isRegisteredNotifieeIs(false);
  }
  void handleNotification(ActivityConfig* config) override {
    moxHandleNotification(rows(), **adapter_, config);
  }

  Ptr<MoxType const> type() const override { return X::_fwkType(); }
  void* voidPtrIs(Ptr<MoxType const> const& type) const override {
    return moxVoidPtrIs(Ptr<Entity>(obj()), type);
  }
  AttributeId attributeId(String8 name) const override { return moxAttributeId(rows(), name); }
  Ptr<GenericIf> attributeOp(AttributeOp const& op, Ptr<GenericIf const> const& index,
                             Ptr<GenericIf> const& value) override {
    return moxAttributeOp(rows(), Ptr<Entity>(obj()), op, index, value);
  }
  void moxDoZombieReactors(bool zombie) override {
    if (zombie == moxMarkedForDeletion()) return;
    if (adapter_) adapter_->moxDoZombieReactors(zombie);
    moxMarkedForDeletionIs(zombie);
    // The adapter's mark kept it from switching this side on.
    if (!zombie) hasNotificationActiveIs(true);
  }

  AttributeIteratorConst attributeIteratorConst(AttributeId attribute) const override {
    return moxIteratorConst(rows(), Ptr<Entity>(obj()), attribute);
  }
  AttributeIteratorConst attributeIteratorKeyConst(AttributeId attribute,
                                                   Ptr<GenericIf const> const& key) const override {
    return moxIteratorKeyConst(rows(), Ptr<Entity>(obj()), attribute, key);
  }
  using GenericIf::attributeIterator_iterObj;
  Ptr<GenericIf> attributeIterator_iterObj(AttributeIteratorConst const& at) override {
    return moxIterObj(rows(), at);
  }
  Ptr<GenericIf> attributeIterator_iterInc(AttributeIteratorConst const& at) const override {
    return moxIterInc(rows(), at);
  }
  Ptr<GenericIf> attributeIterator_iterKey(AttributeIteratorConst const& at) const override {
    return moxIterKey(rows(), at);
  }

  /// One with an adapter of its own.
  Ptr<GenericIf> clone() override { return make(Ptr<X>(obj()), isConst()); }
  using GenericIf::clone;

  /// The entity, null for none; whether this is a read-only view doesn't matter.
  virtual Ptr<X> obj() const {
    return static_cast<X*>(const_cast<PtrInterface*>(moxLiveNotifier()));
  }
  virtual Ptr<X> obj() { return static_cast<GenericIfOf const*>(this)->obj(); }

  /// One that hears, for an entity or for none.
  static Ptr<GenericIf> make(Ptr<X> const& entity, bool isConst) {
    Ptr<GenericIf> const made(new typename X::GenericIf_(entity, isConst));
    made->hasNotificationActiveIs(true);
    return made;
  }

 protected:
  explicit GenericIfOf(bool isConst) : GenericIfEntity(isConst) {}

  /// The rest of the constructor of X::GenericIf_.
  template <class Self>
  void bind(Self* self, Ptr<X> const& entity) {
    HeldInConstruction const held(this);
    adapter_ = Self::GenericIf_Adapter_Is(entity, Ptr<Self>(self));
    self->notifierIs(Ptr<PtrInterface const>(entity));
  }
  template <class K>
  void moxKeyIs(AttributeId attribute, K const& key) {
    GenericRow const& row = *rows().find(attribute);
    *static_cast<K*>(row.cell(**adapter_).key) = key;
    moxRelayKey(row, **adapter_);
  }

 private:
  static GenericRows const& rows() { return X::GenericIf_::moxRows(); }

  Ptr<GenericIfAdapter<X>> adapter_;
};

}  // namespace Mox
