// The gate, the four families of scalars, announcing and binding children, and the walk of a
// flow-out. Each algorithm reads from top to bottom in the order in which it happens.
#include "attrlog/adapter/Serialize.h"

#include <algorithm>

#include "Mox/Exception.h"
#include "Mox/NboAttrLogFlow.h"
#include "attrlog/link/Demuxer.h"
#include "attrlog/wire/WireValue.h"

namespace Mox::NboAttrLog {
namespace {

using TransactToken = Connection::Out::TransactToken;
using Position = String8::IteratorConst;

void messageBegin(Sa& adapter, AttributeId attribute, std::uint32_t fixedLength, bool variable,
                  std::uint32_t tag = 0) {
  MsgHeader header;
  header.entityId = adapter.entityId();
  header.attributeId = attribute;
  header.isVariableLength = variable;
  header.fixedLength = fixedLength;
  header.instantiateTag = tag;
  Ptr<Out> const& out = adapter.nboAttrLogOut();
  out->nextHeaderIs(header);
  out << TransactToken::tokenBegin;
}

void messageEnd(Sa& adapter) { adapter.nboAttrLogOut() << TransactToken::tokenEnd; }

/// Marks a scalar in a FlowOut that is made if there is none.
FlowOut* markScalar(Sa& adapter, AttrRow const& row) {
  FlowOut* flowOut = adapter.flowOut();
  if (flowOut == nullptr) flowOut = adapter.createFlowOut(row.id);
  if (flowOut != nullptr) row.bitIs(*flowOut, true);
  return flowOut;
}

/// Send now, or leave a mark: the decision that all scalars share. True: send.
bool decide(Sa& adapter, AttrRow const& row) {
  bool const sufficient = adapter.nboAttrLogOut()->hasSufficientBuffer();
  if (adapter.hasFlag(noFlowOut)) {
    if (adapter.hasFlag(inScheduledRun) || (sufficient && !adapter.hasFlag(deferAll))) return true;
    markScalar(adapter, row);
    return false;
  }
  FlowOut* flowOut = adapter.flowOut();
  bool const now = adapter.prepareImmediateTransmission(row.id, !sufficient);
  if (flowOut != nullptr) row.bitIs(*flowOut, !now);
  return now;
}

/// The id of a referenced or owned entity is not known to the peer yet: owed, and the walk stops.
void markBlocked(Sa& adapter, AttrRow const& row) {
  if (FlowOut* flowOut = markScalar(adapter, row)) blockFlowOut(adapter, *flowOut);
}

/// Tells a noted change again when the message in hand is through.
void note(Sa& adapter, AttrRow const& row) {
  adapter.streamDemuxer()->noteSlot(adapter, [&adapter, &row] { row.tell(adapter, nullptr); });
}

bool isOpen(Sa& adapter, AttrRow const& row, Gate passed) {
  if (passed == Gate::noted) note(adapter, row);
  return passed == Gate::open;
}

}  // namespace

Gate gate(Sa& adapter, AttrRow const& row, void const* key) {
  // What most changes meet: the entity is announced, nothing of it is being applied.
  constexpr std::uint32_t unusual =
      applyingSync | changeFromLog | writingOff | boundByTransaction | readOnlyHere;
  Demuxer* const demuxer = adapter.connection();
  if (demuxer && (adapter.flags() & (unusual | writingOn)) == writingOn &&
      !demuxer->isApplying(adapter)) {
    return Gate::open;
  }
  if (adapter.hasFlag(applyingSync)) return Gate::declined;
  bool const fromLog = adapter.hasFlag(changeFromLog);
  if (demuxer) {
    // The mark speaks for the attribute of the message in hand alone.
    if (fromLog ? demuxer->isApplyingOther(adapter, row.id) : adapter.handlingFlowInFor(row.id)) {
      return Gate::noted;
    }
  }
  bool const bind = fromLog && row.ownsChildren();
  if (!bind && (fromLog || adapter.hasFlag(writingOff | boundByTransaction) ||
                !adapter.hasFlag(writingOn))) {
    adapter.flagsIs(changeFromLog, false);
    return Gate::nothing;
  }
  if (!adapter.nboAttrLogOut()) {
    adapter.flagsIs(changeFromLog, false);
    return Gate::nothing;
  }
  if (bind) return Gate::fromLog;
  if (adapter.hasFlag(readOnlyHere) && !adapter.convertedToWritable(false)) {
    if (demuxer) demuxer->refusedHere(adapter, row, key);
    adapter.doThrowReadOnly(row.id);
  }
  return Gate::open;
}

void blockFlowOut(Sa& adapter, FlowOut& flowOut) {
  flowOut.moxDataBitsIs(flowOut.moxDataBits() | FlowOut::blocked);
  if (Demuxer* demuxer = adapter.streamDemuxer()) demuxer->blockedIs(adapter);
}

void serializePlain(Sa& adapter, AttrRow const& row) {
  if (!isOpen(adapter, row, gate(adapter, row))) return;
  if (!decide(adapter, row)) return;
  try {
    messageBegin(adapter, row.id, row.fixedLength, row.fixedLength == 0);
    row.writeValue(adapter, adapter.nboAttrLogOut());
    messageEnd(adapter);
  } catch (...) {
    // Too long for the peer: still owed.
    markScalar(adapter, row);
    throw;
  }
}

void serializeReference(Sa& adapter, AttrRow const& row) {
  if (!isOpen(adapter, row, gate(adapter, row))) return;
  if (!decide(adapter, row)) return;
  for (;;) {
    try {
      Expect const expect(Exception::attrLogRecordId);
      messageBegin(adapter, row.id, 0, true);
      row.writeValue(adapter, adapter.nboAttrLogOut());
      messageEnd(adapter);
      return;
    } catch (AttrLogRecordException const&) {
      continue;
    } catch (EntityIdUnavailableException const&) {
      markBlocked(adapter, row);
      return;
    }
  }
}

void serializeSingleton(Sa& adapter, AttrRow const& row) {
  Gate const passed = gate(adapter, row);
  if (passed == Gate::fromLog) {
    ChangeFromLogAnchor const anchor(adapter);
    if (Ptr<Entity> child = row.child(adapter)) bindChild(adapter, child);
    return;
  }
  if (!isOpen(adapter, row, passed) || !decide(adapter, row)) return;
  Ptr<Entity> child = row.child(adapter);
  if (!child) {
    messageBegin(adapter, -row.id, 0, false);
    messageEnd(adapter);
    return;
  }
  Ptr<Sa> childAdapter;
  while (!childAdapter) {
    try {
      Expect const expect(Exception::attrLogRecordId);
      childAdapter = row.childAdapter(adapter, child);
    } catch (AttrLogRecordException const&) {
      continue;
    } catch (EntityIdUnavailableException const&) {
      markBlocked(adapter, row);
      return;
    } catch (...) {
      // Too long for the peer: still owed.
      markScalar(adapter, row);
      throw;
    }
  }
  adapter.doFixChildFlags(childAdapter);
  if (adapter.syncMode() == StreamAdapter::SyncMode::live || adapter.hasFlag(inScheduledRun)) {
    childAdapter->doThis();
  }
}

bool serializePieces(Sa& adapter, AttrRow const& row) {
  Gate const passed = gate(adapter, row);
  if (!isOpen(adapter, row, passed)) return passed == Gate::nothing;
  Ptr<Out> const& out = adapter.nboAttrLogOut();

  FlowOut* flowOut = adapter.hasFlag(noFlowOut) ? nullptr : adapter.flowOut();
  bool const scheduled = adapter.hasFlag(inScheduledRun);
  if (flowOut != nullptr && !scheduled) {
    // Drops what was begun of the old value: the next run says the new one from its start.
    adapter.prepareImmediateTransmission(row.id, true);
    row.bitIs(*flowOut, true);
    return false;
  }
  Position position = flowOut != nullptr && flowOut->valueIter() != nullptr
                          ? moxFlowOutValueDeq<Position>(*flowOut)
                          : Position(row.text(adapter));
  bool const started = position.pos() != 0;
  if (started && position.eot()) return true;

  auto const open = [&] {
    if (FlowOut* made = adapter.createFlowOut(row.id)) {
      row.bitIs(*made, true);
      made->outstandingKeysIs(1);
      moxFlowOutValueEnq(*made, position);
    }
    return false;
  };
  if (flowOut == nullptr && (!out->hasSufficientBuffer() || adapter.hasFlag(deferAll))) {
    return open();
  }
  for (;;) {
    messageBegin(adapter, row.id, 0, true);
    out << position;
    messageEnd(adapter);
    if (position.eot()) return true;
    if (flowOut == nullptr) return open();
    if ((scheduled && !adapter.continueFlowOut()) || out->freeSpace() < out->maxMessageSize()) {
      moxFlowOutValueEnq(*flowOut, position);
      return false;
    }
  }
}

void bindChild(Sa& parent, Ptr<Entity> const& child) {
  Ptr<Out> const& out = parent.nboAttrLogOut();
  Ptr<In> reverse = out->reverseLog();
  Ptr<Sa> adapter = child->moxNboAttrLogSaIs(
      PtrInterface::NotifieeConst::Mox_BitSet(parent.childFlags()), 1, out, parent.channel());
  // The id is only looked at: the demuxer steps over it.
  unsigned char const* const position = reverse->position();
  EntityId const id = reverse->nextEntityId();
  reverse->positionIs(position);
  if (!id.isUnified() || id == orphanTarget) throw StreamException(StreamError::badId);
  adapter->doEntityIdIs(id, demuxFor(reverse), true);
  adapter->flagsIs(boundByTransaction, false);
}

Ptr<Sa> childAdapterIs(Sa& parent, AttributeId attribute, std::uint32_t flags,
                       Ptr<Entity> const& child, unsigned int version, PtrInterface* channel,
                       WriteArgs writeArgs) {
  using BitSet = PtrInterface::NotifieeConst::Mox_BitSet;
  Ptr<Out> const& out = parent.nboAttrLogOut();
  if (Ptr<Sa> present = child->moxNboAttrLogSa(Ptr<Out const>(out))) {
    if (present->origin() == StreamAdapter::Origin::exportedOrphan) {
      // Announced by itself before its tree came: withdrawn, and said again under its parent.
      present->doRemountSelf(Ptr<Out>());
    } else {
      present->notificationFlagsIs(BitSet(flags));
      parent.doFixChildFlags(present);
      // Announced or bound already: nothing is said twice.
      if (present->hasFlag(needsNoCreation)) return present;
    }
  }
  Ptr<Sa> adapter = child->moxNboAttrLogSaIs(BitSet(flags), version, out, channel);
  adapter->moxOnInit();
  try {
    messageBegin(parent, attribute, 0, true, creationTag);
    writeArgs(**child, out);
    out << adapter->entityId();
    messageEnd(parent);
  } catch (...) {
    parent.streamDemuxer()->retire(**adapter);
    throw;
  }
  parent.streamDemuxer()->handleAnnounced(**adapter);
  return adapter;
}

Ptr<Sa> childAdapterDel(Sa& parent, Ptr<Entity> const& child) {
  if (!child) return {};
  Ptr<Sa> adapter = child->moxNboAttrLogSa(Ptr<Out const>(parent.nboAttrLogOut()));
  if (adapter) adapter->doRemountSelf(Ptr<Out>());
  return adapter;
}

void serializeOrphan(Sa& adapter, char const* const* typeNames, std::size_t count,
                     WriteArgs writeArgs) {
  using Section = Out::PayloadSection;
  Ptr<Out> const out = adapter.nboAttrLogOut();
  Ptr<Entity> const entity = adapter.moxNotifierEntity();
  for (;;) {
    try {
      Expect const expect(Exception::attrLogRecordId);
      MsgHeader header;
      header.entityId = orphanTarget;
      header.attributeId = orphanAttribute;
      out->nextHeaderIs(header);
      out << TransactToken::tokenBegin;
      out->currentPayloadSectionIs(Section::typeSection);
      for (std::size_t i = 0; i < count; ++i) out << String8(typeNames[i]);
      out->currentPayloadSectionIs(Section::constructorSection);
      writeArgs(**entity, out);
      out->currentPayloadSectionIs(Section::identitySection);
      out << adapter.entityId() << TransactToken::tokenEnd;
      break;
    } catch (AttrLogRecordException const&) {
      continue;
    }
  }
  adapter.streamDemuxer()->handleAnnounced(adapter);
  adapter.doThis();
}

unsigned long long referenceId(Ptr<Out> const& out, Entity const* target) {
  Demuxer* const demuxer = out->demuxer();
  return demuxer != nullptr ? demuxer->referenceId(target).value() : 0;
}

// The walk.

namespace {

/// One attribute of a walk. True: through.
bool flowOutStep(Sa& adapter, FlowOut& flowOut, AttrRow const& row) {
  flowOut.attrIdIs(row.id);
  switch (row.form) {
    case AttrForm::plain:
    case AttrForm::reference:
    case AttrForm::singleton:
      if (row.bit(flowOut)) row.tell(adapter, nullptr);
      return true;
    case AttrForm::pieces: {
      if (flowOut.valueIter() == nullptr && !row.bit(flowOut)) return true;
      bool const done = serializePieces(adapter, row);
      row.bitIs(flowOut, !done);
      return done;
    }
    case AttrForm::entities:
    case AttrForm::valuesById:
    case AttrForm::valuesByString:
      return row.walk(adapter);
  }
  return true;
}

}  // namespace

AttributeId attrFlowOut(Sa& adapter, TypeRows const& type, AttributeId start,
                        AttributeId (*base)(Sa&, AttributeId)) {
  Ptr<FlowOut> const flowOut(adapter.flowOut());
  HandlingScheduledFlowOutAnchor const anchor(adapter);
  if (!flowOut) return 0;
  flowOut->moxDataBitsIs(flowOut->moxDataBits() & static_cast<unsigned char>(~FlowOut::blocked));
  for (FlowOut::PendingAborts::Iterator owed(&flowOut->pendingAbort()); owed; ++owed) {
    AttributeId const attribute = owed->key();
    adapter.sendTransactionMarker(attribute, StreamAdapter::AttrTransactionType::abort, 0);
    flowOut->pendingAbortDel(attribute);
  }
  AttrRow const* row = type.begin();
  if (row == type.end() || start < row->id) {
    if (AttributeId const resume = base(adapter, start)) return resume;
    if (row == type.end()) return 0;
    if (!adapter.continueFlowOut()) return row->id;
  } else {
    while (row != type.end() && row->id != start) ++row;
  }
  for (; row != type.end(); ++row) {
    bool const done = flowOutStep(adapter, **flowOut, *row);
    if (flowOut->isBlocked()) return row->id;
    AttrRow const* const next = row + 1;
    if (next == type.end()) return done ? 0 : row->id;
    if (adapter.continueFlowOut()) continue;
    if (!row->isCollection() && !row->isInPieces()) return next->id;
    if (!done) return row->id;
    return flowOut->hasDirtyAttributes() ? next->id : 0;
  }
  return 0;
}

void instantiateSerialize(Sa& adapter, TypeRows const& type) {
  for (AttrRow const& row : type) {
    if (!row.ownsChildren()) continue;
    if (row.isCollection()) {
      row.walk(adapter);
    } else {
      row.tell(adapter, nullptr);
    }
  }
}

void freeResyncState(TypeRows const& type, FlowOut& flowOut) {
  if (AttrRow const* row = type.find(flowOut.attrId())) {
    if (row->freeSlots != nullptr) row->freeSlots(flowOut);
  }
}

bool hasDirtyAttributes(TypeRows const& type, FlowOut& flowOut) {
  for (AttrRow const& row : type) {
    if (row.owesItself(flowOut) || row.owedKeys(flowOut) != 0) return true;
  }
  return false;
}

void markFrom(TypeRows const& type, FlowOut& flowOut, AttributeId start) {
  for (AttrRow const& row : type) {
    row.bitIs(flowOut, row.isCollection() ? start > row.id : start <= row.id);
  }
}

void remountChildren(Sa& adapter, Entity& entity, TypeRows const& type) {
  for (AttrRow const& row : type) {
    if (row.ownsChildren()) row.remount(adapter, entity);
  }
}

std::string_view AttrRow::keyOf(unsigned char const* payload, std::size_t size) const {
  std::size_t width = keyWidth;
  if (width == stringKey) width = size < 4 ? 4 : 4 + getBytes(payload, 4);
  if (width > size) throw StreamException(StreamError::badLength);
  return {reinterpret_cast<char const*>(payload), width};
}

void AttrRow::scan(MessageScan& message, bool deletes) const {
  if (deletes) {
    message.in.take(message.key.size());
  } else {
    shape(message);
  }
  if (message.in.bytesAvailable() != 0) throw StreamException(StreamError::badLength);
}

bool TypeRows::ownsChildren() const {
  return std::any_of(begin(), end(), [](AttrRow const& row) { return row.ownsChildren(); });
}

AttrRow const* TypeRows::search(AttributeId id) const {
  for (TypeRows const* type = this; type != nullptr; type = type->base) {
    if (type->count == 0 || id < type->rows[0].id) continue;
    std::size_t low = 0;
    std::size_t high = type->count;
    while (low < high) {
      std::size_t const middle = (low + high) / 2;
      if (type->rows[middle].id < id) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low < type->count && type->rows[low].id == id ? type->rows + low : nullptr;
  }
  return nullptr;
}

}  // namespace Mox::NboAttrLog
