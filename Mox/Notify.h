// The notification walk: one shape for every attribute, over a snapshot of the notifiee list.
// Called by setters. Promise and limits: docs/pointers-and-notification.md.
#pragma once

#include <type_traits>

#include "Mox/AttributeId.h"
#include "Mox/Exception.h"
#include "Mox/ListRaw.h"
#include "Mox/Notifiee.h"
#include "Mox/SnapshotIterator.h"

namespace MOX_API Mox {

/// The id under which the walk of `zeroReferencesIs` reports a failed handler.
inline constexpr AttributeId zeroReferencesAttributeId = 5;

template <class Handler>
struct HandlerClass;
template <class H, class... Args>
struct HandlerClass<void (H::*)(Args...)> {
  using Type = H;
};

/// Requires: somebody is listed.
template <auto Handler, class T, class... Key>
[[gnu::noinline]] void notifyWalk(ListRaw<T> const& list, AttributeId attribute,
                                  Key const&... key) {
  using H = typename HandlerClass<decltype(Handler)>::Type;
  typename SnapshotIterator<ListRaw<T>>::Room room;
  SnapshotIterator<ListRaw<T>> snapshot(list, room);
  // Open around every handler, closed around everything else that can throw: one scope for all of
  // them leaves two stores out of each step.
  Expect expect(Exception::anyId);
  auto const closed = [&expect](T* notifiee) {
    expect.openIs(false);
    notifiee->handleZeroRef();
    expect.openIs(true);
  };
  do {
    T* const notifiee = *snapshot;
    try {
      if constexpr (std::is_base_of_v<H, T>) {
        (notifiee->*Handler)(key...);
      } else if (auto* const handling = dynamic_cast<H*>(notifiee)) {
        (handling->*Handler)(key...);
      }
    } catch (...) {
      expect.openIs(false);
      notifiee->onNotificationException(attribute);
      expect.openIs(true);
    }
  } while (snapshot.step(closed));
}

/// Calls `Handler`, a pointer to a member of the subscriber class, on every listed notifiee, with
/// the key of a collection. A list of a base's notifiees is cast down, and others are passed over.
/// A handler's exception goes to `onNotificationException(attribute)` of the same notifiee; one out
/// of that leaves the walk.
template <auto Handler, class T, class... Key>
inline void notifyAll(ListRaw<T> const& list, AttributeId attribute, Key const&... key) {
  if (list.size() == 0) return;
  notifyWalk<Handler>(list, attribute, key...);
}

/// The same walk with `onZeroReferences()`.
template <class T>
inline void notifyZeroReferences(ListRaw<T> const& list) {
  notifyAll<&PtrInterface::NotifieeConst::onZeroReferences>(list, zeroReferencesAttributeId);
}

}  // namespace Mox
