// What becomes of each received frame. A frame is looked at as a whole before anything is changed,
// so that a bad one changes nothing; then it is dropped, answered with this end's state, or
// applied.
#include <algorithm>
#include <cstdlib>

#include "Mox/Exception.h"
#include "attrlog/adapter/Deserialize.h"
#include "attrlog/adapter/Rows.h"
#include "attrlog/adapter/Serialize.h"
#include "attrlog/link/Demuxer.h"
#include "registry/MoxType.h"

namespace Mox::NboAttrLog {
namespace {

std::string hex(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

/// What a message is read from when it is applied: the connection's own.
Ptr<In> const notReflected;

}  // namespace

void Demuxer::dispatchReceived() {
  ByteQueue& received = in_->received();
  while (mode_ != Mode::closed && errorCode_ == StreamError::none && !received.empty()) {
    Frame frame;
    std::size_t size = 0;
    try {
      if (mode_ == Mode::greeting) {
        Greeting greeting;
        size = FrameParser::greeting(received.data(), received.size(), greeting);
        if (size == 0) return;
        dispatchGreeting(greeting);
      } else {
        size = FrameParser::frame(received.data(), received.size(), frame);
        if (size == 0) return;
        ++stats_.framesReceived;
        isDispatching_ = true;
        dispatch(frame);
        isDispatching_ = false;
        if (observer_) observer_(frame);
      }
    } catch (StreamException const& refused) {
      isDispatching_ = false;
      errorIs(refused.code(), std::string("log: ") + refused.what() + " at stream offset " +
                                  std::to_string(streamOffset_) + ", entity " +
                                  hex(frame.entityId.value()) + ", attribute " +
                                  std::to_string(frame.attributeId));
      return;
    }
    streamOffset_ += size;
    in_->payloadIs(nullptr, 0);
    if (mode_ != Mode::closed) received.take(size);
  }
}

void Demuxer::dispatch(Frame const& frame) {
  if (isCounted(frame.kind)) ++framesBegun_;
  // The peer's reason for ending is heard whatever else is wrong with it.
  if (frame.kind == FrameKind::error) return dispatchError(frame);
  acknowledgedIs(frame.ack);
  switch (frame.kind) {
    case FrameKind::message:
      return frame.entityId == orphanTarget ? dispatchOrphan(frame) : dispatchMessage(frame);
    case FrameKind::marker:
      return dispatchMarker(frame);
    case FrameKind::complete:
      return dispatchComplete(frame);
    case FrameKind::repeat:
      return dispatchRepeat(frame);
    case FrameKind::error:
    case FrameKind::ack:
      return;
  }
}

/// An ack counts upward and never beyond what was sent, modulo 2^32.
void Demuxer::handleAck(std::uint32_t ack) {
  std::uint32_t const more = ack - static_cast<std::uint32_t>(peerAck_);
  if (more > framesCommitted_ - peerAck_) throw StreamException(StreamError::badAck);
  peerAck_ += more;
  slots_.acknowledgedIs(peerAck_);
  for (; !goneTold_.empty() && goneTold_.front().first <= peerAck_; goneTold_.pop_front()) {
    gone_.erase(goneTold_.front().second.value());
  }
}

/// A message about an entity that this end doesn't know. The peer may refer to a child that is
/// created by it.
void Demuxer::passOver(Frame const& frame) {
  if (frame.instantiateTag != creationTag || frame.payloadSize < 8) return;
  EntityId const id(getBytes(frame.payload + frame.payloadSize - 8, 8));
  if (!id.isUnified() || reactor(id) != nullptr) return;
  if (refused_.contains(frame.entityId.value())) {
    refused_.insert(id.value());
  } else {
    goneIs(id);
  }
}

template <class Apply>
void Demuxer::applying(Sa& adapter, AttributeId attribute, Apply const& apply) {
  struct Anchor {
    Demuxer& demuxer;
    ~Anchor() {
      demuxer.applyingAdapter_ = nullptr;
      demuxer.applyingAttribute_ = 0;
      demuxer.frameStartsHold_ = false;
    }
  } const anchor{*this};
  applyingAdapter_ = &adapter;
  applyingAttribute_ = attribute;
  applied_ = false;
  try {
    apply();
  } catch (StreamException const&) {
    throw;
  } catch (std::bad_alloc const&) {
    throw StreamException(StreamError::tooLong);
  } catch (std::exception const& failure) {
    // Behind the first setter only a subscriber's own exception handling can throw.
    if (!applied_) throw StreamException(StreamError::badValue);
    ++stats_.handlerExceptions;
    report(placeText(adapter, attribute) + ": " + failure.what());
  }
}

void Demuxer::dispatchMessage(Frame const& frame) {
  // Adapters that retire meanwhile stay until the turn ends.
  Sa* const adapter = reactor(frame.entityId);
  if (adapter == nullptr) {
    ++stats_.strays;
    return passOver(frame);
  }
  if (adapter->hasFlag(readOnlyRemote)) throw StreamException(StreamError::notPermitted);
  if (frame.attributeId > 0) {
    AttrRow const* const row = adapter->rows().find(frame.attributeId);
    if (row != nullptr && row->isNumber() && !isAuthority(*adapter)) {
      return applyNumber(*adapter, *row, frame);
    }
  }
  dispatchScanned(*adapter, frame);
}

/// A number from the end that owns the tree: its size says all.
void Demuxer::applyNumber(Sa& adapter, AttrRow const& row, Frame const& frame) {
  if (frame.isVariableLength || frame.instantiateTag != 0) {
    throw StreamException(StreamError::badHeader);
  }
  if (frame.payloadSize != row.fixedLength) throw StreamException(StreamError::badLength);
  // It outlives its handlers.
  Ptr<Entity> const entity(adapter.rawEntity());
  apply(adapter, frame, row.id);
}

/// Any other message: gone over as a whole first.
void Demuxer::dispatchScanned(Sa& adapter, Frame const& frame) {
  in_->payloadIs(frame.payload, frame.payloadSize);
  if (std::abs(frame.attributeId) != compoundAttribute || !adapter.rows().ownsChildren()) {
    return scanAndApply(adapter, frame, frame, Compound());
  }
  // A compound message is held to the same rules as the plain one that it stands for.
  Compound const compound = readCompound(**in_, adapter.rows(), frame.attributeId);
  bool const deletes = compound.attribute < 0;
  Frame about = frame;
  about.attributeId = compound.attribute;
  about.payload = in_->position();
  about.payloadSize = in_->bytesAvailable();
  if (AttrRow const* const row = adapter.rows().find(std::abs(compound.attribute))) {
    about.instantiateTag = row->ownsChildren() && !deletes ? creationTag : 0;
    about.isVariableLength = row->isVariable(deletes);
  }
  scanAndApply(adapter, frame, about, compound);
}

/// `about`: the frame itself, or the one that a compound message stands for.
void Demuxer::scanAndApply(Sa& adapter, Frame const& frame, Frame const& about,
                           Compound const& compound) {
  Ptr<Entity> const entity(adapter.rawEntity());
  AttributeId const attribute = std::abs(about.attributeId);
  bool const deletes = about.attributeId < 0;
  AttrRow const* const row = adapter.rows().find(attribute);
  if (row && (deletes ? row->readDel : row->read)) {
    bool const creates = row->ownsChildren() && !deletes;
    if (creates != (about.instantiateTag == creationTag) ||
        row->isVariable(deletes) != about.isVariableLength) {
      throw StreamException(StreamError::badHeader);
    }
    MessageScan scan{**in_, *this, row->keyOf(about.payload, about.payloadSize), compound};
    row->scan(scan, deletes);
    if (isAuthority(adapter)) {
      in_->payloadIs(about.payload, about.payloadSize);
      if (isConflict(adapter, *row, about, scan)) {
        ++stats_.conflicts;
        dropOpenValue(adapter, *row, scan);
        return passOver(about);
      }
      if (isReadOnlyElsewhere(**entity)) scan.namesGone = true;
    }
    if (scan.namesGone) {
      in_->payloadIs(about.payload, about.payloadSize);
      return reflect(adapter, *row, about, scan);
    }
    if (row->isCollection()) Marks::enter(**entity, *row, this);
  } else if (frame.attributeId == syncAttribute) {
    if (!adapter.hasFlag(notAuthority)) throw StreamException(StreamError::notPermitted);
  } else if (attribute != compoundAttribute) {
    reportUnknown(adapter, attribute);
    if (frame.instantiateTag == creationTag && frame.payloadSize >= 8) {
      refused_.insert(getBytes(frame.payload + frame.payloadSize - 8, 8));
    }
  }
  apply(adapter, frame, attribute);
}

/// The message has been found sound.
void Demuxer::apply(Sa& adapter, Frame const& frame, AttributeId attribute) {
  frameStartsHold_ = frame.fullTransferFollows;
  in_->payloadIs(frame.payload, frame.payloadSize);
  applying(adapter, attribute, [&] {
    StreamAdapter::DeserializationOptions options;
    options.sequenceNumber = framesBegun();
    options.flags = frame.fullTransferFollows ? frameFullTransferFollows : 0;
    adapter.handleAttrDeserialization(frame.attributeId, options,
                                      static_cast<unsigned int>(frame.payloadSize), notReflected);
  });
  tellNoted();
}

/// True when the peer wrote the slot before it had seen, or could see, what this end says of it.
bool Demuxer::isConflict(Sa& adapter, AttrRow const& row, Frame const& frame,
                         MessageScan const& scan) {
  if (adapter.hold_) return false;
  if (slots_.lastSent(frame.entityId, row.id, scan.key) != 0) return true;
  FlowOut* const flowOut = adapter.flowOut_.get();
  if (flowOut == nullptr) return false;
  bool const owed = row.owes(adapter, *flowOut, **in_);
  in_->payloadIs(frame.payload, frame.payloadSize);
  return owed;
}

/// True when this end serves a copy that it may not change itself.
bool Demuxer::isReadOnlyElsewhere(Entity const& entity) const {
  for (Demuxer const* demuxer : globalNboAttrLogDemuxerManager().demuxers()) {
    if (demuxer == this || !demuxer->importsReadOnly()) continue;
    Ptr<Sa const> const adapter = entity.moxNboAttrLogSa(Ptr<Out const>(demuxer->out()));
    if (adapter && adapter->hasFlag(readOnlyHere)) return true;
  }
  return false;
}

/// A piece was dropped: what came of its string before is of no use.
void Demuxer::dropOpenValue(Sa& adapter, AttrRow const& row, MessageScan const& scan) {
  Ptr<FlowIn> const open = row.isInPieces() ? flowIn(adapter.entityId()) : Ptr<FlowIn>();
  if (!open || open->iter() == nullptr || open->aid() != row.id) return;
  if (auto const* key = static_cast<String8 const*>(open->idx())) {
    if (key->view() != scan.key.substr(4)) return;
  }
  openValueDel(adapter.entityId(), row.id);
}

void Demuxer::repeatBegin(EntityId id, AttributeId attribute) {
  MsgHeader header;
  header.entityId = id;
  header.attributeId = attribute;
  out_->frameIs(FrameKind::repeat, header);
  out_ << Out::TransactToken::tokenBegin;
}

void Demuxer::sendRepeats() {
  while (!repeatsOwed_.empty() && out_->freeSpace() >= runReserve) {
    auto const [id, attribute, key] = *repeatsOwed_.begin();
    repeatsOwed_.erase(repeatsOwed_.begin());
    if (reactor(EntityId(id)) == nullptr) continue;
    repeatBegin(EntityId(id), attribute);
    out_->bytesIs(key.data(), key.size());
    out_ << Out::TransactToken::tokenEnd;
  }
}

/// The peer's message is not applied: it gets this end's state of the slot instead.
void Demuxer::reflect(Sa& adapter, AttrRow const& row, Frame const& frame,
                      MessageScan const& scan) {
  passOver(frame);
  // A string in pieces is answered when its last one has come.
  if (scan.isOpen) return;
  ++stats_.reflected;
  if (adapter.hasFlag(readOnlyHere)) {
    repeatBegin(adapter.entityId(), row.id);
    out_->bytesIs(scan.key.data(), scan.key.size());
    out_ << Out::TransactToken::tokenEnd;
    return;
  }
  if (row.ownsChildren()) {
    row.partChild(adapter, **in_);
    in_->payloadIs(frame.payload, frame.payloadSize);
  }
  StreamAdapter::DeserializationOptions options;
  options.sequenceNumber = framesBegun();
  applied_ = false;
  try {
    adapter.handleAttrDeserialization(frame.attributeId, options,
                                      static_cast<unsigned int>(frame.payloadSize), in_);
  } catch (StreamException const&) {
    throw;
  } catch (std::exception const&) {
    if (!applied_) throw StreamException(StreamError::badValue);
    ++stats_.handlerExceptions;  // a removal under an enumerator that this end doesn't know
  }
}

void Demuxer::dispatchRepeat(Frame const& frame) {
  Ptr<Sa> const adapter(reactor(frame.entityId));
  if (!adapter) {
    ++stats_.strays;
    return;
  }
  if (adapter->hasFlag(notAuthority)) throw StreamException(StreamError::notPermitted);
  AttrRow const* const row = adapter->rows().find(frame.attributeId);
  if (row == nullptr) {
    ++stats_.unknownAttrs;
    return reportUnknown(**adapter, frame.attributeId);
  }
  if (row->keyOf(frame.payload, frame.payloadSize).size() != frame.payloadSize) {
    throw StreamException(StreamError::badLength);
  }
  ++stats_.reflected;
  in_->payloadIs(frame.payload, frame.payloadSize);
  try {
    if (row->ownsChildren()) {
      row->partChild(**adapter, **in_);
      in_->payloadIs(frame.payload, frame.payloadSize);
    }
    if (row->isCollection()) {
      row->tellOf(**adapter, **in_);
    } else {
      row->tell(**adapter, nullptr);
    }
  } catch (StreamException const&) {
    throw;
  } catch (std::exception const&) {
    throw StreamException(StreamError::badValue);
  }
}

void Demuxer::refusedHere(Sa& adapter, AttrRow const& row, void const* key) {
  if (++stats_.readOnlyWrites == 1) {
    report("may not be written: " + placeText(adapter, row.id) + "; further ones are counted only");
  }
  // A subscriber that corrects what it is told would be told again, and correct again.
  if (mode_ != Mode::running || isDispatching_ || !adapter.hasFlag(notAuthority)) return;
  repeatBegin(adapter.entityId(), row.id);
  if (key != nullptr) row.writeKey(key, out_);
  if (out_->freeSpace() >= runReserve) {
    out_ << Out::TransactToken::tokenEnd;
  } else {
    repeatsOwed_.emplace(adapter.entityId().value(), row.id, out_->takenBack());
  }
}

void Demuxer::dispatchMarker(Frame const& frame) {
  Ptr<Sa> adapter(reactor(frame.entityId));
  if (!adapter) {
    ++stats_.strays;
    return;
  }
  if (adapter->hasFlag(readOnlyRemote)) throw StreamException(StreamError::notPermitted);
  if (frame.payloadSize != 8) throw StreamException(StreamError::badLength);
  in_->payloadIs(frame.payload, frame.payloadSize);
  unsigned int const type = in_->nextU32();
  unsigned int const number = in_->nextU32();
  AttrRow const* row = adapter->rows().find(frame.attributeId);
  if (!row && !options_.schemaStrict) {
    // Of an attribute that only the peer's schema has.
    ++stats_.unknownAttrs;
    return reportUnknown(**adapter, frame.attributeId);
  }
  Ptr<FlowIn> open = flowIn(frame.entityId);
  AttributeId const openTransaction = open ? open->openTransaction() : 0;
  bool const valueOpen = open && open->iter() != nullptr;
  bool permitted = false;
  using Type = StreamAdapter::AttrTransactionType;
  switch (static_cast<Type>(type)) {
    case Type::begin:
      permitted = row && row->isCollection() && openTransaction == 0;
      break;
    case Type::end:
      permitted = row && row->isCollection() && openTransaction == frame.attributeId &&
                  !(valueOpen && open->aid() == frame.attributeId);
      break;
    case Type::abort:
      permitted = row && row->isInPieces();
      break;
  }
  if (!permitted) throw StreamException(StreamError::badMarker);
  if (static_cast<Type>(type) == Type::abort && valueOpen && open->aid() != frame.attributeId) {
    throw StreamException(StreamError::badPiece);
  }
  Ptr<Entity> entity = adapter->moxNotifierEntity();
  if (isAuthority(**adapter) && isReadOnlyElsewhere(**entity)) return;
  applying(**adapter, frame.attributeId, [&] {
    applied_ = true;
    adapter->handleAttrTransaction(frame.attributeId, static_cast<Type>(type), number);
  });
  tellNoted();
}

void Demuxer::noteSlot(Sa& adapter, std::function<void()> tell) {
  noted_.emplace_back(Ptr<Sa>(&adapter), std::move(tell));
}

void Demuxer::tellAllNoted() {
  for (auto& [noted, tell] : std::exchange(noted_, {})) {
    if (noted->retired_) continue;
    try {
      tell();
    } catch (std::exception const&) {
      // As from any handler: a change of a read-only copy, or one that the peer would not take.
      noted->onNotificationException(0);
    }
  }
}

void Demuxer::dispatchComplete(Frame const& frame) {
  if (frame.payloadSize != 0) throw StreamException(StreamError::badLength);
  if (frame.entityId == orphanTarget) {
    peerExportsDone_ = true;
    return imports_->dropStaleRoots(peerName());
  }
  Sa* adapter = reactor(frame.entityId);
  if (adapter == nullptr) {
    ++stats_.strays;
    return;
  }
  if (adapter->hold_) ++stats_.fullTransfersReceived;
  holdIs(*adapter, false);
  settleFlags(*adapter);
  if (adapter->flowOut_ && !adapter->queued_ && !adapter->parked_) queue(*adapter);
}

void Demuxer::dispatchError(Frame const& frame) {
  in_->payloadIs(frame.payload, frame.payloadSize);
  String8 const text = in_->nextString();
  if (in_->bytesAvailable() != 0) throw StreamException(StreamError::badLength);
  if (text.length() > maxErrorText) throw StreamException(StreamError::tooLong);
  auto const code =
      frame.attributeId > 0 && frame.attributeId <= static_cast<AttributeId>(StreamError::badValue)
          ? static_cast<StreamError>(frame.attributeId)
          : StreamError::badHeader;
  errorCode_ = code;
  error_ = "log: refused by the peer: " + std::string(text.charPtr(), text.length());
}

void Demuxer::reportUnknown(Sa const& adapter, AttributeId attribute) {
  // A hostile peer may invent any number of them.
  constexpr std::size_t mostReports = 1000;
  Entity const* const entity = adapter.rawEntity();
  if (unknownReported_.size() >= mostReports ||
      !unknownReported_.emplace(entity->fwkType(), attribute).second) {
    return;
  }
  std::string const name(entity->attributeString(attribute).view());
  report("passes over attribute " + std::to_string(attribute) +
         (name == "unknown" ? std::string() : " (" + name + ")") + " of " +
         std::string(entity->fwkType()->qualifiedName().view()));
}

std::string placeText(Entity::MoxNboAttrLogSa const& adapter, AttributeId attribute) {
  Entity const* const entity = adapter.rawEntity();
  if (entity == nullptr) return "an entity that is gone";
  return std::string(entity->fullName().view()) + "." +
         std::string(entity->attributeString(attribute).view());
}

}  // namespace Mox::NboAttrLog
