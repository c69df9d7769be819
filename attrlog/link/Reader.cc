// Frames about one entity, in the order in which a frame is treated.
#include "attrlog/link/Reader.h"

#include <cstdlib>
#include <new>
#include <string>

#include "Mox/Exception.h"
#include "attrlog/adapter/Deserialize.h"
#include "attrlog/adapter/Marks.h"
#include "registry/MoxType.h"

namespace Mox::NboAttrLog {
namespace {

/// What a message is read from when it is applied: the connection's own.
Ptr<In> const notReflected;

StreamAdapter::DeserializationOptions optionsOf(AdapterHost const& host, Frame const& frame) {
  StreamAdapter::DeserializationOptions options;
  options.sequenceNumber = static_cast<std::uint32_t>(host.exchange.framesBegun());
  options.flags = frame.fullTransferFollows ? frameFullTransferFollows : 0;
  return options;
}

}  // namespace

/// The adapter that a frame is about; null, and counted, for one that this end doesn't know.
Sa* Reader::adapterOf(Frame const& frame) {
  Sa* const adapter = host_.reactors.reactor(frame.entityId);
  if (adapter == nullptr) ++host_.stats.strays;
  return adapter;
}

// Messages.

void Reader::message(Frame const& frame) {
  // Adapters that retire meanwhile stay until the turn ends.
  Sa* const adapter = adapterOf(frame);
  if (adapter == nullptr) return passOver(frame);
  if (adapter->hasFlag(readOnlyRemote) && !adapter->readOnlyRemoteOk(std::abs(frame.attributeId)) &&
      !adapter->convertedToWritable(false)) {
    throw StreamException(StreamError::notPermitted);
  }
  if (frame.attributeId > 0) {
    AttrRow const* const row = adapter->rows().find(frame.attributeId);
    if (row != nullptr && row->isNumber() && !AdapterHost::isAuthority(*adapter)) {
      return number(*adapter, *row, frame);
    }
  }
  scanned(*adapter, frame);
}

/// A number from the end that owns the tree: its size is all that there is to check.
void Reader::number(Sa& adapter, AttrRow const& row, Frame const& frame) {
  if (frame.isVariableLength || frame.instantiateTag != 0) {
    throw StreamException(StreamError::badHeader);
  }
  if (frame.payloadSize != row.fixedLength) throw StreamException(StreamError::badLength);
  // It outlives its handlers.
  Ptr<Entity> const entity(adapter.rawEntity());
  apply(adapter, frame, row.id);
}

/// Any other message. A compound one is held to the rules of the plain one that it stands for.
void Reader::scanned(Sa& adapter, Frame const& frame) {
  In& in = **host_.in;
  in.payloadIs(frame.payload, frame.payloadSize);
  if (std::abs(frame.attributeId) != compoundAttribute || !adapter.rows().ownsChildren()) {
    return scanAndApply(adapter, frame, frame, Compound());
  }
  Compound const compound = readCompound(in, adapter.rows(), frame.attributeId);
  bool const deletes = compound.attribute < 0;
  Frame about = frame;
  about.attributeId = compound.attribute;
  about.payload = in.position();
  about.payloadSize = in.bytesAvailable();
  if (AttrRow const* const row = adapter.rows().find(std::abs(compound.attribute))) {
    about.instantiateTag = row->ownsChildren() && !deletes ? creationTag : 0;
    about.isVariableLength = row->isVariable(deletes);
  }
  scanAndApply(adapter, frame, about, compound);
}

/// `about`: the frame itself, or the one that a compound message stands for.
void Reader::scanAndApply(Sa& adapter, Frame const& frame, Frame const& about,
                          Compound const& compound) {
  In& in = **host_.in;
  Ptr<Entity> const entity(adapter.rawEntity());
  AttributeId const attribute = std::abs(about.attributeId);
  bool const deletes = about.attributeId < 0;
  AttrRow const* const row = adapter.rows().find(attribute);
  if (row == nullptr || (deletes ? row->readDel : row->read) == nullptr) {
    return unknown(adapter, frame, attribute);
  }
  bool const creates = row->ownsChildren() && !deletes;
  if (creates != (about.instantiateTag == creationTag) ||
      row->isVariable(deletes) != about.isVariableLength) {
    throw StreamException(StreamError::badHeader);
  }
  MessageScan scan{in, host_.reactors, row->keyOf(about.payload, about.payloadSize), compound};
  row->scan(scan, deletes);
  if (AdapterHost::isAuthority(adapter)) {
    in.payloadIs(about.payload, about.payloadSize);
    if (isConflict(adapter, *row, about, scan)) {
      ++host_.stats.conflicts;
      dropOpenValue(adapter, *row, scan);
      return passOver(about);
    }
    if (isReadOnlyElsewhere(**entity)) scan.namesGone = true;
  }
  if (scan.namesGone) {
    in.payloadIs(about.payload, about.payloadSize);
    return reflect(adapter, *row, about, scan);
  }
  if (row->isCollection()) Marks::enter(**entity, *row, &host_);
  apply(adapter, frame, attribute);
}

/// A message of no attribute of the type: the sync message, or one of a newer schema.
void Reader::unknown(Sa& adapter, Frame const& frame, AttributeId attribute) {
  if (frame.attributeId == syncAttribute) {
    if (!adapter.hasFlag(notAuthority)) throw StreamException(StreamError::notPermitted);
  } else if (attribute != compoundAttribute) {
    reportUnknown(adapter, attribute);
    if (frame.instantiateTag == creationTag && frame.payloadSize >= 8) {
      host_.reactors.refusedIs(EntityId(getBytes(frame.payload + frame.payloadSize - 8, 8)));
    }
  }
  apply(adapter, frame, attribute);
}

/// The message has been found sound.
inline void Reader::apply(Sa& adapter, Frame const& frame, AttributeId attribute) {
  host_.inHand.startsTransferIs(frame.fullTransferFollows);
  host_.in->payloadIs(frame.payload, frame.payloadSize);
  applying(adapter, attribute, [&] {
    adapter.handleAttrDeserialization(frame.attributeId, optionsOf(host_, frame),
                                      static_cast<unsigned int>(frame.payloadSize), notReflected);
  });
  host_.inHand.sendNoted();
}

/// Calls `apply` with the adapter's attribute as the one in hand. Behind the first setter only a
/// subscriber's own exception handling can throw.
template <class Apply>
inline void Reader::applying(Sa& adapter, AttributeId attribute, Apply const& apply) {
  InHand::Anchor const anchor(host_.inHand, adapter, attribute);
  try {
    apply();
  } catch (StreamException const&) {
    throw;
  } catch (std::bad_alloc const&) {
    throw StreamException(StreamError::tooLong);
  } catch (std::exception const& failure) {
    if (!host_.inHand.isApplied()) throw StreamException(StreamError::badValue);
    ++host_.stats.handlerExceptions;
    host_.report(placeText(adapter, attribute) + ": " + failure.what());
  }
}

void Reader::passOver(Frame const& frame) {
  if (frame.instantiateTag != creationTag || frame.payloadSize < 8) return;
  EntityId const id(getBytes(frame.payload + frame.payloadSize - 8, 8));
  if (!id.isUnified() || host_.reactors.reactor(id) != nullptr) return;
  if (host_.reactors.isRefused(frame.entityId)) {
    host_.reactors.refusedIs(id);
  } else {
    host_.reactors.goneIs(id);
  }
}

/// The peer's message is not applied: the peer gets this end's state of the slot instead.
void Reader::reflect(Sa& adapter, AttrRow const& row, Frame const& frame, MessageScan const& scan) {
  passOver(frame);
  // A string in pieces is answered when its last one has come.
  if (scan.isOpen) return;
  ++host_.stats.reflected;
  if (adapter.hasFlag(readOnlyHere)) {
    return host_.repeats.request(adapter.entityId(), row.id, scan.key);
  }
  In& in = **host_.in;
  if (row.ownsChildren()) {
    row.partChild(adapter, in);
    in.payloadIs(frame.payload, frame.payloadSize);
  }
  host_.inHand.isAppliedIs(false);
  try {
    adapter.handleAttrDeserialization(frame.attributeId, optionsOf(host_, frame),
                                      static_cast<unsigned int>(frame.payloadSize), host_.in);
  } catch (StreamException const&) {
    throw;
  } catch (std::exception const&) {
    if (!host_.inHand.isApplied()) throw StreamException(StreamError::badValue);
    ++host_.stats.handlerExceptions;  // a removal under an enumerator that this end doesn't know
  }
}

// What decides between these.

/// True when the peer wrote the slot before it had seen, or could see, this end's last value.
bool Reader::isConflict(Sa& adapter, AttrRow const& row, Frame const& frame,
                        MessageScan const& scan) {
  if (adapter.life() == StreamAdapter::Life::held) return false;
  if (host_.exchange.isSlotInFlight(frame.entityId, row.id, scan.key)) return true;
  FlowOut* const flowOut = adapter.flowOut();
  if (flowOut == nullptr) return false;
  In& in = **host_.in;
  bool const owed = row.owes(adapter, *flowOut, in);
  in.payloadIs(frame.payload, frame.payloadSize);
  return owed;
}

/// True when this end serves a copy that it may not change itself.
bool Reader::isReadOnlyElsewhere(Entity const& entity) const {
  for (AdapterHost const* const host : adapterHosts()) {
    if (host == &host_ || !host->hasReadOnlyCopies) continue;
    Ptr<Sa const> const adapter = entity.moxNboAttrLogSa(Ptr<Out const>(host->out));
    if (adapter && adapter->hasFlag(readOnlyHere)) return true;
  }
  return false;
}

/// A piece was dropped: the pieces of its string that came before are of no use.
void Reader::dropOpenValue(Sa& adapter, AttrRow const& row, MessageScan const& scan) {
  Ptr<FlowIn> const open =
      row.isInPieces() ? host_.flowIns.flowIn(adapter.entityId()) : Ptr<FlowIn>();
  if (!open || open->iter() == nullptr || open->aid() != row.id) return;
  if (auto const* key = static_cast<String8 const*>(open->idx())) {
    if (key->view() != scan.key.substr(4)) return;
  }
  host_.flowIns.openValueDel(adapter.entityId(), row.id);
}

// Markers, repeats, ends of transfers.

/// Throws for a marker out of order.
void Reader::checkMarker(Sa& adapter, AttrRow const* row, AttributeId attribute,
                         unsigned int type) const {
  using Type = StreamAdapter::AttrTransactionType;
  Ptr<FlowIn> const open = host_.flowIns.flowIn(adapter.entityId());
  AttributeId const transaction = open ? open->openTransaction() : 0;
  bool const isValueOpen = open && open->iter() != nullptr;
  bool const isTransactional =
      row && (row->isCollection() || row->isInPieces() || row->form == WireForm::singleton);
  bool isPermitted = false;
  switch (static_cast<Type>(type)) {
    case Type::begin:
      isPermitted = isTransactional && transaction == 0;
      break;
    case Type::end:
      isPermitted = isTransactional && transaction == attribute &&
                    !(row->isCollection() && isValueOpen && open->aid() == attribute);
      break;
    case Type::abort:
      isPermitted = row && row->isInPieces();
      break;
  }
  if (!isPermitted) throw StreamException(StreamError::badMarker);
  if (isValueOpen && !row->isCollection() && open->aid() != attribute) {
    throw StreamException(StreamError::badPiece);
  }
  if (static_cast<Type>(type) == Type::abort && isValueOpen && open->aid() != attribute) {
    throw StreamException(StreamError::badPiece);
  }
}

void Reader::marker(Frame const& frame) {
  Ptr<Sa> const adapter(adapterOf(frame));
  if (!adapter) return;
  if (adapter->hasFlag(readOnlyRemote)) throw StreamException(StreamError::notPermitted);
  if (frame.payloadSize != 8) throw StreamException(StreamError::badLength);
  host_.in->payloadIs(frame.payload, frame.payloadSize);
  unsigned int const type = host_.in->nextU32();
  unsigned int const number = host_.in->nextU32();
  AttrRow const* const row = adapter->rows().find(frame.attributeId);
  if (!row && !host_.options.schemaStrict) {
    // Of an attribute that only the peer's schema has.
    ++host_.stats.unknownAttrs;
    return reportUnknown(**adapter, frame.attributeId);
  }
  checkMarker(**adapter, row, frame.attributeId, type);
  Ptr<Entity> const entity = adapter->moxNotifierEntity();
  if (AdapterHost::isAuthority(**adapter) && isReadOnlyElsewhere(**entity)) return;
  applying(**adapter, frame.attributeId, [&] {
    host_.inHand.appliedIs();
    adapter->handleAttrTransaction(frame.attributeId,
                                   static_cast<StreamAdapter::AttrTransactionType>(type), number);
  });
  host_.inHand.sendNoted();
}

void Reader::repeat(Frame const& frame) {
  Ptr<Sa> const adapter(adapterOf(frame));
  if (!adapter) return;
  if (adapter->hasFlag(notAuthority)) throw StreamException(StreamError::notPermitted);
  AttrRow const* const row = adapter->rows().find(frame.attributeId);
  if (row == nullptr) {
    ++host_.stats.unknownAttrs;
    return reportUnknown(**adapter, frame.attributeId);
  }
  host_.repeats.answer(**adapter, *row, frame);
}

void Reader::complete(Frame const& frame) {
  if (frame.payloadSize != 0) throw StreamException(StreamError::badLength);
  Sa* const adapter = adapterOf(frame);
  if (adapter == nullptr) return;
  if (adapter->life() == StreamAdapter::Life::held) ++host_.stats.fullTransfersReceived;
  host_.scheduler.holdEnd(*adapter);
}

void Reader::reportUnknown(Sa const& adapter, AttributeId attribute) {
  // A hostile peer may invent any number of them.
  constexpr std::size_t mostReports = 1000;
  Entity const* const entity = adapter.rawEntity();
  if (unknownReported_.size() >= mostReports ||
      !unknownReported_.emplace(entity->fwkType(), attribute).second) {
    return;
  }
  std::string const name(entity->attributeString(attribute).view());
  host_.report("passes over attribute " + std::to_string(attribute) +
               (name == "unknown" ? std::string() : " (" + name + ")") + " of " +
               std::string(entity->fwkType()->qualifiedName().view()));
}

}  // namespace Mox::NboAttrLog
