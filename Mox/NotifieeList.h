// What the subscriber classes of every entity type do with their notifier and its list, told once.
// A generated X::NotifieeConst has a public raw `next`, and X has `notifieeList() const`, which
// yields the mutable list; the bodies of its operations are one call to these templates each.
#pragma once

#include "Mox/Entity.h"
#include "Mox/ListRaw.h"
#include "Mox/Notifiee.h"
#include "Mox/Ptr.h"

namespace MOX_API Mox {

/// Stream adapters go to the head, so that the log hears first; all others to the tail.
template <class X>
void notifieeLink(X const& notifier, typename X::NotifieeConst& notifiee) {
  auto const* const reactor = notifiee.moxRawReactor();
  if (reactor && reactor->isStreamAdapter()) {
    notifier.notifieeList().pushFront(&notifiee);
  } else {
    notifier.notifieeList().pushBack(&notifiee);
  }
}

template <class X>
void notifieeUnlink(X const& notifier, typename X::NotifieeConst const& notifiee) {
  notifier.notifieeList().remove(&notifiee);
}

/// The notifier of a subscriber of X, null if there is none that can be followed.
template <class X>
X const* notifierOf(typename X::NotifieeConst const& notifiee) {
  return static_cast<X const*>(notifiee.moxLiveNotifier());
}

/// Body of `X::NotifieeConst::notifierIs`: anything that isn't an X counts as null.
template <class X>
void notifierIs(typename X::NotifieeConst& notifiee, Ptr<PtrInterface const> const& notifier) {
  X const* const fresh = dynamic_cast<X const*>(notifier.get());
  X const* const stored = notifierOf<X>(notifiee);
  if (stored == fresh && !notifiee.moxIsNotifierGone()) return;
  Ptr<X const> const old(stored);
  notifiee.Entity::NotifieeConst::notifierIs(Ptr<PtrInterface const>(fresh));
  if (notifiee.isWeakReference()) {
    if (old) ptrInc(old.get());
    if (fresh) ptrDec(fresh);
  }
  if (!notifiee.isRegisteredNotifiee()) return;
  if (old) notifieeUnlink<X>(*old.get(), notifiee);
  if (fresh) notifieeLink<X>(*fresh, notifiee);
}

/// Body of `X::NotifieeConst::isRegisteredNotifieeIs`.
template <class X>
void isRegisteredNotifieeIs(typename X::NotifieeConst const& notifiee, bool registered) {
  if (registered == notifiee.isRegisteredNotifiee()) return;
  notifiee.moxRegisteredIs(registered);
  X const* const notifier = notifierOf<X>(notifiee);
  if (!notifier) return;
  if (registered) {
    notifieeLink<X>(*notifier, const_cast<typename X::NotifieeConst&>(notifiee));
  } else {
    notifieeUnlink<X>(*notifier, notifiee);
  }
}

/// Body of `X::NotifieeConst::name`.
template <class X>
Name notifierName(typename X::NotifieeConst const& notifiee) {
  Ptr<X const> const notifier(notifierOf<X>(notifiee));
  return notifier ? notifier->name() : Name();
}

/// What the destructor of X::NotifieeConst does before its own fields go.
template <class X>
void notifieeDestroy(typename X::NotifieeConst& notifiee) {
  X const* const notifier = notifierOf<X>(notifiee);
  if (!notifier) return;
  // The base's destructor gives a count back that a weak subscriber doesn't have.
  if (notifiee.isWeakReference()) ptrInc(notifier);
  if (!notifiee.isRegisteredNotifiee() || notifiee.moxMarkedForDeletion()) return;
  Ptr<X const> const held(notifier);
  notifieeUnlink<X>(*notifier, notifiee);
}

}  // namespace Mox
