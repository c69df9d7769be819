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

template <auto Handler, class T, class... Key>
[[gnu::noinline]] void notifyWalk(ListRaw<T> const& list, AttributeId attribute,
                                  Key const&... key) {
  using H = typename HandlerClass<decltype(Handler)>::Type;
  struct Open {
    explicit Open(Expect& scope) : scope_(scope) { scope_.openIs(true); }
    ~Open() { scope_.openIs(false); }
    Expect& scope_;
  };
  // One for all handlers: opened around each of them, it doesn't wait for what the last one stored.
  Expect expect(Exception::anyId);
  expect.openIs(false);
  typename Snapshot<T>::Room room;
  for (Snapshot<T> snapshot(list, room); snapshot; snapshot.advance()) {
    T* const notifiee = snapshot.member();
    try {
      Open const open(expect);
      if constexpr (std::is_base_of_v<H, T>) {
        (notifiee->*Handler)(key...);
      } else if (auto* const handling = dynamic_cast<H*>(notifiee)) {
        (handling->*Handler)(key...);
      }
    } catch (...) {
      notifiee->onNotificationException(attribute);
    }
  }
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
