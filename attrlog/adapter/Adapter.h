// What the stream adapters of all entity types have in common beyond their base: the notifiee
// through which each hears its entity, and the operations on the entity that find and make
// adapters. Generated adapters derive from these templates.
#pragma once

#include "Mox/Exception.h"
#include "Mox/ForwardingNotifiee.h"
#include "Mox/Ptr.h"
#include "attrlog/adapter/Serialize.h"
#include "attrlog/adapter/StreamAdapter.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// The notifiee of an adapter, which owns it.
template <class X>
class AdapterNotifiee : public ForwardingNotifiee<X, Sa> {
 public:
  Ptr<Sa> moxReactorAdapter() const { return Ptr<Sa>(this->reactor()); }
  void moxReactorAdapterIs(Ptr<Sa> const& reactor) { this->reactorIs(reactor.get()); }

 protected:
  using ForwardingNotifiee<X, Sa>::ForwardingNotifiee;
};

/// The part of an adapter of type X that holds its notifiee. `Base`: the adapter of X's base type.
template <class X, class Base>
class AdapterOf : public Base {
 public:
  ~AdapterOf() override {
    this->isWeakReferenceIs(false);
    if (!adapter_) return;
    adapter_->isRegisteredNotifieeIs(false);
    adapter_->notifierIs(Ptr<PtrInterface const>());
    adapter_->moxReactorAdapterIs(Ptr<Sa>());
    adapter_ = nullptr;
  }

  void hasNotificationActiveIs(bool active) override {
    if (active == this->hasNotificationActive()) return;
    Base::hasNotificationActiveIs(active);
    if (adapter_) adapter_->hasNotificationActiveIs(active);
  }
  void notifierIs(Ptr<PtrInterface const> const& notifier) override {
    if (adapter_) adapter_->notifierIs(notifier);
    this->ownNotifierIs(notifier);
  }
  void moxDoZombieReactors(bool zombie) override {
    if (zombie == this->moxMarkedForDeletion()) return;
    if (adapter_) adapter_->moxDoZombieReactors(zombie);
    this->moxMarkedForDeletionIs(zombie);
  }
  Ptr<X> notifier() const { return Ptr<X>(static_cast<X*>(this->rawEntity())); }

 protected:
  AdapterOf(PtrInterface::NotifieeConst::Mox_BitSet flags, Ptr<X> const& entity,
            unsigned int version, Ptr<Out> const& out, PtrInterface* channel, TypeRows const& rows)
      : Base(flags, version, out, channel, rows),
        adapter_(new typename X::MoxNboAttrLogSaAdapter_(this)) {
    adapter_->bind(entity);
    this->isWeakReferenceIs(true);
    this->ownNotifierIs(Ptr<PtrInterface const>(entity));
  }

 private:
  Ptr<typename X::MoxNboAttrLogSaAdapter_> adapter_;
};

// Bodies of the entity's operations.

/// The adapter of an entity on the connection of `out`; null: any with a unified id. An entity has
/// one id on most connections, so that the first adapter of its list finds the wanted one in that
/// connection's table: the cost doesn't grow with the number of connections.
template <class List>
Sa* findAdapter(PtrInterface const& entity, List const& notifiees, Ptr<Out const> const& out) {
  AdapterHost const* const host = out ? out->host() : nullptr;
  EntityId missed;
  for (auto* notifiee = notifiees.head(); notifiee != nullptr; notifiee = notifiee->next) {
    PtrInterface::NotifieeConst* const reactor = notifiee->moxRawReactor();
    // Stream adapters are at the head of the list.
    if (reactor == nullptr || !reactor->isStreamAdapter()) break;
    auto* const adapter = static_cast<Sa*>(reactor);
    if (!out) {
      if (adapter->hasUnifiedEntityId() && adapter->host() != nullptr) return adapter;
      continue;
    }
    if (adapter->nboAttrLogOut().get() == out.get()) return adapter;
    if (host == nullptr) continue;
    EntityId const id = adapter->entityId();
    if (!id.isUnified() || id == missed) continue;
    Sa* const found = host->reactors.reactor(id);
    if (found != nullptr && found->rawEntity() == &entity) return found;
    // Nothing of the connection is anywhere but in its table, under an id that others have too.
    if (host->reactors.isComplete()) return nullptr;
    missed = id;
  }
  return nullptr;
}

template <class X>
Ptr<Sa> adapterOf(X const& entity, Ptr<Out const> const& out) {
  return Ptr<Sa>(findAdapter(entity, entity.notifieeList(), out));
}

/// The first other adapter with a unified id on the channel of `adapter`, or on any when it has
/// none.
template <class X>
Ptr<Sa> adapterForChannel(X const& entity, Ptr<Sa> const& adapter) {
  for (auto* notifiee = entity.notifieeList().head(); notifiee; notifiee = notifiee->next) {
    PtrInterface::NotifieeConst* reactor = notifiee->moxRawReactor();
    if (!reactor || !reactor->isStreamAdapter() || reactor == adapter.get()) continue;
    auto* found = static_cast<Sa*>(reactor);
    if (!found->hasUnifiedEntityId() || !found->host()) continue;
    if (!adapter->channel() || found->channel() == adapter->channel()) return Ptr<Sa>(found);
  }
  return {};
}

template <class X>
Ptr<Sa> adapterDel(X& entity, Ptr<Out const> const& out) {
  AdapterHost* const host = out ? out->host() : nullptr;
  if (!host) return {};
  Ptr<Sa> adapter = adapterOf(entity, out);
  if (adapter) host->reactors.remove(adapter->entityId());
  return adapter;
}

template <class X>
Ptr<Sa> adapterIs(X& entity, PtrInterface::NotifieeConst::Mox_BitSet flags, unsigned int version,
                  Ptr<Out> const& out, PtrInterface* channel) {
  if (!out) throwRangeException(messages::nullValidPtr);
  if (Ptr<Sa> present = adapterOf(entity, Ptr<Out const>(out))) {
    if (dynamic_cast<typename X::MoxNboAttrLogSa*>(present.get())) {
      if (present->notificationFlags() != flags) present->notificationFlagsIs(flags);
      return present;
    }
    entity.moxNboAttrLogSaDel(Ptr<Out const>(out));
  }
  Ptr<Sa> made(new typename X::MoxNboAttrLogSa(flags, Ptr<X>(&entity), version, out, channel));
  made->hasNotificationActiveIs(true);
  return made;
}

}  // namespace NboAttrLog
}  // namespace Mox
