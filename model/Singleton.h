// Operations of an attribute that owns one child. Unlike a collection's member, a child of other
// parameters is replaced. Generated one-liners call these.
#pragma once

#include "Mox/Notify.h"
#include "Mox/Ptr.h"
#include "model/Child.h"

namespace MOX_API Mox {

/// `xIs(params...)`: the child with these parameters. The version rises by 1 for the first child,
/// by 2 for a replacement, and by 1, without notification, for the child that is there.
template <auto Handler, class Owner, class Child, class Make, class... Params>
ValidPtr<Child> singletonIs(Owner& owner, Ptr<Child>& field, AttributeId attribute,
                            Make const& make, Params const&... params) {
  if (Ptr<Child> present = field) {
    // Compares every argument, since each comparison counts as a read.
    bool const same = (static_cast<int>(params.matches(**present)) & ... & 1) != 0;
    owner.moxVersionInc();
    if (same) return ValidPtr<Child>(present);
    present->parentIs(Ptr<Entity>());
  }
  Ptr<Child> const made(make());
  made->parentAttrIdIs(attribute);
  made->moxOwnerIs(Ptr<Entity>(&owner));
  field = made;
  owner.moxVersionInc();
  notifyAll<Handler>(owner.notifieeList(), attribute);
  return ValidPtr<Child>(made);
}

/// `newX(params...)`: gives a new child its parent, which doesn't own it.
template <class Owner, class Child>
Ptr<Child> newSingleton(Owner& owner, Ptr<Child> const& child, AttributeId attribute) {
  child->parentAttrIdIs(attribute);
  child->parentIs(Ptr<Entity>(&owner));
  return child;
}

/// `xDel()`: the removed child; null, without any effect, when there was none.
template <auto Handler, class Owner, class Child>
Ptr<Child> singletonDel(Owner& owner, Ptr<Child>& field, AttributeId attribute) {
  Ptr<Child> const child = field;
  if (!child) return child;
  field = nullptr;
  owner.moxVersionInc();
  child->parentIs(Ptr<Entity>());
  notifyAll<Handler>(owner.notifieeList(), attribute);
  return child;
}

}  // namespace Mox
