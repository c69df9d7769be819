// One connection after the other.
#include "transport/Dialer.h"

#include <algorithm>
#include <utility>

namespace Mox::NboAttrLog {

Dialer::Dialer(PollLoop& loop, Session& session, Connect connect, Pauses const& pauses)
    : loop_(loop),
      session_(session),
      connect_(std::move(connect)),
      pauses_(pauses),
      pauseMs_(pauses.firstMs) {
  session_.onClosed([this](Link& link, std::string const& reason) {
    if (link_.get() == &link) lost(&link, reason);
  });
}

Dialer::~Dialer() {
  stop();
  session_.onClosed(nullptr);
}

void Dialer::start() {
  isStarted_ = true;
  if (!link_ && timer_ == 0) dial();
}

void Dialer::stop() {
  isStarted_ = false;
  if (timer_ != 0) loop_.timerDel(std::exchange(timer_, 0));
}

void Dialer::dial() {
  sinceMs_ = loop_.nowMs();
  try {
    link_ = session_.linkIs(connect_());
  } catch (TransportError const& failure) {
    lost(nullptr, failure.what());
  }
}

void Dialer::lost(Link const* link, std::string const& reason) {
  Ptr<Link> const hold = std::exchange(link_, nullptr);
  if (!isStarted_) return;
  if (link && loop_.nowMs() - sinceMs_ >= pauses_.mostMs) pauseMs_ = pauses_.firstMs;
  std::uint64_t const pauseMs = std::exchange(pauseMs_, std::min(pauseMs_ * 2, pauses_.mostMs));
  timer_ = loop_.timerIs(loop_.nowMs() + pauseMs, [this] {
    timer_ = 0;
    dial();
  });
  if (onLost_) onLost_(link, reason, pauseMs);
}

}  // namespace Mox::NboAttrLog
