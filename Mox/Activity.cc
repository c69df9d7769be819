#include "Mox/Activity.h"

#include <algorithm>
#include <utility>

#include "Mox/Notifiee.h"

namespace Mox {

Activity::Activity() : actsm_(new ActivitySm(this)) {}
Activity::~Activity() {
  actsm_->activity_ = nullptr;
  for (Waiting const& waiting : waiting_) waiting.notifiee->moxIsWaitingIs(false);
}

void Activity::notifieeEnq(Ptr<PtrInterface::NotifieeConst> const& notifiee) {
  waiting_.push_back({notifiee, nextNumber_++});
  notifiee->moxIsWaitingIs(true);
}

void Activity::notifieeDel(PtrInterface::NotifieeConst& notifiee) {
  auto const at = std::find_if(waiting_.begin(), waiting_.end(), [&](Waiting const& waiting) {
    return waiting.notifiee.get() == &notifiee;
  });
  if (at == waiting_.end()) return;
  // Released last, since its destructor may use this queue.
  Ptr<PtrInterface::NotifieeConst> const held(std::move(at->notifiee));
  waiting_.erase(at);
  held->moxIsWaitingIs(false);
}

unsigned int Activity::run() {
  // Held, since a handler may drop the last reference to this activity.
  Ptr<Activity> const held(this);
  unsigned int count = 0;
  std::uint64_t const end = nextNumber_;
  for (; !waiting_.empty() && waiting_.front().number < end; ++count) {
    Ptr<PtrInterface::NotifieeConst> const notifiee(std::move(waiting_.front().notifiee));
    waiting_.pop_front();
    notifiee->moxIsWaitingIs(false);
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
