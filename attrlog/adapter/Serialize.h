// The writers of the attribute log: what happens when an attribute has changed, or when a
// flow-out comes to it. Generated handlers call these with the attribute's row; collections, whose
// algorithms know their key, stand in SerializeCollection.h.
#pragma once

#include "attrlog/adapter/Rows.h"
#include "attrlog/adapter/StreamAdapter.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// What the gate says of a change.
enum class Gate {
  declined,  ///< a sync message is being applied: nothing to do, nothing through
  noted,     ///< the slot in hand, or a change while another attribute's mark stands: tell later
  nothing,   ///< from the log, or writing is off: nothing goes out
  fromLog,   ///< a child that the log brought: its adapter is to be bound
  open,      ///< the change goes out or is marked
};

/// The one gate of every writer. `key`: that of a collection's change. The adapters of owned
/// children are bound when the log brought them. Throws through `doThrowReadOnly`.
Gate gate(Sa& adapter, AttrRow const& row, void const* key = nullptr);
/// The id of an entity that the message needs is not known to the peer yet: the walk stops here.
void blockFlowOut(Sa& adapter, FlowOut& flowOut);

/// Clears the one-shot mark at the end of a scope, also on an exception.
class ChangeFromLogAnchor {
 public:
  explicit ChangeFromLogAnchor(Sa& adapter) : adapter_(adapter) {}
  ~ChangeFromLogAnchor() { adapter_.flagsIs(changeFromLog, false); }
  ChangeFromLogAnchor(ChangeFromLogAnchor const&) = delete;
  ChangeFromLogAnchor& operator=(ChangeFromLogAnchor const&) = delete;

 private:
  Sa& adapter_;
};

/// `onX()` of a plain value, of a reference, of an owned child in a singleton.
void serializePlain(Sa& adapter, AttrRow const& row);
void serializeReference(Sa& adapter, AttrRow const& row);
void serializeSingleton(Sa& adapter, AttrRow const& row);
/// A string that may need several messages. True: through, or nothing to do; false: a transfer is
/// left open, or the handler declined.
bool serializePieces(Sa& adapter, AttrRow const& row);

/// A child that arrived through the log: its adapter takes the id at which the reading end stands.
void bindChild(Sa& parent, Ptr<Entity> const& child);

/// Writes the constructor arguments of a child behind the begin token.
using WriteArgs = void (*)(Entity& child, Ptr<Out> const& out);

/// Finds a child's adapter on the connection, or makes it and announces the child with a creation
/// message. An adapter whose announcement failed is taken back.
Ptr<Sa> childAdapterIs(Sa& parent, AttributeId attribute, std::uint32_t flags,
                       Ptr<Entity> const& child, unsigned int version, PtrInterface* channel,
                       WriteArgs writeArgs);
/// Parts a child's adapter, with all below it, from the parent's connection; gives it back.
Ptr<Sa> childAdapterDel(Sa& parent, Ptr<Entity> const& child);

/// The message that announces an entity without a parent.
void serializeOrphan(Sa& adapter, char const* const* typeNames, std::size_t count,
                     WriteArgs writeArgs);

// The walk of a flow-out over the attributes of a type.

/// `base` runs the walk of the base type.
AttributeId attrFlowOut(Sa& adapter, TypeRows const& type, AttributeId start,
                        AttributeId (*base)(Sa&, AttributeId));
void instantiateSerialize(Sa& adapter, TypeRows const& type);
void freeResyncState(TypeRows const& type, FlowOut& flowOut);
bool hasDirtyAttributes(TypeRows const& type, FlowOut& flowOut);
void remountChildren(Sa& adapter, Entity& entity, TypeRows const& type);
/// Marks the attributes of a new FlowOut by its threshold.
void markFrom(TypeRows const& type, FlowOut& flowOut, AttributeId start);

/// The adapter of an entity on a connection, found among its notifiees. `out` null: any adapter
/// with a unified id.
template <class List>
Sa* findAdapter(List const& notifiees, Ptr<Out const> const& out) {
  for (auto* notifiee = notifiees.head(); notifiee != nullptr; notifiee = notifiee->next) {
    PtrInterface::NotifieeConst* reactor = notifiee->moxRawReactor();
    if (reactor == nullptr || !reactor->isStreamAdapter()) continue;
    auto* adapter = static_cast<Sa*>(reactor);
    if (out ? adapter->nboAttrLogOut().get() == out.get()
            : adapter->hasUnifiedEntityId() && adapter->streamDemuxer() != nullptr) {
      return adapter;
    }
  }
  return nullptr;
}

/// Sets flag bit 22 for the time of a scheduled run and puts it back, whatever ends the run.
class HandlingScheduledFlowOutAnchor {
 public:
  explicit HandlingScheduledFlowOutAnchor(Sa& adapter)
      : adapter_(adapter), noted_(adapter.hasFlag(inScheduledRun)) {
    adapter_.flagsIs(inScheduledRun, adapter_.flowOut() != nullptr);
  }
  ~HandlingScheduledFlowOutAnchor() { adapter_.flagsIs(inScheduledRun, noted_); }
  HandlingScheduledFlowOutAnchor(HandlingScheduledFlowOutAnchor const&) = delete;
  HandlingScheduledFlowOutAnchor& operator=(HandlingScheduledFlowOutAnchor const&) = delete;

 private:
  Sa& adapter_;
  bool noted_;
};

}  // namespace NboAttrLog
}  // namespace Mox
