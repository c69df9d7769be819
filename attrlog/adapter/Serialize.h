// The writers of the attribute log: what happens when an attribute has changed, or when a
// flow-out comes to it. Generated handlers call these with the attribute's row; collections, whose
// algorithms know their key, stand in SerializeCollection.h.
#pragma once

#include "attrlog/adapter/AdapterHost.h"
#include "attrlog/adapter/Rows.h"
#include "attrlog/adapter/StreamAdapter.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// What becomes of a change.
enum class Gate {
  declined,  ///< a sync message is being applied: nothing to do, nothing done
  noted,     ///< the slot in hand, or a change while another attribute is applied: sent later
  nothing,   ///< from the log, or writing is off: nothing goes out
  fromLog,   ///< a child that the log brought: its adapter is to be bound
  open,      ///< the change goes out or is marked
};

/// The one gate of every writer. `key`: that of a collection's change. The adapters of owned
/// children are bound when the log brought them. Throws through `doThrowReadOnly`.
Gate gate(Sa& adapter, AttrRow const& row, void const* key = nullptr);
/// The attribute's descriptor, for `doThrowReadOnly`; null where the type has none.
Ptr<MoxAttr const> descriptorOf(Sa const& adapter, AttributeId attribute);
/// The id of an entity that the message needs is not known to the peer yet: the walk stops here.
void blockFlowOut(FlowOut& flowOut);
/// A message of the attribute exceeds what the peer accepts: reported. The attribute stays owed.
void reportTooLong(Sa& adapter, AttributeId attribute);

/// One message about an attribute of the adapter's entity, from its header to its commit. Dropped
/// by the next one unless it is committed.
class MessageOut {
 public:
  /// `fixedLength`: of the payload, where it is not variable.
  MessageOut(Sa& adapter, AttributeId attribute, bool isVariableLength,
             std::uint32_t fixedLength = 0, std::uint32_t instantiateTag = 0)
      : MessageOut(adapter, {adapter.entityId(), attribute, isVariableLength, fixedLength,
                             instantiateTag, false}) {}
  /// The message that announces the adapter's entity without a parent.
  static MessageOut orphan(Sa& adapter) {
    return MessageOut(adapter, {orphanTarget, orphanAttribute, true, 0, 0, false});
  }
  MessageOut(MessageOut const&) = delete;
  MessageOut& operator=(MessageOut const&) = delete;

  Ptr<Out> const& out() const { return out_; }
  /// What was written up to here is the key of a collection's member.
  void keyEnd() { keySize_ = out_->payloadSize(); }
  /// Ends the message. Throws what the end token throws.
  void commit() {
    out_ << Connection::Out::TransactToken::tokenEnd;
    AdapterHost* const host = out_->host();
    if (host && attribute_ != orphanAttribute) host->slotSent(adapter_, attribute_, keySize_);
  }

 private:
  MessageOut(Sa& adapter, MsgHeader const& header)
      : adapter_(adapter),
        attribute_(header.attributeId < 0 ? -header.attributeId : header.attributeId),
        out_(adapter.nboAttrLogOut()) {
    out_->nextHeaderIs(header);
    out_ << Connection::Out::TransactToken::tokenBegin;
  }

  Sa& adapter_;
  AttributeId attribute_;
  Ptr<Out> const& out_;
  std::size_t keySize_ = 0;
};

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

/// Writes the constructor arguments of a child; ends the key behind the first one if it is a key.
using WriteArgs = void (*)(Entity& child, MessageOut& message);

/// Finds a child's adapter on the connection, or makes it and announces the child with a creation
/// message. `transferFollows`: the caller starts the child's transfer next. An adapter whose
/// announcement failed is retired. Throws `EntityIdUnavailableException`, `MessageTooLong`.
Ptr<Sa> childAdapterIs(Sa& parent, AttributeId attribute, std::uint32_t flags,
                       Ptr<Entity> const& child, unsigned int version, PtrInterface* channel,
                       WriteArgs writeArgs, bool transferFollows = false);
/// True when a child that is announced now is transferred at once.
bool transfersChildren(Sa const& parent);
/// Retires a child's adapter and those of all below it on the parent's connection; returns it.
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
