// The open FlowIns of a connection: values that come in pieces, collections that the peer walks.
// Readers and the transaction handler make and drop them.
#pragma once

#include <cstddef>

#include "Mox/HashMap.h"
#include "Mox/NboAttrLogFlow.h"
#include "Mox/Ptr.h"
#include "attrlog/adapter/FlowIn.h"
#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class FlowIns {
 public:
  /// The entity's FlowIn; null for none.
  Ptr<FlowIn> flowIn(EntityId id) const {
    Entry const* const entry = entries_.size() != 0 ? entries_[id] : nullptr;
    return entry ? entry->value() : Ptr<FlowIn>();
  }
  /// The same, made if there is none.
  Ptr<FlowIn> flowInIs(EntityId id) {
    if (Ptr<FlowIn> present = flowIn(id)) return present;
    Ptr<FlowIn> const made(new FlowIn);
    entries_.newMemberG(Ptr<PtrInterface>(new Entry(id, made)), &id);
    return made;
  }
  /// Takes the entity's FlowIn out and returns it; null for none.
  Ptr<FlowIn> flowInDel(EntityId id) {
    Ptr<Entry> const entry = entries_.size() != 0 ? entries_[id] : nullptr;
    if (!entry) return {};
    Ptr<FlowIn> const flowIn = entry->value();
    entries_.deleteMember(entry);
    return flowIn;
  }
  /// Drops the value in pieces that is open on the entity; its FlowIn too, unless a transaction is
  /// open in it.
  void openValueDel(EntityId id, AttributeId attribute) {
    Ptr<FlowIn> const open = flowIn(id);
    if (!open) return;
    moxFlowInIteratorDel<String8::Iterator>(open.get(), attribute);
    moxFlowInIdxDeq<String8>(open.get());
    if (open->openTransaction() == 0) flowInDel(id);
  }

  std::size_t size() const { return entries_.size(); }
  void clear() { entries_.emptyAllBuckets(); }
  /// Calls `visit` with each id; it must change nothing.
  template <class Visit>
  void forEachId(Visit const& visit) const {
    for (auto entry = entries_.iteratorConst(); entry; ++entry) visit(entry.key());
  }

 private:
  class Entry : public ValueMember<Entry, EntityId, Ptr<FlowIn>> {
   public:
    using ValueMember<Entry, EntityId, Ptr<FlowIn>>::ValueMember;
  };

  HashMap<Entry, EntityId, Ptr<FlowIn>> entries_;
};

}  // namespace NboAttrLog
}  // namespace Mox
