// Deferred notifications: an activity queues notifiees that have a pending notification and runs
// their `handleNotification` when its owner calls `run()`. Used by generic objects; entities and
// stream adapters are called at once. One thread.
#pragma once

#include <cstdint>
#include <deque>

#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"

namespace MOX_API Mox {

/// How the notifiees of one activity are to be called.
struct ActivityConfig {
  /// False: every notification runs at once, in the caller's stack.
  bool isDeferring = false;
};

class Activity;

/// Counts the steps of a run: one for every handler called. Notifiees hold it in place of the
/// activity, which they don't keep alive.
class ActivitySm : public PtrInterface {
 public:
  explicit ActivitySm(Activity* activity) : activity_(activity) {}

  /// Null once the activity is destroyed.
  Activity* activity() const { return activity_; }
  std::uint32_t dispatches() const { return dispatches_; }
  void dispatchesInc() { ++dispatches_; }

 private:
  friend class Activity;

  Activity* activity_;
  std::uint32_t dispatches_ = 0;
};

/// Held by its owner alone. When it is destroyed with notifiees in its queue, their notifications
/// stay pending: each is delivered with the notifiee's next one, or by the next activity that it is
/// given.
class Activity : public PtrInterface {
 public:
  Activity();
  ~Activity() override;

  ActivityConfig const& config() const { return config_; }
  /// Switching the deferral off leaves what already waits in the queue.
  void isDeferringIs(bool deferring) { config_.isDeferring = deferring; }
  ActivitySm* actsm() const { return actsm_.get(); }

  /// Holds `notifiee` until it has run. Requires: it is in the queue of no activity.
  void notifieeEnq(Ptr<PtrInterface::NotifieeConst> const& notifiee);
  /// Takes `notifiee` out of the queue and releases it; does nothing for one that isn't there.
  void notifieeDel(PtrInterface::NotifieeConst& notifiee);
  /// Runs the notifiees that were in the queue at the time of the call, in order; returns how many.
  /// An exception of one goes to its `handleNotificationException`.
  unsigned int run();
  bool hasWaiting() const;

 private:
  struct Waiting {
    Ptr<PtrInterface::NotifieeConst> notifiee;
    std::uint64_t number;
  };

  ActivityConfig config_;
  Ptr<ActivitySm> actsm_;
  std::deque<Waiting> waiting_;
  /// Entries are numbered, since a handler may take entries out and add others during a run.
  std::uint64_t nextNumber_ = 0;
};

}  // namespace Mox
