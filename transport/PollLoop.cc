// The loop: what to wait for, how long, and who is called.
#include "transport/PollLoop.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <climits>

namespace Mox::NboAttrLog {
namespace {

/// Connections taken from one listener before others have their turn.
constexpr int acceptsPerTurn = 16;
/// How long a listener rests when the process is out of descriptors or memory: it would wake the
/// loop at once, again and again.
constexpr std::uint64_t acceptPauseMs = 100;

}  // namespace

std::uint64_t PollLoop::steadyMs() {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(
      duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

void PollLoop::sessionIs(Session& session) {
  if (std::find(sessions_.begin(), sessions_.end(), &session) == sessions_.end()) {
    sessions_.push_back(&session);
  }
}

void PollLoop::sessionDel(Session& session) { std::erase(sessions_, &session); }

void PollLoop::listenerIs(Listener& listener, Session& session) {
  listenerIs(listener,
             [&session](std::unique_ptr<SocketLink> link) { session.linkIs(std::move(link)); });
}

void PollLoop::listenerIs(Listener& listener, Accepted accepted) {
  listening_.push_back({&listener, std::move(accepted)});
}

void PollLoop::listenerDel(Listener& listener) {
  std::erase_if(listening_,
                [&listener](Listening const& entry) { return entry.listener == &listener; });
}

void PollLoop::descriptorIs(int fd, Handler ready, Wait wait) {
  descriptors_[fd] = {std::move(ready), wait};
}

void PollLoop::descriptorDel(int fd) { descriptors_.erase(fd); }

std::uint64_t PollLoop::timerIs(std::uint64_t dueMs, Handler due) {
  timers_.emplace(++lastTimer_, Timer{dueMs, std::move(due)});
  return lastTimer_;
}

void PollLoop::timerDel(std::uint64_t timer) { timers_.erase(timer); }

int PollLoop::waitMs(int maxWaitMs) const {
  std::uint64_t const now = clock_();
  std::uint64_t wait = maxWaitMs < 0 ? UINT64_MAX : static_cast<std::uint64_t>(maxWaitMs);
  auto const dueAt = [&wait, now](std::uint64_t dueMs) {
    wait = std::min(wait, dueMs > now ? dueMs - now : 0);
  };
  for (auto const& [number, timer] : timers_) dueAt(timer.dueMs);
  for (Session const* session : sessions_) {
    for (Ptr<Link> const& link : session->links()) {
      if (auto const dueMs = link->dueMs()) dueAt(*dueMs);
    }
  }
  for (Listening const& entry : listening_) {
    if (entry.pausedUntilMs > now) dueAt(entry.pausedUntilMs);
  }
  return wait == UINT64_MAX ? -1 : static_cast<int>(std::min<std::uint64_t>(wait, INT_MAX));
}

void PollLoop::turn(int maxWaitMs) {
  struct Served {
    Ptr<Link> link;
    std::size_t at;
  };
  constexpr std::size_t notPolled = SIZE_MAX;
  std::vector<pollfd> polled;
  auto const watch = [&polled](int fd, short events) {
    polled.push_back({fd, events, 0});
    return polled.size() - 1;
  };

  std::vector<Served> served;
  for (Session* session : sessions_) {
    for (Ptr<Link> const& link : session->links()) {
      // What was written since the last turn goes out before anything is waited for.
      link->send();
      int const fd = link->bytes().fd();
      short const events =
          static_cast<short>((link->wantsRead() ? POLLIN : 0) | (link->wantsWrite() ? POLLOUT : 0));
      served.push_back({link, fd < 0 ? notPolled : watch(fd, events)});
    }
  }
  std::uint64_t const before = clock_();
  std::vector<std::pair<Listener*, std::size_t>> listeners;
  for (Listening const& entry : listening_) {
    if (entry.pausedUntilMs <= before) {
      listeners.emplace_back(entry.listener, watch(entry.listener->fd(), POLLIN));
    }
  }
  std::vector<std::pair<int, std::size_t>> others;
  for (auto const& [fd, waiting] : descriptors_) {
    others.emplace_back(fd, watch(fd, waiting.wait == Wait::toRead ? POLLIN : POLLOUT));
  }

  if (::poll(polled.data(), static_cast<nfds_t>(polled.size()), waitMs(maxWaitMs)) < 0) {
    // A signal, or no memory for the moment: nothing is known to be ready.
    for (pollfd& entry : polled) entry.revents = 0;
  }

  std::uint64_t const now = clock_();
  for (Served const& entry : served) {
    bool const isReady = entry.at == notPolled || polled[entry.at].revents != 0;
    auto const dueMs = entry.link->dueMs();
    if (isReady || (dueMs && *dueMs <= now)) entry.link->service(now);
  }
  for (auto const& [listener, at] : listeners) {
    if (polled[at].revents != 0) acceptFrom(listener);
  }
  for (auto const& [fd, at] : others) {
    if (polled[at].revents == 0) continue;
    auto const present = descriptors_.find(fd);
    if (present == descriptors_.end()) continue;
    // It may take itself out.
    Handler const handler = present->second.ready;
    handler();
  }
  runTimers();
}

void PollLoop::acceptFrom(Listener* listener) {
  for (int i = 0; i < acceptsPerTurn; ++i) {
    auto const entry = std::find_if(listening_.begin(), listening_.end(),
                                    [=](Listening const& e) { return e.listener == listener; });
    if (entry == listening_.end()) return;
    try {
      std::unique_ptr<SocketLink> link = listener->accept();
      if (!link) return;
      // It may take the listener out.
      Accepted const accepted = entry->accepted;
      accepted(std::move(link));
    } catch (TransportError const& failure) {
      entry->pausedUntilMs = clock_() + acceptPauseMs;
      if (onReport_) onReport_(failure.what());
      return;
    }
  }
}

void PollLoop::runTimers() {
  std::uint64_t const now = clock_();
  std::vector<std::uint64_t> due;
  for (auto const& [number, timer] : timers_) {
    if (timer.dueMs <= now) due.push_back(number);
  }
  for (std::uint64_t const number : due) {
    auto const at = timers_.find(number);
    if (at == timers_.end()) continue;
    Handler const handler = std::move(at->second.due);
    timers_.erase(at);
    handler();
  }
}

void PollLoop::run() {
  isStopped_ = false;
  while (!isStopped_) turn();
}

}  // namespace Mox::NboAttrLog
