#include "Mox/Activity.h"

#include "Mox/Notifiee.h"

namespace Mox {

Activity::Activity() : actsm_(new ActivitySm) {}
Activity::~Activity() = default;

void Activity::notifieeEnq(Ptr<PtrInterface::NotifieeConst> const& notifiee) {
  waiting_.push_back(notifiee);
}

unsigned int Activity::run() {
  // Held, since a handler may drop the last reference to this activity.
  Ptr<Activity> const held(this);
  unsigned int count = 0;
  for (std::size_t left = waiting_.size(); left != 0 && !waiting_.empty(); --left, ++count) {
    Ptr<PtrInterface::NotifieeConst> const notifiee(waiting_.front());
    waiting_.pop_front();
    try {
      notifiee->handleNotification(&config_);
    } catch (...) {
      notifiee->handleNotificationException();
    }
  }
  return count;
}

bool Activity::hasWaiting() const { return !waiting_.empty(); }

}  // namespace Mox
