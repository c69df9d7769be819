// What a setter of a value or of a reference does: compare, store, count, notify. Generated
// setters call these; the algorithm stands nowhere else.
#pragma once

#include <type_traits>

#include "Mox/AttributeId.h"
#include "Mox/Notify.h"

namespace MOX_API Mox {

/// Compares and stores. True: the value is another one, it is stored and the owner's version has
/// risen by 1; nobody has been told yet.
template <class Owner, class T>
inline bool storeScalar(Owner& owner, T& field, std::type_identity_t<T> const& value) {
  if (field == value) return false;
  field = value;
  owner.moxVersionInc();
  return true;
}

/// The whole setter: with an equal value nothing at all happens.
template <auto Handler, class Owner, class T>
inline void scalarIs(Owner& owner, T& field, std::type_identity_t<T> const& value,
                     AttributeId attribute) {
  if (storeScalar(owner, field, value)) notifyAll<Handler>(owner.notifieeList(), attribute);
}

/// The same with a reaction of the owner, which runs before anybody is told.
template <auto Handler, class Owner, class T>
void scalarIs(Owner& owner, T& field, std::type_identity_t<T> const& value, AttributeId attribute,
              void (Owner::*reaction)() noexcept) {
  if (!storeScalar(owner, field, value)) return;
  (owner.*reaction)();
  notifyAll<Handler>(owner.notifieeList(), attribute);
}

/// A read of an attribute counts, also through a const entity.
template <class Owner, class T>
inline T const& readScalar(Owner const& owner, T const& field) {
  owner.moxReadCountInc();
  return field;
}

}  // namespace Mox
