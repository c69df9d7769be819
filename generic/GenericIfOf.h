// What the generic classes of all entity types have in common: X::GenericIf_ and its adapter, the
// subscriber through which it hears the entity. The two are made together and die together.
// Generated classes derive from these templates.
#pragma once

#include "generic/GenericIfEntity.h"
#include "generic/Rows.h"

namespace MOX_API Mox {

/// Keeps an object that is still being made from being destroyed by whoever takes and drops a
/// reference on it.
class HeldInConstruction {
 public:
  explicit HeldInConstruction(PtrInterface const* object) : object_(object) {
    object_->referencesInc();
  }
  ~HeldInConstruction() { object_->moxReferencesSub(); }
  HeldInConstruction(HeldInConstruction const&) = delete;
  HeldInConstruction& operator=(HeldInConstruction const&) = delete;

 private:
  PtrInterface const* object_;
};

/// The subscriber. It counts neither the entity nor the generic object, which clears the pointer
/// back before it goes.
template <class X>
class GenericIfAdapter : public X::Notifiee {
 public:
  Ptr<PtrInterface::NotifieeConst> moxReactor() const override {
    return Ptr<PtrInterface::NotifieeConst>(reactor_);
  }
  PtrInterface::NotifieeConst* moxRawReactor() const override { return reactor_; }

  void hasNotificationActiveIs(bool active) override {
    if (active == this->hasNotificationActive()) return;
    X::Notifiee::hasNotificationActiveIs(active);
    if (reactor_ && !this->moxMarkedForDeletion()) reactor_->hasNotificationActiveIs(active);
  }
  using X::Notifiee::onNotificationException;
  void onNotificationException(AttributeId attribute) override {
    if (Ptr<GenericIf> const held = reactor_) held->onNotificationException(attribute);
  }
  void onZeroReferences() override {
    // The generic object may go in there, and this one with it.
    Ptr<GenericIfAdapter> const held(this);
    if (Ptr<GenericIf> const reactor = reactor_) {
      reactor->onZeroReferences();
      if (reactor->isWeakReference()) {
        // Out of the list nobody would tell either that the entity is gone.
        reactor->moxNotifierGone();
        this->notifierIs(Ptr<PtrInterface const>());
      }
    }
    hasNotificationActiveIs(false);
  }
  virtual void moxDoZombieReactors(bool zombie) {
    if (zombie == this->moxMarkedForDeletion()) return;
    if (this->moxNotifier()) hasNotificationActiveIs(!zombie);
    this->moxMarkedForDeletionIs(zombie);
  }

 protected:
  GenericIfAdapter(Ptr<X> const& entity, GenericIf* reactor)
      : X::Notifiee(PtrInterface::NotifieeConst::Mox_BitSet(0x4000000)), reactor_(reactor) {
    HeldInConstruction const held(this);
    this->isRegisteredNotifieeIs(true);
    this->notifierIs(Ptr<PtrInterface const>(entity));
    this->isWeakReferenceIs(true);
  }
  template <class Reactor>
  Reactor* reactorAs() const {
    return static_cast<Reactor*>(reactor_);
  }
  void reactorIs(GenericIf* reactor) { reactor_ = reactor; }

 private:
  template <class>
  friend class GenericIfOf;

  GenericIf* reactor_;
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
    GenericIfEntity::hasNotificationActiveIs(active);
    if (adapter_) adapter_->hasNotificationActiveIs(active);
  }
  /// Anything that is no X counts as null.
  void notifierIs(Ptr<PtrInterface const> const& notifier) override {
    Ptr<X const> const fresh(dynamic_cast<X const*>(notifier.get()));
    if (adapter_) adapter_->notifierIs(Ptr<PtrInterface const>(fresh));
    if (fresh.get() != moxLiveNotifier()) moxBaseForget();
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
