// Queues, runs, and the lives of adapters.
#include "attrlog/adapter/FlowScheduler.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "attrlog/adapter/AdapterHost.h"
#include "attrlog/adapter/Rows.h"

namespace Mox::NboAttrLog {

using Life = StreamAdapter::Life;

namespace {

bool isParked(Life life) { return life == Life::parked || life == Life::blocked; }

}  // namespace

// Lives.

/// The one place where a life changes.
void FlowScheduler::lifeIs(Sa& adapter, Life life) {
  Life const before = adapter.life();
  if (before == life) return;
  if (before == Life::blocked) blockedDel(adapter);
  if (life == Life::blocked) {
    adapter.flowOut()->blockedOnIs(std::exchange(blockedOn_, nullptr));
    blocked_.emplace(adapter.flowOut()->blockedOn(), &adapter);
  }
  heldCount_ += static_cast<std::size_t>(life == Life::held);
  heldCount_ -= static_cast<std::size_t>(before == Life::held);
  parkedCount_ += static_cast<std::size_t>(isParked(life));
  parkedCount_ -= static_cast<std::size_t>(isParked(before));
  adapter.moxLifeIs(life);
}

void FlowScheduler::blockedDel(Sa& adapter) {
  auto const [begin, end] = blocked_.equal_range(adapter.flowOut()->blockedOn());
  auto const at =
      std::find_if(begin, end, [&](auto const& entry) { return entry.second == &adapter; });
  if (at != end) blocked_.erase(at);
}

void FlowScheduler::announcedIs(Sa& adapter) {
  if (adapter.life() == Life::unannounced) lifeIs(adapter, Life::inStep);
}

void FlowScheduler::holdIs(Sa& adapter) { lifeIs(adapter, Life::held); }

void FlowScheduler::holdEnd(Sa& adapter) {
  if (adapter.life() != Life::held) return;
  lifeIs(adapter, adapter.flowOut() ? Life::owing : Life::inStep);
  if (adapter.flowOut()) queue(adapter);
}

void FlowScheduler::flowOutDel(Sa& adapter) {
  if (adapter.life() == Life::owing || isParked(adapter.life())) lifeIs(adapter, Life::inStep);
  if (Ptr<FlowOut> const flowOut{adapter.flowOut()}) {
    adapter.freeResyncState(flowOut);
    adapter.moxFlowOutIs(Ptr<FlowOut>());
    --flowOutCount_;
  }
}

void FlowScheduler::unannounce(Sa& adapter) {
  flowOutDel(adapter);
  lifeIs(adapter, Life::unannounced);
}

void FlowScheduler::retire(Sa& adapter) {
  flowOutDel(adapter);
  lifeIs(adapter, Life::retired);
}

// Flow-outs.

FlowOut* FlowScheduler::createFlowOut(Sa& adapter, ConnectDesc const& desc, bool full,
                                      AttributeId start) {
  if (!host_.isRunning() || !adapter.isAnnounced()) return nullptr;
  flowOutDel(adapter);
  Ptr<FlowOut> const made = adapter.flowOutIs(host_.out, desc, full, start);
  made->owedSinceMsIs(host_.nowMs);
  made->walkBeganMsIs(host_.nowMs);
  adapter.moxFlowOutIs(made);
  ++flowOutCount_;
  if (adapter.life() != Life::held) {
    lifeIs(adapter, Life::owing);
    if (!full) queue(adapter);
  }
  return made.get();
}

void FlowScheduler::transferIs(Sa& adapter) {
  if (!host_.isRunning() || !adapter.isAnnounced() || adapter.isTransferBegun() ||
      adapter.origin() == StreamAdapter::Origin::bound ||
      adapter.origin() == StreamAdapter::Origin::importedOrphan) {
    return;
  }
  createFlowOut(adapter, ConnectDesc(), true, 0);
  adapter.isTransferBegunIs(true);
  host_.waker.wake();
  if (!inRun() || onlyQueues_) {
    queue(adapter);
  } else if (continueFlowOut()) {
    runOne(adapter);
  } else {
    stopped_.emplace_back(&adapter);
  }
}

bool FlowScheduler::continueFlowOut() {
  bool const room = host_.out->freeSpace() >= runRoom;
  if (!inRun()) return room;
  if (!room || host_.out->bytesWritten() - runStart_ >= runBudget) isRunStopped_ = true;
  return !isRunStopped_;
}

void FlowScheduler::queue(Sa& adapter) {
  host_.waker.wake();
  if (adapter.flowOut()->isFull()) {
    bulk_.emplace_back(&adapter);
  } else {
    quick_.emplace_back(&adapter);
  }
}

void FlowScheduler::unpark(Sa& adapter) {
  if (!isParked(adapter.life())) return;
  lifeIs(adapter, Life::owing);
  queue(adapter);
}

void FlowScheduler::wake(Entity const* target) {
  for (auto at = blocked_.find(target); at != blocked_.end(); at = blocked_.find(target)) {
    unpark(*at->second);
  }
}

void FlowScheduler::wakeAll() {
  while (!blocked_.empty()) unpark(*blocked_.begin()->second);
}

// Turns.

void FlowScheduler::run(std::function<void()> const& between) {
  auto const mayRun = [this] { return host_.isRunning() && host_.out->freeSpace() >= runRoom; };
  while (hasWaiting() && mayRun()) {
    if (!quick_.empty()) {
      Ptr<Sa> const adapter = quick_.front();
      quick_.pop_front();
      runOne(**adapter);
      between();
    }
    if (!bulk_.empty() && mayRun()) {
      Ptr<Sa> const adapter = bulk_.back();
      bulk_.pop_back();
      runOne(**adapter);
      between();
    }
  }
}

/// One run of one adapter, from where its last one stopped. False: there was nothing to run.
bool FlowScheduler::runOne(Sa& adapter) {
  if (adapter.life() != Life::owing) return false;
  Ptr<FlowOut> const flowOut(adapter.flowOut());
  bool const isOutermost = runDepth_ == 0;
  if (isOutermost) {
    isRunStopped_ = false;
    runStart_ = host_.out->bytesWritten();
  }
  AttributeId const start = flowOut->resumeAt();
  if (start == 0) flowOut->walkBeganMsIs(host_.nowMs);
  std::uint64_t const framesBefore = host_.exchange.framesSent();
  AttributeId result = 0;
  bool threw = false;
  ++runDepth_;
  try {
    result = adapter.handleAttrFlowOut(start);
  } catch (std::exception const& failure) {
    threw = true;
    ++host_.stats.handlerExceptions;
    host_.report("can't send " + placeText(adapter, flowOut->attrId()) + ": " + failure.what());
  }
  --runDepth_;
  if (adapter.flowOut() == flowOut.get() && !adapter.isRetired()) {
    flowOut->runResultIs(result);
    bool const isIdle = result == 0 && start == 0 && host_.exchange.framesSent() == framesBefore;
    settle(adapter, **flowOut, threw, isIdle);
  }
  if (isOutermost) queueStopped();
  return true;
}

/// What a run has left behind. `isIdle`: a whole walk that sent nothing.
void FlowScheduler::settle(Sa& adapter, FlowOut& flowOut, bool threw, bool isIdle) {
  if (adapter.life() == Life::held) return;
  if (flowOut.isBlocked()) return lifeIs(adapter, Life::blocked);
  if (threw) return lifeIs(adapter, Life::parked);
  if (flowOut.runResult() == 0) {
    if (flowOut.isFull() && !flowOut.isCompleteSent()) {
      flowOut.isCompleteSentIs(true);
      host_.sendComplete(adapter.entityId());
    }
    // Bits still set after a full walk were set during it.
    flowOut.owedSinceMsIs(flowOut.walkBeganMs());
    if (!flowOut.hasDirtyAttributes()) return flowOutDel(adapter);
  }
  if (isIdle) return lifeIs(adapter, Life::parked);
  stopped_.emplace_back(&adapter);
}

/// Those that stopped in one run are queued with the deepest on top: its parent waits for it.
void FlowScheduler::queueStopped() {
  for (auto adapter = stopped_.rbegin(); adapter != stopped_.rend(); ++adapter) {
    if ((*adapter)->life() == Life::owing) queue(***adapter);
  }
  stopped_.clear();
}

void FlowScheduler::clear() {
  quick_.clear();
  bulk_.clear();
  stopped_.clear();
  blocked_.clear();
}

std::string FlowScheduler::brokenInvariant() const {
  std::string broken;
  std::size_t flowOuts = 0;
  std::size_t held = 0;
  std::size_t parked = 0;
  std::unordered_set<Sa const*> queued;
  for (auto const& adapter : quick_) queued.insert(adapter.get());
  for (auto const& adapter : bulk_) queued.insert(adapter.get());
  host_.reactors.forEach([&](Sa& adapter) {
    Life const life = adapter.life();
    FlowOut const* const flowOut = adapter.flowOut();
    flowOuts += flowOut != nullptr ? 1 : 0;
    held += life == Life::held ? 1 : 0;
    parked += isParked(life) ? 1 : 0;
    bool const owes = life == Life::owing || isParked(life);
    if (life != Life::held && owes != (flowOut != nullptr)) {
      broken = "F1: a FlowOut doesn't go with the adapter's life";
    } else if (life == Life::blocked && blocked_.count(flowOut->blockedOn()) == 0) {
      broken = "F3: a blocked adapter is not found by what it waits for";
    } else if (life == Life::owing && !queued.contains(&adapter)) {
      broken = "F4: an owing adapter is in no queue";
    }
  });
  if (flowOuts != flowOutCount_ || held != heldCount_ || parked != parkedCount_) {
    broken = "F2: the counts are not those of the table";
  }
  return broken;
}

}  // namespace Mox::NboAttrLog
