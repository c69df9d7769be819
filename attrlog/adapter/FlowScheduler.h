// When what a connection owes is sent: which adapter's flow-out runs next and how far, and which
// wait for something. It alone changes the lives of adapters. The connection's turn calls `run`.
//
// F1  an adapter has a FlowOut exactly when it is owing, parked or blocked, or is held with marks
// F2  the counts of FlowOuts and of held, parked and blocked adapters are those of the table
// F3  each blocked adapter is found under the entity that it waits for
// F4  between runs each owing adapter is in a queue
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Mox/AttributeId.h"
#include "Mox/Ptr.h"
#include "attrlog/adapter/StreamAdapter.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class AdapterHost;

class FlowScheduler {
 public:
  using Sa = Entity::MoxNboAttrLogSa;

  explicit FlowScheduler(AdapterHost& host) : host_(host) {}

  // Lives.

  /// The peer knows the entity by the adapter's id from here on.
  void announcedIs(Sa& adapter);
  /// The peer transfers the entity until `holdEnd`.
  void holdIs(Sa& adapter);
  void holdEnd(Sa& adapter);
  /// Drops what the adapter owes; it is in step then, or held as before.
  void flowOutDel(Sa& adapter);
  /// The peer knows the entity by another id: the adapter begins anew.
  void unannounce(Sa& adapter);
  void retire(Sa& adapter);

  // Flow-outs.

  /// Makes the adapter's FlowOut. `full`: everything is owed, and the peer is told the end. Null on
  /// a connection that isn't running, or for an adapter that the peer doesn't know.
  FlowOut* createFlowOut(Sa& adapter, ConnectDesc const& desc, bool full, AttributeId start);
  /// Starts the full transfer of an adapter's entity, unless the peer sent it or it has begun.
  void transferIs(Sa& adapter);
  /// True while a run may go on. Once false it stays false to the end of the run.
  bool continueFlowOut();
  /// True while a run is on the stack.
  bool inRun() const { return runDepth_ != 0; }
  /// For its lifetime transfers wait for their turn.
  class OnlyQueue;
  /// A change happened: a flow-out that waits is tried again.
  void unpark(Sa& adapter);

  // Waiting for an id.

  /// The run of the adapter stops at a reference to this entity.
  void blockedOnIs(Entity const* target) { blockedOn_ = target; }
  /// The entity has an id now: the adapters that wait for it try again.
  void wake(Entity const* target);
  void wakeAll();

  // Turns.

  /// Runs flow-outs until none is left or the buffer is short: by turns one that resumes and the
  /// deepest of the full transfers. `between` is called behind each run; it may send bytes.
  void run(std::function<void()> const& between);
  bool hasWaiting() const { return !quick_.empty() || !bulk_.empty(); }
  std::size_t flowOutCount() const { return flowOutCount_; }
  std::size_t heldCount() const { return heldCount_; }
  /// True when no flow-out will send anything before something changes.
  bool isAllParked() const { return flowOutCount_ == parkedCount_; }

  void clear();
  /// The first broken invariant; empty when all hold. Requires: no run.
  std::string brokenInvariant() const;

 private:
  void lifeIs(Sa& adapter, StreamAdapter::Life life);
  void blockedDel(Sa& adapter);
  void queue(Sa& adapter);
  bool runOne(Sa& adapter);
  void settle(Sa& adapter, FlowOut& flowOut, bool threw, bool isIdle);
  void queueStopped();

  AdapterHost& host_;
  std::deque<Ptr<Sa>> quick_;  ///< marks; first in, first out
  std::vector<Ptr<Sa>> bulk_;  ///< full transfers; last in, first out: parents wait for children
  std::vector<Ptr<Sa>> stopped_;
  std::unordered_multimap<Entity const*, Sa*> blocked_;  ///< by the entity that is waited for
  Entity const* blockedOn_ = nullptr;                    ///< a name only: it may be gone
  std::size_t flowOutCount_ = 0;
  std::size_t heldCount_ = 0;
  std::size_t parkedCount_ = 0;  ///< with a FlowOut, parked or blocked
  int runDepth_ = 0;
  bool isRunStopped_ = false;
  bool onlyQueues_ = false;
  std::uint64_t runStart_ = 0;
};

class FlowScheduler::OnlyQueue {
 public:
  explicit OnlyQueue(FlowScheduler& scheduler)
      : scheduler_(scheduler), before_(scheduler.onlyQueues_) {
    scheduler.onlyQueues_ = true;
  }
  ~OnlyQueue() { scheduler_.onlyQueues_ = before_; }
  OnlyQueue(OnlyQueue const&) = delete;
  OnlyQueue& operator=(OnlyQueue const&) = delete;

 private:
  FlowScheduler& scheduler_;
  bool before_;
};

}  // namespace NboAttrLog
}  // namespace Mox
