// The gate, the four families of scalars, announcing and binding children, and the walk of a
// flow-out. Each algorithm reads from top to bottom in the order in which it happens.
#include "attrlog/adapter/Serialize.h"

#include <algorithm>

#include "Mox/Exception.h"
#include "Mox/Hooks.h"
#include "Mox/NboAttrLogFlow.h"
#include "attrlog/wire/WireValue.h"
#include "registry/MoxAttr.h"

namespace Mox::NboAttrLog {
namespace {

using Position = String8::IteratorConst;

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
  if (FlowOut* flowOut = markScalar(adapter, row)) blockFlowOut(*flowOut);
}

/// The message exceeds what the peer accepts: owed, and the walk goes on.
void markTooLong(Sa& adapter, AttrRow const& row) {
  markScalar(adapter, row);
  reportTooLong(adapter, row.id);
}

[[gnu::noinline]] void note(Sa& adapter, AttrRow const& row) {
  adapter.host()->inHand.note(adapter, [&adapter, &row] { row.notify(adapter, nullptr); });
}

inline bool isOpen(Sa& adapter, AttrRow const& row, Gate passed) {
  if (passed == Gate::noted) note(adapter, row);
  return passed == Gate::open;
}

}  // namespace

Gate gate(Sa& adapter, AttrRow const& row, void const* key) {
  // What most changes meet: the entity is announced, nothing of it is being applied.
  constexpr std::uint32_t unusual =
      applyingSync | changeFromLog | writingOff | boundByTransaction | readOnlyHere;
  AdapterHost* const host = adapter.host();
  if (host && (adapter.flags() & (unusual | writingOn)) == writingOn &&
      !host->inHand.isApplying(adapter)) {
    return Gate::open;
  }
  if (adapter.hasFlag(applyingSync)) return Gate::declined;
  bool const fromLog = adapter.hasFlag(changeFromLog);
  if (host) {
    // The mark is about the attribute of the message in hand alone.
    if (fromLog ? host->inHand.isApplyingOther(adapter, row.id)
                : adapter.handlingFlowInFor(row.id)) {
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
    if (host) host->repeats.refusedHere(adapter, row, key);
    adapter.doThrowReadOnly(descriptorOf(adapter, row.id));
  }
  return Gate::open;
}

Ptr<MoxAttr const> descriptorOf(Sa const& adapter, AttributeId attribute) {
  return Ptr<MoxAttr const>(hooks.attribute ? hooks.attribute(*adapter.rawEntity(), attribute)
                                            : nullptr);
}

void blockFlowOut(FlowOut& flowOut) {
  flowOut.moxDataBitsIs(flowOut.moxDataBits() | FlowOut::blocked);
}

void reportTooLong(Sa& adapter, AttributeId attribute) {
  if (AdapterHost* const host = adapter.host()) host->tooLong(placeText(adapter, attribute));
}

bool transfersChildren(Sa const& parent) {
  return parent.syncMode() == StreamAdapter::SyncMode::live || parent.hasFlag(inScheduledRun);
}

namespace {

/// By itself: a change that comes from the peer ends at the gate and saves no register for this.
[[gnu::noinline]] void sendPlain(Sa& adapter, AttrRow const& row) {
  if (!decide(adapter, row)) return;
  try {
    MessageOut message(adapter, row.id, row.fixedLength == 0, row.fixedLength);
    row.writeValue(adapter, message.out());
    message.commit();
  } catch (MessageTooLong const&) {
    markTooLong(adapter, row);
  }
}

}  // namespace

void serializePlain(Sa& adapter, AttrRow const& row) {
  if (isOpen(adapter, row, gate(adapter, row))) sendPlain(adapter, row);
}

void serializeReference(Sa& adapter, AttrRow const& row) {
  if (!isOpen(adapter, row, gate(adapter, row))) return;
  Ptr<Entity const> target = row.target(adapter);
  if (!decide(adapter, row)) return;
  for (;; target = row.target(adapter)) {
    try {
      Expect const expect(Exception::attrLogRecordId);
      // Before the header: the target may have to be announced.
      Ptr<Out> const& out = adapter.nboAttrLogOut();
      EntityId const id = target ? target->entityId(out, false, true, true) : EntityId();
      MessageOut message(adapter, row.id, true);
      out << static_cast<unsigned long long>(id.value());
      message.commit();
      return;
    } catch (AttrLogRecordException const&) {
      continue;
    } catch (EntityIdUnavailableException const&) {
      return markBlocked(adapter, row);
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
  Ptr<Entity> const child = row.child(adapter);
  if (!child) return MessageOut(adapter, -row.id, false).commit();
  Ptr<Sa> childAdapter;
  try {
    childAdapter = row.childAdapter(adapter, child);
  } catch (EntityIdUnavailableException const&) {
    return markBlocked(adapter, row);
  } catch (MessageTooLong const&) {
    return markTooLong(adapter, row);
  }
  adapter.doFixChildFlags(childAdapter);
  if (transfersChildren(adapter)) childAdapter->doThis();
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
    MessageOut message(adapter, row.id, true);
    out << position;
    message.commit();
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
  // An id of this connection alone goes back to the peer in place of the child's.
  if (!parent.hasUnifiedEntityId()) reverse->entityIdIs(position, parent.entityId());
  adapter->flagsIs(boundByTransaction, false);
}

Ptr<Sa> childAdapterIs(Sa& parent, AttributeId attribute, std::uint32_t flags,
                       Ptr<Entity> const& child, unsigned int version, PtrInterface* channel,
                       WriteArgs writeArgs, bool transferFollows) {
  using BitSet = PtrInterface::NotifieeConst::Mox_BitSet;
  Ptr<Out> const& out = parent.nboAttrLogOut();
  if (Ptr<Sa> present = child->moxNboAttrLogSa(Ptr<Out const>(out))) {
    if (present->origin() == StreamAdapter::Origin::exportedOrphan) {
      // Announced by itself before its tree came: withdrawn, and announced again under its parent.
      present->doRemountSelf(Ptr<Out>());
    } else {
      present->notificationFlagsIs(BitSet(flags));
      // Announced or bound already: nothing is sent twice.
      if (present->hasFlag(needsNoCreation)) return present;
    }
  }
  Ptr<Sa> adapter = child->moxNboAttrLogSaIs(BitSet(flags), version, out, channel);
  adapter->moxOnInit();
  AdapterHost& host = *parent.host();
  for (;;) {
    try {
      Expect const expect(Exception::attrLogRecordId);
      MessageOut message(parent, attribute, true, 0, creationTag);
      if (transferFollows) out->fullTransferFollowsIs();
      writeArgs(**child, message);
      out << adapter->entityId();
      message.commit();
      break;
    } catch (AttrLogRecordException const&) {
      continue;
    } catch (...) {
      host.retire(**adapter);
      throw;
    }
  }
  host.announcedIs(**adapter);
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
      MessageOut message = MessageOut::orphan(adapter);
      out->fullTransferFollowsIs();
      out->claimIs(adapter.host()->announcer.claim(**entity));
      out->currentPayloadSectionIs(Section::typeSection);
      for (std::size_t i = 0; i < count; ++i) out << TypeId{String8(typeNames[i])};
      out->currentPayloadSectionIs(Section::constructorSection);
      writeArgs(**entity, message);
      out->currentPayloadSectionIs(Section::identitySection);
      out << adapter.entityId();
      message.commit();
      break;
    } catch (AttrLogRecordException const&) {
      continue;
    }
  }
  adapter.host()->announcedIs(adapter);
  adapter.doThis();
}

// The walk.

namespace {

/// One attribute of a walk. True: through.
bool flowOutStep(Sa& adapter, FlowOut& flowOut, AttrRow const& row) {
  flowOut.attrIdIs(row.id);
  switch (row.form) {
    case WireForm::none:
      return true;
    case WireForm::plain:
    case WireForm::reference:
    case WireForm::singleton:
      if (row.bit(flowOut)) row.notify(adapter, nullptr);
      return true;
    case WireForm::pieces: {
      if (flowOut.valueIter() == nullptr && !row.bit(flowOut)) return true;
      bool const done = serializePieces(adapter, row);
      row.bitIs(flowOut, !done);
      return done;
    }
    case WireForm::entities:
    case WireForm::valuesById:
    case WireForm::valuesByString:
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
      row.notify(adapter, nullptr);
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
  std::size_t width = keyLength;
  if (width == AttributeRow::variableKey) width = size < 4 ? 4 : 4 + getBytes(payload, 4);
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
