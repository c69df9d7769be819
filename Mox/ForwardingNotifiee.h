// The subscriber that receives an entity's notifications for another object, its reactor: the base
// of the notifiees of stream adapters and of generic objects. A client that reacts itself derives
// from X::Notifiee instead. One thread.
#pragma once

#include "Mox/NotifieeList.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"

namespace MOX_API Mox {

/// Subscribes weakly to an entity of type X and passes the calls common to all types on to the
/// reactor; a deriving class does so with X's own handlers. The reactor owns this object and isn't
/// counted: it calls `reactorIs(nullptr)` before it goes, and from then on nothing is passed on.
template <class X, class Reactor>
class ForwardingNotifiee : public X::Notifiee {
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
    if (Ptr<Reactor> const held = reactor_) held->onNotificationException(attribute);
  }
  void onZeroReferences() override {
    // The handler may release the reactor, which owns this object.
    Ptr<ForwardingNotifiee> const held(this);
    if (Ptr<Reactor> const reactor = reactor_) reactor->onZeroReferences();
    hasNotificationActiveIs(false);
  }
  /// A marked object is switched off and stays so until the mark is taken back.
  virtual void moxDoZombieReactors(bool zombie) {
    if (zombie == this->moxMarkedForDeletion()) return;
    if (this->moxNotifier()) hasNotificationActiveIs(!zombie);
    this->moxMarkedForDeletionIs(zombie);
  }

  Reactor* reactor() const { return reactor_; }
  void reactorIs(Reactor* reactor) { reactor_ = reactor; }

  /// Enters the entity's list. To be called once, last in a constructor or right after it.
  void bind(Ptr<X> const& entity) {
    HeldInConstruction const held(this);
    this->isRegisteredNotifieeIs(true);
    this->notifierIs(Ptr<PtrInterface const>(entity));
    this->isWeakReferenceIs(true);
  }

 protected:
  /// The flag word says that writing is on, as the log has it (attrlog/adapter/StreamAdapter.h).
  explicit ForwardingNotifiee(Reactor* reactor)
      : X::Notifiee(PtrInterface::NotifieeConst::Mox_BitSet(0x4000000)), reactor_(reactor) {}

  template <class Derived>
  Derived* reactorAs() const {
    return static_cast<Derived*>(reactor_);
  }

 private:
  Reactor* reactor_;
};

}  // namespace Mox
