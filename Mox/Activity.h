// Deferred notifications: an activity collects what its notifiees heard and runs their
// `handleNotification` when its owner finds the time. Used by generic objects; entities and stream
// adapters are called at once. One thread.
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

/// Counts the steps of a run: one for every handler called.
class ActivitySm : public PtrInterface {
 public:
  std::uint32_t dispatches() const { return dispatches_; }
  void dispatchesInc() { ++dispatches_; }

 private:
  std::uint32_t dispatches_ = 0;
};

class Activity : public PtrInterface {
 public:
  Activity();
  ~Activity() override;

  ActivityConfig const& config() const { return config_; }
  /// Switching the deferral off leaves what already waits in the queue.
  void isDeferringIs(bool deferring) { config_.isDeferring = deferring; }
  ActivitySm* actsm() const { return actsm_.get(); }

  /// Holds `notifiee` until it has run.
  void notifieeEnq(Ptr<PtrInterface::NotifieeConst> const& notifiee);
  /// Runs what waited at the time of the call, in order; returns how many. An exception of one goes
  /// to its `handleNotificationException`.
  unsigned int run();
  bool hasWaiting() const;

 private:
  ActivityConfig config_;
  Ptr<ActivitySm> actsm_;
  std::deque<Ptr<PtrInterface::NotifieeConst>> waiting_;
};

}  // namespace Mox
