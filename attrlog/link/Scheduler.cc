// The scheduler of flow-outs: which adapter runs next, how far, and what becomes of it then; and
// what is noted of every frame that goes out.
#include <algorithm>

#include "attrlog/adapter/Rows.h"
#include "attrlog/link/Demuxer.h"

namespace Mox::NboAttrLog {

FlowOut* Demuxer::createFlowOut(Sa& adapter, ConnectDesc const& desc, bool full,
                                AttributeId start) {
  if (mode_ != Mode::running || adapter.retired_) return nullptr;
  if (adapter.flowOut_) flowOutDel(adapter);
  adapter.flowOut_ = adapter.flowOutIs(out_, desc, full, start);
  adapter.flowOut_->owedSinceMs_ = adapter.flowOut_->walkBeganMs_ = nowMs_;
  ++flowOutCount_;
  adapter.flagsIs(noFlowOut, false);
  if (!full && !adapter.hold_) queue(adapter);
  return adapter.flowOut_.get();
}

LinkDebt Demuxer::debt() const {
  LinkDebt debt;
  for (auto reactor = reactors_.iteratorConst(); reactor; ++reactor) {
    Sa const& adapter = **reactor;
    if (!adapter.flowOut_) continue;
    FlowOut& flowOut = **adapter.flowOut_;
    ++debt.entities;
    debt.oldestMs = std::max(debt.oldestMs, nowMs_ - flowOut.owedSinceMs());
    for (TypeRows const* rows = &adapter.rows(); rows != nullptr; rows = rows->base) {
      for (AttrRow const& row : *rows) {
        debt.attributes += row.owesItself(flowOut) ? 1 : 0;
        debt.keys += row.owedKeys(flowOut);
      }
    }
  }
  return debt;
}

void Demuxer::flowOutDel(Sa& adapter) {
  if (Ptr<FlowOut> flowOut = adapter.flowOut_) {
    adapter.freeResyncState(flowOut);
    adapter.flowOut_ = nullptr;
    --flowOutCount_;
  }
  parkedIs(adapter, false);
  adapter.flagsIs(noFlowOut, true);
  adapter.queued_ = false;
}

void Demuxer::transferIs(Sa& adapter) {
  if (adapter.retired_ || adapter.fullStarted_ || mode_ != Mode::running ||
      adapter.origin_ == StreamAdapter::Origin::bound ||
      adapter.origin_ == StreamAdapter::Origin::importedOrphan) {
    return;
  }
  createFlowOut(adapter, ConnectDesc(), true, 0);
  adapter.fullStarted_ = true;
  adapter.queued_ = true;
  turnIsWanted();
  if (!inRun() || onlyQueueTransfers_) {
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

void Demuxer::queue(Sa& adapter) {
  adapter.queued_ = true;
  turnIsWanted();
  if (adapter.flowOut_->isFull()) {
    bulk_.emplace_back(&adapter);
  } else {
    quick_.emplace_back(&adapter);
  }
}

void Demuxer::parkedIs(Sa& adapter, bool parked) {
  if (adapter.parked_ == parked) return;
  adapter.parked_ = parked;
  parkedCount_ = parked ? parkedCount_ + 1 : parkedCount_ - 1;
}

void Demuxer::unpark(Sa& adapter) {
  if (!adapter.parked_) return;
  parkedIs(adapter, false);
  queue(adapter);
}

void Demuxer::blockedIs(Sa& adapter) {
  blockedDel(adapter);
  adapter.blockedOn_ = std::exchange(unavailable_, nullptr);
  if (adapter.blockedOn_ != nullptr) blocked_.emplace(adapter.blockedOn_, &adapter);
}

void Demuxer::blockedDel(Sa& adapter) {
  auto const [begin, end] = blocked_.equal_range(std::exchange(adapter.blockedOn_, nullptr));
  for (auto at = begin; at != end; ++at) {
    if (at->second != &adapter) continue;
    blocked_.erase(at);
    return;
  }
}

void Demuxer::wake(Entity const* target) {
  for (auto at = blocked_.find(target); at != blocked_.end(); at = blocked_.find(target)) {
    Sa& adapter = *at->second;
    blocked_.erase(at);
    adapter.blockedOn_ = nullptr;
    unpark(adapter);
  }
}

void Demuxer::wakeAll() {
  while (!blocked_.empty()) wake(blocked_.begin()->first);
}

void Demuxer::runFlowOuts(std::function<void()> const& flush) {
  dropStaleShelved();
  out_->withheldIs(0);
  flush();
  sendRepeats();
  exportWaiting();
  while (hasWaitingFlowOut() && mode_ == Mode::running && out_->freeSpace() >= runRoom) {
    if (!quick_.empty()) {
      Ptr<Sa> adapter = quick_.front();
      quick_.pop_front();
      runOne(**adapter);
      flush();
    }
    if (!bulk_.empty() && mode_ == Mode::running && out_->freeSpace() >= runRoom) {
      Ptr<Sa> adapter = bulk_.back();
      bulk_.pop_back();
      runOne(**adapter);
      flush();
    }
    exportWaiting();
  }
  settleGone();
  sendAck();
  // Hot attributes of entities in step must not starve those that wait.
  out_->withheldIs(hasWaitingFlowOut() ? queueReserve : 0);
}

bool Demuxer::runOne(Sa& adapter) {
  if (!adapter.queued_) return false;
  adapter.queued_ = false;
  Ptr<FlowOut> const flowOut = adapter.flowOut_;
  if (!flowOut || adapter.retired_ || adapter.hold_) return false;
  if (adapter.blockedOn_ != nullptr) blockedDel(adapter);
  bool const outermost = runDepth_ == 0;
  if (outermost) {
    runStopped_ = false;
    runStart_ = out_->bytesWritten();
  }
  AttributeId const start = flowOut->resumeAt();
  if (start == 0) flowOut->walkBeganMs_ = nowMs_;
  std::uint64_t const framesBefore = stats_.framesSent;
  AttributeId result = 0;
  bool threw = false;
  ++runDepth_;
  try {
    result = adapter.handleAttrFlowOut(start);
  } catch (std::exception const& failure) {
    threw = true;
    ++stats_.handlerExceptions;
    report("can't send " + placeText(adapter, flowOut->attrId()) + ": " + failure.what());
  }
  --runDepth_;

  if (adapter.flowOut_ == flowOut && !adapter.retired_) {
    flowOut->runResultIs(result);
    bool const idle = result == 0 && start == 0 && stats_.framesSent == framesBefore;
    if (threw || flowOut->isBlocked()) {
      parkedIs(adapter, true);
    } else {
      if (result == 0 && flowOut->isFull() && !flowOut->completeSent_) {
        flowOut->completeSent_ = true;
        sendComplete(adapter.entityId());
      }
      // What a whole walk leaves was marked while it went on.
      if (result == 0) flowOut->owedSinceMs_ = flowOut->walkBeganMs_;
      if (result == 0 && !flowOut->hasDirtyAttributes()) {
        flowOutDel(adapter);
      } else if (idle) {
        parkedIs(adapter, true);
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
    if ((*adapter)->queued_) queue(***adapter);
  }
  stopped_.clear();
}

void Demuxer::sendComplete(EntityId id) {
  MsgHeader header;
  header.entityId = id;
  out_->frameIs(FrameKind::complete, header);
  out_ << Out::TransactToken::tokenBegin << Out::TransactToken::tokenEnd;
}

bool Demuxer::owesAck() const { return mode_ == Mode::running && ackSent_ != framesBegun_; }

std::optional<std::uint64_t> Demuxer::ackDueMs() const {
  // Without room, what makes room calls.
  return owesAck() && out_->freeSpace() >= runReserve ? ackDueMs_ : std::nullopt;
}

/// Where nothing else says how far this end has got, an ack frame does. A frame for each turn would
/// wake a peer that waits for nothing. Of an end that only listens the peer keeps nothing but the
/// ids of what has gone, which it might name in its first frame: it takes its time.
void Demuxer::sendAck() {
  if (!owesAck()) {
    ackDueMs_.reset();
    return;
  }
  bool const listens = !mayWrite() && framesCommitted_ == 0;
  if (!ackDueMs_) ackDueMs_ = nowMs_ + (listens ? listenerAckDelayMs : options_.ackDelayMs);
  bool const isDue =
      nowMs_ >= *ackDueMs_ ||
      framesBegun_ - ackSent_ >= (listens ? mostUnacknowledgedByListener : mostUnacknowledged);
  if (!isDue || out_->freeSpace() < runReserve) return;
  ackDueMs_.reset();
  MsgHeader header;
  header.isVariableLength = false;
  out_->frameIs(FrameKind::ack, header);
  out_ << Out::TransactToken::tokenBegin << Out::TransactToken::tokenEnd;
}

/// What the peer writes about the slot before it has seen this frame is void. During an entity's
/// first transfer the peer writes nothing about it.
void Demuxer::noteSent(MsgHeader const& header, unsigned char const* payload, std::size_t size) {
  Sa const* adapter = reactor(header.entityId);
  if (adapter == nullptr || !isAuthority(*adapter)) return;
  if (FlowOut const* flowOut = adapter->flowOut_.get()) {
    if (flowOut->isFull() && !flowOut->completeSent_) return;
  }
  AttributeId const attribute = std::abs(header.attributeId);
  if (AttrRow const* row = adapter->rows().find(attribute)) {
    slots_.sent(header.entityId, attribute, row->keyOf(payload, size), framesCommitted_);
  }
}

}  // namespace Mox::NboAttrLog
