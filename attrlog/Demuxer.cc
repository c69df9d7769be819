// Greeting, dispatch, table of reactors, scheduler: what a connection does between its two
// buffers.
#include "attrlog/Demuxer.h"

#include <algorithm>

#include "Mox/Assertion.h"
#include "Mox/Exception.h"
#include "attrlog/EntityIds.h"
#include "attrlog/Rows.h"
#include "registry/MoxType.h"

namespace Mox::NboAttrLog {
namespace {

std::string hex(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

/// Names the adapter and attribute of the message in hand for as long as it is applied.
template <class Adapter, class Attribute>
class ApplyingAnchor {
 public:
  ApplyingAnchor(Adapter& adapter, Adapter newAdapter, Attribute& attribute, Attribute newAttribute)
      : adapter_(adapter), attribute_(attribute) {
    adapter_ = newAdapter;
    attribute_ = newAttribute;
  }
  ~ApplyingAnchor() {
    adapter_ = nullptr;
    attribute_ = 0;
  }
  ApplyingAnchor(ApplyingAnchor const&) = delete;
  ApplyingAnchor& operator=(ApplyingAnchor const&) = delete;

 private:
  Adapter& adapter_;
  Attribute& attribute_;
};

}  // namespace

Demuxer::Demuxer(LinkOptions const& options)
    : options_(options), out_(new Out(this, options.outCapacity)), in_(new In(this)) {
  globalNboAttrLogDemuxerManager().demuxerIs(this);
}

Demuxer::~Demuxer() {
  if (mode_ != Mode::closed) close();
}

// Ids and adapters.

Entity::MoxNboAttrLogSa* Demuxer::reactor(EntityId id) const {
  MoxReactor const* entry = reactors_[id];
  return entry ? entry->value().get() : nullptr;
}

void Demuxer::reactorsVisit(
    std::function<void(Entity::MoxNboAttrLogSa const&)> const& visit) const {
  for (auto entry = reactors_.iteratorConst(); entry; ++entry) visit(**entry->value());
}

Ptr<Entity> Demuxer::entity(EntityId id) const {
  Entity::MoxNboAttrLogSa* adapter = reactor(id);
  return adapter && adapter->hasFlag(writingOn) ? adapter->moxNotifierEntity() : Ptr<Entity>();
}

Ptr<Entity::MoxNboAttrLogSa> Demuxer::reactorDel(EntityId const& id) {
  Ptr<MoxReactor> entry = reactors_[id];
  if (!entry) return {};
  Ptr<Entity::MoxNboAttrLogSa> adapter = entry->value();
  reactors_.deleteMember(entry);
  return adapter;
}

void Demuxer::reactorIs(EntityId id, Entity::MoxNboAttrLogSa& adapter, bool bound) {
  Ptr<Entity::MoxNboAttrLogSa> hold(&adapter);
  if (adapter.entityId() != id) {
    if (reactor(adapter.entityId()) == &adapter) {
      flowInDel(adapter.entityId());
      reactorDel(adapter.entityId());
    }
    adapter.entityIdIs(id);
  }
  if (reactor(id) != &adapter) {
    if (Entity::MoxNboAttrLogSa* other = reactor(id)) retire(*other);
    reactors_.newMemberG(Ptr<PtrInterface>(new MoxReactor(id, hold)), &id);
  }
  if (bound) {
    if (adapter.origin_ != StreamAdapter::Origin::importedOrphan) {
      adapter.origin_ = StreamAdapter::Origin::bound;
    }
    adapter.fullStarted_ = false;
    adapter.flagsIs(writingOn, true);
    if (frameStartsHold_ && !adapter.hold_) {
      adapter.hold_ = true;
      ++holds_;
    }
  }
  settleFlags(adapter);
  if (bound) wakeBlocked();
}

void Demuxer::assignEntityId(Entity::MoxNboAttrLogSa& adapter) {
  Ptr<Entity> entity = adapter.moxNotifierEntity();
  MsgChannel::Constrainer& brought = MsgChannel::constrainer();
  EntityId id;
  if (brought.deserializingEid && entity->parent().get() == brought.deserializingInParent) {
    id = brought.deserializingEid;
  } else if (Ptr<Entity::MoxNboAttrLogSa> other = entity->moxNboAttrLogSa(Ptr<Out const>())) {
    if (other.get() != &adapter) id = other->entityId();
  }
  if (!id || reactor(id) != nullptr) id = newEntityId();
  reactorIs(id, adapter, false);
}

void Demuxer::handleAnnounced(Entity::MoxNboAttrLogSa& adapter) {
  adapter.flagsIs(writingOn, true);
  settleFlags(adapter);
  wakeBlocked();
}

void Demuxer::wakeBlocked() {
  for (auto const& blocked : std::exchange(blocked_, {})) unpark(**blocked);
}

void Demuxer::retire(Entity::MoxNboAttrLogSa& adapter) {
  if (adapter.retired_) return;
  Ptr<Entity::MoxNboAttrLogSa> hold(&adapter);
  adapter.retired_ = true;
  adapter.flagsIs(writingOff, true);
  adapter.flagsIs(writingOn, false);
  adapter.moxDoZombieReactors(true);
  adapter.notifierIs(Ptr<PtrInterface const>());
  flowOutDel(adapter);
  if (adapter.hold_) {
    adapter.hold_ = false;
    --holds_;
  }
  if (reactor(adapter.entityId()) == &adapter) {
    flowInDel(adapter.entityId());
    reactorDel(adapter.entityId());
  }
  // Its own handler may be on the stack.
  graveyard_.push_back(hold);
}

void Demuxer::settleFlags(Entity::MoxNboAttrLogSa& adapter) {
  adapter.flagsIs(noFlowOut, adapter.flowOut() == nullptr);
  adapter.flagsIs(needsNoCreation, true);
  adapter.flagsIs(deferAll, adapter.hold_);
  adapter.flagsIs(writingOff, adapter.retired_ || mode_ == Mode::closed);
}

void Demuxer::checkEphemeralEntityDeletion(Entity* child, EntityId const& id, bool) {
  if (child == nullptr) return;
  Ptr<Entity::MoxNboAttrLogSa> adapter = child->moxNboAttrLogSa(Ptr<Out const>(out_));
  if (adapter && adapter->entityId() != id) retire(**adapter);
}

// Flow-out.

FlowOut* Demuxer::createFlowOut(Entity::MoxNboAttrLogSa& adapter, ConnectDesc const& desc,
                                bool full, AttributeId start) {
  if (mode_ != Mode::running || adapter.retired_) return nullptr;
  if (adapter.flowOut_) flowOutDel(adapter);
  adapter.flowOut_ = adapter.flowOutIs(out_, desc, full, start);
  adapter.flowOut_->bornMs_ = nowMs_;
  adapter.flagsIs(noFlowOut, false);
  adapter.parked_ = false;
  if (!full && !adapter.hold_) {
    adapter.queued_ = true;
    quick_.emplace_back(&adapter);
  }
  return adapter.flowOut_.get();
}

LinkDebt Demuxer::debt() const {
  LinkDebt debt;
  for (auto reactor = reactors_.iteratorConst(); reactor; ++reactor) {
    Entity::MoxNboAttrLogSa const& adapter = **reactor->value();
    if (!adapter.flowOut_) continue;
    FlowOut& flowOut = **adapter.flowOut_;
    ++debt.entities;
    debt.oldestMs = std::max(debt.oldestMs, nowMs_ - flowOut.bornMs());
    for (TypeRows const* rows = &adapter.rows(); rows != nullptr; rows = rows->base) {
      for (AttrRow const& row : *rows) {
        debt.attributes += row.owesItself(flowOut) ? 1 : 0;
        debt.keys += row.owedKeys(flowOut);
      }
    }
  }
  return debt;
}

void Demuxer::flowOutDel(Entity::MoxNboAttrLogSa& adapter) {
  if (Ptr<FlowOut> flowOut = adapter.flowOut_) {
    adapter.freeResyncState(flowOut);
    adapter.flowOut_ = nullptr;
  }
  adapter.flagsIs(noFlowOut, true);
  adapter.queued_ = false;
}

void Demuxer::transferIs(Entity::MoxNboAttrLogSa& adapter) {
  if (adapter.retired_ || adapter.fullStarted_ || mode_ != Mode::running ||
      adapter.origin_ == StreamAdapter::Origin::bound ||
      adapter.origin_ == StreamAdapter::Origin::importedOrphan) {
    return;
  }
  createFlowOut(adapter, ConnectDesc(), true, 0);
  adapter.fullStarted_ = true;
  adapter.queued_ = true;
  if (!inRun()) {
    bulk_.emplace_back(&adapter);
  } else if (continueFlowOut()) {
    runOne(adapter);
  } else {
    stopped_.emplace_back(&adapter);
  }
}

bool Demuxer::continueFlowOut() {
  bool const room = out_->freeSpace() >= runRoom;
  if (!inRun()) return room;
  if (!room || out_->bytesWritten() - runStart_ >= runBudget) runStopped_ = true;
  return !runStopped_;
}

void Demuxer::unpark(Entity::MoxNboAttrLogSa& adapter) {
  if (!adapter.parked_ || !adapter.flowOut_) return;
  adapter.parked_ = false;
  adapter.queued_ = true;
  if (adapter.flowOut_->isFull()) {
    bulk_.emplace_back(&adapter);
  } else {
    quick_.emplace_back(&adapter);
  }
}

void Demuxer::runFlowOuts(std::function<void()> const& flush) {
  out_->withheldIs(0);
  flush();
  exportWaiting();
  while (hasWaitingFlowOut() && mode_ == Mode::running && out_->freeSpace() >= runRoom) {
    if (!quick_.empty()) {
      Ptr<Entity::MoxNboAttrLogSa> adapter = quick_.front();
      quick_.pop_front();
      runOne(**adapter);
      flush();
    }
    if (!bulk_.empty() && mode_ == Mode::running && out_->freeSpace() >= runRoom) {
      Ptr<Entity::MoxNboAttrLogSa> adapter = bulk_.back();
      bulk_.pop_back();
      runOne(**adapter);
      flush();
    }
    exportWaiting();
  }
  // Hot attributes of entities in step must not starve those that wait.
  out_->withheldIs(hasWaitingFlowOut() ? queueReserve : 0);
}

bool Demuxer::runOne(Entity::MoxNboAttrLogSa& adapter) {
  if (!adapter.queued_) return false;
  adapter.queued_ = false;
  Ptr<FlowOut> const flowOut = adapter.flowOut_;
  if (!flowOut || adapter.retired_ || adapter.hold_) return false;
  bool const outermost = runDepth_ == 0;
  if (outermost) {
    runStopped_ = false;
    runStart_ = out_->bytesWritten();
  }
  AttributeId const start = flowOut->resumeAt();
  std::uint64_t const framesBefore = stats_.framesSent;
  AttributeId result = 0;
  bool threw = false;
  ++runDepth_;
  try {
    result = adapter.handleAttrFlowOut(start);
  } catch (...) {
    threw = true;
    ++stats_.handlerExceptions;
  }
  --runDepth_;

  if (adapter.flowOut_ == flowOut && !adapter.retired_) {
    flowOut->runResultIs(result);
    bool const idle = result == 0 && start == 0 && stats_.framesSent == framesBefore;
    if (threw) {
      adapter.parked_ = true;
    } else if (flowOut->isBlocked()) {
      adapter.parked_ = true;
      blocked_.emplace_back(&adapter);
    } else {
      if (result == 0 && flowOut->isFull() && !flowOut->completeSent_) {
        flowOut->completeSent_ = true;
        sendComplete(adapter.entityId());
      }
      if (result == 0 && !flowOut->hasDirtyAttributes()) {
        flowOutDel(adapter);
      } else if (idle) {
        adapter.parked_ = true;
      } else {
        adapter.queued_ = true;
        stopped_.emplace_back(&adapter);
      }
    }
  }
  if (outermost) queueStopped();
  return true;
}

/// Those stopped in one run go back so that the deepest is on top: its parent waits for it.
void Demuxer::queueStopped() {
  for (auto adapter = stopped_.rbegin(); adapter != stopped_.rend(); ++adapter) {
    if (!(*adapter)->flowOut_) continue;
    if ((*adapter)->flowOut_->isFull()) {
      bulk_.push_back(*adapter);
    } else {
      quick_.push_back(*adapter);
    }
  }
  stopped_.clear();
}

void Demuxer::sendComplete(EntityId id) {
  MsgHeader header;
  header.entityId = id;
  out_->frameIs(FrameKind::complete, header);
  out_ << Out::TransactToken::tokenBegin << Out::TransactToken::tokenEnd;
}

std::uint8_t Demuxer::flagsOfCommitted(FrameKind kind, MsgHeader const& header) const {
  bool const announces = kind == FrameKind::message && (header.attributeId == orphanAttribute ||
                                                        header.instantiateTag == creationTag);
  return announces ? frameFullTransferFollows : 0;
}

void Demuxer::handleCommitted(FrameKind kind, MsgHeader const&) {
  ++stats_.framesSent;
  if (kind == FrameKind::message || kind == FrameKind::marker || kind == FrameKind::complete) {
    ++framesCommitted_;
  }
}

// Reading.

Ptr<FlowIn> Demuxer::flowIn(EntityId const& id) const {
  MoxFlowIn const* entry = flowIns_.size() != 0 ? flowIns_[id] : nullptr;
  return entry ? entry->value() : Ptr<FlowIn>();
}

Ptr<FlowIn> Demuxer::flowInIs(EntityId const& id) {
  if (Ptr<FlowIn> present = flowIn(id)) return present;
  Ptr<FlowIn> made(new FlowIn);
  EntityId key = id;
  flowIns_.newMemberG(Ptr<PtrInterface>(new MoxFlowIn(id, made)), &key);
  return made;
}

Ptr<FlowIn> Demuxer::flowInDel(EntityId const& id) {
  Ptr<MoxFlowIn> entry = flowIns_.size() != 0 ? flowIns_[id] : nullptr;
  if (!entry) return {};
  Ptr<FlowIn> flowIn = entry->value();
  flowIns_.deleteMember(entry);
  return flowIn;
}

void Demuxer::noteSlot(Entity::MoxNboAttrLogSa& adapter, std::function<void()> tell) {
  noted_.emplace_back(Ptr<Entity::MoxNboAttrLogSa>(&adapter), std::move(tell));
}

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
        dispatch(frame);
        if (observer_) observer_(frame);
      }
    } catch (StreamException const& refused) {
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

void Demuxer::dispatchGreeting(Greeting const& greeting) {
  if (greeting.schemaHash != options_.schemaHash && options_.schemaStrict) {
    throw StreamException(StreamError::badSchema);
  }
  peer_ = greeting;
  out_->peerMaxPayloadIs(greeting.maxPayload);
  mode_ = Mode::running;
  if (greeted_) greeted_();
  exportWaiting();
}

void Demuxer::dispatch(Frame const& frame) {
  if (frame.kind != FrameKind::ack && frame.kind != FrameKind::error) ++framesBegun_;
  // The peer's reason for ending is heard whatever else is wrong with it.
  if (frame.kind == FrameKind::error) return dispatchError(frame);
  // An ack counts upward and never beyond what was sent, modulo 2^32.
  if (frame.ack - peerAck_ > framesCommitted_ - peerAck_) {
    throw StreamException(StreamError::badAck);
  }
  peerAck_ = frame.ack;
  switch (frame.kind) {
    case FrameKind::message:
      if (frame.entityId == orphanTarget) {
        dispatchOrphan(frame);
      } else {
        dispatchMessage(frame);
      }
      break;
    case FrameKind::marker:
      dispatchMarker(frame);
      break;
    case FrameKind::complete:
      dispatchComplete(frame);
      break;
    case FrameKind::error:
    case FrameKind::ack:
      break;
  }
}

void Demuxer::dispatchMessage(Frame const& frame) {
  Ptr<Entity::MoxNboAttrLogSa> adapter(reactor(frame.entityId));
  if (!adapter) {
    ++stats_.strays;
    return;
  }
  if (adapter->hasFlag(readOnlyRemote)) throw StreamException(StreamError::notPermitted);
  if (AttrRow const* const row = adapter->rows().find(std::abs(frame.attributeId))) {
    bool const creates = row->ownsChildren() && frame.attributeId > 0;
    if (creates != (frame.instantiateTag == creationTag)) {
      throw StreamException(StreamError::badHeader);
    }
  } else if (frame.attributeId == syncAttribute && !adapter->hasFlag(notAuthority)) {
    throw StreamException(StreamError::notPermitted);
  }
  Ptr<Entity> entity = adapter->moxNotifierEntity();
  in_->payloadIs(frame.payload, frame.payloadSize);
  applied_ = false;
  frameStartsHold_ = frame.fullTransferFollows;
  try {
    ApplyingAnchor applying(applyingAdapter_, static_cast<StreamAdapter const*>(adapter.get()),
                            applyingAttribute_, std::abs(frame.attributeId));
    StreamAdapter::DeserializationOptions options;
    options.sequenceNumber = framesBegun_;
    options.flags = frame.fullTransferFollows ? frameFullTransferFollows : 0;
    adapter->handleAttrDeserialization(frame.attributeId, options,
                                       static_cast<unsigned int>(frame.payloadSize), Ptr<In>());
  } catch (StreamException const&) {
    throw;
  } catch (std::bad_alloc const&) {
    throw StreamException(StreamError::tooLong);
  } catch (std::exception const&) {
    // Behind the first setter only a subscriber's own exception handling can throw.
    if (!applied_) throw StreamException(StreamError::badValue);
    ++stats_.handlerExceptions;
  }
  frameStartsHold_ = false;
  tellNoted();
}

void Demuxer::dispatchMarker(Frame const& frame) {
  Ptr<Entity::MoxNboAttrLogSa> adapter(reactor(frame.entityId));
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
  Ptr<FlowIn> open = flowIn(frame.entityId);
  AttributeId const openTransaction = open ? open->openTransaction() : 0;
  bool const valueOpen = open && open->iter() != nullptr;
  bool permitted = false;
  using Type = StreamAdapter::AttrTransactionType;
  switch (static_cast<Type>(type)) {
    case Type::begin:
      permitted = row && row->isCollection() && openTransaction != frame.attributeId;
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
  try {
    ApplyingAnchor applying(applyingAdapter_, static_cast<StreamAdapter const*>(adapter.get()),
                            applyingAttribute_, frame.attributeId);
    adapter->handleAttrTransaction(frame.attributeId, static_cast<Type>(type), number);
  } catch (std::exception const&) {
    ++stats_.handlerExceptions;
  }
  tellNoted();
}

void Demuxer::tellNoted() {
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
    return;
  }
  Entity::MoxNboAttrLogSa* adapter = reactor(frame.entityId);
  if (adapter == nullptr) {
    ++stats_.strays;
    return;
  }
  if (adapter->hold_) {
    adapter->hold_ = false;
    --holds_;
    ++stats_.fullTransfersReceived;
  }
  settleFlags(*adapter);
  if (adapter->flowOut_ && !adapter->queued_) {
    adapter->queued_ = true;
    quick_.emplace_back(adapter);
  }
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

void Demuxer::dispatchOrphan(Frame const& frame) {
  using Section = Out::PayloadSection;
  in_->payloadIs(frame.payload, frame.payloadSize);
  if (frame.attributeId == -orphanAttribute) {
    EntityId const id = in_->nextEntityId();
    if (in_->bytesAvailable() != 0) throw StreamException(StreamError::badLength);
    if (!id.isUnified()) throw StreamException(StreamError::badId);
    Ptr<Entity::MoxNboAttrLogSa> const adapter(reactor(id));
    if (!adapter) {
      ++stats_.strays;
      return;
    }
    if (adapter->origin_ != StreamAdapter::Origin::importedOrphan) {
      throw StreamException(StreamError::badOrphan);
    }
    adapter->doRemountSelf(Ptr<Out>());
    return;
  }
  if (frame.attributeId != orphanAttribute) throw StreamException(StreamError::badOrphan);

  auto const section = [this](Section wanted, auto const& read) {
    if (static_cast<Section>(in_->nextU8()) != wanted)
      throw StreamException(StreamError::badOrphan);
    std::size_t const size = in_->nextU32();
    unsigned char const* const end = in_->endMark();
    if (size > in_->bytesAvailable()) throw StreamException(StreamError::badOrphan);
    in_->endMarkIs(in_->position() + size);
    unsigned char const* const next = in_->endMark();
    read();
    in_->endMarkIs(end);
    in_->positionIs(next);
  };
  MoxType const* type = nullptr;
  section(Section::typeSection, [&] { type = MoxType::typeNode(Name(in_->nextString())); });
  if (importDir_ == nullptr || type == nullptr || !type->isRootType()) {
    ++stats_.refusedOrphans;
    return;
  }
  Ptr<Entity> root;
  section(Section::constructorSection, [&] {
    try {
      root = type->newEntity(in_, PtrInterface::NotifieeConst::Mox_BitSet(rootFlags(false)), 1,
                             nullptr);
    } catch (Exception const&) {
      throw StreamException(StreamError::badValue);
    }
    if (in_->bytesAvailable() != 0) throw StreamException(StreamError::badOrphan);
  });
  EntityId id;
  section(Section::identitySection, [&] { id = in_->nextEntityId(); });
  if (in_->bytesAvailable() != 0) throw StreamException(StreamError::badOrphan);
  if (!id.isUnified() || id == orphanTarget || reactor(id) != nullptr) {
    throw StreamException(StreamError::badId);
  }

  if (Ptr<Dir::Entry> const entry = importDir_->entry(root->name())) {
    Ptr<Entity> const present = entry->target();
    bool const elsewhere = bool(present->moxNboAttrLogSa(Ptr<Out const>()));
    if (present->fwkType() != type || elsewhere) {
      ++stats_.refusedOrphans;
      return;
    }
    root = present;
  } else {
    importDir_->entryIs(root->name(), root);
  }
  Ptr<Entity::MoxNboAttrLogSa> adapter = root->moxNboAttrLogSaIs(
      PtrInterface::NotifieeConst::Mox_BitSet(rootFlags(false)), 1, out_, nullptr);
  adapter->originIs(StreamAdapter::Origin::importedOrphan);
  frameStartsHold_ = frame.fullTransferFollows;
  reactorIs(id, **adapter, true);
  frameStartsHold_ = false;
}

// Roots.

std::uint32_t Demuxer::rootFlags(bool exported) const {
  bool const writable = exported ? options_.grantsWrite && (peer_.bits & Greeting::wantsWrite) != 0
                                 : options_.wantsWrite && (peer_.bits & Greeting::grantsWrite) != 0;
  std::uint32_t flags = weakReference;
  if (exported) {
    if (!writable) flags |= readOnlyRemote;
  } else {
    flags |= notAuthority;
    if (!writable) flags |= readOnlyHere;
  }
  return flags;
}

void Demuxer::exportIs(Ptr<Entity> const& root) {
  exportsWaiting_.push_back(root);
  exportWaiting();
}

void Demuxer::exportWaiting() {
  while (mode_ == Mode::running && !exportsWaiting_.empty() && out_->freeSpace() >= runRoom) {
    Ptr<Entity> root = exportsWaiting_.front();
    exportsWaiting_.pop_front();
    if (root->moxNboAttrLogSa(Ptr<Out const>(out_))) continue;
    Ptr<Entity::MoxNboAttrLogSa> adapter = root->moxNboAttrLogSaIs(
        PtrInterface::NotifieeConst::Mox_BitSet(rootFlags(true)), 1, out_, nullptr);
    adapter->originIs(StreamAdapter::Origin::exportedOrphan);
    adapter->moxOnInit();
    adapter->doSerializeOrphan();
  }
  if (exportsDoneOwed_ && mode_ == Mode::running && exportsWaiting_.empty()) {
    exportsDoneOwed_ = false;
    sendComplete(orphanTarget);
  }
}

void Demuxer::exportDel(Ptr<Entity> const& root) {
  exportsWaiting_.erase(std::remove(exportsWaiting_.begin(), exportsWaiting_.end(), root),
                        exportsWaiting_.end());
  Ptr<Entity::MoxNboAttrLogSa> adapter = root->moxNboAttrLogSa(Ptr<Out const>(out_));
  if (!adapter || adapter->origin() != StreamAdapter::Origin::exportedOrphan) return;
  EntityId const id = adapter->entityId();
  adapter->doRemountSelf(Ptr<Out>());
  MsgHeader header;
  header.entityId = orphanTarget;
  header.attributeId = -orphanAttribute;
  out_->nextHeaderIs(header);
  out_ << Out::TransactToken::tokenBegin << id << Out::TransactToken::tokenEnd;
}

void Demuxer::exportsDone() {
  exportsDoneOwed_ = true;
  exportWaiting();
}

bool Demuxer::inStep() const { return mode_ == Mode::running && peerExportsDone_ && holds_ == 0; }

// Life.

void Demuxer::begin() {
  Greeting greeting;
  greeting.bits = Greeting::unifiedIds | Greeting::exports | Greeting::imports;
  if (options_.grantsWrite) greeting.bits |= Greeting::grantsWrite;
  if (options_.wantsWrite) greeting.bits |= Greeting::wantsWrite;
  greeting.schemaHash = options_.schemaHash;
  greeting.nonce = newEntityId().value();
  greeting.peerName = options_.name;
  std::string const bytes = greeting.bytes();
  out_->rawIs(bytes.data(), bytes.size());
}

void Demuxer::errorIs(StreamError code, std::string const& text) {
  if (errorCode_ != StreamError::none || mode_ == Mode::closed) return;
  errorCode_ = code;
  error_ = text;
  if (mode_ != Mode::running) return;
  MsgHeader header;
  header.attributeId = static_cast<AttributeId>(code);
  out_->frameIs(FrameKind::error, header);
  out_ << Out::TransactToken::tokenBegin << String8(text.c_str()) << Out::TransactToken::tokenEnd;
}

void Demuxer::close() {
  mode_ = Mode::closed;
  std::vector<Ptr<Entity::MoxNboAttrLogSa>> adapters;
  for (HashMap<MoxReactor, EntityId, Ptr<Entity::MoxNboAttrLogSa>>::Iterator entry(&reactors_);
       entry; ++entry) {
    adapters.push_back(entry->value());
  }
  for (auto const& adapter : adapters) retire(**adapter);
  quick_.clear();
  bulk_.clear();
  stopped_.clear();
  blocked_.clear();
  noted_.clear();
  flowIns_.emptyAllBuckets();
  exportsWaiting_.clear();
  out_->close();
  in_->close();
  globalNboAttrLogDemuxerManager().demuxerDel(this);
}

void DemuxerManager::demuxerIs(Demuxer* demuxer) { demuxers_.push_back(demuxer); }

void DemuxerManager::demuxerDel(Demuxer* demuxer) {
  demuxers_.erase(std::remove(demuxers_.begin(), demuxers_.end(), demuxer), demuxers_.end());
}

std::vector<Ptr<Demuxer>> DemuxerManager::nboDemuxerIterator() const {
  return {demuxers_.begin(), demuxers_.end()};
}

DemuxerManager& globalNboAttrLogDemuxerManager() {
  static DemuxerManager manager;
  return manager;
}

}  // namespace Mox::NboAttrLog
