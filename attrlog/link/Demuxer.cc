// The table of reactors, and a connection's life from greeting to close. Reading stands in
// Dispatch.cc, flow-outs in Scheduler.cc, roots and references in Roots.cc.
#include "attrlog/link/Demuxer.h"

#include <algorithm>

#include "Mox/NboAttrLogFlow.h"
#include "attrlog/adapter/EntityIds.h"
#include "attrlog/adapter/Rows.h"
#include "registry/MoxType.h"

namespace Mox::NboAttrLog {

Demuxer::Demuxer(LinkOptions const& options)
    : options_(options), out_(new Out(this, options.outCapacity)), in_(new In(this)) {
  globalNboAttrLogDemuxerManager().demuxerIs(this);
}

Demuxer::~Demuxer() {
  if (mode_ != Mode::closed) close();
}

// Ids and adapters.

void Demuxer::reactorsVisit(std::function<void(Sa const&)> const& visit) const {
  for (auto adapter = reactors_.iteratorConst(); adapter; ++adapter) visit(**adapter);
}

Ptr<Entity> Demuxer::entity(EntityId id) const {
  Sa* adapter = reactor(id);
  return adapter && adapter->hasFlag(writingOn) ? adapter->moxNotifierEntity() : Ptr<Entity>();
}

Demuxer::Naming Demuxer::naming(EntityId id) const {
  if (entity(id)) return Naming::known;
  if (refused_.contains(id.value())) return Naming::refused;
  return gone_.contains(id.value()) ? Naming::gone : Naming::unknown;
}

Ptr<Demuxer::Sa> Demuxer::reactorDel(EntityId const& id) {
  Ptr<Sa> const adapter(reactor(id));
  if (adapter) reactors_.deleteMember(adapter);
  return adapter;
}

void Demuxer::reactorIs(EntityId id, Sa& adapter, bool bound) {
  Ptr<Sa> hold(&adapter);
  if (adapter.entityId() != id) {
    if (reactor(adapter.entityId()) == &adapter) {
      // An equal child came under another id: what was open or owed under the old one is void.
      flowOutDel(adapter);
      transactionDrop(adapter);
      reactorDel(adapter.entityId());
      goneIs(adapter.entityId());
      holdIs(adapter, false);
    }
    adapter.entityIdIs(id);
  }
  if (reactor(id) != &adapter) {
    if (Sa* other = reactor(id)) retire(*other);
    reactors_.newMember(hold);
  }
  if (bound) {
    if (adapter.origin_ != StreamAdapter::Origin::importedOrphan) {
      adapter.origin_ = StreamAdapter::Origin::bound;
    }
    adapter.fullStarted_ = false;
    adapter.flagsIs(writingOn, true);
    if (frameStartsHold_) holdIs(adapter, true);
  }
  settleFlags(adapter);
  if (bound) wake(adapter.rawEntity());
}

void Demuxer::assignEntityId(Sa& adapter) {
  Ptr<Entity> entity = adapter.moxNotifierEntity();
  MsgChannel::Constrainer& brought = MsgChannel::constrainer();
  EntityId id;
  if (brought.deserializingEid && entity->parent().get() == brought.deserializingInParent) {
    id = brought.deserializingEid;
  } else if (Ptr<Sa> other = entity->moxNboAttrLogSa(Ptr<Out const>())) {
    if (other.get() != &adapter) id = other->entityId();
  }
  if (!id || reactor(id) != nullptr || gone_.contains(id.value())) id = newEntityId();
  reactorIs(id, adapter, false);
}

void Demuxer::handleAnnounced(Sa& adapter) {
  adapter.flagsIs(writingOn, true);
  settleFlags(adapter);
  wake(adapter.rawEntity());
}

void Demuxer::retire(Sa& adapter) {
  if (adapter.retired_) return;
  Ptr<Sa> hold(&adapter);
  EntityId const id = adapter.entityId();
  bool const isInTable = reactor(id) == &adapter;
  if (isInTable && adapter.hasFlag(writingOn)) {
    goneIs(id);
    if (adapter.origin_ == StreamAdapter::Origin::exportedOrphan && mode_ == Mode::running) {
      withdrawalsOwed_.push_back(id);
      turnIsWanted();
    }
  }
  if (isInTable) transactionDrop(adapter);
  adapter.retired_ = true;
  adapter.flagsIs(writingOff, true);
  adapter.flagsIs(writingOn, false);
  adapter.moxDoZombieReactors(true);
  adapter.notifierIs(Ptr<PtrInterface const>());
  flowOutDel(adapter);
  blockedDel(adapter);
  holdIs(adapter, false);
  if (isInTable) reactorDel(id);
  // Its own handler may be on the stack.
  graveyard_.push_back(hold);
}

void Demuxer::settleFlags(Sa& adapter) {
  adapter.flagsIs(noFlowOut, adapter.flowOut() == nullptr);
  adapter.flagsIs(needsNoCreation, true);
  adapter.flagsIs(deferAll, adapter.hold_);
  adapter.flagsIs(writingOff, adapter.retired_ || mode_ == Mode::closed);
}

void Demuxer::holdIs(Sa& adapter, bool hold) {
  if (adapter.hold_ == hold) return;
  adapter.hold_ = hold;
  holds_ = hold ? holds_ + 1 : holds_ - 1;
}

void Demuxer::checkEphemeralEntityDeletion(Entity* child, EntityId const& id, bool) {
  if (child == nullptr) return;
  Ptr<Sa> adapter = child->moxNboAttrLogSa(Ptr<Out const>(out_));
  if (adapter && adapter->entityId() != id) retire(**adapter);
}

// Values in pieces and open transactions.

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

/// What is open on an adapter that goes: a value in pieces, a transaction.
void Demuxer::transactionDrop(Sa& adapter) {
  flowInDel(adapter.entityId());
  Ptr<Entity> const entity = adapter.moxNotifierEntity();
  // A change of the sync mode opens transactions without a marker and without a FlowIn.
  if (!entity || Marks::openCount() == 0) return;
  for (TypeRows const* type = &adapter.rows(); type != nullptr; type = type->base) {
    for (AttrRow const& row : *type) {
      if (row.isCollection()) Marks::drop(**entity, row, this);
    }
  }
}

Ptr<FlowIn> Demuxer::flowInDel(EntityId const& id) {
  Ptr<MoxFlowIn> entry = flowIns_.size() != 0 ? flowIns_[id] : nullptr;
  if (!entry) return {};
  Ptr<FlowIn> flowIn = entry->value();
  flowIns_.deleteMember(entry);
  return flowIn;
}

void Demuxer::openValueDel(EntityId const& id, AttributeId attribute) {
  Ptr<FlowIn> const open = flowIn(id);
  if (!open) return;
  moxFlowInIteratorDel<String8::Iterator>(open.get(), attribute);
  moxFlowInIdxDeq<String8>(open.get());
  if (open->openTransaction() == 0) flowInDel(id);
}

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

void Demuxer::wake() {
  isWakerArmed_ = false;
  if (wake_) wake_();
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
  if (mayWrite()) stats_.undelivered = framesCommitted_ - peerAck_;
  mode_ = Mode::closed;
  std::vector<Ptr<Sa>> adapters;
  for (auto adapter = reactors_.iterator(); adapter; ++adapter) adapters.push_back(adapter.ptr());
  for (auto const& adapter : adapters) {
    Ptr<Entity> const entity = adapter->moxNotifierEntity();
    bool const isAnnounced = adapter->origin_ == StreamAdapter::Origin::exportedOrphan;
    if (mayWrite() && isAnnounced && entity && !entity->fwkType()->isRootType()) {
      imports_->lend(peerName(), entity);
    }
    retire(**adapter);
  }
  imports_->staleIs(this);
  quick_.clear();
  bulk_.clear();
  stopped_.clear();
  blocked_.clear();
  noted_.clear();
  flowIns_.emptyAllBuckets();
  exportsWaiting_.clear();
  withdrawalsOwed_.clear();
  repeatsOwed_.clear();
  refused_.clear();
  gone_.clear();
  gonePending_.clear();
  goneTold_.clear();
  slots_ = SlotTable();
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
