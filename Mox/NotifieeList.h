// What the subscriber classes of every entity type do with their notifier and its list, told once.
// A generated X::NotifieeConst has a public raw `next`, and X has `notifieeList() const`, which
// yields the mutable list; the bodies of its operations are one call to these templates each.
#pragma once

#include "Mox/Entity.h"
#include "Mox/ListRaw.h"
#include "Mox/Notifiee.h"
#include "Mox/Ptr.h"

namespace MOX_API Mox {

/// Enters the subscriber where its flag says. Listed, a stream adapter goes to the head, so that
/// the log is notified first, and any other to the tail; silent, it is only kept for the entity's
/// end.
template <class X>
void notifieeLink(X const& notifier, typename X::NotifieeConst& notifiee) {
  if (!notifiee.isRegisteredNotifiee()) {
    notifier.notifieeList().silentPush(&notifiee);
  } else if (notifiee.moxServesStreamAdapter()) {
    notifier.notifieeList().pushFront(&notifiee);
  } else {
    notifier.notifieeList().pushBack(&notifiee);
  }
}

template <class X>
void notifieeUnlink(X const& notifier, typename X::NotifieeConst const& notifiee) {
  if (notifiee.isRegisteredNotifiee()) {
    notifier.notifieeList().remove(&notifiee);
  } else {
    notifier.notifieeList().silentRemove(&notifiee);
  }
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
  notifiee.PtrInterface::NotifieeConst::notifierIs(Ptr<PtrInterface const>(fresh));
  if (old) notifieeUnlink<X>(*old.get(), notifiee);
  if (fresh) notifieeLink<X>(*fresh, notifiee);
}

/// Body of `X::NotifieeConst::isRegisteredNotifieeIs`.
template <class X>
void isRegisteredNotifieeIs(typename X::NotifieeConst const& notifiee, bool registered) {
  if (registered == notifiee.isRegisteredNotifiee()) return;
  X const* const notifier = notifierOf<X>(notifiee);
  if (notifier) notifieeUnlink<X>(*notifier, notifiee);
  notifiee.moxRegisteredIs(registered);
  if (notifier) notifieeLink<X>(*notifier, const_cast<typename X::NotifieeConst&>(notifiee));
}

/// Body of `X::NotifieeConst::name`.
template <class X>
Name notifierName(typename X::NotifieeConst const& notifiee) {
  Ptr<X const> const notifier(notifierOf<X>(notifiee));
  return notifier ? notifier->name() : Name();
}

/// What the destructor of X::NotifieeConst does before its own fields go. A listed subscriber that
/// is marked for deletion stays linked: whoever marks it has taken it out of the list first.
template <class X>
void notifieeDestroy(typename X::NotifieeConst& notifiee) {
  X const* const notifier = notifierOf<X>(notifiee);
  if (!notifier || (notifiee.isRegisteredNotifiee() && notifiee.moxMarkedForDeletion())) return;
  notifieeUnlink<X>(*notifier, notifiee);
}

}  // namespace Mox
