// Binds a child entity that a run-time type is told of to a stream adapter of its own: what the
// generated types do for each attribute that owns entities.
#pragma once

#include <cstddef>

#include "Mox/Entity.h"
#include "attrlog/adapter/StreamAdapter.h"
#include "registry/MoxAttr.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// One attribute of `Owner` that holds children.
template <class Owner>
struct ChildBinding {
  char const* name;
  MoxAttr const* const* attribute;  ///< where the process keeps it; null until it is known
  void (*bind)(typename Owner::MoxNboAttrLogSa& owner, StreamAdapter::Mox_BitSet flags,
               PtrInterface& child);
};

template <auto>
struct OperationOwner;
template <class Sa, class Result, class... Args, Result (Sa::*operation)(Args...)>
struct OperationOwner<operation> {
  using Type = Sa;
};

/// `adapterIs`: the operation of the owner's adapter that makes the child's.
template <class Child, auto adapterIs>
void bindChild(typename OperationOwner<adapterIs>::Type& owner, StreamAdapter::Mox_BitSet flags,
               PtrInterface& child) {
  (owner.*adapterIs)(flags, Ptr<Child>(&dynamic_cast<Child&>(child)), 1, owner.nboAttrLogOut(),
                     owner.channel());
}

/// False when `attr` is none of these. Requires: the child has a parent, an `Owner` with an adapter
/// on `out`.
template <class Owner, std::size_t n>
bool childAttrLogIs(ChildBinding<Owner> const (&bindings)[n], MoxAttr const* attr,
                    Ptr<PtrInterface> const& child, Ptr<Out> const& out) {
  for (ChildBinding<Owner> const& binding : bindings) {
    if (*binding.attribute != attr && !(attr->name() == binding.name)) continue;
    Ptr<Entity> const parent = dynamic_cast<Entity&>(**child).parent();
    auto* const owner = dynamic_cast<Owner*>(parent.get());
    Ptr<Entity::MoxNboAttrLogSa> const adapter = owner->moxNboAttrLogSa(Ptr<Out const>(out));
    StreamAdapter::Mox_BitSet flags = adapter->mox_bitSet();
    flags = flags.word() & StreamAdapter::Mox_BitSet::notificationBitMask() & ~0x400u &
            StreamAdapter::inheritedFlagsMask();
    binding.bind(static_cast<typename Owner::MoxNboAttrLogSa&>(**adapter), flags, **child);
    return true;
  }
  return false;
}

}  // namespace NboAttrLog
}  // namespace Mox
